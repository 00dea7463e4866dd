#!/usr/bin/env bash
# How well do the speaking-rate measures follow the rate of real speech?
#
# Speaks texts whose syllables are marked by hand (a hyphen between two
# syllables of a word) with espeak-ng in two voices and with flite, at five
# rates each, then makes of every recording 16000, 22050 and 44100 Hz
# copies, mono (peak -3 dBFS) and stereo (right channel at half, peak
# -15 dBFS), clean and with white noise 20 dB below the active speech level.
#
# Truth: the speech time of the clean recording is measured by sox alone:
# leading and trailing silence cut, every pause below -40 dB shortened to
# 0.3 s. True rates are the known syllables and words over that time.
#
# Measured for every file:
#   - `tempvox rate`: syllables per second and words per minute (1.45
#     syllables a word), no calibration;
#   - through the test container, classic profile: the live CountWordFire
#     totals and GetWordSpeedByAsyn (1.0 words a segment), both scaled by a
#     factor calibrated on texts 0 and 2 and judged on texts 1 and 3;
#   - refined profile: the live CountWordFire totals (words a minute of the
#     file) and the first, ten-second report.
# Prints the tables for bench/RESULTS.md and checks the acceptance figures;
# exits 1 when one is missed.
#
# sox runs with -R throughout (its dither and noise repeat), so two runs give
# the same figures.
#
# Usage: bench/speaking-rate-eval.sh [BUILD_DIR] [--quick]
#   SPEAKING_RATE_EVAL_DUMP=FILE keeps every file's figures as JSON.
#   --quick: one text, espeak-ng's default voice at three rates, 22050 Hz
#            mono and 44100 Hz stereo, clean and noisy; the same checks.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build
quick=0
for arg in "$@"; do
  case $arg in
    --quick) quick=1 ;;
    *) build=$arg ;;
  esac
done
[ -x "$build/tempvox" ] || { echo "build tempvox first"; exit 1; }
command -v espeak-ng >/dev/null && command -v sox >/dev/null || ./scripts/deps.sh
if [ "$quick" = 0 ] && ! command -v flite >/dev/null; then
  # The second synthesizer is needed only here, not to build or test.
  sudo_cmd=()
  if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo -n); fi
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends flite </dev/null
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
python3 - "$build/tempvox" "$work" "$quick" <<'PY'
import concurrent.futures, json, math, os, re, subprocess, sys

tool, work, quick = sys.argv[1], sys.argv[2], sys.argv[3] == "1"

# Syllables as a dictionary divides them; words with a vowel that speakers
# often drop (every, family, gradually) are left out.
TEXTS = [
    "The morn-ing train was late a-gain, so the stu-dents wait-ed on the cold plat-form and prac-tised the "
    "dif-fi-cult words from their les-son. Some of them read a-loud, oth-ers lis-tened to re-cord-ings, and a few "
    "sim-ply watched the rain fall-ing on the dis-tant moun-tains.",
    "Learn-ing a for-eign lan-guage takes pa-tience. At first each sen-tence sounds like a sin-gle long word, but "
    "with prac-tice the ear be-gins to no-tice the spa-ces be-tween the words. A slow-er re-cord-ing helps "
    "e-nor-mous-ly, be-cause the learn-er can hear where one word ends and the next be-gins.",
    "When you trav-el to a new cit-y, the most use-ful phras-es are of-ten the sim-plest ones. Ask for "
    "di-rec-tions, or-der a meal, buy a tick-et, and thank the peo-ple who help you. If you prac-tise these "
    "ex-pres-sions each day, you will be sur-prised how eas-i-ly they come to you.",
    "My grand-moth-er grew up in a small vil-lage near the o-cean. She told us sto-ries a-bout the fish-ing boats, "
    "the long win-ters and the fes-ti-vals in sum-mer, when the whole com-mu-ni-ty danced in the square un-til "
    "mid-night. We re-cord-ed our con-ver-sa-tions so that we could lis-ten a-gain lat-er.",
]
SYNTHS = {
    "espeak-ng en-us": (lambda text, rate, out: ["espeak-ng", "-v", "en-us", "-s", str(rate), "-w", out, text],
                        [100, 140, 180, 220, 260]),
    "espeak-ng en+f3": (lambda text, rate, out: ["espeak-ng", "-v", "en+f3", "-s", str(rate), "-w", out, text],
                        [100, 140, 180, 220, 260]),
    "flite slt": (lambda text, stretch, out: ["flite", "-voice", "slt", "--setf", f"duration_stretch={stretch}",
                                              "-t", text, "-o", out],
                  [1.6, 1.3, 1.0, 0.8, 0.65]),
}
FORMATS = [(16000, 1), (22050, 1), (44100, 1), (16000, 2), (22050, 2), (44100, 2)]
SYLLABLES_PER_WORD = 1.45
if quick:
    TEXTS = TEXTS[:1]
    SYNTHS = {"espeak-ng en-us": (SYNTHS["espeak-ng en-us"][0], [120, 180, 240])}
    FORMATS = [(22050, 1), (44100, 2)]


