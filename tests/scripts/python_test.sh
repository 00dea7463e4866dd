#!/usr/bin/env bash
# Runs the Python binding's tests with pytest against the module built
# beside the tool. Arguments: the tempvox binary, the source tree, a scratch
# folder.
set -euo pipefail
tool=$1
source_dir=$2
work=$3/python-tests
module=$(cd "$(dirname "$tool")" && pwd)/libtempvox.so
rm -rf "$work"
mkdir -p "$work"

python=
for candidate in python3 /usr/bin/python3; do
  if "$candidate" -m pytest --version >/dev/null 2>&1; then python=$candidate; break; fi
done
if [ -z "$python" ]; then
  echo "pytest is missing (apt-get install python3-pytest)"; exit 1
fi

# A sanitized module needs its runtimes loaded first in an unsanitized
# interpreter; the interpreter's own allocations are not ours to check.
preload=$(ldd "$module" | awk '/lib(asan|ubsan|tsan)\.so/ {print $3}' | paste -sd: -)
if [ -n "$preload" ]; then
  export LD_PRELOAD=$preload
  export ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0
fi

export TEMPVOX_MODULE=$module
export PYTHONPATH=$source_dir/python
export PYTHONDONTWRITEBYTECODE=1
cd "$work"
# The control makes its temporary folder beside the host's executable, which
# here is the interpreter; an empty one is removed again afterwards.
interpreter_dir=$("$python" -c "import os; print(os.path.dirname(os.path.realpath('/proc/self/exe')))")
status=0
"$python" -m pytest -q -p no:cacheprovider "$source_dir/python/tests" || status=$?
rmdir "$interpreter_dir/ZqTempAudio" 2>/dev/null || true
exit $status
