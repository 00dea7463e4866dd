#!/usr/bin/env bash
# Tempo change with the pitch kept, all tools on the same inputs in one run:
#   tempvox render --level N             (the refined profile, the default)
#   tempvox render --level N --classic   (the legacy per-block changer)
#   soundstretch -speech, sonic, rubberband, sox tempo -s
# Inputs: ten minutes of espeak-ng speech at 22050 Hz mono and at 44100 Hz
# stereo (right channel a copy of the left 20 dB down), and 30 s of a steady
# 220 Hz harmonic tone (harmonics 1-10 at 1/h) in the same two formats.
# For each tool, input and factor it prints:
#   CPU s        user + sys of the whole command
#   x realtime   input duration / CPU
#   tempo        delivered tempo / asked: (input duration / output duration) / factor
#   purity dB    tones only: energy within 10 Hz of the harmonics of 220 Hz
#                against all the rest (Blackman-Harris window, middle of the
#                output, the channels summed)
#   balance dB   stereo only: change of right-to-left RMS ratio, output vs input
# A tool that cannot run (missing, or tempvox without --classic) shows n/a.
#
# Usage: bench/tsm-quality.sh [BUILD_DIR]      (default: build)
# Environment: LEVELS="-60 -10 25 50"  speed levels to run (factor: level > 0
#              1 + level/50, level < 0 1 + level/120); SPEECH_SECONDS=600;
#              INPUTS="speech-22050-mono speech-44100-stereo tone-22050-mono
#              tone-44100-stereo" (also speech-48000-stereo, tone-48000-stereo);
#              TOOLS="tempvox classic soundstretch sonic rubberband sox".
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
tool=$build/tempvox
levels=${LEVELS:-"-60 -10 25 50"}
speech_seconds=${SPEECH_SECONDS:-600}
inputs=${INPUTS:-"speech-22050-mono speech-44100-stereo tone-22050-mono tone-44100-stereo"}
tools=" ${TOOLS:-tempvox classic soundstretch sonic rubberband sox} "

