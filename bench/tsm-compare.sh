#!/usr/bin/env bash
# Times tempo change with the pitch kept on one 10-minute speech file:
# `tempvox render --just-play` against soundstretch, sonic and sox, at 2.0x
# and 0.5x. Prints tool, factor, CPU seconds (user+sys), times faster than
# real time, and output duration / input duration.
# Usage: bench/tsm-compare.sh [BUILD_DIR]   (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
tool=$build/tempvox
[ -x "$tool" ] || { echo "build tempvox first (cmake --build $build)"; exit 1; }

need=()
for p in espeak-ng sox soundstretch sonic time; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || need+=("$p")
done
if [ ${#need[@]} -gt 0 ]; then
  sudo_cmd=(); [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo -n)
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${need[@]}" </dev/null >/dev/null
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Ten minutes of speech, 16-bit mono at 22050 Hz: one paragraph spoken and
# repeated until the length is reached.
text="Listening practice works best when the learner can slow a recording down without changing the voice. \
Each lesson is read at a natural pace, and the player lets the learner choose a slower or faster tempo. \
Short sentences, clear pauses and repeated phrases help the ear to catch every word."
espeak-ng -s 160 -w "$work/para.wav" "$text"
sox "$work/para.wav" -r 22050 -b 16 -e signed-integer -c 1 "$work/para16.wav"
para=$(soxi -D "$work/para16.wav")
repeats=$(python3 -c "import math,sys; print(math.ceil(600/float(sys.argv[1])))" "$para")
list=()
for _ in $(seq "$repeats"); do list+=("$work/para16.wav"); done
sox "${list[@]}" "$work/long.wav"
sox "$work/long.wav" "$work/speech.wav" trim 0 600
input=$(soxi -D "$work/speech.wav")

measure() {
  local name=$1 factor=$2 output=$3; shift 3
  local cpu
  /usr/bin/time -f "%U %S" -o "$work/cpu" "$@" >/dev/null 2>&1
  cpu=$(python3 -c "import sys; u,s=open(sys.argv[1]).read().split()[-2:]; print(f'{float(u)+float(s):.3f}')" "$work/cpu")
  local duration
  duration=$(soxi -D "$output")
  python3 - "$name" "$factor" "$cpu" "$input" "$duration" <<'PY'
import sys
name, factor, cpu, inp, out = sys.argv[1], sys.argv[2], float(sys.argv[3]), float(sys.argv[4]), float(sys.argv[5])
speed = inp / cpu if cpu > 0 else float("inf")
print(f"| {name:<28} | {factor:>5} | {cpu:>8.3f} | {speed:>10.0f} | {out / inp:>6.3f} |")
PY
}

echo "Input: $(printf '%.1f' "$input") s of espeak-ng speech, 16-bit mono, 22050 Hz"
echo
echo "| tool                         | factor | CPU s    | x realtime | out/in |"
echo "|------------------------------|--------|----------|------------|--------|"
for case in "2.0 50 100 2.0" "0.5 -60 -50 0.5"; do
  read -r factor level stretch sonicspeed <<<"$case"
  measure "tempvox render --just-play" "$factor" "$work/tv.wav" "$tool" render "$work/speech.wav" "$work/tv.wav" --just-play --level "$level"
  measure "soundstretch -speech" "$factor" "$work/ss.wav" soundstretch "$work/speech.wav" "$work/ss.wav" "-tempo=$stretch" -speech
  measure "sonic" "$factor" "$work/so.wav" sonic -s "$sonicspeed" "$work/speech.wav" "$work/so.wav"
  measure "sox tempo -s" "$factor" "$work/sx.wav" sox "$work/speech.wav" "$work/sx.wav" tempo -s "$factor"
done
echo
echo "Machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'); $(date -u +%Y-%m-%d)"
