#pragma once
// Writing the head of a canonical .wav file: RIFF, WAVE, a 16-byte fmt
// chunk and the data chunk's head, 44 bytes in all. Every writer of .wav
// files in the project writes its head through this.
#include <cstdint>

namespace riff {

constexpr uint32_t kCanonicalHeadBytes = 44;

// The fmt chunk's fields as they are written. A writer that copies another
// head's format (the capture device copies the format it was opened with)
// gives its fields as they are, consistent or not.
struct WavHeadFormat {
    uint16_t formatTag = 1;  // 1: integer PCM
    uint16_t channels = 1;
    uint32_t sampleRate = 0;
    uint32_t byteRate = 0;
    uint16_t blockAlign = 0;
    uint16_t bitsPerSample = 16;
};

// 16-bit integer PCM with its byte rate and block alignment derived.
WavHeadFormat Pcm16Format(uint16_t channels, uint32_t sampleRate);

// Writes the 44 bytes of the head into `head`: the RIFF length is
// 36 + dataBytes (the head after its first 8 bytes, and the data).
void PutCanonicalWavHead(uint8_t* head, const WavHeadFormat& format, uint32_t dataBytes);

}  // namespace riff
