#include "riff/WaveLayout.h"

#include <algorithm>
#include <cstring>

#include "riff/LittleEndian.h"

namespace riff {
namespace {

constexpr uint64_t kChunkHeadBytes = 8;
constexpr uint32_t kLargestFormatBytes = 40;
// The base of the sub-format GUIDs of WAVE_FORMAT_EXTENSIBLE: the format tag
// in the first two bytes, then this.
constexpr uint8_t kSubFormatTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                        0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

bool TagIs(const uint8_t* at, const char* tag)
{
    return std::memcmp(at, tag, 4) == 0;
}

// The format chunk's body; false when it is too short to be one.
bool ReadFormat(const uint8_t* body, uint32_t length, WaveLayout& layout)
{
    if (length < 16) return false;
    layout.formatTag = GetU16(body);
    layout.channels = GetU16(body + 2);
    layout.samplesPerSec = GetU32(body + 4);
    layout.avgBytesPerSec = GetU32(body + 8);
    layout.blockAlign = GetU16(body + 12);
    layout.bitsPerSample = GetU16(body + 14);
    layout.extensible = false;
    if (layout.formatTag == kFormatExtensible) {
        // cbSize 22 and the sub-format GUID at 24; without them the format
        // is unknown and stays 0xFFFE, which nothing plays.
        if (length < kLargestFormatBytes || GetU16(body + 16) < 22) return true;
        if (std::memcmp(body + 26, kSubFormatTail, sizeof kSubFormatTail) != 0) return true;
        layout.formatTag = GetU16(body + 24);
        layout.extensible = true;
    }
    return true;
}

}  // namespace

LayoutError FindWaveLayout(const ByteReader& read, uint64_t fileSize, WaveLayout& layout)
{
    layout = WaveLayout{};
    uint8_t head[12] = {};
    if (fileSize < 12 || read(0, head, 12) != 12 || !TagIs(head, "RIFF") || !TagIs(head + 8, "WAVE"))
        return LayoutError::NotRiffWave;

    bool haveFormat = false;
    uint64_t offset = 12;
    while (offset + kChunkHeadBytes <= fileSize) {
        uint8_t chunk[kChunkHeadBytes];
        if (read(offset, chunk, kChunkHeadBytes) != kChunkHeadBytes) break;
        const uint32_t length = GetU32(chunk + 4);
        const uint64_t body = offset + kChunkHeadBytes;
        const uint64_t available = fileSize - body;

        if (TagIs(chunk, "fmt ")) {
            uint8_t format[kLargestFormatBytes] = {};
            const uint32_t wanted = static_cast<uint32_t>(std::min<uint64_t>({length, kLargestFormatBytes, available}));
            if (read(body, format, wanted) != wanted) break;
            haveFormat = ReadFormat(format, wanted, layout) || haveFormat;
        } else if (TagIs(chunk, "data")) {
            if (!haveFormat) return LayoutError::NoFormat;
            layout.dataOffset = body;
            layout.dataLength = length == 0 || length > available ? available : length;
            return LayoutError::None;
        }
        // Odd lengths are followed by one pad byte.
        offset = body + length + (length & 1u);
    }
    return haveFormat ? LayoutError::NoData : LayoutError::NoFormat;
}

LayoutError FindWaveLayout(const uint8_t* bytes, uint64_t size, WaveLayout& layout)
{
    return FindWaveLayout(
        [bytes, size](uint64_t offset, void* into, uint32_t count) -> uint32_t {
            if (offset >= size) return 0;
            const uint32_t got = static_cast<uint32_t>(std::min<uint64_t>(count, size - offset));
            std::memcpy(into, bytes + offset, got);
            return got;
        },
        size, layout);
}

bool IsPlainPcm(const WaveLayout& layout)
{
    if (layout.formatTag != kFormatPcm) return false;
    if (layout.bitsPerSample != 8 && layout.bitsPerSample != 16) return false;
    if (layout.channels == 0 || layout.channels > 8) return false;
    if (layout.samplesPerSec < 1000 || layout.samplesPerSec > 384000) return false;
    const uint32_t frameBytes = uint32_t(layout.channels) * layout.bitsPerSample / 8;
    return layout.blockAlign == frameBytes && layout.avgBytesPerSec == layout.samplesPerSec * frameBytes;
}

}  // namespace riff
