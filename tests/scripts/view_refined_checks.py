"""Checks of the refined view and of the save from the view, run through the
test container (`tempvox host`) on the manual device and clock.

Pictures are measured from the container's snapshots: where the ruler's
ticks stand, which columns the trace fills, which rows it reaches. Expected
places come from the files' own timing (a click at 2 s of a 5 s file belongs
at two fifths of the width), never from a run of the view.

Usage: view_refined_checks.py TEMPVOX WORK_FOLDER
"""
import json
import os
import struct
import subprocess
import sys
import zlib

TOOL, WORK = sys.argv[1], sys.argv[2]
RULER = 25  # rows of the ruler band above the wave band, in both drawings
RATE = 22050
WHITE = (255, 255, 255)

results = {"passed": 0, "failed": 0}


def check(name, ok, detail=""):
    if ok:
        results["passed"] += 1
    else:
        results["failed"] += 1
        print(f"FAIL: {name}" + (f": {detail}" if detail else ""))


# ------------------------------------------------------------------ files

def write_wav(name, frames, rate=RATE, channels=1, bits=16):
    """frames: a list of tuples, one value a channel (signed, or 0-255 for 8 bits)."""
    fmt = "<" + ("B" if bits == 8 else "h") * channels
    data = b"".join(struct.pack(fmt, *frame) for frame in frames)
    block = channels * bits // 8
    head = b"RIFF" + struct.pack("<I", 36 + len(data)) + b"WAVEfmt "
    head += struct.pack("<IHHIIHH", 16, 1, channels, rate, rate * block, block, bits)
    with open(os.path.join(WORK, name), "wb") as out:
        out.write(head + b"data" + struct.pack("<I", len(data)) + data)


