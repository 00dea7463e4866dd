#!/usr/bin/env bash
# The fast subset of bench/speaking-rate-eval.sh: espeak-ng speech at three
# rates, 22050 Hz mono and 44100 Hz stereo, clean and noisy, measured
# against the known syllables and words of the text; fails when a figure
# misses its bound.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
source_dir=$2
build=$(cd "$(dirname "$tool")" && pwd)
exec bash "$source_dir/bench/speaking-rate-eval.sh" "$build" --quick
