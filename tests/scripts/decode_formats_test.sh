#!/usr/bin/env bash
# The lessons people have: a spoken sample made into MP3, M4A (AAC), Ogg
# Vorbis, Opus, FLAC, 24-bit, float and six-channel WAV, an MP3 with an ID3
# tag and a large cover picture, and Ogg named .mp3. Each plays through
# `tempvox play --classic` on the capture device, and what is heard matches
# the ffmpeg tool's own decode of the same file: the same length within one
# block (a tenth of a second) and a correlation above 0.99 (scale-free, so
# the automatic gain does not count). Then a cut-short MP3 plays what it
# holds, random bytes named .mp3 get the engine's refusal and a reason, and
# `tempvox render` writes an MP3 that the ffmpeg tool reads back at the
# expected length.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
source_dir=$2
work=$3/decode-formats
rm -rf "$work"
mkdir -p "$work"
cd "$work"
for program in ffmpeg ffprobe; do
  command -v $program >/dev/null || { echo "FAIL: $program is needed (scripts/deps.sh installs it)"; exit 1; }
done

source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"

"$source_dir/scripts/make-sample.sh" sample.wav "Welcome to the lesson. Listen, then repeat each word." >/dev/null
ff() { ffmpeg -hide_banner -loglevel error -nostdin -y "$@"; }
# Two channels that differ (the right one late and mixed), so that a swap or
# a slip of the interleaving would show.
stereo="pan=stereo|c0=c0|c1=c0,adelay=delays=0|120,pan=stereo|c0=c0|c1=0.7*c1+0.3*c0"
ff -i sample.wav -c:a libmp3lame -b:a 64k lesson.mp3
ff -i sample.wav -c:a aac -b:a 64k lesson.m4a
ff -i sample.wav -c:a libvorbis -q:a 4 lesson.ogg
ff -i sample.wav -c:a libopus -b:a 32k lesson.opus
ff -i sample.wav -af "$stereo" -c:a flac lesson.flac
ff -i sample.wav -c:a pcm_s24le deep24.wav
ff -i sample.wav -af "$stereo" -c:a pcm_f32le float.wav
ff -i sample.wav -af "pan=5.1|FL=c0|FR=0.5*c0|FC=0.8*c0|LFE=0.1*c0|BL=0.3*c0|BR=-0.6*c0" -c:a pcm_s16le six.wav
# A picture of noise compresses badly: the tag is larger than the first
# megabyte that format recognition looks at.
ff -f lavfi -i "nullsrc=s=1024x1024,geq=random(1)*255:random(2)*255:random(3)*255" -frames:v 1 cover.png
ff -i lesson.mp3 -i cover.png -map 0 -map 1 -c copy -id3v2_version 3 -metadata title="Lesson one" \
  -metadata:s:v comment="Cover (front)" tagged.mp3
cp lesson.ogg ogg-named.mp3
head -c 20000 lesson.mp3 > cut.mp3

tag_bytes=$(python3 -c "import sys; h=open('tagged.mp3','rb').read(10); print(10 + (h[6]<<21 | h[7]<<14 | h[8]<<7 | h[9]))")
check "cover tag beyond the first megabyte" yes "$([ "$tag_bytes" -gt 1048576 ] && echo yes || echo no)"

# play FILE CAPTURE: the classic profile at level 0, every sample played.
# The catalogue's English slot for the engine's messages, whatever the machine's locale.
play() { LC_ALL=C.UTF-8 "$tool" play "$1" --audio "capture:$2" --classic --just-play > "$2.out" 2> "$2.err"; }

