#!/usr/bin/env bash
# Builds and runs every test, then again under AddressSanitizer and
# UndefinedBehaviorSanitizer; then the tests that run threads under
# ThreadSanitizer, and each fuzz target for a short while (clang, libFuzzer).
# Prints the time of each round.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh

jobs=$(nproc)
started=$SECONDS
timings=()
# run_round NAME DIR TARGET LABEL [cmake options...]: TARGET "all" builds
# everything, LABEL "all" runs every test; SKIP_LABEL leaves a label out.
run_round() {
  local name=$1 dir=$2 target=$3 label=$4
  shift 4
  local round_start=$SECONDS
  # Every round builds with warnings as errors: a warning in any compiler
  # or configuration fails the run.
  cmake -S . -B "$dir" -G Ninja -DTEMPVOX_WERROR=ON "$@" >/dev/null
  if [ "$target" = all ]; then
    cmake --build "$dir" -j "$jobs"
  else
    cmake --build "$dir" -j "$jobs" --target "$target"
  fi
  local select=()
  if [ "$label" != all ]; then select=(-L "$label"); fi
  if [ -n "${SKIP_LABEL:-}" ]; then select+=(-LE "$SKIP_LABEL"); fi
  (cd "$dir" && ctest --output-on-failure -j "$jobs" "${select[@]}")
  timings+=("$name: $((SECONDS - round_start)) s")
  echo "== $name round: $((SECONDS - round_start)) s"
}

# --tsan is accepted for old habits: the ThreadSanitizer round always runs.
# The random container scripts are there for the sanitizers: the plain
# round runs a third of them.
# Line tables are enough for a backtrace and a third quicker to compile
# than full debug information.
line_tables=(-DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG")
TEMPVOX_SCRIPT_COUNT=100 run_round plain build all all -DCMAKE_BUILD_TYPE=RelWithDebInfo "${line_tables[@]}"
# The sanitizer rounds leave out the accuracy evaluations (label
# "evaluation"): the plain round runs them.
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 TEMPVOX_SCRIPT_COUNT=200 \
  SKIP_LABEL=evaluation run_round asan build-asan all all -DCMAKE_BUILD_TYPE=Debug -DTEMPVOX_SANITIZE=ON -DTEMPVOX_BENCH=OFF
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 TEMPVOX_SCRIPT_COUNT=150 \
  run_round tsan build-tsan threaded_tests threaded -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTEMPVOX_TSAN=ON -DTEMPVOX_BENCH=OFF \
  "${line_tables[@]}"
run_round fuzz build-fuzz fuzz_targets fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTEMPVOX_FUZZ=ON -DTEMPVOX_BENCH=OFF \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++

printf '%s\n' "${timings[@]}"
echo "All tests passed in $((SECONDS - started)) s."
