#!/usr/bin/env bash
# Paths that are not regular files: a FIFO and endless devices. Each tool
# must refuse them at once as unsupported input (exit 4), never wait on a FIFO for a writer, and never copy
# an endless device.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
work=$3/not-a-file
export PYTHONPATH="$2/tests/scripts${PYTHONPATH:+:$PYTHONPATH}"  # wavfile.py
rm -rf "$work"
mkdir -p "$work"
cd "$work"
mkfifo lesson.wav
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"
# The exit status, with 124 for a run that timeout had to stop.
status_of() { set +e; timeout 20 "$@" >/dev/null 2>&1 </dev/null; local s=$?; set -e; echo $s; }

for path in lesson.wav /dev/zero; do
  check "play $path" 4 "$(status_of "$tool" play "$path" --audio null)"
  check "render $path" 4 "$(status_of "$tool" render "$path" out.wav)"
  check "view $path" 4 "$(status_of "$tool" view "$path" -o out.png)"
done
# A real lesson with the FIFO named as its noise plays without the noise.
python3 - <<'PY'
from wavfile import write_wav_bytes
write_wav_bytes("real.wav", bytes(4410 * 3))
PY
check "render with noise from the FIFO" 0 "$(status_of "$tool" render real.wav heard.wav --noise lesson.wav)"
# The view's private copy of /dev/zero, named from a path without a dot.
check "no endless copy" no "$([ -s _copy.wav ] && echo yes || echo no)"
check "no render output" no "$([ -e out.wav ] && echo yes || echo no)"
check "render output" yes "$([ -s heard.wav ] && echo yes || echo no)"

echo "not_a_file: $passes passed, $failures failed"
[ "$failures" -eq 0 ]