def make_files():
    # 10 ms clicks starting on the whole seconds 1 to 4 of 5 s of silence.
    frames = [(0,)] * (5 * RATE)
    for second in (1, 2, 3, 4):
        for i in range(RATE // 100):
            frames[second * RATE + i] = (30000 if i % 2 == 0 else -30000,)
    write_wav("clicks5.wav", frames)
    # One 1 ms click at 37.3 s of a minute.
    frames = [(0,)] * (60 * RATE)
    start = int(37.3 * RATE)
    for i in range(RATE // 1000):
        frames[start + i] = (32000 if i % 2 == 0 else -32000,)
    write_wav("click60.wav", frames)
    # Stereo: silence on the left, a square tone of 0.6 full scale on the right.
    write_wav("right_only.wav", [(0, 19660 if (i // 25) % 2 else -19660) for i in range(3 * RATE)], channels=2)
    # An hour and a bit, 8-bit at a low rate, for labels past 60 minutes.
    write_wav("hour.wav", [(128,)] * (3725 * 1000), rate=1000, bits=8)
    # Speech-like: a triangle under a syllable envelope, 10 s.
    speech = []
    for i in range(10 * RATE):
        phase = i % 160
        triangle = phase if phase < 80 else 160 - phase
        speech.append(((triangle - 40) * 200 * ((i // 2205) % 3),))
    write_wav("speech10.wav", speech)


# ------------------------------------------------------------------ container

def run_host(name, lines):
    """Runs the lines in the container from WORK; answers the JSON lines."""
    script = os.path.join(WORK, name + ".host")
    with open(script, "w") as out:
        out.write("\n".join(lines) + "\n")
    done = subprocess.run([TOOL, "host", "--audio", "manual", "--clock", "manual", "--script", script], cwd=WORK,
                          capture_output=True, text=True, timeout=600)
    if done.returncode != 0:
        check(f"{name}: container exit status", False, done.stderr)
    return [json.loads(line) for line in done.stdout.splitlines() if line.strip()]


def view_lines(profile, path, width, height):
    return [f"SetPlaybackProfile {profile}", f'SetPlayFilePath null -1 "{path}"',
            f"CreateWavViewWnd 0 0 {width} {height} @hostwnd", "AttachWavViewToFile true",
            # The host window grows to hold the view.
            f"resize {width} {height}"]


# ------------------------------------------------------------------ pictures

class Picture:
    """An 8-bit RGB PNG as the container writes it, decoded down to `rows`."""

    def __init__(self, path, rows=None):
        raw = open(path, "rb").read()
        assert raw[:8] == b"\x89PNG\r\n\x1a\n", path
        at, idat = 8, b""
        while at < len(raw):
            length, kind = struct.unpack(">I4s", raw[at:at + 8])
            body = raw[at + 8:at + 8 + length]
            if kind == b"IHDR":
                self.width, self.height, depth, colour, _, _, interlace = struct.unpack(">IIBBBBB", body)
                assert (depth, colour, interlace) == (8, 2, 0), "8-bit RGB, not interlaced"
            elif kind == b"IDAT":
                idat += body
            at += 12 + length
        data = zlib.decompress(idat)
        stride = self.width * 3
        count = self.height if rows is None else min(rows, self.height)
        self.rows = []
        previous = bytearray(stride)
        for y in range(count):
            kind = data[y * (stride + 1)]
            line = bytearray(data[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
            if kind == 1:
                for i in range(3, stride):
                    line[i] = (line[i] + line[i - 3]) & 0xFF
            elif kind == 2:
                for i in range(stride):
                    line[i] = (line[i] + previous[i]) & 0xFF
            elif kind == 3:
                for i in range(stride):
                    left = line[i - 3] if i >= 3 else 0
                    line[i] = (line[i] + ((left + previous[i]) >> 1)) & 0xFF
            elif kind == 4:
                for i in range(stride):
                    a = line[i - 3] if i >= 3 else 0
                    b = previous[i]
                    c = previous[i - 3] if i >= 3 else 0
                    p = a + b - c
                    pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                    predictor = a if pa <= pb and pa <= pc else (b if pb <= pc else c)
                    line[i] = (line[i] + predictor) & 0xFF
            self.rows.append(line)
            previous = line

    def at(self, x, y):
        line = self.rows[y]
        return tuple(line[3 * x:3 * x + 3])


def is_trace(pixel):
    """The trace: a blue-dominated colour, neither the black band, the grey
    centre line nor the white ruler."""
    r, g, b = pixel
    return b >= 150 and b > r + 40


def tick_columns(picture, width):
    """Columns of the ruler's lowest row that carry ink."""
    return [x for x in range(width) if picture.at(x, RULER - 1) != WHITE]


def reach(picture, x, top, bottom, centre):
    """How far from `centre` the trace goes in column x within [top, bottom)."""
    rows = [y for y in range(top, bottom) if is_trace(picture.at(x, y))]
    return max((abs(y - centre) for y in rows), default=-1)


def label_boxes(picture, width, label_rows=13):
    """Runs of columns with ink in the label rows, split by 3 or more blank
    columns: one run a label while labels keep apart."""
    inked = [any(picture.at(x, y) != WHITE for y in range(label_rows)) for x in range(width)]
    boxes, start, blank = [], None, 0
    for x, ink in enumerate(inked):
        if ink:
            if start is None:
                start = x
            blank, end = 0, x
        elif start is not None:
            blank += 1
            if blank >= 3:
                boxes.append((start, end))
                start = None
    if start is not None:
        boxes.append((start, end))
    return boxes


# ------------------------------------------------------------------ checks

def clicks_stand_on_their_ticks():
    height = 200
    half = (height - RULER) // 2
    centre = RULER + (height - RULER) // 2
    for width in (200, 640, 1500):
        name = f"clicks at {width}"
        run_host(f"clicks{width}", view_lines(1, "clicks5.wav", width, height) + [f'snapshot "clicks{width}.png"'])
        picture = Picture(os.path.join(WORK, f"clicks{width}.png"))
        ticks = tick_columns(picture, width)
        tall = [x for x in range(width) if reach(picture, x, RULER, height, centre) >= half // 2]
        for second in (1, 2, 3, 4):
            exact = second * width // 5  # the second's place on a 5 s axis
            tick = min(ticks, key=lambda x: abs(x - exact)) if ticks else -100
            check(f"{name}: tick of {second} s at column {exact}", abs(tick - exact) <= 1, f"nearest tick {tick}")
            near = [x for x in tall if abs(x - exact) <= width // 20]
            first = min(near) if near else -100
            check(f"{name}: click of {second} s starts within 1 px of its tick", abs(first - tick) <= 1,
                  f"click from column {first}, tick {tick}")
        strays = [x for x in tall if min(abs(x - s * width // 5) for s in (1, 2, 3, 4)) > width // 20]
        check(f"{name}: silence elsewhere", not strays, f"tall columns {strays[:5]}")


def a_short_click_reaches_its_height():
    width, height = 640, 200
    run_host("click60", view_lines(1, "click60.wav", width, height) + ['snapshot "click60.png"'])
    picture = Picture(os.path.join(WORK, "click60.png"))
    half = (height - RULER) // 2
    centre = RULER + (height - RULER) // 2
    column = int(37.3 / 60 * width)
    best = max(reach(picture, x, RULER, height, centre) for x in range(column - 1, column + 2))
    check("1 ms click in 60 s reaches 80 % of the half height", best >= 0.8 * half, f"{best} of {half} rows")


def stereo_lanes_keep_channels_apart():
    width, height = 640, 200
    run_host("stereo", view_lines(1, "right_only.wav", width, height) + ['snapshot "stereo.png"'])
    picture = Picture(os.path.join(WORK, "stereo.png"))
    band = height - RULER
    middle = RULER + band // 2  # left lane above, right lane below
    left_rows = {y for x in range(width) for y in range(RULER, middle) if is_trace(picture.at(x, y))}
    check("left lane is one flat row", len(left_rows) == 1, f"rows {sorted(left_rows)[:8]}")
    if left_rows:
        row = left_rows.pop()
        check("flat row in the middle of the upper half", abs(row - (RULER + band // 4)) <= 1, f"row {row}")
    right_centre = middle + (height - middle) // 2
    right_reach = max(reach(picture, x, middle, height, right_centre) for x in range(0, width, 7))
    # 0.6 of full scale, within a lane of half the band.
    lane_half = (height - middle) // 2
    check("right lane shows the tone within its lane", 0.5 * lane_half <= right_reach <= lane_half,
          f"reach {right_reach} of {lane_half}")


def resize_rebuilds_the_picture():
    grown = view_lines(1, "clicks5.wav", 400, 150) + ['snapshot "small.png"', "resize 1000 220",
                                                          'snapshot "grown.png"']
    run_host("grown", grown)
    run_host("fresh", view_lines(1, "clicks5.wav", 1000, 220) + ['snapshot "fresh.png"'])
    a = Picture(os.path.join(WORK, "grown.png"))
    b = Picture(os.path.join(WORK, "fresh.png"))
    differing = [(x, y) for y in range(220) for x in range(0, 1000) if a.at(x, y) != b.at(x, y)]
    check("after resize the view equals one drawn at that size", not differing, f"{len(differing)} pixels differ, "
          f"first {differing[:3]}")


def labels_keep_apart_and_inside():
    widths = list(range(100, 2001, 53)) + [2000]
    for name in ("clicks5.wav", "click60.wav", "hour.wav"):
        lines = view_lines(1, name, 100, 40)
        for width in widths:
            lines += [f"resize {width} 40", f'snapshot "labels{width}.png"']
        run_host("labels-" + name, lines)
        for width in widths:
            picture = Picture(os.path.join(WORK, f"labels{width}.png"), rows=RULER)
            boxes = label_boxes(picture, width)
            case = f"{name} at {width}"
            if not boxes:
                check(f"{case}: a label", False)
                continue
            first = boxes[0][1] - boxes[0][0] + 1  # "00:00", as wide as any label of these files
            widest = max(end - start + 1 for start, end in boxes)
            check(f"{case}: no two labels run together", widest <= first + 2, f"boxes {boxes}")
            last = boxes[-1]
            check(f"{case}: last label whole and inside", last[1] <= width - 2 and last[1] - last[0] + 1 >= first - 2,
                  f"boxes {boxes}")
            if width >= 200:
                check(f"{case}: more than one label", len(boxes) >= 2, f"boxes {boxes}")


def events(lines, name):
    return [i for i, line in enumerate(lines) if line.get("event") == name]


def results_of(lines, call):
    return [line.get("result") for line in lines if line.get("call") == call]


def drag_while_playing():
    # 500 columns over 10 s: columns 100 to 200 are 2 s to 4 s.
    for profile, selects in ((1, True), (0, False)):
        lines = ["SetJustPlay true"] + view_lines(profile, "speech10.wav", 500, 200) + [
            "StartPlay", "step 10", "advance 1000", "GetCurrentPlayTime",
            "mouse down 100 60", "mouse move 150 60", "mouse up 200 60",
            "GetIsSelectedWav", "GetPlayerState", "step 10", "advance 1000", "GetCurrentPlayTime",
            # To the end of the file: this pass plays on.
            "step 100", "advance 80", "GetPlayerState",
            "StopPlay", "StartPlay", "step 4", "advance 80", "GetCurrentPlayTime"]
        out = run_host(f"drag{profile}", lines)
        name = "refined" if profile else "classic"
        check(f"{name}: a drag during play selects: {selects}", results_of(out, "GetIsSelectedWav") == [selects],
              str(results_of(out, "GetIsSelectedWav")))
        times = results_of(out, "GetCurrentPlayTime")
        states = results_of(out, "GetPlayerState")
        check(f"{name}: play goes on through the drag", states[:1] == [1] and len(times) == 3 and times[1] > times[0],
              f"states {states}, times {times}")
        if selects:
            check(f"{name}: the next pass plays the section from 2 s", 2000 <= times[2] < 2600, f"times {times}")


def save_then_play(profile):
    """A 4.5 s section loops; it is saved through a dialogue held open 10 s
    while play goes on; play is started again. The play file is named
    relative to the container's folder, as a host started in the lesson's
    folder names it."""
    name = "refined" if profile else "classic"
    saved = os.path.join(WORK, f"saved{profile}.wav")
    lines = ["SetJustPlay true"] + view_lines(profile, "speech10.wav", 500, 200) + [
        # Columns 100 to 325 of 500 over 10 s: 2 s to 6.5 s.
        "mouse down 100 60", "mouse move 200 60", "mouse up 325 60",
        "StartPlay", "step 50", "advance 80", "step 10", "advance 80",
        # The loop's next pass, then the save while it plays.
        "StartPlay", "step 10", "advance 800",
        "answer menu 32768", f'answer dialog "{saved}" 10000', "rmouse 200 60", "pump",
        "StartPlay", "GetPlayerState", "step 3", "advance 80", "GetCurrentPlayTime"]
    out = run_host(f"save{profile}", lines)
    boxes = [line for line in out if "box" in line]
    check(f"{name}: no box around the save", not boxes, str(boxes))
    starts = results_of(out, "StartPlay")
    check(f"{name}: every StartPlay plays", starts == [True, True, True], str(starts))
    check(f"{name}: playing after the save", results_of(out, "GetPlayerState") == [1])
    menu = next((i for i, line in enumerate(out) if "menu" in line), -1)
    dialog = next((i for i, line in enumerate(out) if "dialog" in line), -1)
    ended = [i for i in events(out, "PlayComplete") if menu < i < dialog]
    check(f"{name}: the section ended while the dialogue was up", menu >= 0 and len(ended) == 1, str(out[menu:dialog]))
    time = results_of(out, "GetCurrentPlayTime")
    check(f"{name}: the new pass starts at the section", len(time) == 1 and abs(time[0] - 2000) < 600, str(time))
    check(f"{name}: the view's copy went with the control", not os.path.exists(os.path.join(WORK, "speech10_copy.wav")))

    source = open(os.path.join(WORK, "speech10.wav"), "rb").read()
    body = open(saved, "rb").read()[44:] if os.path.exists(saved) else b""
    if profile:
        # Whole frames from 2 s up to 6.5 s.
        expected = source[44 + 2 * RATE * 2:44 + int(6.5 * RATE) * 2]
    else:
        # The classic rule: samples a = 100/500 N and b = 325/500 N counted
        # from 1, both included.
        n = 10 * RATE
        a, b = 100 * n // 500, 325 * n // 500
        expected = source[44 + 2 * (a - 1):44 + 2 * b]
    check(f"{name}: the saved section holds the selected samples", body == expected,
          f"{len(body)} bytes, expected {len(expected)}")


def main():
    make_files()
    clicks_stand_on_their_ticks()
    a_short_click_reaches_its_height()
    stereo_lanes_keep_channels_apart()
    resize_rebuilds_the_picture()
    labels_keep_apart_and_inside()
    drag_while_playing()
    save_then_play(0)
    save_then_play(1)
    print(f"view_refined: {results['passed']} passed, {results['failed']} failed")
    return 1 if results["failed"] else 0


if __name__ == "__main__":
    sys.exit(main())
