#!/usr/bin/env bash
# Builds and runs every test, then does it again under AddressSanitizer and
# UndefinedBehaviorSanitizer. Pass --tsan to add a ThreadSanitizer round.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh

jobs=$(nproc)
run_round() {
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  (cd "$dir" && ctest --output-on-failure -j "$jobs")
}

run_round build -DCMAKE_BUILD_TYPE=RelWithDebInfo
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_round build-asan -DCMAKE_BUILD_TYPE=Debug -DTEMPVOX_SANITIZE=ON -DTEMPVOX_BENCH=OFF
if [ "${1:-}" = "--tsan" ]; then
  TSAN_OPTIONS=halt_on_error=1 run_round build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTEMPVOX_TSAN=ON -DTEMPVOX_BENCH=OFF
fi
echo "All tests passed."
