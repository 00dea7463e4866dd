#!/usr/bin/env bash
# The tool takes its arguments as other Unix tools do: help and version on
# standard output with status 0, options before or after the files in both
# `--opt value` and `--opt=value` forms, `--` before a file whose name starts
# with a dash, and status 2 with a line naming the option for a missing
# value, an unknown option or a value out of range.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
source_dir=$2
work=$3/cli-arguments
rm -rf "$work"
mkdir -p "$work"
cd "$work"
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"
# run ARGS...: sets status, out and err.
run() {
  set +e
  timeout 60 "$@" >out.txt 2>err.txt </dev/null
  status=$?
  set -e
  out=$(cat out.txt)
  err=$(cat err.txt)
}

# Help on the tool and on every command, short and long, on standard output.
for words in "" play render view segments rate encode regsvr host; do
  for flag in -h --help; do
    # shellcheck disable=SC2086
    run "$tool" $words $flag
    check "tempvox $words $flag status" 0 "$status"
    check "tempvox $words $flag says nothing on stderr" "" "$err"
    case "$out" in
      *"tempvox $words"*) check "tempvox $words $flag names the command" yes yes ;;
      *) check "tempvox $words $flag names the command" yes no ;;
    esac
  done
done
# The version is the project's, as CMakeLists.txt declares it.
version=$(sed -n 's/^project(Tempvox .*VERSION \([0-9.]*\)).*/\1/p' "$source_dir/CMakeLists.txt")
for flag in --version -V; do
  run "$tool" $flag
  check "$flag status" 0 "$status"
  check "$flag text" "tempvox $version" "$out"
done
run "$tool"
check "no command" 2 "$status"
run "$tool" playy x.wav
check "unknown command" 2 "$status"

# A 2-second tone at 2.0x (level 50) renders to 1 second whatever the order
# of the words; sox measures the result.
sox -n -r 22050 -c 1 -b 16 tone.wav synth 2 sine 440
cp tone.wav ./-dash.wav
seconds_of() { sox --i -D "$1" 2>/dev/null || echo missing; }
about_one() { python3 -c "import sys; print('yes' if abs(float(sys.argv[1]) - 1.0) < 0.05 else 'no: ' + sys.argv[1])" "$1" 2>/dev/null || echo "no: $1"; }
n=0
for words in "--level 50 tone.wav out.wav" "tone.wav --level 50 out.wav" "tone.wav out.wav --level=50" \
             "--level=50 -- tone.wav out.wav" "--level 50 -- -dash.wav out.wav"; do
  n=$((n + 1))
  read -r -a argv <<<"${words//out.wav/out$n.wav}"
  run "$tool" render "${argv[@]}"
  check "render $words status" 0 "$status"
  check "render $words: 1 s at 2.0x" yes "$(about_one "$(seconds_of out$n.wav)")"
done

# Usage errors: status 2 and one line that names what was wrong.
expect_usage_error() {  # expect_usage_error WORD ARGS...
  local word=$1
  shift
  run "$tool" "$@"
  check "$* status" 2 "$status"
  case "$err" in
    *"$word"*) check "$* names $word" yes yes ;;
    *) check "$* names $word" yes "no: $err" ;;
  esac
  check "$* prints one line" 1 "$(wc -l <err.txt)"
}
expect_usage_error --level render tone.wav out-x.wav --level
expect_usage_error --bogus render tone.wav out-x.wav --bogus
expect_usage_error --level render --level 70 tone.wav out-x.wav
expect_usage_error --volume play --audio null tone.wav --volume=101
expect_usage_error --audio play tone.wav --audio
expect_usage_error --format segments tone.wav --format xml
expect_usage_error --min-pause segments --min-pause=10 tone.wav
expect_usage_error --size view tone.wav -o x.png --size 10
expect_usage_error --clock host --clock sometimes
expect_usage_error required render tone.wav
check "no output after usage errors" no "$([ -e out-x.wav ] && echo yes || echo no)"

# The same subtitles whichever side of the file the options stand.
espeak-ng -w speech.wav "The first sentence is here. After a pause, the second one. And then a third." 2>/dev/null
"$tool" segments --format=srt --min-pause 200 speech.wav >before.srt
"$tool" segments speech.wav --min-pause=200 --format srt >after.srt
check "segments options either side" "$(cat before.srt)" "$(cat after.srt)"
check "subtitles were written" yes "$(grep -q -- '-->' before.srt && echo yes || echo no)"

echo "cli_arguments: $passes passed, $failures failed"
[ "$failures" -eq 0 ]
