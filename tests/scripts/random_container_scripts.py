#!/usr/bin/env python3
"""Writes random container scripts for `tempvox host`.

usage: random_container_scripts.py SEED COUNT FOLDER MEDIA

Writes COUNT scripts, FOLDER/script-NNNN.host, each a random mix of member
calls with ordinary and extreme arguments, pumps, waits, steps, mouse,
resize and answer lines, over the media files in the folder MEDIA. The same
seed always writes the same scripts, so a failure can be run again.
"""
import random
import sys

INT32 = [0, 1, -1, 2**31 - 1, -2**31, 2**32 - 1, 2**32, -2**32 - 1, 65535, 65536, -32768, 32767, 1000, 999999999]
SHORT = [0, 1, -1, 50, -60, 51, -61, 32767, -32768, 65535, 65536]
LOCAL_NAMES = ["null", '"cached"', '""']
FLOAT = ["0.0", "1.5", "-1.0", "1e30", "-1e30", "3.4e38", "1e-45", "0.001", "12"]


def pick(r, values):
    return r.choice(values)


def integer(r, values=INT32):
    return str(pick(r, values) if r.random() < 0.7 else r.randint(-5000, 70000))


def script_lines(r, media):
    files = [f'"{media}/{name}"' for name in
             ("speech.wav", "long.wav", "not_riff.wav", "tiny.wav", "slow.wav", "lesson.wzq", "cut.wzq",
              "absent.wav", "folder")] + ["null", '""', '"\\x01"']

    def member():
        choice = r.randrange(34)
        if choice == 0:
            return f"SetPlayFilePath null -1 {pick(r, files)}"
        if choice == 1:
            return f"SetPlayFilePath2 null -1 {pick(r, files)} {pick(r, LOCAL_NAMES)}"
        if choice == 2:
            return "StartPlay"
        if choice == 3:
            return "PausePlay"
        if choice == 4:
            return "ResumePlay"
        if choice == 5:
            return "StopPlay"
        if choice == 6:
            return f"SetVolume {integer(r)}"
        if choice == 7:
            return f"SetChangeSpeedLevel {integer(r, SHORT)}"
        if choice == 8:
            return f"SetCurrentPlayTime {integer(r)}"
        if choice == 9:
            return f"SpeedUp {integer(r)}"
        if choice == 10:
            return f"SpeedBack {integer(r)}"
        if choice == 11:
            return f"SetLoopPlaySection {pick(r, ['true', 'false'])} {integer(r)} {integer(r)}"
        if choice == 12:
            return f"SetOneSentenceTimeSpan {integer(r)} {integer(r)}"
        if choice == 13:
            return "ResetToPlayFromCurPos"
        if choice == 14:
            return f"SetMixSoundName {pick(r, files)}"
        if choice == 15:
            return f"SetMixerFlag {pick(r, ['true', 'false', '7'])}"
        if choice == 16:
            return f"SetCountWordTimeSpan {integer(r)}"
        if choice == 17:
            return f"SetCountWordSquare {pick(r, FLOAT)}"
        if choice == 18:
            return f"SetJustPlay {pick(r, ['true', 'false'])}"
        if choice == 19:
            return f"GetWordSpeedByAsyn {pick(r, FLOAT)} {integer(r)}"
        if choice == 20:
            size = lambda: str(r.choice([0, 1, -1, 10, 300, 800, 2000, -2**31, 2**31 - 1]))
            return f"CreateWavViewWnd {size()} {size()} {size()} {size()} {pick(r, ['@hostwnd', '0', '12345'])}"
        if choice == 21:
            return f"AttachWavViewToFile {pick(r, ['true', 'false'])}"
        if choice == 22:
            return f"CreateCaretForWavView {pick(r, ['true', 'false'])}"
        if choice == 23:
            return f"SetLanguageType = {integer(r, SHORT)}"
        if choice == 24:
            if r.random() < 0.3:
                return pick(r, [f"GetSpeakingRate {integer(r)} {integer(r)}", f"SetSyllablesPerWord {pick(r, FLOAT)}"])
            return f"#{r.randint(-2, 45)}"
        if choice == 25:
            return "DeleteAllDownedFile"
        return pick(r, ["GetPlayerState", "GetTotalPlayTime", "GetCurrentPlayTime", "GetVolume",
                        "GetChangeSpeedLevel", "GetPlayFilePath", "GetMixerFlag", "GetIsSelectedWav",
                        "GetWavViewCtrlHwnd", "SetLanguageType"])

    def other():
        choice = r.randrange(12)
        if choice < 4:
            return f"pump {r.choice([0, 1, 5, 20, 50, 120])}"
        if choice == 4:
            return "pump"
        if choice == 5:
            return f"step {r.choice([1, 3])}"
        if choice == 6:
            return f"wait {pick(r, ['PlayComplete', 'CountWordFire', 'NewWordSpeedDone', 'Nothing'])} {r.choice([0, 30, 80])}"
        if choice == 7:
            coordinate = lambda: str(r.choice([0, 5, 100, 400, 799, -1, -100000, 100000, 2**31 - 1, -2**31]))
            return f"mouse {pick(r, ['down', 'move', 'up', 'sideways'])} {coordinate()} {coordinate()}" + \
                (f" {r.choice([0, 1, 8, 65535])}" if r.random() < 0.3 else "")
        if choice == 8:
            return f"rmouse {r.randint(-10, 900)} {r.randint(-10, 300)}"
        if choice == 9:
            return f"resize {r.choice([1, 50, 640, 1500, 0, -5])} {r.choice([1, 40, 240, 900, 0])}"
        if choice == 10:
            return pick(r, ["answer menu none", "answer menu 32768", "answer box ok", "answer box cancel",
                            "answer dialog cancel", "queued", "advance 10", "echo \x0b",
                            "\x0c", "\r", "; comment", "unknown words here", '"unterminated'])
        return ""

    lines = []
    # Most scripts name a playable file and start, so that the device
    # thread really runs while the rest of the script happens.
    if r.random() < 0.8:
        lines.append(f'SetPlayFilePath null -1 "{media}/{pick(r, ["speech.wav", "long.wav", "slow.wav", "lesson.wzq"])}"')
        lines.append("StartPlay")
    for _ in range(r.randint(3, 25)):
        lines.append(member() if r.random() < 0.6 else other())
    return lines


def main():
    seed, count, folder, media = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3], sys.argv[4]
    for index in range(count):
        # One generator per script, so that script N is the same whatever
        # COUNT is.
        r = random.Random(seed * 100003 + index)
        with open(f"{folder}/script-{index:04d}.host", "w", newline="") as out:
            for line in script_lines(r, media):
                out.write(line + "\n")


if __name__ == "__main__":
    main()