def run(args, **kw):
    return subprocess.run(args, check=True, capture_output=True, text=True, **kw)


def seconds(path):
    return float(run(["soxi", "-D", path]).stdout)


def rms(path):
    for line in subprocess.run(["sox", path, "-n", "stat"], capture_output=True, text=True).stderr.splitlines():
        if line.startswith("RMS     amplitude"):
            return float(line.split()[-1])
    raise RuntimeError("no RMS for " + path)


PAUSES_CUT = ["silence", "-l", "1", "0.02", "-40d", "-1", "0.3", "-40d"]


def make_recording(key):
    text_index, synth, setting = key
    marked = TEXTS[text_index]
    plain = marked.replace("-", "")
    base = f"{work}/t{text_index}-{synth.replace(' ', '_').replace('+', '_')}-{setting}"
    raw = base + "-raw.wav"
    command, _ = SYNTHS[synth]
    run(command(plain, setting, raw))
    speech = base + "-speech.wav"
    run(["sox", "-R", raw, speech, "norm", "-1"] + PAUSES_CUT + ["reverse", "silence", "1", "0.02", "-40d", "reverse"])
    truth_seconds = seconds(speech)
    os.remove(speech)
    files = []
    for rate, channels in FORMATS:
        clean = f"{base}-{rate}-{channels}.wav"
        remix = ["remix", "1", "1v0.5"] if channels == 2 else []
        level = "-3" if channels == 1 else "-15"
        run(["sox", "-R", raw, "-b", "16", "-e", "signed-integer", clean] + remix + ["rate", "-h", str(rate), "norm", level])
        active = clean + ".active.wav"
        run(["sox", "-R", clean, active] + PAUSES_CUT)
        speech_rms = rms(active)
        os.remove(active)
        noise = clean + ".noise.wav"
        run(["sox", "-R", "-n", "-r", str(rate), "-c", str(channels), "-b", "16", noise, "synth",
             str(seconds(clean)), "whitenoise", "vol", "0.3"])
        gain = speech_rms / 10.0 / rms(noise)
        noisy = f"{base}-{rate}-{channels}-noisy.wav"
        run(["sox", "-R", "-m", "-v", "1", clean, "-v", f"{gain:.6f}", noise, noisy])
        os.remove(noise)
        for path, noisy_flag in ((clean, False), (noisy, True)):
            files.append({"text": text_index, "synth": synth, "setting": setting, "rate": rate,
                          "channels": channels, "noisy": noisy_flag, "path": path,
                          "words": len(plain.split()), "syllables": sum(len(w.split("-")) for w in marked.split()),
                          "truth_seconds": truth_seconds, "seconds": seconds(path)})
    os.remove(raw)
    return files


RATE_LINE = re.compile(r"^\s*([\d.]+) syllables/s\s+([\d.]+) words/min\s+\((\d+) syllables in ([\d.]+) s")


def measure(f):
    out = run([tool, "rate", f["path"]]).stdout
    match = RATE_LINE.match(out.splitlines()[-1])
    f["est_sps"], f["est_wpm"] = float(match.group(1)), float(match.group(2))
    blocks = int(f["seconds"] * 10) + 8
    span = max(1, int(f["seconds"]) - 2)
    play = "StartPlay\n" + f"step {blocks}\n" + "StopPlay\n"
    speed = f"GetWordSpeedByAsyn 1.0 {span}\nwait NewWordSpeedDone 30000\n"
    # Classic, refined with the default span of 1 s, refined with a span of
    # 0.1 s (a report with every block, so that none is left unsaid when the
    # file ends inside a span); GetPlaybackProfile marks where each ends.
    script = (f'SetPlayFilePath null -1 "{f["path"]}"\nSetPlaybackProfile 0\n' + play + speed + "GetPlaybackProfile\n" +
              "SetPlaybackProfile 1\n" + play + speed + "GetPlaybackProfile\n" +
              "SetCountWordTimeSpan 100\n" + play + "GetPlaybackProfile\n")
    lines = [json.loads(l) for l in run([tool, "host", "--audio", "manual", "--clock", "manual"],
                                        input=script).stdout.splitlines() if l.strip()]
    profile, reports, speeds = 0, {0: [], 1: [], 2: []}, {0: 0, 1: 0, 2: 0}
    for line in lines:
        if line.get("call") == "GetPlaybackProfile":
            profile += 1
        elif line.get("event") == "CountWordFire":
            reports[profile].append(line["args"][0])
        elif line.get("event") == "NewWordSpeedDone":
            speeds[profile] = line["args"][0]
    f["classic_live"] = sum(reports[0][1:]) / f["seconds"] * 60.0
    f["classic_segments"] = speeds[0]
    f["classic_ten"] = reports[0][0] if reports[0] else -1
    f["refined_live"] = sum(reports[1][1:]) / f["seconds"] * 60.0
    f["refined_ten"] = reports[1][0] if reports[1] else -1
    f["refined_speed"] = speeds[1]
    f["refined_live_every_block"] = sum(reports[2][1:]) / f["seconds"] * 60.0
    return f


