#!/usr/bin/env python3
"""Plays a recording through the Tempvox control at a changed speed and
prints every event the control fires.

    play_at_speed.py FILE.wav [--level N] [--audio DEVICE] [--module PATH]

Without --module the control is found through the per-user registry (run
`tempvox regsvr /path/to/libtempvox.so` once).
"""

import argparse
import sys

from tempvox import Tempvox


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("file")
    parser.add_argument("--level", type=int, default=20, help="speed level, -60 (slow) to 50 (fast)")
    parser.add_argument("--audio", default="default", help="default, alsa, null, manual or capture:OUT.wav")
    parser.add_argument("--module", help="path of libtempvox.so, instead of the registry")
    options = parser.parse_args()

    with Tempvox(module=options.module, audio=options.audio) as player:
        finished = []
        for event in player.events:
            def report(*args, name=event):
                print("event", name, *args, flush=True)
                if name == "PlayComplete":
                    finished.append(True)
            player.connect(event, report)

        if not player.SetPlayFilePath(None, -1, options.file):
            print("cannot open", options.file, file=sys.stderr)
            return 1
        player.SetChangeSpeedLevel(options.level)
        if not player.StartPlay():
            return 1
        total_ms = player.GetTotalPlayTime()
        print("playing %s (%d ms) at speed level %d" % (options.file, total_ms, player.GetChangeSpeedLevel()),
              flush=True)
        if options.audio == "manual":
            # Nothing plays by itself: each step completes one buffer.
            while not finished and player.step(1):
                pass
        elif not finished:
            # At the slowest level play takes two and a half times as long.
            player.wait_for("PlayComplete", timeout_ms=total_ms * 3 + 5000)
        player.StopPlay()
        return 0 if finished else 1


if __name__ == "__main__":
    sys.exit(main())
