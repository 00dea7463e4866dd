#pragma once
#include <cstdint>

#include "platform/WaveOut.h"

class CFile;

// Head of one chunk. `length` is the body length the file states, or 0 when
// no data chunk head was read.
struct WavChunkHead {
    char tag[4];
    uint32_t length;
};

// The format chunk with its own head, in file order.
struct WavFormatRecord {
    char tag[4];
    uint32_t length;
    uint16_t formatTag;
    uint16_t channels;
    uint32_t samplesPerSec;
    uint32_t avgBytesPerSec;
    uint16_t blockAlign;
    uint16_t bitsPerSample;
};

// Reads the head of a RIFF WAVE file at fixed offsets: the format chunk at 12,
// the next chunk head at 36. Refuses (0) only a wrong "RIFF" or "WAVE" tag;
// short reads leave fields as the caller set them. The stream stays open and
// stands where reading stopped.
int ReadWaveHeader(CFile& stream, WavFormatRecord& format, WavChunkHead& chunk, uint32_t& factExtra);

// Whether the head's byte rate can time a file of `fileLength` bytes. The
// engine reads a tenth of it per block and converts between bytes and time
// with it, so a rate below 10 reads nothing and never reaches the end, and a
// rate that differs from samplesPerSec x blockAlign by more bytes than the
// whole file holds is no writer's rounding: it only sizes absurd buffers.
bool ByteRateFitsFile(const WavFormatRecord& format, uint64_t fileLength);

// The record handed to the device: the six format fields and cbSize 0.
WAVEFORMATEX ToWaveFormat(const WavFormatRecord& format);
