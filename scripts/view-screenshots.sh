#!/usr/bin/env bash
# Screenshots of `tempvox play --view` in a real window under Xvfb, classic
# and refined, for a 5 s and a 60 s recording, written to docs/ as PNG.
# Needs Xvfb (scripts/deps.sh) and python3; nothing else is installed.
# Usage: scripts/view-screenshots.sh [path/to/tempvox] [output folder]
set -euo pipefail
tool=${1:-build/tempvox}
out=${2:-docs}
work=$(mktemp -d)
display=""
xvfb_pid=""
cleanup() {
  [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# A free display number; Xvfb writes its screen to $work/Xvfb_screen0 (XWD).
for n in $(seq 71 99); do
  if [ ! -e "/tmp/.X$n-lock" ] && [ ! -e "/tmp/.X11-unix/X$n" ]; then display=$n; break; fi
done
[ -n "$display" ] || { echo "no free X display" >&2; exit 1; }
Xvfb ":$display" -screen 0 1024x300x24 -fbdir "$work" -nolisten tcp >/dev/null 2>&1 &
xvfb_pid=$!
sleep 1

# Sentences of espeak-like shape without espeak: syllables of a voiced
# triangle under an envelope, with pauses between the sentences.
python3 - "$work" <<'PY'
import math, struct, sys
rate = 22050
def sentence_wave(seconds, seed):
    out = []
    for i in range(int(rate * seconds)):
        t = i / rate
        sentence = (t % 4.0) < 3.1          # 3.1 s of speech, 0.9 s of pause
        syllable = abs(math.sin(math.pi * t * (3.3 + 0.2 * seed))) ** 1.5
        swell = 0.55 + 0.45 * math.sin(2 * math.pi * t / 7.0 + seed)
        pitch = 110 + 25 * math.sin(2 * math.pi * t / 3.1)
        phase = (t * pitch) % 1.0
        voice = 2 * abs(2 * phase - 1) - 1
        out.append(int(24000 * voice * syllable * swell) if sentence else 0)
    return out
for name, seconds in (("five.wav", 5.0), ("sixty.wav", 60.0)):
    data = b"".join(struct.pack("<h", s) for s in sentence_wave(seconds, len(name)))
    head = b"RIFF" + struct.pack("<I", 36 + len(data)) + b"WAVEfmt " + struct.pack("<IHHIIHH", 16, 1, 1, rate, rate * 2, 2, 16)
    open(f"{sys.argv[1]}/{name}", "wb").write(head + b"data" + struct.pack("<I", len(data)) + data)
PY

# The screen's top-left 800 x 240, where the play window stands.
grab() {  # grab OUT.png
  python3 - "$work/Xvfb_screen0" "$1" <<'PY'
import struct, sys, zlib
raw = open(sys.argv[1], "rb").read()
head = struct.unpack(">25I", raw[:100])
header_size, width, height = head[0], head[4], head[5]
bits_per_pixel, bytes_per_line, ncolors = head[11], head[12], head[19]
assert bits_per_pixel == 32, bits_per_pixel
pixels = raw[header_size + 12 * ncolors:]
w, h = min(800, width), min(240, height)
rows = b""
for y in range(h):
    line = pixels[y * bytes_per_line:y * bytes_per_line + 4 * w]
    rgb = bytearray(3 * w)
    rgb[0::3], rgb[1::3], rgb[2::3] = line[2::4], line[1::4], line[0::4]
    rows += b"\0" + bytes(rgb)
def chunk(kind, body):
    return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
png = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, 8, 2, 0, 0, 0))
png += chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b"")
open(sys.argv[2], "wb").write(png)
PY
}

mkdir -p "$out"
for file in five sixty; do
  for profile in refined classic; do
    flag=""
    [ "$profile" = classic ] && flag="--classic"
    # Let play run past its first seconds, so the caret stands in the picture.
    DISPLAY=":$display" "$tool" play "$work/$file.wav" --view --audio null $flag >/dev/null 2>&1 &
    pid=$!
    sleep 3
    grab "$out/view-$profile-$file.png"
    kill -TERM "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
done
echo "written: $out/view-{refined,classic}-{five,sixty}.png"
