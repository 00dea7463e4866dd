#include "riff/WavHead.h"

#include <cstring>

#include "riff/LittleEndian.h"

namespace riff {

WavHeadFormat Pcm16Format(uint16_t channels, uint32_t sampleRate)
{
    WavHeadFormat format;
    format.channels = channels;
    format.sampleRate = sampleRate;
    format.blockAlign = static_cast<uint16_t>(channels * 2);
    format.byteRate = sampleRate * format.blockAlign;
    format.bitsPerSample = 16;
    return format;
}

void PutCanonicalWavHead(uint8_t* head, const WavHeadFormat& format, uint32_t dataBytes)
{
    std::memcpy(head, "RIFF", 4);
    PutU32(head + 4, 36 + dataBytes);
    std::memcpy(head + 8, "WAVEfmt ", 8);
    PutU32(head + 16, 16);
    PutU16(head + 20, format.formatTag);
    PutU16(head + 22, format.channels);
    PutU32(head + 24, format.sampleRate);
    PutU32(head + 28, format.byteRate);
    PutU16(head + 32, format.blockAlign);
    PutU16(head + 34, format.bitsPerSample);
    std::memcpy(head + 36, "data", 4);
    PutU32(head + 40, dataBytes);
}

}  // namespace riff
