"""Canonical PCM .wav files (RIFF, a 16-byte fmt chunk, data: a 44-byte
head) for the script tests. The scripts put this folder on PYTHONPATH."""
import struct


def pcm_bytes(samples, bits=16):
    """16-bit values as little-endian 16-bit samples, or as unsigned 8-bit
    samples (their high byte, offset by 128)."""
    if bits == 16:
        return struct.pack("<%dh" % len(samples), *samples)
    if bits == 8:
        return bytes((s >> 8) + 128 for s in samples)
    raise ValueError("bits must be 8 or 16")


def write_wav_bytes(path, data, rate=22050, channels=1, bits=16):
    """Writes `data` (already interleaved PCM bytes) under a canonical head."""
    width = bits // 8
    head = b"RIFF" + struct.pack("<I", 36 + len(data)) + b"WAVEfmt " + struct.pack(
        "<IHHIIHH", 16, 1, channels, rate, rate * channels * width, channels * width, bits)
    with open(path, "wb") as out:
        out.write(head + b"data" + struct.pack("<I", len(data)) + data)


def write_wav(path, samples, rate=22050, channels=1, bits=16):
    """Writes 16-bit sample values (interleaved when channels > 1)."""
    write_wav_bytes(path, pcm_bytes(samples, bits), rate, channels, bits)