keys = [(t, s, r) for t in range(len(TEXTS)) for s in SYNTHS for r in SYNTHS[s][1]]
with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
    files = [f for group in pool.map(make_recording, keys) for f in group]
    files = list(pool.map(measure, files))
for f in files:
    f["true_sps"] = f["syllables"] / f["truth_seconds"]
    f["true_wpm"] = f["words"] / f["truth_seconds"] * 60.0


if os.environ.get("SPEAKING_RATE_EVAL_DUMP"):
    with open(os.environ["SPEAKING_RATE_EVAL_DUMP"], "w") as dump:
        json.dump(files, dump, indent=0)


def stats(pairs):
    n = len(pairs)
    mae = sum(abs(e - t) / t for t, e in pairs) / n * 100.0
    mt = sum(t for t, _ in pairs) / n
    me = sum(e for _, e in pairs) / n
    cov = sum((t - mt) * (e - me) for t, e in pairs)
    st = math.sqrt(sum((t - mt) ** 2 for t, _ in pairs))
    se = math.sqrt(sum((e - me) ** 2 for _, e in pairs))
    return mae, (cov / (st * se) if st > 0 and se > 0 else float("nan"))


def row(label, subset):
    s_mae, s_corr = stats([(f["true_sps"], f["est_sps"]) for f in subset])
    w_mae, w_corr = stats([(f["true_wpm"], f["est_wpm"]) for f in subset])
    return f"| {label} | {len(subset)} | {s_mae:.1f} % | {s_corr:.3f} | {w_mae:.1f} % | {w_corr:.3f} |"


checks = []


def check(name, ok, figure):
    checks.append(ok)
    print(f"{'PASS' if ok else 'FAIL'}  {name}: {figure}")


words = sum(len(t.replace('-', '').split()) for t in TEXTS)
syllables = sum(len(w.split('-')) for t in TEXTS for w in t.split())
print(f"{len(files)} files: {len(TEXTS)} texts ({syllables} syllables, {words} words, "
      f"{syllables / words:.3f} syllables a word), {len(keys)} recordings x {len(FORMATS)} formats x clean/noisy")
print()
print("`tempvox rate` against the truth (mean absolute error as a share of the true rate):")
print()
print("| files | n | syllables/s error | correlation | words/min error | correlation |")
print("|---|---|---|---|---|---|")
print(row("all", files))
for synth in SYNTHS:
    for noisy in (False, True):
        print(row(f"{synth}, {'noisy' if noisy else 'clean'}", [f for f in files if f["synth"] == synth and f["noisy"] == noisy]))
for rate, channels in FORMATS:
    print(row(f"{rate} Hz {'mono' if channels == 1 else 'stereo'}",
              [f for f in files if f["rate"] == rate and f["channels"] == channels]))
print()

print("By speaking rate (all voices, formats and noise; mean of each):")
print()
print("| voice | setting | true syllables/s | measured | true words/min | measured | refined live words/min |")
print("|---|---|---|---|---|---|---|")
for synth in SYNTHS:
    for setting in SYNTHS[synth][1]:
        group = [f for f in files if f["synth"] == synth and f["setting"] == setting]
        mean = lambda key: sum(f[key] for f in group) / len(group)
        print(f"| {synth} | {setting} | {mean('true_sps'):.2f} | {mean('est_sps'):.2f} | {mean('true_wpm'):.0f} | "
              f"{mean('est_wpm'):.0f} | {mean('refined_live'):.0f} |")
print()

