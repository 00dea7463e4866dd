#!/usr/bin/env bash
# The refined profile reads a WAV by its chunks: a stereo file written by the
# ffmpeg tool (which puts a LIST chunk before the data) renders at level 0 to
# exactly its data chunk's samples, left in left and right in right, as
# Python's own wave reader finds them.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
work=$3/refined-reading
rm -rf "$work"
mkdir -p "$work"
cd "$work"
command -v ffmpeg >/dev/null || { echo "ffmpeg is missing (scripts/deps.sh installs it)"; exit 1; }

# Different tones left and right at full scale (so the automatic gain stays
# at 1), then through ffmpeg, which writes its LIST chunk before the data.
sox -n -r 44100 -b 16 -c 2 source.wav synth 1.5 sine 440 sine 660 remix 1 2 gain -0.01
ffmpeg -v error -y -i source.wav -c:a pcm_s16le listed.wav
"$tool" render listed.wav refined.wav --just-play --level 0 >/dev/null
"$tool" render listed.wav classic.wav --just-play --level 0 --classic >/dev/null

/usr/bin/python3 - <<'PY'
import struct, sys, wave
raw = open("listed.wav", "rb").read()
chunks, at = [], 12
while at + 8 <= len(raw):
    tag, size = raw[at:at + 4], struct.unpack("<I", raw[at + 4:at + 8])[0]
    chunks.append((tag.decode("latin-1"), size))
    if tag == b"data":
        break
    at += 8 + size + (size & 1)
names = [tag for tag, _ in chunks]
assert "LIST" in names and names.index("LIST") < names.index("data"), chunks
with wave.open("listed.wav") as w:
    expected = w.readframes(w.getnframes())
with wave.open("refined.wav") as w:
    refined = w.readframes(w.getnframes())
with wave.open("classic.wav") as w:
    classic = w.readframes(w.getnframes())
failures = 0
if refined != expected:
    print("FAIL: refined render differs from the data chunk (%d bytes against %d)" % (len(refined), len(expected)))
    failures += 1
# The classic reader takes fixed offsets: what it plays is not the data.
if classic == expected:
    print("FAIL: the classic render was expected to differ from the data chunk")
    failures += 1
print("refined_reading: chunks %s, %s" % (chunks, "ok" if failures == 0 else "failed"))
sys.exit(1 if failures else 0)
PY
