#!/usr/bin/env bash
# Every failure ends with one line on standard error that names the file and
# the cause, and an exit status of its class: 3 input not readable, 4 not
# audio or not a regular file, 5 sound device, 6 network, 7 output.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
source_dir=$2
work=$3/cli-failures
rm -rf "$work"
mkdir -p "$work/served"
cd "$work"
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"
# expect STATUS TEXT ARGS...: the tool exits STATUS, and the last line on
# standard error (after the control's own boxes) holds TEXT.
expect() {
  local want=$1 text=$2
  shift 2
  set +e
  timeout 60 "$@" >/dev/null 2>err.txt </dev/null
  local status=$?
  set -e
  check "$* status" "$want" "$status"
  local last
  last=$(tail -n 1 err.txt)
  case "$last" in
    *"$text"*) check "$* reason" yes yes ;;
    *) check "$* reason" "... $text ..." "$last" ;;
  esac
}

sox -n -r 22050 -c 1 -b 16 tone.wav synth 1 sine 440
cp tone.wav "$work/served/tone.wav"
echo "plain words, not sound" >words.wav

# Cannot read the input: missing.
for command in "play --audio null" render view segments rate encode; do
  read -r -a words <<<"$command"
  case "${words[0]}" in
    render|encode) extra=(out.x) ;;
    view) extra=(-o out.png) ;;
    *) extra=() ;;
  esac
  expect 3 "absent.wav: no such file" "$tool" "${words[@]}" absent.wav "${extra[@]}"
done
# Not audio: the reason says what is supported.
expect 4 "words.wav: not audio tempvox can play; supported: WAV" "$tool" play --audio null words.wav
expect 4 "words.wav: not audio tempvox can play; supported: WAV" "$tool" render words.wav out.wav
expect 4 "words.wav:" "$tool" view words.wav -o out.png
expect 4 "words.wav:" "$tool" segments words.wav
expect 4 "words.wav:" "$tool" rate words.wav
expect 4 "words.wav:" "$tool" encode words.wav out.wzq
expect 3 "folder, not a file" "$tool" play --audio null "$work/served"

# A sound device that is not there.
expect 5 "tone.wav: the sound device cannot be opened" "$tool" play --audio alsa:tempvox_no_such_device tone.wav

# Network: a 404 from a local server, and a port where nobody listens.
python3 "$source_dir/tests/media/AudioServer.py" http "$work/served" "$work/port" "$work/requests" &
server=$!
trap 'kill $server 2>/dev/null || true' EXIT
for _ in $(seq 200); do [ -s "$work/port" ] && break; sleep 0.05; done
port=$(cat "$work/port")
expect 6 "absent.wav: the server has no such file (HTTP 404)" "$tool" play --audio null "http://127.0.0.1:$port/absent.wav"
expect 6 "(HTTP 404)" "$tool" render "http://127.0.0.1:$port/absent.wav" out.wav
closed=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1]); s.close()')
expect 6 "the server cannot be reached (Couldn't connect to server)" "$tool" play --audio null "http://127.0.0.1:$closed/tone.wav"
# The server's own file still plays: the failures above were the addresses'.
expect 0 "" "$tool" render "http://127.0.0.1:$port/tone.wav" fetched.wav

# Cannot write the output: a folder that is not there.
expect 7 "no/such/folder/out.wav: the folder no/such/folder does not exist" "$tool" render tone.wav no/such/folder/out.wav
expect 7 "the folder no/such does not exist" "$tool" view tone.wav -o no/such/out.png
expect 7 "the folder no/such does not exist" "$tool" encode tone.wav no/such/out.wzq
check "nothing made in the scratch folder" "" "$(ls -A | grep -v -e '^tone.wav$' -e '^words.wav$' -e '^served$' -e '^err.txt$' \
  -e '^port$' -e '^requests$' -e '^fetched.wav$' || true)"

# Permissions, seen by an unprivileged user (root reads and writes anything).
mkdir -p locked open
chmod 777 open
cp tone.wav locked/secret.wav
chmod 000 locked/secret.wav
chmod 555 locked
as_user=()
if [ "$(id -u)" -eq 0 ]; then
  chmod 755 "$work" "$work/locked"
  chmod o+x "$(dirname "$work")" 2>/dev/null || true
  chmod 555 locked
  as_user=(setpriv --reuid=65534 --regid=65534 --clear-groups)
fi
if "${as_user[@]}" true 2>/dev/null && "${as_user[@]}" test -x "$tool"; then
  expect 3 "locked/secret.wav: permission denied" "${as_user[@]}" "$tool" render locked/secret.wav open/out-p.wav
  expect 3 "locked/secret.wav: permission denied" "${as_user[@]}" "$tool" segments locked/secret.wav
  expect 7 "the folder locked is not writable" "${as_user[@]}" "$tool" render tone.wav locked/out.wav
else
  echo "skip: no unprivileged user to check permissions with"
fi
chmod 755 locked

echo "cli_failures: $passes passed, $failures failed"
[ "$failures" -eq 0 ]
