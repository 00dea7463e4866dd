#!/usr/bin/env bash
# The control module shows exactly its four entry points: every other
# function stays inside, so a host's own copies never bind to it.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
module=$(dirname "$1")/libtempvox.so
[ -f "$module" ] || { echo "FAIL: $module was not built"; exit 1; }

functions=$(nm -D --defined-only "$module" | awk '$2 ~ /^[TtWwiV]$/ {print $3}' | sort | paste -sd' ' -)
expected="DllCanUnloadNow DllGetClassObject DllRegisterServer DllUnregisterServer"
if [ "$functions" != "$expected" ]; then
  echo "FAIL: exported functions are: $functions"
  exit 1
fi
echo "ok   exported functions: $functions"

# Nothing of the system's C++ code may be visible, data included.
others=$(nm -D --defined-only "$module" | awk '{print $3}' | grep -v -x -e DllCanUnloadNow -e DllGetClassObject \
  -e DllRegisterServer -e DllUnregisterServer || true)
if [ -n "$others" ]; then
  echo "FAIL: further symbols are exported:"; echo "$others" | head -20
  exit 1
fi
# The codec library is found beside the module, wherever the two are put.
if ! readelf -d "$module" | grep -E 'R(UN)?PATH' | grep -q '\$ORIGIN'; then
  echo "FAIL: the module does not look beside itself for the codec library"; exit 1
fi
echo "ok   no other symbols; run path \$ORIGIN"
