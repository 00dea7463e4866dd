#!/usr/bin/env bash
# Runs one fuzz target from fresh seeds for a bounded time and fails on any
# crash, hang or sanitizer report; prints the executions made and their rate.
# Arguments: the target, its reader's name, the source tree, a work folder.
# TEMPVOX_FUZZ_SECONDS (default 20) or TEMPVOX_FUZZ_RUNS bounds the run.
set -euo pipefail
target=$1
reader=$2
source_dir=$3
work=$4/$reader
rm -rf "$work"
mkdir -p "$work/seeds" "$work/corpus"
python3 "$source_dir/fuzz/make_seeds.py" "$reader" "$work/seeds"
bound=(-max_total_time="${TEMPVOX_FUZZ_SECONDS:-20}")
if [ -n "${TEMPVOX_FUZZ_RUNS:-}" ]; then bound=(-runs="$TEMPVOX_FUZZ_RUNS"); fi
set +e
"$target" "${bound[@]}" -max_len=8192 -timeout=10 -rss_limit_mb=4096 -print_final_stats=1 \
  -artifact_prefix="$work/" "$work/corpus" "$work/seeds" > "$work/log" 2>&1
status=$?
set -e
runs=$(grep -m1 '^stat::number_of_executed_units' "$work/log" | awk '{print $2}')
rate=$(grep -m1 '^stat::average_exec_per_sec' "$work/log" | awk '{print $2}')
seconds=$(grep -oE 'Done [0-9]+ runs in [0-9]+ second' "$work/log" | awk '{print $5}')
if [ $status -ne 0 ]; then
  echo "$reader: fuzzing failed (status $status)"
  grep -E -A30 "ERROR|runtime error|deadly signal|Test unit written" "$work/log" | head -80
  exit 1
fi
echo "$reader: ${runs:-?} executions in ${seconds:-?} s (${rate:-?}/s), no crash, hang or sanitizer report"
