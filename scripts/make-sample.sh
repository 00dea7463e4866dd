#!/usr/bin/env bash
# Makes a short speech sample as 16-bit PCM .wav: spoken by espeak-ng when it
# is there, else a generated tone. Usage: make-sample.sh OUT.wav [TEXT]
set -euo pipefail
out=$1
text=${2:-"Welcome to Tempvox. This short lesson is read slowly and clearly, so that every learner can follow each word."}
mkdir -p "$(dirname "$out")"
if command -v espeak-ng >/dev/null 2>&1 && command -v sox >/dev/null 2>&1; then
  raw=$(mktemp --suffix=.wav)
  espeak-ng -s 150 -w "$raw" "$text"
  sox "$raw" -b 16 -e signed-integer -c 1 "$out"
  rm -f "$raw"
else
  python3 - "$out" <<'PY'
import math, struct, sys, wave
rate = 22050
with wave.open(sys.argv[1], "wb") as w:
    w.setnchannels(1); w.setsampwidth(2); w.setframerate(rate)
    frames = bytearray()
    for i in range(rate * 3):
        t = i / rate
        envelope = 0.5 - 0.5 * math.cos(2 * math.pi * 3 * t)
        value = envelope * (0.6 * math.sin(2 * math.pi * 180 * t) + 0.3 * math.sin(2 * math.pi * 360 * t))
        frames += struct.pack("<h", int(12000 * value))
    w.writeframes(bytes(frames))
PY
fi
echo "$out"
