#!/usr/bin/env bash
# Random container scripts on the null device and the real clock, so that
# the device thread, the word-speed worker and the view run while members
# are called with extreme arguments. Each script must end by itself, with
# exit status 0 and no sanitizer report.
# Arguments: the tempvox binary, the source tree, a scratch folder.
# TEMPVOX_SCRIPT_SEED and TEMPVOX_SCRIPT_COUNT pick other scripts; a
# failure prints its seed, its number and the script.
set -euo pipefail
tool=$1
source_dir=$2
work=$3/random-scripts
export PYTHONPATH="$2/tests/scripts${PYTHONPATH:+:$PYTHONPATH}"  # wavfile.py
seed=${TEMPVOX_SCRIPT_SEED:-20260611}
count=${TEMPVOX_SCRIPT_COUNT:-300}
rm -rf "$work"
mkdir -p "$work/media/folder" "$work/scripts"

python3 - "$work/media" <<'PY'
import struct, sys
media = sys.argv[1]
from wavfile import write_wav_bytes
def wav(name, data, rate=22050, bits=16, channels=1):
    write_wav_bytes(f"{media}/{name}", data, rate, channels, bits)
def speech(count):
    out = []
    for i in range(count):
        phase = i % 160
        triangle = phase if phase < 80 else 160 - phase
        out.append((triangle - 40) * 200 * ((i // 2205) % 3))
    return b"".join(struct.pack("<h", s) for s in out)
wav("speech.wav", speech(int(22050 * 1.2)))
wav("long.wav", speech(22050 * 5))
wav("tiny.wav", speech(30))
wav("slow.wav", bytes((i * 13) % 256 for i in range(8000 * 2)), rate=8000, bits=8)
open(f"{media}/not_riff.wav", "wb").write(b"RIFX" + bytes(60))
PY
"$tool" encode "$work/media/speech.wav" "$work/media/lesson.wzq" >/dev/null
head -c 1000 "$work/media/lesson.wzq" > "$work/media/cut.wzq"
python3 "$source_dir/tests/scripts/random_container_scripts.py" "$seed" "$count" "$work/scripts" "$work/media"

# One script: "ok", or why not.
run_one() {
  local script=$1
  local out=${script%.host}.out err=${script%.host}.err
  set +e
  timeout 60 "$TOOL" host --audio null --clock real --script "$script" > "$out" 2> "$err" < /dev/null
  local status=$?
  set -e
  if [ $status -eq 124 ]; then echo "$script: did not end within 60 s"
  elif [ $status -ne 0 ]; then echo "$script: exit status $status"
  elif grep -qE "Sanitizer|runtime error" "$err"; then echo "$script: sanitizer report"
  fi
}
export -f run_one
export TOOL=$tool
failures=$(find "$work/scripts" -name '*.host' | sort | xargs -P 2 -I{} bash -c 'run_one {}')
if [ -n "$failures" ]; then
  echo "random_scripts: seed $seed; failed:"
  echo "$failures"
  first=$(echo "$failures" | head -1 | cut -d: -f1)
  echo "--- $first (TEMPVOX_SCRIPT_SEED=$seed)"
  cat "$first"
  echo "--- its standard error"
  head -60 "${first%.host}.err"
  exit 1
fi
echo "random_scripts: seed $seed, $count scripts, all ended cleanly"
