#!/usr/bin/env python3
"""Recordings whose sentence boundaries are known, and the score of a finder
against them.

`generate` speaks sentences one by one with espeak-ng, trims each to its
sound, joins them with pauses of known length (two voices taking turns, the
second quieter), converts the result with sox to the rates and channel counts
asked for, and adds noise at a given signal-to-noise ratio. The truth is the
joining: each sentence runs from its first to its last audible millisecond.

`score` runs `tempvox segments` on every file of a set and prints the
boundary F1 per condition; `compare` adds ffmpeg's silencedetect at the one
threshold that does best over the whole set.

Boundaries: every sentence has a start and an end; a found start (end)
matches a true start (end) within the tolerance, each at most once. Precision
is matched / found, recall matched / true, F1 their harmonic mean, counted
over all files of a condition.

SNR: the mean power of the speech over its sentences (the active level, the
pauses left out) against the mean power of the noise.

Only the standard library, espeak-ng, sox and (for `compare` and the subtitle
checks) ffmpeg.
"""

import argparse
import array
import json
import math
import os
import random
import re
import resource
import subprocess
import sys
import wave

SENTENCES = [
    "The morning train was late again, so we waited on the platform.",
    "Please open your books at page twenty.",
    "If it rains tomorrow, we will stay at home and read.",
    "My brother works in a small bakery near the station.",
    "Could you tell me where the nearest post office is?",
    "Yes, of course.",
    "She bought apples, pears, and a bag of oranges.",
    "The meeting starts at nine, but please come a little early.",
    "I have never seen so much snow in my life.",
    "Where did you put the keys?",
    "After dinner, the children played cards in the kitchen.",
    "This road leads to the old harbour.",
    "Thank you very much for your help.",
    "When the bell rings, the students leave the classroom quietly.",
    "He speaks three languages, and he is learning a fourth.",
    "The museum is closed on Mondays.",
    "We missed the bus, so we walked all the way home.",
    "What would you like to drink?",
    "The soup is hot, so be careful.",
    "Last summer, we spent two weeks by the sea.",
    "Her grandmother grew up in a village in the mountains.",
    "Turn left at the traffic lights, then go straight on.",
    "I am sorry, I did not hear what you said.",
    "The library opens at ten and closes at six.",
    "Can you speak a little more slowly, please?",
    "Every evening, my father listens to the news on the radio.",
    "The shop on the corner sells fresh bread.",
    "It was a long day, but we finished the work.",
    "Do you know how to get to the airport?",
    "Our teacher brought a map of the city to class.",
    "The weather was cold, windy, and grey all week.",
    "I usually drink tea in the morning.",
    "Excuse me, is this seat free?",
    "The film was funny, although the ending was sad.",
    "We are going to visit our friends in the north.",
    "Please write your name at the top of the page.",
    "The river is wide here, and the water is deep.",
    "How much does this jacket cost?",
    "Before you leave, please switch off the lights.",
    "The cat sleeps on the sofa all afternoon.",
    "On Saturdays, the market is full of people.",
    "She has lived in this town for ten years.",
    "Is there a pharmacy near here?",
    "The students listened carefully, then repeated each word.",
    "My phone is broken, so I cannot call you.",
    "The plane lands at half past seven.",
    "Let us meet in front of the cinema.",
    "In spring, the garden is full of flowers.",
    "Why are you laughing?",
    "I forgot my umbrella, and now I am wet.",
    "The new restaurant serves fish, rice, and vegetables.",
    "He reads a chapter of his book every night.",
    "Could I have the bill, please?",
    "The children were tired, hungry, and happy.",
    "We need to buy milk, eggs, and butter.",
    "The concert was wonderful.",
    "Where do you come from?",
    "After the rain, the streets were shining.",
    "Please speak after the tone.",
    "My sister is a doctor at the city hospital.",
    "The lesson is over, see you next week.",
    "It takes twenty minutes to walk to school.",
    "Which bus goes to the city centre?",
    "The old bridge was built three hundred years ago.",
    "When I was young, I wanted to be a pilot.",
    "Don't forget to bring your passport.",
    "The hotel room was small, but very clean.",
    "She smiled, waved, and walked away.",
    "What time does the last train leave?",
    "We watched the sun go down over the hills.",
    "There is a lot of traffic in the morning.",
    "He opened the window, because the room was warm.",
    "I would like a ticket to London, please.",
    "The baby is sleeping, so please be quiet.",
    "Have you ever been to Spain?",
    "My favourite season is autumn.",
    "The farmer grows wheat, potatoes, and beans.",
    "Please wait here until your name is called.",
    "The dog ran across the field and jumped into the lake.",
    "Is it far from here?",
    "On the way home, we stopped at a small cafe.",
    "The price of fruit has gone up again.",
    "I can't find my glasses anywhere.",
    "The firefighters arrived quickly, and nobody was hurt.",
    "Good morning, how are you today?",
    "The exam starts in ten minutes.",
    "Our house has a red door and a small garden.",
    "Could you help me carry this box?",
    "Stars are easy to see when the sky is clear.",
    "I think it is going to snow tonight.",
]

