#!/usr/bin/env bash
# The heavy libraries are loaded only by the runs that use them: `--help` and
# the render of a plain .wav map neither GTK, FFmpeg's libraries nor libcurl;
# an encoded file loads the FFmpeg plugin, a remote address the network
# plugin. Without its plugins the tool still starts, and each use of a
# missing one fails in its own failure class, naming the plugin.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
source_dir=$2
work=$3/lazy-libraries
rm -rf "$work"
mkdir -p "$work/served" "$work/alone"
cd "$work"
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"

heavy='lib(gtk-3|gdk-3|avcodec|avformat|swresample|avutil|x264|x265|vpx|dav1d|curl)\.so|tempvox-(gtk|ffmpeg|curl)\.so'
# loaded NAME PATTERN COMMAND...: the shared objects the run opened that
# match PATTERN, by name, sorted and on one line.
loaded() {
  local pattern=$1
  shift
  LD_DEBUG=files LD_DEBUG_OUTPUT=$work/ld "$@" >/dev/null 2>&1 </dev/null || true
  cat "$work"/ld.* | sed -n 's/.*file=\([^ ]*\).*/\1/p' | grep -E -o "$pattern" | sort -u | paste -sd' ' -
  rm -f "$work"/ld.*
}

sox -n -r 22050 -c 1 -b 16 tone.wav synth 1 sine 440
sox tone.wav tone.flac
cp tone.wav served/tone.wav

# Nothing heavy for the runs that need none of it.
check "--help loads" "" "$(loaded "$heavy" "$tool" --help)"
check "render of a .wav loads" "" "$(loaded "$heavy" "$tool" render tone.wav plain.wav)"
check "render of a .wav made it" yes "$([ -s plain.wav ] && echo yes)"

# Each plugin when its work comes; the others stay out.
check "render of a .flac loads" "libavcodec.so tempvox-ffmpeg.so" \
  "$(loaded 'libavcodec\.so|libcurl\.so|libgtk-3\.so|tempvox-[a-z]+\.so' "$tool" render tone.flac decoded.wav)"
check "render of a .flac made it" yes "$([ -s decoded.wav ] && echo yes)"
python3 "$source_dir/tests/media/AudioServer.py" http "$work/served" "$work/port" "$work/requests" &
server=$!
trap 'kill $server 2>/dev/null || true' EXIT
for _ in $(seq 200); do [ -s "$work/port" ] && break; sleep 0.05; done
port=$(cat "$work/port")
check "render of an http address loads" "libcurl.so tempvox-curl.so" \
  "$(loaded 'libavcodec\.so|libcurl\.so|libgtk-3\.so|tempvox-[a-z]+\.so' "$tool" render "http://127.0.0.1:$port/tone.wav" fetched.wav)"
check "render of an http address made it" yes "$([ -s fetched.wav ] && echo yes)"

# A copy of the tool with no plugin beside it.
cp "$tool" alone/tempvox
# last_line_and_status COMMAND...: the status, then the last line on standard error.
outcome() {
  set +e
  timeout 60 "$@" >/dev/null 2>err.txt </dev/null
  local status=$?
  set -e
  echo "$status $(tail -n 1 err.txt)"
}
check "alone: --help" 0 "$(outcome alone/tempvox --help | cut -d' ' -f1)"
check "alone: render of a .wav" 0 "$(outcome alone/tempvox render tone.wav alone.wav | cut -d' ' -f1)"
for case in "4|tempvox-ffmpeg.so is not installed|render tone.flac alone-flac.wav" \
            "6|tempvox-curl.so is not installed|render http://127.0.0.1:$port/tone.wav alone-http.wav" \
            "2|the window is not available: the plugin tempvox-gtk.so is not installed|play --audio null --view tone.wav"; do
  IFS='|' read -r status text command <<<"$case"
  read -r -a words <<<"$command"
  got=$(outcome alone/tempvox "${words[@]}")
  check "alone: $command status" "$status" "${got%% *}"
  case "$got" in
    *"$text"*) check "alone: $command reason" yes yes ;;
    *) check "alone: $command reason" "... $text ..." "${got#* }" ;;
  esac
done
check "alone: nothing left behind" "" "$(ls -A alone | grep -v -x tempvox || true)"

echo "lazy_libraries: $passes passed, $failures failed"
[ "$failures" -eq 0 ]
