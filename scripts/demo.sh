#!/usr/bin/env bash
# Installs what is needed, builds, makes a short speech sample and plays it
# to its end (on the null device when there is no sound card).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target tempvox
sample=samples/generated/sample.wav
[ -f "$sample" ] || ./scripts/make-sample.sh "$sample" >/dev/null
./build/tempvox play "$sample" "$@"