# Pairs of voices taking turns; the second speaks 6 dB below the first.
# The breathy variants (f2, f3, f5) are left out: they end every sentence
# with 100-150 ms of breath 25-35 dB below the voice, which any noise at
# 20 dB covers, so their true ends could not be heard by anyone.
VOICE_PAIRS = [
    ("en-gb", "en-us+f4"),
    ("en-us", "en-gb+f1"),
    ("en-gb-scotland", "en-us+f4"),
    ("en-029+m3", "en-gb-x-rp+f1"),
]
SECOND_VOICE_DB = -6.0
WORK_RATE = 22050  # espeak-ng's own rate: the joining happens there

# Every format x every condition; `quick` keeps a few.
FORMATS = [(16000, 1), (16000, 2), (22050, 1), (22050, 2), (44100, 1), (44100, 2)]
CONDITIONS = [("clean", None)] + [(noise, snr) for noise in ("white", "pink", "hum", "chords") for snr in (20, 10)]
QUICK = [((16000, 1), ("clean", None)), ((44100, 2), ("white", 20)), ((22050, 1), ("chords", 10))]


def run(command, **kwargs):
    return subprocess.run(command, check=True, **kwargs)


def read_mono(path):
    with wave.open(path, "rb") as w:
        assert w.getsampwidth() == 2 and w.getnchannels() == 1, path
        samples = array.array("h", w.readframes(w.getnframes()))
        if sys.byteorder == "big":
            samples.byteswap()
        return samples, w.getframerate()


def write_mono(path, samples, rate):
    data = array.array("h", samples)
    if sys.byteorder == "big":
        data.byteswap()
    with wave.open(path, "wb") as w:
        w.setnchannels(1)
        w.setsampwidth(2)
        w.setframerate(rate)
        w.writeframes(data.tobytes())


