#!/usr/bin/env python3
"""Compares what tempvox played with a reference decode made by the ffmpeg tool.

Usage: compare_decodes.py CAPTURE.wav REFERENCE.wav
Prints one line: frames of each, the difference in frames, the block size
(a tenth of a second of frames) and the normalised correlation over the
common length. Correlation is scale-free, so the engine's automatic gain
does not count against it.
"""
import array
import math
import operator
import sys
import wave


def read(path):
    with wave.open(path, "rb") as w:
        if w.getsampwidth() != 2:
            sys.exit(f"{path}: expected 16-bit samples")
        samples = array.array("h", w.readframes(w.getnframes()))
        if sys.byteorder != "little":
            samples.byteswap()
        return w.getnchannels(), w.getframerate(), samples


def correlation(a, b):
    n = min(len(a), len(b))
    a, b = a[:n], b[:n]
    xy = sum(map(operator.mul, a, b))
    xx = sum(map(operator.mul, a, a))
    yy = sum(map(operator.mul, b, b))
    return xy / math.sqrt(xx * yy) if xx and yy else 0.0


def main():
    cap_channels, cap_rate, cap = read(sys.argv[1])
    ref_channels, ref_rate, ref = read(sys.argv[2])
    if (cap_channels, cap_rate) != (ref_channels, ref_rate):
        print(f"format differs: capture {cap_channels} ch {cap_rate} Hz, reference {ref_channels} ch {ref_rate} Hz")
        sys.exit(1)
    cap_frames = len(cap) // cap_channels
    ref_frames = len(ref) // ref_channels
    print(f"frames {cap_frames} {ref_frames} diff {abs(cap_frames - ref_frames)} block {ref_rate // 10} "
          f"corr {correlation(cap, ref):.6f}")


main()
