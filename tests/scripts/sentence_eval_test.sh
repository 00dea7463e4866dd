#!/usr/bin/env bash
# A few generated recordings with known sentence boundaries (see
# tests/scripts/sentence_set.py; bench/sentence-eval.sh runs the whole set):
# `tempvox segments` must find them with a boundary F1 of at least 0.97 clean
# and under noise at 20 dB, 0.90 under a music bed at 10 dB. Then its output
# in every format must read back: JSON with json.loads, SubRip and WebVTT
# through ffmpeg's subtitle readers, labels as tab-separated seconds, all
# telling the same sentences.
# Arguments: the tempvox binary, the source tree, a scratch folder.
set -euo pipefail
tool=$1
source_dir=$2
work=$3/sentence-eval
rm -rf "$work"
mkdir -p "$work"
for needed in espeak-ng sox ffmpeg; do
  command -v "$needed" >/dev/null || { echo "$needed is missing (scripts/deps.sh installs it)"; exit 1; }
done

python3 "$source_dir/tests/scripts/sentence_set.py" generate "$work/set" --quick
python3 "$source_dir/tests/scripts/sentence_set.py" score "$tool" "$work/set" \
  --require "clean=0.97" "white 20=0.97" "chords 10=0.90"

python3 - "$tool" "$work/set/white20_44100_2.wav" "$work" <<'PY'
import json, re, subprocess, sys
tool, recording, work = sys.argv[1], sys.argv[2], sys.argv[3]

def segments(fmt):
    return subprocess.run([tool, "segments", recording, "--format", fmt], check=True, capture_output=True,
                          text=True).stdout

found = json.loads(segments("json"))
times = [(s["start"], s["end"]) for s in found["sentences"]]
assert len(times) >= 10, found
assert found["rate"] == 44100 and found["channels"] == 2 and found["min_pause_ms"] == 300, found

def cues(path, into):
    """The cues of a subtitle file as ffmpeg reads it, written back as SubRip."""
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-i", path, "-f", "srt", into], check=True)
    text = open(into).read()
    stamp = r"(\d+):(\d+):(\d+),(\d+)"
    found = []
    for m in re.finditer(stamp + r" --> " + stamp + r"\n(.*)\n", text):
        g = [int(v) for v in m.groups()[:8]]
        found.append((g[0] * 3600 + g[1] * 60 + g[2] + g[3] / 1000, g[4] * 3600 + g[5] * 60 + g[6] + g[7] / 1000,
                      m.group(9)))
    return found

for fmt in ("srt", "vtt"):
    path = f"{work}/sentences.{fmt}"
    open(path, "w").write(segments(fmt))
    read = cues(path, f"{work}/from_{fmt}.srt")
    assert len(read) == len(times), (fmt, read)
    for i, ((start, end, text), (s, e)) in enumerate(zip(read, times)):
        assert abs(start - s) < 0.0015 and abs(end - e) < 0.0015, (fmt, i, start, end, s, e)
        assert text == f"Sentence {i + 1}", (fmt, text)
    print(f"ok   {fmt}: {len(read)} cues read back by ffmpeg")

labels = [line.split("\t") for line in segments("labels").splitlines()]
assert len(labels) == len(times)
for i, (fields, (s, e)) in enumerate(zip(labels, times)):
    assert len(fields) == 3 and fields[2] == f"Sentence {i + 1}", fields
    assert abs(float(fields[0]) - s) < 0.0005 and abs(float(fields[1]) - e) < 0.0005, (fields, s, e)
print(f"ok   json and labels: {len(times)} sentences")

# `tempvox rate --per-sentence` rates the same sentences, one line each in
# their order, then the whole file.
lines = subprocess.run([tool, "rate", recording, "--per-sentence"], check=True, capture_output=True,
                       text=True).stdout.splitlines()
assert len(lines) == len(times) + 1 and lines[-1].startswith("whole file"), lines
for line, (s, e) in zip(lines, times):
    m = re.match(r"\s*([\d.]+)-\s*([\d.]+) s\s+([\d.]+) syllables/s", line)
    assert m and abs(float(m.group(1)) - s) < 0.006 and abs(float(m.group(2)) - e) < 0.006, (line, s, e)
    # Speech at any rate the set is spoken at: between 2 and 8 syllables a second.
    assert 2.0 < float(m.group(3)) < 8.0, line
print(f"ok   rate --per-sentence: the {len(times)} sentences rated")
PY

# Bad input: a clear message and a failing status, nothing written.
printf 'not a wave file' > "$work/text.wav"
if "$tool" segments "$work/text.wav" >"$work/out" 2>"$work/err"; then echo "FAIL: a text file was read"; exit 1; fi
grep -q "not a wave file" "$work/err" && [ ! -s "$work/out" ] || { echo "FAIL: message"; cat "$work/err"; exit 1; }
if "$tool" segments "$work/set/clean_16000_1.wav" --format xml 2>/dev/null; then echo "FAIL: format xml"; exit 1; fi
if "$tool" segments "$work/set/clean_16000_1.wav" --min-pause 20 2>/dev/null; then echo "FAIL: pause 20"; exit 1; fi
echo "ok   bad input refused"
