#!/usr/bin/env bash
# The shape of the sources: no file over 600 lines and no function over 80,
# so that every room stays small enough to read at once. A function is a
# body whose braces stand alone on their lines, at the left margin or one
# level in (members defined in their class); that is how every function here
# is written. Two bodies may be longer: the member table, which is data, and
# the speed changer's Run, which follows its numbered steps in order.
# Arguments: the tempvox binary (unused), the source tree, a scratch folder.
set -euo pipefail
source_dir=$2

python3 - "$source_dir" <<'PY'
import os, sys

root = sys.argv[1]
folders = ["platform", "riff", "dsp", "messages", "engine", "media", "view", "shell", "tools", "codec", "module",
           "resources"]
exempt = {"ControlMembers()", "CSpeedChanger::Run("}
max_file, max_function = 600, 80

failures, measured = [], 0
for folder in folders:
    for directory, _, names in os.walk(os.path.join(root, folder)):
        for name in sorted(names):
            if not name.endswith((".cpp", ".h")):
                continue
            path = os.path.join(directory, name)
            shown = os.path.relpath(path, root)
            lines = open(path, encoding="utf-8", errors="replace").read().split("\n")
            if len(lines) - 1 > max_file:
                failures.append(f"{shown}: {len(lines) - 1} lines (at most {max_file})")
            for indent in ("", "    "):
                start = None
                for i, line in enumerate(lines):
                    if line == indent + "{" and i > 0 and ")" in lines[i - 1]:
                        start = i
                    elif start is not None and line in (indent + "}", indent + "};"):
                        measured += 1
                        length = i - start + 1
                        signature = lines[start - 1].strip()
                        if length > max_function and not any(e in signature for e in exempt):
                            failures.append(f"{shown}:{start}: {signature[:80]}: {length} lines (at most {max_function})")
                        start = None

# The detector must see the code's functions, or this test would pass on
# nothing.
if measured < 500:
    failures.append(f"only {measured} function bodies found: the detector no longer matches the code's layout")
for failure in failures:
    print("FAIL:", failure)
print(f"code shape: {measured} function bodies measured, {len(failures)} failures")
sys.exit(1 if failures else 0)
PY
