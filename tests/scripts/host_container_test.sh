#!/usr/bin/env bash
# Runs every container script in tests/host/ on the manual device and clock
# and compares its JSON-lines output with the expected file beside it.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
source_dir=$2
work=$3/host-scripts
export PYTHONPATH="$2/tests/scripts${PYTHONPATH:+:$PYTHONPATH}"  # wavfile.py
rm -rf "$work"
mkdir -p "$work"

# The sample files the scripts name, made fresh: 16-bit mono 22050 Hz.
python3 - "$work" <<'PY'
import sys
from wavfile import write_wav
work = sys.argv[1]
def wav(name, samples, rate=22050):
    write_wav(f"{work}/{name}", samples, rate)
def speech(seconds, rate=22050):
    # Integer arithmetic only, so every machine makes the same samples: a
    # triangle wave of period 160 (about 138 Hz) under a syllable envelope.
    out = []
    for i in range(int(rate * seconds)):
        phase = i % 160
        triangle = phase if phase < 80 else 160 - phase
        envelope = (i // 2205) % 3   # 0.1 s steps: silent, half, full
        out.append((triangle - 40) * 200 * envelope)
    return out
wav("speech.wav", speech(1.2))
wav("long.wav", speech(5.0))
def sentences(rate=16000):
    # Five sentences of 4, 6, 3, 5 and 4 syllables (150 ms of a triangle
    # wave, 60 ms apart), from 500, 2010, 4040, 5210 and 7130 ms: pauses of
    # 700, 800, 600 and 900 ms. Integer arithmetic only.
    out = [0] * (rate // 2)
    for n, (syllables, pause) in enumerate(((4, 700), (6, 800), (3, 600), (5, 900), (4, 800))):
        for s in range(syllables):
            period = 100 + 7 * ((n * 5 + s) % 9)   # 119 to 160 Hz
            count = rate * 150 // 1000
            for i in range(count):
                phase = i % period
                triangle = phase if phase < period // 2 else period - phase
                envelope = min(i, 320, count - i)
                out.append((4 * triangle - period) * 50 * envelope // 320)
            if s + 1 < syllables:
                out += [0] * (rate * 60 // 1000)
        out += [0] * (rate * pause // 1000)
    return out
wav("sentences.wav", sentences(), rate=16000)
with open(f"{work}/not_riff.wav", "wb") as f:
    f.write(b"RIFX" + bytes(60))
PY

# The save dialogue opens in the user's home folder, which differs by user.
home=$(python3 -c "import os, pwd; print(pwd.getpwuid(os.getuid()).pw_dir)")

status=0
for script in "$source_dir"/tests/host/*.host; do
  name=$(basename "$script" .host)
  expected="${script%.host}.expected"
  sed "s|@WORK@|$work|g" "$script" > "$work/$name.host"
  actual="$work/$name.out"
  if ! "$tool" host --audio manual --clock manual --script "$work/$name.host" > "$actual.raw" 2> "$work/$name.err"; then
    echo "FAIL $name: exit status $?"; cat "$work/$name.err"; status=1; continue
  fi
  sed "s|\"folder\":\"$home\"|\"folder\":\"@HOME@\"|g" "$actual.raw" > "$actual"
  if ! diff -u <(sed "s|@WORK@|$work|g" "$expected") "$actual"; then
    echo "FAIL $name"; status=1
  else
    echo "ok   $name"
  fi
done
# The section saved from the view: a wave file of the selected stretch.
if [ -f "$work/section.wav" ]; then
  python3 - "$work/long.wav" "$work/section.wav" <<'PY' || { echo "FAIL saved section"; status=1; }
import struct, sys
source, saved = open(sys.argv[1], "rb").read(), open(sys.argv[2], "rb").read()
assert saved[:4] == b"RIFF" and saved[8:16] == b"WAVEfmt ", "not a wave file"
length = struct.unpack("<I", saved[40:44])[0]
assert length == len(saved) - 44 and struct.unpack("<I", saved[4:8])[0] == len(saved) - 8
assert saved[12:36] == source[12:36], "format differs from the source"
body = saved[44:]
assert 40000 < len(body) < 48000, len(body)   # about one second of 44100 bytes a second
assert source.find(body) >= 44, "the saved samples are not a stretch of the source"
PY
fi
exit $status