need=()
for p in espeak-ng sox soundstretch sonic rubberband-cli python3-numpy time; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || need+=("$p")
done
if [ ${#need[@]} -gt 0 ]; then
  sudo_cmd=(); [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo -n)
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${need[@]}" </dev/null >/dev/null
fi
# Debian's numpy belongs to Debian's interpreter, whatever else is on PATH.
py=/usr/bin/python3

have_tempvox=0; [ -x "$tool" ] && have_tempvox=1
have_classic=0
if [ $have_tempvox = 1 ]; then
  # Read whole first: with pipefail, grep -q leaving early would fail the pipe.
  usage=$({ "$tool" --help; "$tool" render --help; } 2>&1 || true)
  [[ $usage == *--classic* ]] && have_classic=1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# --- inputs -----------------------------------------------------------------
text="Listening practice works best when the learner can slow a recording down without changing the voice. \
Each lesson is read at a natural pace, and the player lets the learner choose a slower or faster tempo. \
Short sentences, clear pauses and repeated phrases help the ear to catch every word."
espeak-ng -s 160 -w "$work/para.wav" "$text"
sox "$work/para.wav" -r 22050 -b 16 -e signed-integer -c 1 "$work/para16.wav"
para=$(soxi -D "$work/para16.wav")
repeats=$("$py" -c "import math,sys; print(math.ceil(float(sys.argv[2])/float(sys.argv[1])))" "$para" "$speech_seconds")
list=()
for _ in $(seq "$repeats"); do list+=("$work/para16.wav"); done
sox "${list[@]}" "$work/long.wav"
sox "$work/long.wav" "$work/speech-22050-mono.wav" trim 0 "$speech_seconds"
sox "$work/speech-22050-mono.wav" -r 44100 "$work/speech-44100-stereo.wav" remix 1 1v0.1
sox "$work/speech-22050-mono.wav" -r 48000 "$work/speech-48000-stereo.wav" remix 1 1v0.1

"$py" - "$work" <<'PY'
import sys, wave, numpy as np
work = sys.argv[1]
for rate, channels in ((22050, 1), (44100, 2), (48000, 2)):
    t = np.arange(30 * rate) / rate
    x = sum(np.sin(2 * np.pi * 220 * h * t) / h for h in range(1, 11))
    x = x / np.abs(x).max() * 16383
    y = x[:, None] if channels == 1 else np.stack([x, x * 0.1], axis=1)
    name = f"{work}/tone-{rate}-{'mono' if channels == 1 else 'stereo'}.wav"
    w = wave.open(name, "wb")
    w.setnchannels(channels); w.setsampwidth(2); w.setframerate(rate)
    w.writeframes(np.round(y).astype("<i2").tobytes()); w.close()
PY

# --- measuring ----------------------------------------------------------------
cat >"$work/measure.py" <<'PY'
import sys, wave, numpy as np
name, inp, out, factor, cpu = sys.argv[1], sys.argv[2], sys.argv[3], float(sys.argv[4]), sys.argv[5]
def read(path):
    w = wave.open(path)
    c, r = w.getnchannels(), w.getframerate()
    x = np.frombuffer(w.readframes(w.getnframes()), dtype="<i2").astype(float).reshape(-1, c)
    return x, r
def purity(x, r, f0=220.0):
    m = x[int(0.5 * r): len(x) - int(0.5 * r)].sum(axis=1)
    n = len(m); k = np.arange(n)
    w = 0.35875 - 0.48829 * np.cos(2 * np.pi * k / n) + 0.14128 * np.cos(4 * np.pi * k / n) - 0.01168 * np.cos(6 * np.pi * k / n)
    p = np.abs(np.fft.rfft(m * w)) ** 2
    f = np.fft.rfftfreq(n, 1 / r)
    harmonic = np.abs(f - f0 * np.round(f / f0)) <= 10.0
    harmonic[0] = False
    return 10 * np.log10(p[harmonic].sum() / p[~harmonic].sum())
def balance(x):
    rms = np.sqrt((x ** 2).mean(axis=0))
    return 20 * np.log10(rms[1] / rms[0])
x, rx = read(inp)
cells = ["n/a"] * 5
if cpu != "n/a":
    try:
        y, ry = read(out)
        # sonic's WAV writer labels stereo output as mono; its samples are
        # the interleaved stereo frames.
        if name == "sonic" and x.shape[1] == 2 and y.shape[1] == 1:
            y = y.reshape(-1, 2)
        cpu_s = float(cpu)
        tin, tout = len(x) / rx, len(y) / ry
        cells[0] = f"{cpu_s:.2f}"
        cells[1] = f"{tin / cpu_s:.0f}" if cpu_s > 0 else "inf"
        cells[2] = f"{tin / tout / factor:.4f}"
        if "tone" in inp:
            cells[3] = f"{purity(y, ry):.1f}"
        if x.shape[1] == 2 and y.shape[1] == 2:
            cells[4] = f"{balance(y) - balance(x):+.3f}"
    except Exception as e:  # a tool that wrote nothing usable
        cells[0] = "failed"
label = inp.rsplit("/", 1)[1][:-4]
print(f"| {label:<20} | {name:<24} | {factor:>6.4f} | " + " | ".join(f"{c:>8}" for c in cells) + " |")
PY

run() {   # run NAME INPUT FACTOR OUTPUT COMMAND...
  local name=$1 input=$2 factor=$3 output=$4; shift 4
  local cpu=n/a
  rm -f "$output"
  if /usr/bin/time -f "%U %S" -o "$work/cpu" "$@" >/dev/null 2>"$work/err"; then
    cpu=$("$py" -c "import sys; u,s=open(sys.argv[1]).read().split()[-2:]; print(float(u)+float(s))" "$work/cpu")
  fi
  "$py" "$work/measure.py" "$name" "$input" "$output" "$factor" "$cpu"
}

na() { "$py" "$work/measure.py" "$1" "$2" /dev/null "$3" n/a; }

echo "| input                | tool                     | factor |    CPU s | x realtime |   tempo | purity dB | balance dB |"
echo "|----------------------|--------------------------|--------|----------|------------|---------|-----------|------------|"
for input in $inputs; do
  in=$work/$input.wav
  for level in $levels; do
    factor=$("$py" -c "import sys; l=int(sys.argv[1]); print(1 + l / 50 if l > 0 else 1 + l / 120)" "$level")
    percent=$("$py" -c "import sys; print(round((float(sys.argv[1]) - 1) * 100, 4))" "$factor")
    if [[ $tools == *" tempvox "* ]]; then
      if [ $have_tempvox = 1 ]; then
        run "tempvox render" "$in" "$factor" "$work/tv.wav" "$tool" render "$in" "$work/tv.wav" --just-play --level "$level"
      else
        na "tempvox render" "$in" "$factor"
      fi
    fi
    if [[ $tools == *" classic "* ]]; then
      if [ $have_classic = 1 ]; then
        run "tempvox render --classic" "$in" "$factor" "$work/tc.wav" "$tool" render "$in" "$work/tc.wav" --just-play --level "$level" --classic
      else
        na "tempvox render --classic" "$in" "$factor"
      fi
    fi
    [[ $tools != *" soundstretch "* ]] ||
      run "soundstretch -speech" "$in" "$factor" "$work/ss.wav" soundstretch "$in" "$work/ss.wav" "-tempo=$percent" -speech
    [[ $tools != *" sonic "* ]] || run "sonic" "$in" "$factor" "$work/so.wav" sonic -s "$factor" "$in" "$work/so.wav"
    [[ $tools != *" rubberband "* ]] ||
      run "rubberband" "$in" "$factor" "$work/rb.wav" rubberband -q -T "$factor" "$in" "$work/rb.wav"
    [[ $tools != *" sox "* ]] || run "sox tempo -s" "$in" "$factor" "$work/sx.wav" sox "$in" "$work/sx.wav" tempo -s "$factor"
  done
done
echo
echo "Machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'); $(date -u +%Y-%m-%d)"
