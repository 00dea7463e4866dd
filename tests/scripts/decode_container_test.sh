#!/usr/bin/env bash
# Decoded files through the control, driven line by line in the test
# container (`tempvox host --audio null`), with the folders looked at
# between the lines:
#  - SetPlayFilePath of an MP3 answers TRUE and GetPlayFilePath names the
#    control's .wav; beside a .wav of the user's that is one in the
#    temporary folder, and the user's file stays byte for byte;
#  - the next SetPlayFilePath removes that .wav, and a FLAC with no .wav
#    beside it gets one there, removed in turn;
#  - a cut-short MP3 plays what it holds;
#  - random bytes named .mp3 answer TRUE and StartPlay shows 206 and 208;
#  - over http, SetPlayFilePath2 with a local name downloads and decodes
#    once, and the second call finds the decoded copy without a request;
#  - an https server whose certificate nobody trusts is refused at once:
#    one connection, no retry, and the tool names the reason.
# The tool runs from a copy in the scratch folder, so that its temporary
# folder is this test's alone.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
source_dir=$2
work=$3/decode-container
rm -rf "$work"
mkdir -p "$work/bin" "$work/data" "$work/served"
cd "$work"
command -v ffmpeg >/dev/null || { echo "FAIL: ffmpeg is needed (scripts/deps.sh installs it)"; exit 1; }
cp "$tool" bin/tempvox
# Its plugins (FFmpeg, the network) go with it, beside it.
find "$(dirname "$tool")" -maxdepth 4 -path '*/tempvox/tempvox-*.so' -exec ln -s {} bin/ \;

ff() { ffmpeg -hide_banner -loglevel error -nostdin -y "$@"; }
"$source_dir/scripts/make-sample.sh" sample.wav >/dev/null
ff -i sample.wav -t 3 -c:a libmp3lame -b:a 64k data/lesson.mp3
ff -i sample.wav -t 2 -c:a flac data/other.flac
head -c 12000 data/lesson.mp3 > data/cut.mp3
python3 -c "import random; random.seed(7); open('data/noise.mp3','wb').write(bytes(random.getrandbits(8) for _ in range(40000)))"
# The user's own recording beside the MP3, under the name a decoding would take.
cp sample.wav data/lesson.wav
ff -i sample.wav -t 2 -c:a flac served/remote.flac
# Lengths in milliseconds by the ffmpeg tool's own decode.
length_ms() { ffmpeg -v quiet -nostdin -i "$1" -f s16le -ac 1 - | python3 -c "import sys; print(len(sys.stdin.buffer.read()) // 2 * 1000 // $2)"; }
lesson_ms=$(length_ms data/lesson.mp3 22050)
cut_ms=$(length_ms data/cut.mp3 22050)
other_ms=$(length_ms data/other.flac 22050)

server_pids=()
cleanup() { for pid in "${server_pids[@]}"; do kill "$pid" 2>/dev/null || true; done; }
trap cleanup EXIT
start_server() {  # start_server KIND: sets port
  python3 "$source_dir/tests/media/AudioServer.py" "$1" "$work/served" "$work/$1.port" "$work/$1.log" &
  server_pids+=($!)
  for _ in $(seq 200); do [ -s "$work/$1.port" ] && break; sleep 0.05; done
  port=$(cat "$work/$1.port")
}
start_server http
http_port=$port
start_server https
https_port=$port

python3 - "$work" "$lesson_ms" "$cut_ms" "$other_ms" "$http_port" <<'PY'
import hashlib, json, os, subprocess, sys

work, lesson_ms, cut_ms, other_ms, http_port = sys.argv[1], *map(int, sys.argv[2:])
data = os.path.join(work, "data")
temp = os.path.join(work, "bin", "ZqTempAudio")
failures = passes = 0


def check(name, expected, actual):
    global failures, passes
    if expected == actual:
        passes += 1
    else:
        failures += 1
        print(f"FAIL: {name}: expected {expected!r}, got {actual!r}")


def digest(path):
    with open(path, "rb") as f:
        return hashlib.sha256(f.read()).hexdigest()


