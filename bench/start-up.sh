#!/usr/bin/env bash
# The start-up cost of the command-line tool: CPU (user + sys, from the
# kernel's rusage of each child, median of N runs) of `tempvox --help` and of
# renders of a 1-second and a 2-minute .wav, and the shared objects each run
# maps (LD_DEBUG=files). Every tool given is measured in the same run, so a
# build can be set beside another (e.g. main's build before the plugins).
# Usage: bench/start-up.sh [RUNS] TOOL [TOOL...]
#        (default: 21 runs of build/tempvox)
set -euo pipefail
runs=21
if [[ "${1:-}" =~ ^[0-9]+$ ]]; then runs=$1; shift; fi
[ $# -gt 0 ] || set -- build/tempvox
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Speech-like enough for the render's analysis: a tone that comes and goes.
sox -n -r 22050 -c 1 -b 16 "$work/one-second.wav" synth 1 sine 220 tremolo 4 90
sox -n -r 22050 -c 1 -b 16 "$work/two-minutes.wav" synth 120 sine 220 tremolo 4 90

printf '%-34s %-22s %10s %10s %8s\n' tool command "CPU ms" "(min)" objects
for tool in "$@"; do
  for case in "--help" "render one-second.wav" "render two-minutes.wav"; do
    read -r -a words <<<"$case"
    args=()
    for word in "${words[@]}"; do
      [ -e "$work/$word" ] && word=$work/$word
      args+=("$word")
    done
    [ "${words[0]}" = render ] && args+=("$work/out.wav")
    # Shared objects mapped: each one the loader opened, the tool included.
    LD_DEBUG=files LD_DEBUG_OUTPUT=$work/ld "$tool" "${args[@]}" >/dev/null 2>&1 || true
    objects=$(cat "$work"/ld.* | grep -c 'generating link map' || true)
    rm -f "$work"/ld.* "$work/out.wav"
    read -r median least < <(python3 - "$runs" "$tool" "${args[@]}" <<'PY'
import os, statistics, subprocess, sys
runs, command = int(sys.argv[1]), sys.argv[2:]
spent = []
for _ in range(runs):
    child = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    if status != 0:
        sys.exit("failed: " + " ".join(command))
    spent.append((usage.ru_utime + usage.ru_stime) * 1000)
print("%.1f %.1f" % (statistics.median(spent), min(spent)))
PY
)
    rm -f "$work/out.wav"
    printf '%-34s %-22s %10s %10s %8s\n' "$tool" "$case" "$median" "$least" "$objects"
  done
done
