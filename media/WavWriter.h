#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/File.h"

namespace media {

// Writes the canonical 16-bit PCM .wav the engine plays: a 44-byte head
// ("RIFF", "WAVE", a 16-byte "fmt " chunk, "data") and the samples behind
// it, nothing else. Samples are taken as they come and buffered; the head's
// lengths are set by Finish, so a file cut off before then states none.
//
// A .wav counts its bytes in 32 bits: past 4 GiB less the head, Append
// takes no more frames and says so. One writer per thread.
class WavWriter {
public:
    // The largest sample bytes a canonical head can state.
    static constexpr uint64_t kLargestDataBytes = 0xFFFFFFFFull - 36;

    WavWriter() = default;
    ~WavWriter();
    WavWriter(const WavWriter&) = delete;
    WavWriter& operator=(const WavWriter&) = delete;

    // Opens `path`, which must already exist (the caller made it as its
    // own), empties it and writes a head that promises no samples yet.
    bool Open(const std::string& path, uint16_t channels, uint32_t sampleRate);
    // Appends `frames` frames of interleaved samples in the machine's order.
    // False when the file is full (the frames that fit were taken) or a
    // write failed.
    bool Append(const int16_t* samples, size_t frames);
    // Writes what is buffered and the final lengths, and closes. False when
    // any write failed.
    bool Finish();

    uint64_t FramesWritten() const { return m_frames; }
    bool Full() const { return m_full; }
    bool Failed() const { return m_failed; }

private:
    bool Flush();

    CFile m_file;
    uint16_t m_channels = 0;
    uint32_t m_sampleRate = 0;
    uint64_t m_frames = 0;
    bool m_full = false;
    bool m_failed = false;
    uint8_t m_buffer[1 << 16] = {};
    size_t m_buffered = 0;
};


}  // namespace media
