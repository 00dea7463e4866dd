#pragma once
#include <cstdint>
#include <functional>

// Where the samples of a RIFF WAVE file are, found by walking its chunks as
// the format defines them (not at fixed offsets): from offset 12, a tag, a
// little-endian length and a body padded to an even length. `fmt ` may be
// 16, 18 or 40 bytes, and WAVE_FORMAT_EXTENSIBLE carries the real format in
// its sub-format; `LIST`, `fact`, `cue `, `bext`, `JUNK` and anything unknown
// are stepped over; the walk stops at `data`.
//
// Pure computation over a byte source: no file system, no allocation, any
// thread. Every length is checked against the file's size before use.
namespace riff {

constexpr uint16_t kFormatPcm = 1;
constexpr uint16_t kFormatIeeeFloat = 3;
constexpr uint16_t kFormatExtensible = 0xFFFE;

enum class LayoutError {
    None,
    NotRiffWave,      // no "RIFF" ... "WAVE" head
    NoFormat,         // the walk met `data` or the end before a usable `fmt `
    NoData,           // no `data` chunk before the end
};

struct WaveLayout {
    // The format; an extensible file's sub-format is in `formatTag`, and
    // `extensible` says it came that way.
    uint16_t formatTag = 0;
    bool extensible = false;
    uint16_t channels = 0;
    uint32_t samplesPerSec = 0;
    uint32_t avgBytesPerSec = 0;
    uint16_t blockAlign = 0;
    uint16_t bitsPerSample = 0;
    // The samples: the data chunk's body, cut to what the file holds. A
    // stated length of 0, or one past the end of the file, means "to the end
    // of the file", as interrupted recorders leave it.
    uint64_t dataOffset = 0;
    uint64_t dataLength = 0;
};

// Reads `count` bytes at `offset` into `into`; answers the bytes read.
using ByteReader = std::function<uint32_t(uint64_t offset, void* into, uint32_t count)>;

LayoutError FindWaveLayout(const ByteReader& read, uint64_t fileSize, WaveLayout& layout);

// The same over bytes in memory.
LayoutError FindWaveLayout(const uint8_t* bytes, uint64_t size, WaveLayout& layout);

// True for what the engine plays as it is: integer PCM of 8 or 16 bits whose
// block alignment and byte rate agree with the channels and the rate.
bool IsPlainPcm(const WaveLayout& layout);

}  // namespace riff
