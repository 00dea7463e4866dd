#!/usr/bin/env bash
# tempvox view draws a file's waveform view into a PNG of the asked size,
# with the white ruler band on top, and refuses what it can't draw.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
work=$3/view-png
export PYTHONPATH="$2/tests/scripts${PYTHONPATH:+:$PYTHONPATH}"  # wavfile.py
rm -rf "$work"
mkdir -p "$work"
python3 - "$work" <<'PY'
import sys
from wavfile import write_wav
write_wav(f"{sys.argv[1]}/tone.wav", [((i % 100) - 50) * 400 for i in range(22050 * 3)])
PY
"$tool" view "$work/tone.wav" -o "$work/tone.png" --size 640x200
python3 - "$work/tone.png" <<'PY'
import struct, sys, zlib
raw = open(sys.argv[1], "rb").read()
assert raw[:8] == b"\x89PNG\r\n\x1a\n", "not a PNG"
width, height = struct.unpack(">II", raw[16:24])
assert (width, height) == (640, 200), (width, height)
PY
[ ! -e "$work/tone_copy.wav" ] || { echo "FAIL: the private copy was left behind"; exit 1; }
if "$tool" view "$work/missing.wav" -o "$work/missing.png" 2>/dev/null; then echo "FAIL: a missing file was drawn"; exit 1; fi
echo "view ok"
