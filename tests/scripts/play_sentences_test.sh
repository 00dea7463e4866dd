#!/usr/bin/env bash
# `tempvox play` by sentence, on a terminal (tmux) and the null device, which
# plays in real time: --shadow goes sentence, pause, sentence ... and ends
# after the fifth; the keys n, b, r and s move as they say, read from the
# status line's sentence number and time.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
work=$3/play-sentences
export PYTHONPATH="$2/tests/scripts${PYTHONPATH:+:$PYTHONPATH}"  # wavfile.py
rm -rf "$work"
mkdir -p "$work"
command -v tmux >/dev/null || { echo "tmux is missing (apt-get install tmux)"; exit 1; }

python3 - "$tool" "$work" <<'PY'
import os, re, struct, subprocess, sys, time

tool, work = sys.argv[1], sys.argv[2]
rate = 16000
# Five sentences (syllables of a triangle wave, 150 ms, 60 ms apart) from
# 500, 1980, 3980, 5150 and 7040 ms to 1280, 3180, 4550, 6140 and 7820 ms.
starts = [0.50, 1.98, 3.98, 5.15, 7.04]
ends = [1.28, 3.18, 4.55, 6.14, 7.82]
samples = [0] * (rate // 2)
for n, (syllables, pause) in enumerate(((4, 700), (6, 800), (3, 600), (5, 900), (4, 800))):
    for s in range(syllables):
        period = 100 + 7 * ((n * 5 + s) % 9)
        count = rate * 150 // 1000
        for i in range(count):
            phase = i % period
            triangle = phase if phase < period // 2 else period - phase
            samples.append((4 * triangle - period) * 50 * min(i, 320, count - i) // 320)
        if s + 1 < syllables:
            samples += [0] * (rate * 60 // 1000)
    samples += [0] * (rate * pause // 1000)
from wavfile import write_wav
path = f"{work}/five.wav"
write_wav(path, samples, rate)

session = f"tempvox-sentences-{int(time.time() * 1000) % 100000}"
status_line = re.compile(r"(\d+):(\d+\.\d) / \S+ +\d+% +\S+ +\[(\w+)\] +sentence (\S+)/5(.*)$")

# A tmux server of this test's own, new for each case: on a shared server,
# another test ending its last session can shut the server down under our
# new-session, and a server just killed may still answer its socket.
servers = 0
socket = f"tempvox-sentences-{os.getpid()}-0"

def tmux(*args):
    return subprocess.run(["tmux", "-L", socket, *args], check=True, capture_output=True, text=True).stdout

def next_server():
    global servers, socket
    servers += 1
    socket = f"tempvox-sentences-{os.getpid()}-{servers}"

def start(arguments):
    next_server()
    tmux("new-session", "-d", "-s", session, "-x", "160", "-y", "40",
         f"{tool} play {path} --audio null {arguments}; echo EXIT=$?; sleep 60")

def screen():
    return tmux("capture-pane", "-p", "-t", session)

def status():
    """(seconds, state, sentence, rest) of the last status line, or None."""
    for line in reversed(screen().splitlines()):
        m = status_line.search(line)
        if m:
            return (int(m[1]) * 60 + float(m[2]), m[3], m[4], m[5].strip())
    return None

def wait_for(what, condition, timeout=6.0):
    limit = time.time() + timeout
    while time.time() < limit:
        now = status()
        if now and condition(*now):
            return now
        time.sleep(0.05)
    raise AssertionError(f"{what}: last status {status()}\n{screen()}")

def stop():
    subprocess.run(["tmux", "-L", socket, "kill-server"], capture_output=True)

failures = 0
try:
    # Shadowing at half the length of each sentence.
    # --events: on a terminal the events are printed only when asked for.
    start("--shadow=0.5 --events")
    seen = []
    limit = time.time() + 40
    while "EXIT=" not in screen() and time.time() < limit:
        now = status()
        if now:
            phase = "repeat" if "repeat" in now[3] else now[1]
            if not seen or seen[-1] != (now[2], phase):
                seen.append((now[2], phase))
        time.sleep(0.03)
    text = screen()
    assert "EXIT=0" in text, text
    # Each sentence played, then its pause to repeat it, in order.
    # (After the last pause the line stands paused at the fifth.)
    compact = [(n, p) for n, p in seen if n != "-"]
    if compact[-1] == ("5", "paused"):
        compact.pop()
    expected = [(str(n), p) for n in range(1, 6) for p in ("playing", "repeat")]
    assert compact == expected, f"sequence {seen}"
    assert text.count("PlayOneSentenceCompleted") == 5, text
    print("ok   --shadow: " + ", ".join(f"{n} {p}" for n, p in compact))
    stop()

    # The keys, without shadowing.
    start("")
    wait_for("play starts before the first sentence", lambda t, s, n, r: n == "-" and s == "playing")
    tmux("send-keys", "-t", session, "n")
    now = wait_for("n: to sentence 1", lambda t, s, n, r: n == "1")
    assert now[0] <= 1.0, now
    tmux("send-keys", "-t", session, "n")
    now = wait_for("n: to sentence 2", lambda t, s, n, r: n == "2")
    assert starts[1] - 0.1 <= now[0] <= starts[1] + 0.4, now
    wait_for("into the pause after sentence 2", lambda t, s, n, r: t >= ends[1] + 0.1)
    tmux("send-keys", "-t", session, "b")
    now = wait_for("b after 1 s: back to the start of sentence 2", lambda t, s, n, r: t < ends[1])
    assert now[2] == "2" and now[0] <= starts[1] + 0.4, now
    tmux("send-keys", "-t", session, "b")
    now = wait_for("b early: back to sentence 1", lambda t, s, n, r: n == "1")
    assert now[0] <= starts[0] + 0.4, now
    wait_for("into sentence 1", lambda t, s, n, r: t >= starts[0] + 0.5)
    tmux("send-keys", "-t", session, "r")
    now = wait_for("r: sentence 1 again from its start", lambda t, s, n, r: t < starts[0] + 0.4)
    assert now[2] == "1", now
    tmux("send-keys", "-t", session, "s")
    now = wait_for("s: a pause after the sentence", lambda t, s, n, r: s == "paused" and "stop each" in r)
    assert now[2] == "1" and ends[0] - 0.15 <= now[0] <= starts[1], now
    tmux("send-keys", "-t", session, " ")
    now = wait_for("space: on to the end of sentence 2", lambda t, s, n, r: s == "paused" and n == "2")
    assert ends[1] - 0.15 <= now[0] <= starts[2], now
    tmux("send-keys", "-t", session, "q")
    limit = time.time() + 5
    while "EXIT=" not in screen() and time.time() < limit:
        time.sleep(0.05)
    assert "EXIT=0" in screen(), screen()
    print("ok   keys n, b, r, s and space move by sentence")
except AssertionError as failure:
    print(f"FAIL {failure}")
    failures += 1
except subprocess.CalledProcessError as failure:
    print(f"FAIL {' '.join(failure.cmd)}: {failure.stderr}")
    failures += 1
finally:
    stop()
sys.exit(1 if failures else 0)
PY
