#!/usr/bin/env bash
# A learner's files are never touched, and nothing is left behind: the tools
# run from an installed tree as an ordinary user (nobody, when this runs as
# root), on files in a writable and in a read-only folder, each beside a
# .wav or "_copy.wav" of the user's own; then again cut short by SIGINT and
# SIGTERM. After every run each file that stood before is byte-identical,
# no new file stands beside them, and the temporary folders hold nothing.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
source_dir=$2
build=$(dirname "$3")
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"

work=$(mktemp -d /tmp/tempvox-user-files.XXXXXX)
export PYTHONPATH="$2/tests/scripts${PYTHONPATH:+:$PYTHONPATH}"  # wavfile.py
# What the tool said on its last run tells why a check failed.
check_stderr=$work/stderr
server_pid=
display_pid=
cleanup() {
  [ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null || true
  [ -n "$display_pid" ] && kill "$display_pid" 2>/dev/null || true
  tmux -L tempvox-user-files kill-server 2>/dev/null || true
  chmod -R u+w "$work" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
chmod 755 "$work"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
installed=$prefix/bin/tempvox

# The ordinary user, and a home of its own for its cache.
home=$work/home
mkdir -p "$home" "$work/data/rw" "$work/data/ro" "$work/served" "$work/out"
as_user=()
if [ "$(id -u)" -eq 0 ]; then
  as_user=(setpriv --reuid=65534 --regid=65534 --clear-groups --)
fi

# The user's files: a short recording, its encoded copy, and in each folder
# a .wav beside the encoded file and a "_copy.wav" of the user's own.
python3 - "$work" <<'PY'
import math, sys
from wavfile import write_wav
def wav(path, seconds, rate=16000):
    count = int(seconds * rate)
    write_wav(path, [int(9000 * math.sin(2 * math.pi * 220 * i / rate)) for i in range(count)], rate)
work = sys.argv[1]
wav(work + "/source.wav", 1.2)
wav(work + "/long.wav", 20)
PY
# An hour, for a render that is still running when the signal comes (a
# render of ten minutes at half speed takes well under a second).
sox -n -r 16000 -c 1 -b 16 "$work/an-hour.wav" synth 3600 sine 220 vol 0.3
for folder in rw ro; do
  dir=$work/data/$folder
  cp "$work/source.wav" "$dir/lesson.wav"
  "$tool" encode "$work/source.wav" "$dir/lesson.wzq" >/dev/null
  printf "the user's own copy" > "$dir/lesson_copy.wav"
  cp "$work/long.wav" "$dir/long.wav"
  "$tool" encode "$work/long.wav" "$dir/long.wzq" >/dev/null
done
cp "$work/source.wav" "$work/served/lesson.wav"
cp "$work/long.wav" "$work/served/long.wav"
if [ ${#as_user[@]} -gt 0 ]; then chown -R 65534:65534 "$home" "$work/data" "$work/out"; fi
chmod 555 "$work/data/ro"

python3 "$source_dir/tests/media/AudioServer.py" http "$work/served" "$work/port" "$work/requests" &
server_pid=$!
for _ in $(seq 100); do [ -s "$work/port" ] && break; sleep 0.1; done
port=$(cat "$work/port")

# A display for the window, open to the ordinary user.
if command -v Xvfb >/dev/null 2>&1; then
  display=$((90 + RANDOM % 400))
  Xvfb ":$display" -ac -nolisten tcp -screen 0 1024x400x24 >/dev/null 2>&1 &
  display_pid=$!
  sleep 1
  kill -0 "$display_pid" 2>/dev/null || display_pid=
fi

snapshot() {
  (cd "$work/data" && find . -type f -print0 | sort -z | xargs -0 sha256sum)
  echo "beside the tool: $(ls -A "$prefix/bin")"
  echo "cache: $(find "$home" -type f | sort | tr '\n' ' ')"
}
before=$(snapshot)

run_user() {  # run_user ARGS...: the installed tool as the ordinary user
  set +e
  (cd "$work/out" && "${as_user[@]}" env HOME="$home" XDG_CACHE_HOME= "$installed" "$@" </dev/null >/dev/null 2>"$work/stderr")
  local s=$?
  set -e
  echo $s
}
# Starts the tool, sends SIGNAL after SECONDS, and gives its exit status.
signalled() {  # signalled SIGNAL SECONDS ARGS...
  local signal=$1 seconds=$2
  shift 2
  set +e
  (cd "$work/out" && exec "${as_user[@]}" env HOME="$home" XDG_CACHE_HOME= "$installed" "$@" </dev/null >/dev/null 2>"$work/stderr") &
  local pid=$!
  sleep "$seconds"
  kill -s "$signal" "$pid"
  wait "$pid"
  local s=$?
  set -e
  echo $s
}

for folder in rw ro; do
  dir=$work/data/$folder
  check "$folder: play a .wav" 0 "$(run_user play "$dir/lesson.wav" --audio null)"
  check "$folder: files after playing a .wav" "$before" "$(snapshot)"
  check "$folder: play a .wzq beside a user's .wav" 0 "$(run_user play "$dir/lesson.wzq" --audio null)"
  check "$folder: files after playing a .wzq" "$before" "$(snapshot)"
  check "$folder: view beside a user's _copy.wav" 0 "$(run_user view "$dir/lesson.wav" -o "$work/out/$folder.png")"
  check "$folder: files after the view" "$before" "$(snapshot)"
  check "$folder: the view was drawn" yes "$([ -s "$work/out/$folder.png" ] && echo yes || echo no)"
  rm -f "$work/out/$folder.png"
  if [ -n "$display_pid" ]; then
    # The window stays until closed: it is ended by SIGTERM, which is also
    # the way a desktop session ends it.
    check "$folder: play --view, ended by SIGTERM" 143 \
      "$(DISPLAY=:$display signalled TERM 3 play "$dir/lesson.wav" --view --audio null)"
    check "$folder: files after play --view" "$before" "$(snapshot)"
  fi
done
check "play an http address" 0 "$(run_user play "http://127.0.0.1:$port/lesson.wav" --audio null)"
check "files after playing an http address" "$before" "$(snapshot)"

# Cut short: the exit status tells the signal, and nothing is left.
check "SIGTERM during play" 143 "$(signalled TERM 1 play "$work/data/ro/long.wav" --audio null)"
check "files after SIGTERM during play" "$before" "$(snapshot)"
check "SIGINT during play of a .wzq" 130 "$(signalled INT 1 play "$work/data/rw/long.wzq" --audio null)"
check "files after SIGINT during play of a .wzq" "$before" "$(snapshot)"
check "SIGTERM during remote play" 143 "$(signalled TERM 1 play "http://127.0.0.1:$port/long.wav" --audio null)"
check "files after SIGTERM during remote play" "$before" "$(snapshot)"
check "SIGINT during remote play" 130 "$(signalled INT 1 play "http://127.0.0.1:$port/long.wav" --audio null)"
# A server that stalls mid-file: Ctrl-C stops the download at once.
started=$(date +%s%N)
check "SIGINT during a stalled download" 130 \
  "$(signalled INT 1 play "http://127.0.0.1:$port/stall/long.wav" --audio null)"
check "the stalled download stopped at once" yes \
  "$([ $(( ($(date +%s%N) - started) / 1000000 )) -lt 4000 ] && echo yes || echo no)"
check "SIGHUP during play" 129 "$(signalled HUP 1 play "$work/data/rw/long.wav" --audio null)"
check "files after SIGINT and SIGHUP" "$before" "$(snapshot)"
# A render slowed down: long enough to be caught in the middle.
check "SIGINT during render" 130 \
  "$(signalled INT 0.3 render "$work/an-hour.wav" "$work/out/slow.wav" --level -60)"
check "no render output or partial file" "" "$(ls -A "$work/out")"
check "files after SIGINT during render" "$before" "$(snapshot)"

# Ctrl-C at the keyboard: the terminal comes back in the mode it had.
tmux -L tempvox-user-files new-session -d -s play -x 100 -y 10 \
  "bash -c 'trap true INT; stty -g > $work/tty-before; ${as_user[*]} env HOME=$home XDG_CACHE_HOME= $installed play $work/data/rw/long.wav --audio null; echo \$? > $work/status; stty -g > $work/tty-after; sleep 5'"
sleep 1.5
tmux -L tempvox-user-files send-keys -t play C-c
for _ in $(seq 50); do [ -s "$work/tty-after" ] && break; sleep 0.1; done
check "Ctrl-C in a terminal" 130 "$(cat "$work/status" 2>/dev/null)"
check "terminal mode restored" "$(cat "$work/tty-before")" "$(cat "$work/tty-after" 2>/dev/null)"
check "files after Ctrl-C" "$before" "$(snapshot)"

echo "user_files: $passes passed, $failures failed"
[ "$failures" -eq 0 ]
