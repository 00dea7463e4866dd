#!/usr/bin/env bash
# The encoder of the command-line tool and the codec library beside it, end
# to end: encode .wav files, check the wzq layout, play the result through
# the capture device, and play it again with a copy of the tool that has no
# library beside it.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
work=$3/media-encode
export PYTHONPATH="$2/tests/scripts${PYTHONPATH:+:$PYTHONPATH}"  # wavfile.py
rm -rf "$work"
mkdir -p "$work/alone"
cd "$work"
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"
status_of() { set +e; "$@" >/dev/null 2>&1; local s=$?; set -e; echo $s; }

# Speech-like sources, in integer arithmetic so every machine makes the
# same samples: mono 16 kHz, stereo 22.05 kHz, and an 8-bit file.
python3 - <<'PY'
import struct
from wavfile import write_wav
def wav(name, channels, rate, samples, bits=16):
    write_wav(name, samples, rate, channels, bits)
def speech(count):
    out = []
    for i in range(count):
        phase = i % 150
        pulse = phase if phase < 75 else 150 - phase
        envelope = (i // 1600) % 4
        out.append((pulse - 37) * 90 * envelope)
    return out
mono = speech(24000)
wav("mono-source.wav", 1, 16000, mono)
stereo = []
for s in speech(22050):
    stereo += [s, s // 2]
wav("stereo-source.wav", 2, 22050, stereo)
wav("eight.wav", 1, 8000, mono[:800], bits=8)
open("text.wav", "w").write("not a wave file")
PY

header_of() {  # magic channels rate frameBytes frameCount fileSize
  python3 - "$1" <<'PY'
import os, struct, sys
b = open(sys.argv[1], "rb").read()
ch, rate, fb, fc = struct.unpack("<hIII", b[2:16])
print(b[:2].decode(), ch, rate, fb, fc, os.path.getsize(sys.argv[1]))
PY
}

check "encode mono" 0 "$(status_of "$tool" encode mono-source.wav mono.wzq)"
check "mono layout" "ZQ 1 16000 264 47 $((16 + 47 * 264))" "$(header_of mono.wzq)"
check "encode stereo ZR" 0 "$(status_of "$tool" encode stereo-source.wav stereo.wzq --variant ZR --frame-bytes 72)"
check "stereo layout" "ZR 2 22050 72 345 $((16 + 345 * 72))" "$(header_of stereo.wzq)"

check "no output named" 2 "$(status_of "$tool" encode mono-source.wav)"
check "unknown variant" 2 "$(status_of "$tool" encode mono-source.wav x.wzq --variant ZX)"
check "frame size not a number" 2 "$(status_of "$tool" encode mono-source.wav x.wzq --frame-bytes 1k)"
check "frame of its head alone" 1 "$(status_of "$tool" encode mono-source.wav x.wzq --frame-bytes 8)"
check "8-bit input" 4 "$(status_of "$tool" encode eight.wav x.wzq)"
check "not a wave file" 4 "$(status_of "$tool" encode text.wav x.wzq)"
check "missing input" 3 "$(status_of "$tool" encode absent.wav x.wzq)"
check "nothing written on failure" no "$([ -e x.wzq ] && echo yes || echo no)"

# Played through the library beside the tool: converted beside the encoded
# file, heard, and the converted file gone with the player.
for name in mono stereo; do
  check "play $name" 0 "$(status_of "$tool" play $name.wzq --audio capture:$name-heard.wav)"
  check "$name heard" yes "$([ -s $name-heard.wav ] && echo yes || echo no)"
  check "$name left nothing beside" no "$([ -e $name.wav ] && echo yes || echo no)"
done

# A user's .wav beside the encoded file is neither replaced nor deleted: the
# conversion goes to the temporary folder and leaves nothing there either.
cp mono.wzq other.wzq
printf 'a recording of the user' > other.wav
check "play beside a user's wav" 0 "$(status_of "$tool" play other.wzq --audio capture:other-heard.wav)"
check "user's wav untouched" "a recording of the user" "$(cat other.wav)"
check "other heard" yes "$([ -s other-heard.wav ] && echo yes || echo no)"
temp_dir="$(dirname "$tool")/ZqTempAudio"
check "nothing left in the temporary folder" "" "$(ls "$temp_dir" 2>/dev/null | grep '^other-' || true)"

# A file cut short after three whole frames plays those three, with a
# warning, and what is heard is no more than was there.
head -c $((16 + 3 * 264 + 100)) mono.wzq > cut.wzq
set +e; "$tool" render cut.wzq cut-heard.wav 2> cut.err >/dev/null; cut_status=$?; set -e
check "render a cut file" 0 "$cut_status"
check "cut file warned" "tempvox render: cut.wzq holds 3 of its 47 frames" "$(grep -m1 'holds' cut.err || true)"
check "cut file heard" "$((3 * 1024))" \
  "$(python3 -c "import struct,sys; b=open('cut-heard.wav','rb').read(); print(struct.unpack('<I', b[40:44])[0])")"
check "whole file not warned" "" "$("$tool" render mono.wzq whole-heard.wav 2>&1 >/dev/null | grep holds || true)"

# A copy of the tool with no library beside it (nor on the library path)
# cannot play the encoded file and leaves the bare 44-byte head.
cp "$tool" alone/tempvox
cp mono.wzq alone/lesson.wzq
check "play without the library" 4 "$(cd alone && LD_LIBRARY_PATH= status_of ./tempvox play lesson.wzq --audio null)"
check "head alone left" 44 "$(stat -c %s alone/lesson.wav)"

echo "media_encode: $passes passed, $failures failed"
[ "$failures" -eq 0 ]
