#!/usr/bin/env bash
# `tempvox render` draws a progress bar (percentage, time left) on standard
# error when that is a terminal, clears it before the result line, and
# writes nothing there when it is not a terminal.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
work=$3/render-progress
rm -rf "$work"
mkdir -p "$work"
cd "$work"
command -v script >/dev/null || { echo "script is missing (apt-get install bsdutils)"; exit 1; }
# Twenty minutes of a tone: the bar is drawn as the render starts, then
# every tenth of a second.
sox -n -r 8000 -c 1 -b 16 long.wav synth 1200 sine 300 vol 0.1
script -qec "$tool render long.wav on-terminal.wav" /dev/null >terminal.txt
"$tool" render long.wav piped.wav >piped.out 2>piped.err

python3 - <<'PY'
import re, sys
failures = 0
def check(name, expected, actual):
    global failures
    if expected != actual:
        print(f"FAIL: {name}: expected {expected!r}, got {actual!r}")
        failures += 1

text = open("terminal.txt", encoding="utf-8", errors="replace", newline="").read()
bars = re.findall(r"\r\x1b\[K\[(#*) *\] +(\d+)%  (\d\d:\d\d|--:--) left", text)
check("the bar was drawn", True, len(bars) >= 1)
percents = [int(p) for _, p, _ in bars]
check("the percentage only grows", sorted(percents), percents)
check("the percentage stays within 0..100", True, all(0 <= p <= 100 for p in percents))
# The bar's 40 cells fill in step with the percentage.
check("cells follow the percentage", True, all(abs(len(cells) - 40 * int(p) / 100) <= 1 for cells, p, _ in bars))
# Cleared before the result, so the result line stands alone.
check("cleared before the result", True, bool(re.search(r"left\r\x1b\[KWrote on-terminal.wav: 1200\.000 s", text)))
check("nothing on a stderr that is no terminal", "", open("piped.err").read())
check("the result line when piped", "Wrote piped.wav: 1200.000 s\n", open("piped.out").read())
print(f"render_progress: {'ok' if failures == 0 else f'{failures} failed'}")
sys.exit(1 if failures else 0)
PY
