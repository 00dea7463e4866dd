#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace testwav {

// Little-endian byte building for hand-made file heads.
void PutU16(std::string& bytes, uint16_t value);
void PutU32(std::string& bytes, uint32_t value);

struct Format {
    uint16_t formatTag = 1;
    uint16_t channels = 1;
    uint32_t samplesPerSec = 22050;
    uint16_t bitsPerSample = 16;
    uint32_t AvgBytesPerSec() const { return samplesPerSec * BlockAlign(); }
    uint16_t BlockAlign() const { return static_cast<uint16_t>(channels * bitsPerSample / 8); }
};

// "RIFF" size "WAVE" "fmt " 16 <format> — the first 36 bytes of a canonical head.
std::string RiffAndFormat(const Format& format, uint32_t formatLength = 16);
// A canonical 44-byte head plus the data.
std::string CanonicalWav(const Format& format, const std::string& data);
std::string Samples16(const std::vector<int16_t>& samples);
std::vector<int16_t> ToSamples16(const std::string& bytes);

std::string TempPath(const std::string& name);
std::string WriteFile(const std::string& name, const std::string& bytes);
std::string ReadFile(const std::string& path);

}  // namespace testwav
