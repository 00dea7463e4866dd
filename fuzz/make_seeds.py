#!/usr/bin/env python3
"""Writes small valid inputs for one fuzz target.

usage: make_seeds.py READER FOLDER

READER is WaveHead, ViewMapper, NoiseLoader, EncodedAudio, DecodedAudio or
HostLine. The files are made here rather than kept in the tree: a few short
waves in the formats the player takes, wzq files of a few frames, tiny files
in the formats FFmpeg decodes (made with the ffmpeg tool), and container
lines.
"""
import os
import shutil
import struct
import subprocess
import sys
import tempfile


def wave(samples, rate=22050, bits=16, channels=1, fmt_extra=b"", fact=False, before_fmt=b"", data_length=None):
    width = bits // 8
    if bits == 16:
        data = b"".join(struct.pack("<h", s) for s in samples)
    else:
        data = bytes((s >> 8) + 128 for s in samples)
    fmt = struct.pack("<HHIIHH", 1, channels, rate, rate * channels * width, channels * width, bits) + fmt_extra
    body = b"WAVE" + before_fmt + b"fmt " + struct.pack("<I", len(fmt)) + fmt
    if fact:
        body += b"fact" + struct.pack("<II", 4, len(samples) // channels)
    body += b"data" + struct.pack("<I", len(data) if data_length is None else data_length) + data
    return b"RIFF" + struct.pack("<I", len(body)) + body


def triangle(count, peak=20000):
    return [((i % 100) - 50) * peak // 50 for i in range(count)]


def waves():
    return {
        "mono16.wav": wave(triangle(2205)),
        "stereo16.wav": wave(triangle(2000), rate=44100, channels=2),
        "mono8.wav": wave(triangle(800), rate=8000, bits=8),
        "fmt18.wav": wave(triangle(600), fmt_extra=b"\0\0"),
        "fact.wav": wave(triangle(600), fact=True),
        "list_first.wav": wave(triangle(600), before_fmt=b"LIST" + struct.pack("<I", 4) + b"INFO"),
        "data_unstated.wav": wave(triangle(600), data_length=0),
        "silence.wav": wave([0] * 300),
    }


def encoded(magic, channels, rate, frame_bytes, frames):
    head = magic + struct.pack("<hIII", channels, rate, frame_bytes, frames)
    body = b""
    for f in range(frames):
        state = struct.pack("<hBBhBB", (f * 997) % 30000 - 15000, f % 89, 0, 0, 0, 0)
        body += state + bytes(((f + i) * 37) % 256 for i in range(frame_bytes - 8))
    return head + body


def deep_wave(samples, rate=8000, bits=24, float_samples=False):
    if float_samples:
        data = b"".join(struct.pack("<f", s / 32768.0) for s in samples)
        tag, extra = 3, struct.pack("<H", 0)
    else:
        data = b"".join(struct.pack("<i", s << 16)[4 - bits // 8:] for s in samples)
        tag, extra = 1, b""
    width = bits // 8
    fmt = struct.pack("<HHIIHH", tag, 1, rate, rate * width, width, bits) + extra
    body = b"WAVEfmt " + struct.pack("<I", len(fmt)) + fmt + b"data" + struct.pack("<I", len(data)) + data
    return b"RIFF" + struct.pack("<I", len(body)) + body


def decoded_seeds():
    seeds = {"deep24.wav": deep_wave(triangle(800)), "float.wav": deep_wave(triangle(800), bits=32,
                                                                           float_samples=True)}
    if shutil.which("ffmpeg") is None:
        return seeds
    with tempfile.TemporaryDirectory() as folder:
        source = os.path.join(folder, "source.wav")
        with open(source, "wb") as out:
            out.write(wave(triangle(1600), rate=8000))
        for name, codec in (("tiny.mp3", ["-c:a", "libmp3lame", "-b:a", "8k"]), ("tiny.flac", ["-c:a", "flac"]),
                            ("tiny.ogg", ["-c:a", "libvorbis"]), ("tiny.opus", ["-c:a", "libopus", "-b:a", "6k"]),
                            ("tiny.m4a", ["-c:a", "aac", "-b:a", "8k"])):
            target = os.path.join(folder, name)
            made = subprocess.run(["ffmpeg", "-v", "quiet", "-nostdin", "-y", "-i", source, *codec, target])
            if made.returncode == 0 and os.path.getsize(target) <= 8192:
                with open(target, "rb") as f:
                    seeds[name] = f.read()
    return seeds


def main():
    reader, folder = sys.argv[1], sys.argv[2]
    if reader in ("WaveHead", "ViewMapper", "NoiseLoader"):
        seeds = waves()
    elif reader == "EncodedAudio":
        seeds = {
            "mono.wzq": encoded(b"ZQ", 1, 16000, 40, 3),
            "stereo.wzq": encoded(b"ZR", 2, 22050, 72, 2),
            "three_channels.wzq": encoded(b"ZQ", 3, 8000, 20, 2),
            "cut.wzq": encoded(b"ZQ", 1, 16000, 40, 3)[:16 + 60],
        }
    elif reader == "DecodedAudio":
        seeds = decoded_seeds()
    elif reader == "HostLine":
        seeds = {
            "members.host": b'SetPlayFilePath null -1 "/data/a.wav"\nStartPlay\nSetLanguageType = 2\n'
                            b'SetLanguageType\n#8\nSetChangeSpeedLevel 65535\nSetCountWordSquare 1.5\n',
            "commands.host": b"; a comment\n\npump 100\nstep 3\nadvance 20\nwait PlayComplete 500\nqueued\n"
                             b"echo some text\nquit\n",
            "view.host": b"CreateWavViewWnd 0 0 500 200 @hostwnd\nmouse down 10 20 1\nrmouse 5 5\n"
                         b"resize 640 240\nanswer menu 32768\nanswer dialog \"/tmp/x\\x41.wav\"\nanswer box ok\n"
                         b"snapshot \"a\\tb.png\"\n",
        }
    else:
        raise SystemExit(f"unknown reader {reader}")
    for name, content in seeds.items():
        with open(f"{folder}/{name}", "wb") as out:
            out.write(content)


if __name__ == "__main__":
    main()