s_mae, s_corr = stats([(f["true_sps"], f["est_sps"]) for f in files])
w_mae, w_corr = stats([(f["true_wpm"], f["est_wpm"]) for f in files])
check("syllables/s mean absolute error <= 10 %", s_mae <= 10.0, f"{s_mae:.1f} %")
check("syllables/s correlation >= 0.95", s_corr >= 0.95, f"{s_corr:.3f}")
check("words/min mean absolute error <= 10 %", w_mae <= 10.0, f"{w_mae:.1f} %")
check("words/min correlation >= 0.95", w_corr >= 0.95, f"{w_corr:.3f}")


def spread(noisy):
    worst, where = 0.0, keys[0]
    for key in keys:
        values = [f["est_sps"] for f in files if (f["text"], f["synth"], f["setting"]) == key and f["noisy"] == noisy]
        if min(values) <= 0:
            return float("inf"), key
        s = (max(values) / min(values) - 1.0) * 100.0
        if s > worst:
            worst, where = s, key
    return worst, where


clean_spread, clean_where = spread(False)
noisy_spread, noisy_where = spread(True)
check("one clean recording at every rate and channel count within 3 %", clean_spread <= 3.0,
      f"widest {clean_spread:.1f} % (text {clean_where[0]}, {clean_where[1]} {clean_where[2]})")
print(f"      (noisy copies, each with its own noise: widest {noisy_spread:.1f} %)")

live_mae, live_corr = stats([(f["true_wpm"], f["refined_live"]) for f in files])
check("refined CountWordFire words a minute of the file: correlation with the true rate >= 0.95", live_corr >= 0.95,
      f"{live_corr:.3f}")
every_mae, every_corr = stats([(f["true_wpm"], f["refined_live_every_block"]) for f in files])
print(f"      (with a report every 0.1 s, so that the words of the last part-span are told too: {every_corr:.3f})")


def ten_second_gap(noisy, key_name="refined_ten"):
    gap = 0
    for key in keys:
        pair = {(f["rate"], f["channels"]): f[key_name] for f in files
                if (f["text"], f["synth"], f["setting"]) == key and f["noisy"] == noisy}
        if (22050, 1) in pair and (44100, 2) in pair:
            gap = max(gap, abs(pair[(22050, 1)] - pair[(44100, 2)]))
    return gap


ten_clean = ten_second_gap(False)
check("refined ten-second report, 22050 Hz mono against 44100 Hz stereo, at most one word apart", ten_clean <= 1,
      f"largest difference {ten_clean} word(s) (noisy copies: {ten_second_gap(True)}; "
      f"classic counts of the same clean speech: {ten_second_gap(False, 'classic_ten')})")
print()

if quick:
    sys.exit(0 if all(checks) else 1)

# The classic measures need a scale: calibrated on texts 0 and 2, judged on 1 and 3.
calibration = [f for f in files if f["text"] % 2 == 0]
held_out = [f for f in files if f["text"] % 2 == 1]


def scale(key):
    pairs = [(f["true_wpm"], f[key]) for f in calibration if f[key] > 0]
    return sum(t for t, _ in pairs) / sum(v for _, v in pairs) if pairs else 0.0


segment_scale, live_scale = scale("classic_segments"), scale("classic_live")
for title, subset in [("all formats, clean and noisy", held_out),
                      ("clean 22050 Hz mono only, the classic measures' home ground",
                       [f for f in held_out if not f["noisy"] and f["rate"] == 22050 and f["channels"] == 1])]:
    print(f"Words a minute on the held-out texts, {title} ({len(subset)} files), against the true rate:")
    print()
    print("| measure | calibration | mean absolute error | correlation |")
    print("|---|---|---|---|")
    for label, key, factor, note in [
        ("classic GetWordSpeedByAsyn", "classic_segments", segment_scale, f"x {segment_scale:.3f}"),
        ("classic CountWordFire, words a minute of the file", "classic_live", live_scale, f"x {live_scale:.4f}"),
        ("refined GetWordSpeedByAsyn", "refined_speed", 1.0, "none"),
        ("refined CountWordFire, words a minute of the file", "refined_live", 1.0, "none"),
        ("the same, a report every 0.1 s", "refined_live_every_block", 1.0, "none"),
        ("`tempvox rate` / GetSpeakingRate, words a minute", "est_wpm", 1.0, "none"),
    ]:
        mae, corr = stats([(f["true_wpm"], f[key] * factor) for f in subset])
        print(f"| {label} | {note} | {mae:.1f} % | {corr:.3f} |")
    print()
sys.exit(0 if all(checks) else 1)
PY
