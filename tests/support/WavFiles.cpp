#include "support/WavFiles.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace testwav {

void PutU16(std::string& bytes, uint16_t value)
{
    bytes.push_back(static_cast<char>(value & 0xFF));
    bytes.push_back(static_cast<char>(value >> 8));
}

void PutU32(std::string& bytes, uint32_t value)
{
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}

std::string RiffAndFormat(const Format& format, uint32_t formatLength)
{
    std::string bytes = "RIFF";
    PutU32(bytes, 0);
    bytes += "WAVEfmt ";
    PutU32(bytes, formatLength);
    PutU16(bytes, format.formatTag);
    PutU16(bytes, format.channels);
    PutU32(bytes, format.samplesPerSec);
    PutU32(bytes, format.AvgBytesPerSec());
    PutU16(bytes, format.BlockAlign());
    PutU16(bytes, format.bitsPerSample);
    return bytes;
}

std::string CanonicalWav(const Format& format, const std::string& data)
{
    std::string bytes = RiffAndFormat(format);
    bytes += "data";
    PutU32(bytes, static_cast<uint32_t>(data.size()));
    bytes += data;
    uint32_t riffLength = static_cast<uint32_t>(bytes.size() - 8);
    for (int i = 0; i < 4; ++i) bytes[4 + i] = static_cast<char>((riffLength >> (8 * i)) & 0xFF);
    return bytes;
}

std::string Samples16(const std::vector<int16_t>& samples)
{
    std::string bytes;
    for (int16_t sample : samples) PutU16(bytes, static_cast<uint16_t>(sample));
    return bytes;
}

std::vector<int16_t> ToSamples16(const std::string& bytes)
{
    std::vector<int16_t> samples(bytes.size() / 2);
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<int16_t>(static_cast<uint8_t>(bytes[2 * i]) |
                                          (static_cast<uint8_t>(bytes[2 * i + 1]) << 8));
    }
    return samples;
}

std::string TempPath(const std::string& name)
{
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string prefix = info != nullptr ? std::string(info->test_suite_name()) + "_" + info->name() + "_" : "";
    for (char& c : prefix) {
        if (c == '/') c = '_';
    }
    return ::testing::TempDir() + prefix + name;
}

std::string WriteFile(const std::string& name, const std::string& bytes)
{
    std::string path = TempPath(name);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

}  // namespace testwav