# compare NAME FILE: the capture against ffmpeg's decode, at most two channels.
compare() {
  local name=$1 file=$2 channels
  channels=$(ffprobe -v error -select_streams a:0 -show_entries stream=channels -of csv=p=0 "$file")
  [ "$channels" -gt 2 ] && channels=2
  if ! play "$file" "heard-$name.wav"; then
    check "$name plays" 0 1
    cat "heard-$name.wav.err"
    return
  fi
  ff -i "$file" -ac "$channels" -c:a pcm_s16le "reference-$name.wav"
  local result
  result=$(python3 "$source_dir/tests/scripts/compare_decodes.py" "heard-$name.wav" "reference-$name.wav") || true
  echo "$name: $result"
  check "$name length within a block" yes "$(echo "$result" | awk '{print ($5 <= $7) ? "yes" : "no"}')"
  check "$name correlation above 0.99" yes "$(echo "$result" | awk '{print ($9 > 0.99) ? "yes" : "no"}')"
  check "$name says nothing more" "" "$(cat "heard-$name.wav.err")"
}

compare mp3 lesson.mp3
compare m4a lesson.m4a
compare ogg lesson.ogg
compare opus lesson.opus
compare flac lesson.flac
compare wav24 deep24.wav
compare float float.wav
compare six six.wav
compare tagged tagged.mp3
compare ogg-named-mp3 ogg-named.mp3

# Cut short: what it holds plays, and the tool says how much that is.
play cut.mp3 heard-cut.wav
ff -i cut.mp3 -c:a pcm_s16le reference-cut.wav
result=$(python3 "$source_dir/tests/scripts/compare_decodes.py" heard-cut.wav reference-cut.wav)
echo "cut: $result"
check "cut short: length within a block" yes "$(echo "$result" | awk '{print ($5 <= $7 && $2 > 0) ? "yes" : "no"}')"
check "cut short: correlation" yes "$(echo "$result" | awk '{print ($9 > 0.99) ? "yes" : "no"}')"
grep -q "cut.mp3: holds 00:0" heard-cut.wav.err && said=yes || said=no
check "cut short: the tool says how much it holds" yes "$said"

# Random bytes named .mp3: the engine's refusal (boxes 206 and 208) and the
# decoder's reason; nothing left beside them.
python3 -c "import random; random.seed(14); open('noise.mp3','wb').write(bytes(random.getrandbits(8) for _ in range(65536)))"
status=0
play noise.mp3 heard-noise.wav || status=$?
check "random bytes: refused as unsupported input" 4 "$status"
grep -qF "noise.mp3: not an audio file FFmpeg can decode (Invalid data found when processing input)" \
  heard-noise.wav.err && said=yes || said=no
check "random bytes: the reason" yes "$said"
grep -q "Loading audio file failed!" heard-noise.wav.err && said=yes || said=no
check "random bytes: the engine's message" yes "$said"

# Nothing of the decoding stays beside the lessons.
check "no .wav left beside the lessons" "" "$(ls lesson.wav ogg-named.wav tagged.wav cut.wav noise.wav six-1.wav 2>/dev/null || true)"

# render: an MP3 in, a slower MP3 out, at 1/0.75 of the length (refined
# profile, level -30).
"$tool" render lesson.mp3 slow.mp3 --level -30 --bitrate 48k > render.out 2> render.err || check "render runs" 0 $?
in_seconds=$(ffprobe -v error -show_entries format=duration -of csv=p=0 lesson.mp3)
out_seconds=$(ffprobe -v error -show_entries format=duration -of csv=p=0 slow.mp3 2>/dev/null || echo 0)
codec=$(ffprobe -v error -select_streams a:0 -show_entries stream=codec_name -of csv=p=0 slow.mp3 2>/dev/null || true)
echo "render: lesson.mp3 $in_seconds s, slow.mp3 $out_seconds s ($codec)"
check "render: an MP3" mp3 "$codec"
check "render: length input/0.75 within 1 %" yes \
  "$(python3 -c "import sys; i, o = map(float, sys.argv[1:]); print('yes' if abs(o - i / 0.75) <= 0.01 * i / 0.75 else 'no')" "$in_seconds" "$out_seconds")"
check "render: no partial files left" "" "$(ls slow.mp3.part-* 2>/dev/null || true)"

echo "decode_formats: $passes passed, $failures failed"
[ "$failures" -eq 0 ]
