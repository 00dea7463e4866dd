#!/usr/bin/env bash
# The ALSA device, without a sound card: ALSA's own "file" plugin records
# what our sink writes. It must be exactly what the capture device writes for
# the same pipeline, in order, also when the speed stage changes the buffers'
# lengths. Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
work=$3/alsa-file
export PYTHONPATH="$2/tests/scripts${PYTHONPATH:+:$PYTHONPATH}"  # wavfile.py
rm -rf "$work"
mkdir -p "$work"
python3 - "$work" <<'PY'
import sys
from wavfile import write_wav
samples = [(((i % 147) if (i % 147) < 74 else 147 - (i % 147)) - 37) * 300 * ((i // 4410) % 2) for i in range(22050 * 2)]
write_wav(f"{sys.argv[1]}/speech.wav", samples)
PY
# The plugins come with alsa-lib's configuration; without it there is no
# ALSA device to test.
if ! grep -q "^pcm.file" /usr/share/alsa/alsa.conf 2>/dev/null; then
  echo "alsa-lib's configuration has no file plugin; skipped"; exit 0
fi
# alsa-lib keeps its parsed configuration for the life of the process.
export ASAN_OPTIONS=${ASAN_OPTIONS:-}:detect_leaks=0
for level in 0 -30 40; do
  "$tool" render "$work/speech.wav" "$work/captured$level.wav" --just-play --classic --level "$level" > /dev/null
  if ! "$tool" play "$work/speech.wav" --just-play --classic --level "$level" --audio "alsa:file:'$work/alsa$level.raw',raw" \
      > "$work/play$level.log" 2>&1; then
    cat "$work/play$level.log"; exit 1
  fi
  python3 - "$work/captured$level.wav" "$work/alsa$level.raw" "$level" <<'PY'
import sys
captured = open(sys.argv[1], "rb").read()[44:]
written = open(sys.argv[2], "rb").read()
assert written == captured, f"level {sys.argv[3]}: ALSA got {len(written)} bytes, capture {len(captured)}"
PY
done
echo "alsa ok"