def audible_extent(samples, rate):
    """First and last sample of the 1 ms stretches whose peak is within 40 dB
    of the sentence's peak."""
    step = max(1, rate // 1000)
    peak = max(abs(v) for v in samples) or 1
    floor = peak / 100.0
    loud = [i for i in range(0, len(samples), step) if max(abs(v) for v in samples[i:i + step]) > floor]
    return loud[0], min(len(samples), loud[-1] + step)


def speak(text, voice, speed, cache):
    key = (text, voice, speed)
    if key not in cache:
        path = os.path.join(cache["dir"], f"say{len(cache)}.wav")
        run(["espeak-ng", "-v", voice, "-s", str(speed), "-w", path, text])
        samples, rate = read_mono(path)
        assert rate == WORK_RATE, rate
        first, last = audible_extent(samples, rate)
        cache[key] = samples[first:last]
        os.remove(path)
    return cache[key]


def join_sentences(rng, count, cache):
    """Speech of `count` sentences at WORK_RATE and their (start, end)
    seconds, plus the sum of squares over the sentences."""
    voices = rng.choice(VOICE_PAIRS)
    speeds = (rng.randint(150, 185), rng.randint(140, 175))
    gains = (0.5, 0.5 * 10 ** (SECOND_VOICE_DB / 20))
    texts = rng.sample(SENTENCES, count)
    out = array.array("h", bytes(2 * int(rng.uniform(0.5, 1.0) * WORK_RATE)))
    truth = []
    power = 0.0
    speaker, turn_left = 0, rng.randint(3, 6)
    for i, text in enumerate(texts):
        said = speak(text, voices[speaker], speeds[speaker], cache)
        start = len(out)
        scaled = array.array("h", (int(v * gains[speaker]) for v in said))
        power += sum(v * v for v in scaled)
        out.extend(scaled)
        truth.append((start / WORK_RATE, len(out) / WORK_RATE))
        pause = rng.uniform(0.4, 1.5) if i + 1 < count else 0.8
        out.extend(array.array("h", bytes(2 * int(pause * WORK_RATE))))
        turn_left -= 1
        if turn_left == 0:
            speaker, turn_left = 1 - speaker, rng.randint(3, 6)
    spoken = sum(int(round((e - s) * WORK_RATE)) for s, e in truth)
    return out, truth, power / max(spoken, 1)


def mean_power(path):
    """Mean square of a 16-bit file's samples (all channels), full scale 1."""
    text = run(["sox", path, "-n", "stat"], capture_output=True, text=True).stderr
    rms = float(re.search(r"RMS\s+amplitude:\s+([0-9.eE+-]+)", text).group(1))
    return rms * rms


def make_noise(kind, path, rate, channels, seconds, work):
    head = ["sox", "-R", "-n", "-r", str(rate), "-c", str(channels), "-b", "16", path]
    if kind == "white":
        run(head + ["synth", f"{seconds:.3f}", "whitenoise", "vol", "0.3"])
    elif kind == "pink":
        run(head + ["synth", f"{seconds:.3f}", "pinknoise", "vol", "0.3"])
    elif kind == "hum":
        # Mains hum: 50 Hz and the harmonics a transformer adds.
        tones = ["sine", "50", "sine", "100", "sine", "150", "sine", "250"]
        run(["sox", "-R", "-r", str(rate), "-c", "4", "-n", "-b", "16", path, "synth", f"{seconds:.3f}"] + tones +
            ["remix", "1v0.25,2v0.12,3v0.08,4v0.04", "channels", str(channels)])
    elif kind == "chords":
        # A music bed: triads of triangle tones with their octave, two
        # seconds each, swelling in and out.
        progression = [(261.6, 329.6, 392.0), (220.0, 261.6, 329.6), (174.6, 220.0, 261.6), (196.0, 246.9, 293.7)]
        parts = []
        for i in range(int(math.ceil(seconds / 2.0))):
            notes = progression[i % len(progression)]
            part = os.path.join(work, f"chord{i}.wav")
            tones = []
            for f in notes + (notes[0] / 2,):
                tones += ["triangle", f"{f:.1f}"]
            run(["sox", "-R", "-r", str(rate), "-c", "4", "-n", "-b", "16", part, "synth", "2"] + tones +
                ["remix", "1v0.08,2v0.06,3v0.06,4v0.08", "channels", str(channels), "fade", "t", "0.15", "2", "0.4"])
            parts.append(part)
        run(["sox"] + parts + [path, "trim", "0", f"{seconds:.3f}"])
        for part in parts:
            os.remove(part)
    else:
        raise ValueError(kind)


def generate(out_dir, quick, seed):
    os.makedirs(out_dir, exist_ok=True)
    rng = random.Random(seed)
    cache = {"dir": out_dir}
    entries = []
    combos = QUICK if quick else [(f, c) for f in FORMATS for c in CONDITIONS]
    speech_for_format = {}
    for (rate, channels), (noise, snr) in combos:
        # One text per format, heard clean and under every noise.
        if (rate, channels) not in speech_for_format:
            count = 20 if quick else rng.randint(20, 40)
            joined, truth, power = join_sentences(rng, count, cache)
            base = os.path.join(out_dir, f"speech_{rate}_{channels}")
            write_mono(base + "_mono.wav", joined, WORK_RATE)
            run(["sox", "-D", base + "_mono.wav", "-r", str(rate), "-c", str(channels), "-b", "16", base + ".wav"])
            os.remove(base + "_mono.wav")
            speech_for_format[(rate, channels)] = (base + ".wav", truth, power / 32768.0 ** 2,
                                                   len(joined) / WORK_RATE)
        clean, truth, speech_power, seconds = speech_for_format[(rate, channels)]
        name = f"{noise}{snr if snr is not None else ''}_{rate}_{channels}.wav"
        path = os.path.join(out_dir, name)
        if snr is None:
            run(["cp", clean, path])
        else:
            noise_path = os.path.join(out_dir, "noise.wav")
            make_noise(noise, noise_path, rate, channels, seconds, out_dir)
            gain = math.sqrt(speech_power / (mean_power(noise_path) * 10 ** (snr / 10.0)))
            run(["sox", "-m", "-v", "1", clean, "-v", f"{gain:.6f}", noise_path, "-b", "16", path])
            os.remove(noise_path)
        entries.append({"file": name, "rate": rate, "channels": channels, "noise": noise, "snr": snr,
                        "sentences": truth})
    for clean, _, _, _ in speech_for_format.values():
        os.remove(clean)
    with open(os.path.join(out_dir, "truth.json"), "w") as f:
        json.dump(entries, f, indent=1)


# ------------------------------------------------------------------ scoring

def match_count(found, true, tolerance):
    """Pairs of found and true times within the tolerance, each used once,
    the closest pairs first."""
    pairs = sorted((abs(f - t), i, j) for i, f in enumerate(found) for j, t in enumerate(true)
                   if abs(f - t) <= tolerance)
    used_f, used_t, matched = set(), set(), 0
    for _, i, j in pairs:
        if i not in used_f and j not in used_t:
            used_f.add(i)
            used_t.add(j)
            matched += 1
    return matched


def boundary_counts(found, truth, tolerance=0.1):
    matched = match_count([s for s, _ in found], [s for s, _ in truth], tolerance)
    matched += match_count([e for _, e in found], [e for _, e in truth], tolerance)
    return matched, 2 * len(found), 2 * len(truth)


def f1(matched, found, true):
    if found == 0 or true == 0:
        return 0.0
    precision, recall = matched / found, matched / true
    return 0.0 if matched == 0 else 2 * precision * recall / (precision + recall)


def condition_of(entry):
    return entry["noise"] if entry["snr"] is None else f"{entry['noise']} {entry['snr']} dB"


def tempvox_segments(tool, path):
    out = run([tool, "segments", path, "--format", "json"], capture_output=True, text=True).stdout
    return [(s["start"], s["end"]) for s in json.loads(out)["sentences"]]


def silencedetect_segments(path, threshold_db, min_pause=0.3):
    """Speech stretches between the silences ffmpeg reports."""
    log = run(["ffmpeg", "-hide_banner", "-nostats", "-i", path, "-af",
               f"silencedetect=noise={threshold_db}dB:d={min_pause}", "-f", "null", "-"],
              capture_output=True, text=True).stderr
    starts = [float(v) for v in re.findall(r"silence_start: (-?[0-9.]+)", log)]
    ends = [float(v) for v in re.findall(r"silence_end: ([0-9.]+)", log)]
    duration = float(re.search(r"Duration: (\d+):(\d+):([0-9.]+)", log).group(3)) + \
        60 * float(re.search(r"Duration: (\d+):(\d+)", log).group(2))
    silences = list(zip(starts, ends + [duration] * (len(starts) - len(ends))))
    segments, cursor = [], 0.0
    for s, e in silences:
        if s > cursor + 1e-3:
            segments.append((cursor, s))
        cursor = e
    if duration > cursor + 1e-3:
        segments.append((cursor, duration))
    return segments


def table(entries, results, title):
    by_condition = {}
    for entry, counts in zip(entries, results):
        total = by_condition.setdefault(condition_of(entry), [0, 0, 0])
        for k in range(3):
            total[k] += counts[k]
    rows = {}
    for condition, (m, fo, tr) in by_condition.items():
        rows[condition] = f1(m, fo, tr)
    return rows


def load(set_dir):
    with open(os.path.join(set_dir, "truth.json")) as f:
        return json.load(f)


def children_cpu():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def score_tempvox(tool, set_dir):
    """Counts per file, and the CPU seconds the tool took for all."""
    entries = load(set_dir)
    results = []
    before = children_cpu()
    for entry in entries:
        found = tempvox_segments(tool, os.path.join(set_dir, entry["file"]))
        results.append(boundary_counts(found, entry["sentences"]))
    return entries, results, children_cpu() - before


def audio_seconds(set_dir, entries):
    total = 0.0
    for entry in entries:
        with wave.open(os.path.join(set_dir, entry["file"]), "rb") as w:
            total += w.getnframes() / w.getframerate()
    return total


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    sub = parser.add_subparsers(dest="command", required=True)
    g = sub.add_parser("generate")
    g.add_argument("out_dir")
    g.add_argument("--quick", action="store_true")
    g.add_argument("--seed", type=int, default=16)
    s = sub.add_parser("score")
    s.add_argument("tool")
    s.add_argument("set_dir")
    s.add_argument("--require", nargs="*", default=[],
                   help="CONDITION_PREFIX=MIN_F1, e.g. clean=0.97; fails when a condition scores below")
    c = sub.add_parser("compare")
    c.add_argument("tool")
    c.add_argument("set_dir")
    args = parser.parse_args()

    if args.command == "generate":
        generate(args.out_dir, args.quick, args.seed)
        return 0
    entries, results, our_cpu = score_tempvox(args.tool, args.set_dir)
    ours = table(entries, results, "tempvox")
    seconds = audio_seconds(args.set_dir, entries)
    if args.command == "score":
        status = 0
        print(f"{len(entries)} files, {seconds:.0f} s of audio; tempvox segments took {our_cpu:.2f} s of CPU")
        for condition, value in ours.items():
            print(f"{condition:14s} F1 {value:.3f}")
            for rule in args.require:
                prefix, minimum = rule.split("=")
                if condition.startswith(prefix) and value < float(minimum):
                    print(f"  below {minimum}")
                    status = 1
        return status

    # compare: silencedetect at every threshold, the best one over the set.
    best = None
    sweep = []
    for threshold in range(-70, -9, 3):
        res = [boundary_counts(silencedetect_segments(os.path.join(args.set_dir, e["file"]), threshold),
                               e["sentences"]) for e in entries]
        total = [sum(r[k] for r in res) for k in range(3)]
        overall = f1(*total)
        sweep.append((threshold, overall))
        if best is None or overall > best[1]:
            best = (threshold, overall, res)
    theirs = table(entries, best[2], "ffmpeg")
    ours_total = f1(*[sum(r[k] for r in results) for k in range(3)])
    before = children_cpu()
    for e in entries:
        silencedetect_segments(os.path.join(args.set_dir, e["file"]), best[0])
    their_cpu = children_cpu() - before
    print("silencedetect sweep (noise threshold dB: F1 over the set): " +
          ", ".join(f"{t}: {v:.3f}" for t, v in sweep))
    print()
    print(f"| condition | files | tempvox segments | ffmpeg silencedetect n={best[0]}dB d=0.3 |")
    print("|---|---|---|---|")
    counts = {}
    for e in entries:
        counts[condition_of(e)] = counts.get(condition_of(e), 0) + 1
    for condition in ours:
        print(f"| {condition} | {counts[condition]} | {ours[condition]:.3f} | {theirs[condition]:.3f} |")
    print(f"| all | {len(entries)} | {ours_total:.3f} | {best[1]:.3f} |")
    print()
    print(f"CPU over {seconds:.0f} s of audio ({len(entries)} files), one pass each, user + system: "
          f"tempvox segments {our_cpu:.2f} s ({100 * our_cpu / seconds:.2f} % of the audio's duration), "
          f"ffmpeg silencedetect {their_cpu:.2f} s ({100 * their_cpu / seconds:.2f} %)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
