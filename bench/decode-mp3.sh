#!/usr/bin/env bash
# Decoding one hour of 128 kbit/s MP3 (44.1 kHz stereo speech) to a .wav:
# tempvox's decoding (bench/DecodeToWav_bench, the path SetPlayFilePath
# takes) beside the ffmpeg tool doing the same, in one run. CPU is user +
# sys, memory the largest resident set, both from /usr/bin/time -v.
# Usage: bench/decode-mp3.sh BUILD_DIR   (the MP3 is made once and kept there)
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
source_dir=$(cd "$(dirname "$0")/.." && pwd)
data=$build/bench-data
mkdir -p "$data"
mp3=$data/hour-128k.mp3
if [ ! -s "$mp3" ]; then
  echo "making one hour of 128 kbit/s MP3 (once)..."
  "$source_dir/scripts/make-sample.sh" "$data/speech.wav" >/dev/null
  ffmpeg -hide_banner -loglevel error -nostdin -y -stream_loop -1 -i "$data/speech.wav" -t 3600 \
    -af "pan=stereo|c0=c0|c1=0.8*c0" -ar 44100 -c:a libmp3lame -b:a 128k "$mp3"
fi
seconds=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$mp3")
out=$data/out
rm -rf "$out"
mkdir -p "$out"

measure() {  # measure NAME COMMAND...: prints NAME, CPU s, % of the audio's length, max RSS
  local name=$1
  shift
  /usr/bin/time -v "$@" > "$out/$name.log" 2> "$out/$name.time"
  python3 - "$name" "$seconds" "$out/$name.time" <<'PY'
import re, sys
name, seconds, path = sys.argv[1], float(sys.argv[2]), sys.argv[3]
text = open(path).read()
user = float(re.search(r"User time \(seconds\): ([\d.]+)", text).group(1))
system = float(re.search(r"System time \(seconds\): ([\d.]+)", text).group(1))
rss = int(re.search(r"Maximum resident set size \(kbytes\): (\d+)", text).group(1))
cpu = user + system
print(f"| {name:<28} | {cpu:8.2f} | {100 * cpu / seconds:6.2f} % | {rss / 1024:7.1f} MB |")
PY
  rm -f "$out"/*.wav
}

echo "input: $mp3 ($seconds s, $(stat -c %s "$mp3") bytes)"
echo "| decoder                      |    CPU s | of length |  max RSS   |"
echo "|------------------------------|----------|-----------|------------|"
TEMPVOX_BENCH_AUDIO=$mp3 TEMPVOX_BENCH_OUT_DIR=$out/ measure "tempvox DecodeToWav" "$build/bench/DecodeToWav_bench"
measure "ffmpeg -i x.mp3 x.wav" ffmpeg -hide_banner -loglevel error -nostdin -y -i "$mp3" -c:a pcm_s16le "$out/ffmpeg.wav"
rm -rf "$out"