host = subprocess.Popen([os.path.join(work, "bin", "tempvox"), "host", "--audio", "null"], cwd=work,
                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
host.stdout.readline()  # the host window


def call(line):
    """Sends one line; the boxes shown on the way and the call's result."""
    host.stdin.write(line + "\n")
    host.stdin.flush()
    boxes = []
    while True:
        reply = json.loads(host.stdout.readline())
        if "box" in reply:
            boxes.append(reply["box"])
        elif "call" in reply or "error" in reply:
            return boxes, reply.get("result", reply.get("error"))


def total_time():
    """The length the engine finds in the located file as it starts it."""
    started = call("StartPlay")
    total = call("GetTotalPlayTime")
    call("StopPlay")
    return started[0], total[1]


def close_to(expected_ms, actual_ms):
    return abs(actual_ms - expected_ms) <= 100  # one block


user_wav = os.path.join(data, "lesson.wav")
user_digest = digest(user_wav)
originals = sorted(os.listdir(data))

check("mp3: SetPlayFilePath", ([], True), call(f'SetPlayFilePath null -1 "{data}/lesson.mp3"'))
_, converted = call("GetPlayFilePath")
check("mp3: the .wav is the control's, in its temporary folder", temp,
      os.path.dirname(converted))
check("mp3: named after the lesson", True, os.path.basename(converted).startswith("lesson-"))
check("mp3: it stands", True, os.path.isfile(converted))
_, total = total_time()
check(f"mp3: the whole lesson ({lesson_ms} ms, got {total})", True, close_to(lesson_ms, total))
check("mp3: the user's .wav untouched", user_digest, digest(user_wav))

check("flac: SetPlayFilePath", ([], True), call(f'SetPlayFilePath null -1 "{data}/other.flac"'))
check("mp3's .wav removed by the next SetPlayFilePath", False, os.path.exists(converted))
_, converted = call("GetPlayFilePath")
check("flac: a .wav beside it where none stood", os.path.join(data, "other.wav"), converted)
_, total = total_time()
check(f"flac: its length ({other_ms} ms, got {total})", True, close_to(other_ms, total))

check("cut short: SetPlayFilePath", ([], True), call(f'SetPlayFilePath null -1 "{data}/cut.mp3"'))
check("flac's .wav removed", False, os.path.exists(os.path.join(data, "other.wav")))
_, total = total_time()
check(f"cut short: what it holds ({cut_ms} ms, got {total})", True, close_to(cut_ms, total))

check("random bytes: SetPlayFilePath", ([], True), call(f'SetPlayFilePath null -1 "{data}/noise.mp3"'))
check("random bytes: the path as given", ([], f"{data}/noise.mp3"), call("GetPlayFilePath"))
check("random bytes: StartPlay", ([206, 208], False), call("StartPlay"))

address = f'"http://127.0.0.1:{http_port}"'
check("remote: SetPlayFilePath2", ([], True), call(f'SetPlayFilePath2 {address} 0 "/remote.flac" "kept"'))
check("remote: the decoded copy under the local name", ([], os.path.join(temp, "kept.wav")),
      call("GetPlayFilePath"))
check("remote: found again", ([], True), call(f'SetPlayFilePath2 {address} 0 "/remote.flac" "kept"'))
check("remote: the same copy", ([], os.path.join(temp, "kept.wav")), call("GetPlayFilePath"))
with open(os.path.join(work, "http.log")) as log:
    check("remote: fetched once", ["/remote.flac"], log.read().split())

host.stdin.close()
check("host ends", 0, host.wait(timeout=30))
check("the user's files as they were", (originals, user_digest), (sorted(os.listdir(data)), digest(user_wav)))
check("the temporary folder went with the control", False, os.path.exists(temp))
print(f"decode_container (host): {passes} passed, {failures} failed")
sys.exit(1 if failures else 0)
PY

# An untrusted certificate: refused with the reason, after one connection.
failures=0
status=0
bin/tempvox play "https://127.0.0.1:$https_port/remote.flac" --audio null > https.out 2> https.err || status=$?
# A refusal of the network class: exit 6.
[ "$status" -eq 6 ] || { echo "FAIL: https: exit status $status"; failures=1; }
grep -q "certificate is not trusted" https.err || { echo "FAIL: https: no reason given"; cat https.err; failures=1; }
handshakes=$(grep -c handshake https.log || true)
[ "$handshakes" -eq 1 ] || { echo "FAIL: https: $handshakes connections, expected 1"; failures=1; }
echo "decode_container (https): $([ $failures -eq 0 ] && echo 3 || echo 0) passed, $failures failed"
[ "$failures" -eq 0 ]
