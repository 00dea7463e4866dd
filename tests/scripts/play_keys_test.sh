#!/usr/bin/env bash
# `tempvox play` on a terminal (tmux) and the null device: one status line
# and no event lines; each key's effect read back from that line (two Right
# presses sent at once move 10 s); the line cleared after q and after Ctrl-C.
# The factors expected are the level table's: 0.5, 0.6, 0.7, 0.75, 0.8, 0.9,
# 1.0, 1.1, 1.2, 1.3, 1.5, 1.7, 2.0.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
work=$3/play-keys
rm -rf "$work"
mkdir -p "$work"
command -v tmux >/dev/null || { echo "tmux is missing (apt-get install tmux)"; exit 1; }
# Three minutes of a quiet tone, so that jumps of 60 s stay inside it.
sox -n -r 8000 -c 1 -b 16 "$work/long.wav" synth 180 sine 300 vol 0.1

python3 - "$tool" "$work" <<'PY'
import os, re, subprocess, sys, time

tool, work = sys.argv[1], sys.argv[2]
session = f"tempvox-keys-{int(time.time() * 1000) % 100000}"
status_line = re.compile(r"(\d+):(\d+\.\d) / (\d+:\d+\.\d) +(\d+)% +(\d\.\d\d)x +\[(\w+)\](.*)$")

# A tmux server of this test's own, new for each case: on a shared server,
# another test ending its last session can shut the server down under our
# new-session, and a server just killed may still answer its socket.
servers = 0
socket = f"tempvox-keys-{os.getpid()}-0"

def tmux(*args):
    return subprocess.run(["tmux", "-L", socket, *args], check=True, capture_output=True, text=True).stdout

def next_server():
    global servers, socket
    servers += 1
    socket = f"tempvox-keys-{os.getpid()}-{servers}"

def start():
    next_server()
    tmux("new-session", "-d", "-s", session, "-x", "160", "-y", "40",
         f"{tool} play {work}/long.wav --audio null; echo EXIT=$?; sleep 60")

def stop():
    subprocess.run(["tmux", "-L", socket, "kill-server"], capture_output=True)

def screen():
    return tmux("capture-pane", "-p", "-t", session)

def status():
    """(seconds, percent, factor, state, rest) of the status line, or None."""
    for line in reversed(screen().splitlines()):
        m = status_line.search(line)
        if m:
            return (int(m[1]) * 60 + float(m[2]), int(m[4]), m[5], m[6], m[7].strip())
    return None

def wait_for(what, condition, timeout=5.0):
    limit = time.time() + timeout
    while time.time() < limit:
        now = status()
        if now and condition(*now):
            return now
        time.sleep(0.05)
    raise AssertionError(f"{what}: last status {status()}\n{screen()}")

def keys(*names):
    tmux("send-keys", "-t", session, *names)

def wait_exit(timeout=5.0):
    limit = time.time() + timeout
    while "EXIT=" not in screen() and time.time() < limit:
        time.sleep(0.05)
    return screen()

failures = 0
def case(name, body):
    global failures
    try:
        body()
        print(f"ok   {name}")
    except AssertionError as failure:
        print(f"FAIL {name}: {failure}")
        failures += 1
    except subprocess.CalledProcessError as failure:
        print(f"FAIL {name}: {' '.join(failure.cmd)}: {failure.stderr}")
        failures += 1
    finally:
        stop()

def quiet_and_keys():
    start()
    wait_for("play starts", lambda t, p, f, s, r: s == "playing" and t >= 1.0)
    lines = [line for line in screen().splitlines() if line.strip()]
    assert len(lines) == 1 and status_line.search(lines[0]), f"more than the status line: {lines}"
    # Paused, the time holds still and each jump shows exactly.
    keys("p")
    t0 = wait_for("p pauses", lambda t, p, f, s, r: s == "paused")[0]
    keys("Right", "Right")
    now = wait_for("two Right presses together: +10 s", lambda t, p, f, s, r: t >= t0 + 9.5)
    assert abs(now[0] - (t0 + 10)) <= 0.15, now
    keys("Left")
    now = wait_for("Left: -5 s", lambda t, p, f, s, r: t <= t0 + 5.5)
    assert abs(now[0] - (t0 + 5)) <= 0.15, now
    keys("Up")
    now = wait_for("Up: +60 s", lambda t, p, f, s, r: t >= t0 + 64)
    assert abs(now[0] - (t0 + 65)) <= 0.15, now
    # 65 s of 180 s is 36 %.
    assert now[1] == int(100 * now[0] / 180), now
    keys("Down")
    now = wait_for("Down: -60 s", lambda t, p, f, s, r: t <= t0 + 6)
    assert abs(now[0] - (t0 + 5)) <= 0.15, now
    # Tempo: one step each way, halve and double to the nearest step.
    for key, factor in (("]", "1.10"), ("[", "1.00"), ("[", "0.90"), ("}", "1.70"), ("}", "2.00"),
                        ("{", "1.00"), ("{", "0.50"), ("[", "0.50"), ("BSpace", "1.00")):
        keys(key)
        wait_for(f"{key}: {factor}x", lambda t, p, f, s, r: f == factor)
    # Volume and mute.
    keys("9")
    wait_for("9: volume 90", lambda t, p, f, s, r: "vol 90" in r)
    keys("9")
    wait_for("9: volume 80", lambda t, p, f, s, r: "vol 80" in r)
    keys("0")
    wait_for("0: volume 90", lambda t, p, f, s, r: "vol 90" in r)
    keys("m")
    wait_for("m: muted", lambda t, p, f, s, r: "muted" in r)
    keys("m")
    wait_for("m again: volume 90 back", lambda t, p, f, s, r: "vol 90" in r)
    # A-B loop: A here, B 5 s on, then play goes back to A.
    a = status()[0]
    keys("l")
    wait_for("l: A set", lambda t, p, f, s, r: re.search(r"\bA \d", r))
    keys("Right")
    wait_for("Right before B", lambda t, p, f, s, r: t >= a + 4.5)
    keys("l")
    wait_for("l: A-B set", lambda t, p, f, s, r: "A-B" in r)
    keys("space")
    wait_for("after B, back near A", lambda t, p, f, s, r: s == "playing" and a - 0.2 <= t <= a + 2.0)
    keys("l")
    wait_for("l: loop cleared", lambda t, p, f, s, r: "A" not in r)
    keys("?")
    limit = time.time() + 3
    while "keys:" not in screen() and time.time() < limit:
        time.sleep(0.05)
    assert "keys:" in screen(), screen()
    keys("q")
    text = wait_exit()
    assert "EXIT=0" in text, text
    assert not any(status_line.search(line) for line in text.splitlines()), f"status line left:\n{text}"

def ctrl_c_clears():
    start()
    wait_for("play starts", lambda t, p, f, s, r: s == "playing" and t >= 0.5)
    keys("C-c")
    text = wait_exit()
    assert "EXIT=130" in text, text
    assert not any(status_line.search(line) for line in text.splitlines()), f"status line left:\n{text}"

def escape_quits():
    start()
    wait_for("play starts", lambda t, p, f, s, r: s == "playing")
    keys("Escape")
    text = wait_exit()
    assert "EXIT=0" in text, text

case("quiet play with one status line, and each key's effect", quiet_and_keys)
case("the status line cleared after Ctrl-C", ctrl_c_clears)
case("Esc quits", escape_quits)
sys.exit(1 if failures else 0)
PY
