#!/usr/bin/env bash
# How good are the rate estimates? Speaks a fixed set of texts with espeak-ng
# at 100, 140, 180, 220 and 260 words per minute, then for each file:
#  - GetWordSpeedByAsyn through the test container (words per segment
#    calibrated on half of the texts, tested on the other half);
#  - the live counter's CountWordFire totals per minute, scaled the same way.
# Prints estimate against the true rate (words / duration) with the mean
# absolute error and the correlation. It measures; it asserts nothing.
# Usage: bench/word-rate-eval.sh [BUILD_DIR]   (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
[ -x "$build/tempvox" ] || { echo "build tempvox first"; exit 1; }
command -v espeak-ng >/dev/null && command -v sox >/dev/null || ./scripts/deps.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
python3 - "$build/tempvox" "$work" <<'PY'
import json, math, os, struct, subprocess, sys
tool, work = sys.argv[1], sys.argv[2]
texts = [
    "The morning train was late again, so the students waited on the cold platform and practised the new words from their lesson. Some of them read aloud, others listened to recordings, and a few simply watched the rain falling on the tracks while they repeated each phrase quietly to themselves.",
    "Learning a language takes patience. At first every sentence sounds like a single long word, but slowly the ear begins to find the gaps between the words. A slower recording helps a great deal, because the learner can hear where one word ends and the next one begins.",
    "Our teacher brought a small radio to class on Friday. She played a short news report twice, first at normal speed and then more slowly, and asked us to write down every number we heard. Most of us missed the dates the first time, but nobody missed them the second time.",
    "When you travel to a new city, the most useful phrases are often the simplest ones. Ask for directions, order a meal, buy a ticket, and thank the people who help you. If you practise these every day for a week, you will be surprised how natural they start to feel.",
    "The library opens at nine and closes at six, except on Sundays, when it stays closed all day. Visitors may borrow up to five books at a time, and audio lessons can be taken home for two weeks. Please return everything to the front desk before the end of the month.",
    "My grandmother grew up in a small village near the sea. She told us stories about the fishing boats, the long winters and the festivals in summer, when the whole village danced in the square until midnight. We recorded her voice so that we could listen again later.",
]
rates = [100, 140, 180, 220, 260]

def run(script):
    out = subprocess.run([tool, "host", "--audio", "manual", "--clock", "manual"], input=script,
                         capture_output=True, text=True, check=True).stdout
    return [json.loads(line) for line in out.splitlines() if line.strip()]

rows = []
for t, text in enumerate(texts):
    words = len(text.split())
    for wpm in rates:
        raw, path = f"{work}/raw.wav", f"{work}/t{t}_{wpm}.wav"
        subprocess.run(["espeak-ng", "-s", str(wpm), "-w", raw, text], check=True)
        subprocess.run(["sox", raw, "-r", "22050", "-b", "16", "-e", "signed-integer", "-c", "1", path], check=True)
        seconds = (os.path.getsize(path) - 44) / 44100.0
        span = max(1, int(seconds) - 2)
        lines = run(f'SetPlayFilePath null -1 "{path}"\nSetJustPlay true\nStartPlay\n'
                    f'GetWordSpeedByAsyn 1.0 {span}\nwait NewWordSpeedDone 20000\nStopPlay\n')
        segments = next((e["args"][0] for e in lines if e.get("event") == "NewWordSpeedDone"), 0)
        blocks = int(seconds * 10) + 8
        lines = run(f'SetPlayFilePath null -1 "{path}"\nStartPlay\n' + "step\n" * blocks + "StopPlay\n")
        counts = [e["args"] for e in lines if e.get("event") == "CountWordFire"]
        live = sum(c[0] for c in counts[1:]) / seconds * 60.0
        rows.append({"text": t, "wpm": wpm, "words": words, "seconds": seconds,
                     "true": words / seconds * 60.0, "segments": segments, "span": span, "live": live})

calibration = [r for r in rows if r["text"] % 2 == 0]
held_out = [r for r in rows if r["text"] % 2 == 1]
def scale(key):
    pairs = [(r["true"], r[key]) for r in calibration if r[key] > 0]
    return sum(t for t, _ in pairs) / sum(v for _, v in pairs) if pairs else 0.0
ep = scale("segments")
live_scale = scale("live")

def stats(pairs):
    n = len(pairs)
    mae = sum(abs(e - t) for t, e in pairs) / n
    mt = sum(t for t, _ in pairs) / n
    me = sum(e for _, e in pairs) / n
    cov = sum((t - mt) * (e - me) for t, e in pairs)
    st = math.sqrt(sum((t - mt) ** 2 for t, _ in pairs))
    se = math.sqrt(sum((e - me) ** 2 for _, e in pairs))
    return mae, (cov / (st * se) if st > 0 and se > 0 else float("nan"))

print(f"Calibrated on texts 0, 2, 4: fEpWordNum = {ep:.3f} words per segment; live counter: {live_scale:.4f} words per voiced frame")
print()
print("| text | espeak wpm | true wpm | GetWordSpeedByAsyn | live counter |")
print("|---|---|---|---|---|")
for r in held_out:
    print(f"| {r['text']} | {r['wpm']} | {r['true']:.0f} | {r['segments'] * ep:.0f} | {r['live'] * live_scale:.0f} |")
mae_a, corr_a = stats([(r["true"], r["segments"] * ep) for r in held_out])
mae_l, corr_l = stats([(r["true"], r["live"] * live_scale) for r in held_out])
print()
print(f"GetWordSpeedByAsyn on held-out texts: mean absolute error {mae_a:.1f} wpm, correlation {corr_a:.3f}")
print(f"Live CountWordFire on held-out texts: mean absolute error {mae_l:.1f} wpm, correlation {corr_l:.3f}")
PY
