#!/usr/bin/env bash
# How well does `tempvox segments` find sentences? Generates a test set with
# tests/scripts/sentence_set.py: for each of 16, 22.05 and 44.1 kHz, mono and
# stereo, a text of 20 to 40 sentences spoken one by one by espeak-ng (two
# voices taking turns, the second 6 dB quieter), joined with pauses of 400 to
# 1500 ms; heard clean and under white noise, pink noise, a 50 Hz hum and a
# bed of chords, each at 20 and 10 dB SNR. Then the boundary F1 (starts and
# ends within 100 ms) of tempvox against the truth of the joining, beside
# ffmpeg's silencedetect at the single noise threshold that does best over
# the whole set, and the CPU both take. It measures; it asserts nothing.
# Usage: bench/sentence-eval.sh [BUILD_DIR] [SEED]   (defaults: build, 16)
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(cd "${1:-build}" && pwd)
seed=${2:-16}
[ -x "$build/tempvox" ] || { echo "build tempvox first"; exit 1; }
for tool in espeak-ng sox ffmpeg; do
  command -v "$tool" >/dev/null || ./scripts/deps.sh
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
python3 tests/scripts/sentence_set.py generate "$work/set" --seed "$seed"
python3 tests/scripts/sentence_set.py compare "$build/tempvox" "$work/set"
