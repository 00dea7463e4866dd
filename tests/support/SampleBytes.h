#pragma once
// 16-bit samples to the little-endian bytes a block carries, and back.
#include <cstdint>
#include <cstring>
#include <vector>

namespace testbytes {

inline std::vector<uint8_t> ToBytes(const std::vector<int16_t>& samples)
{
    std::vector<uint8_t> bytes(samples.size() * 2);
    if (!bytes.empty()) std::memcpy(bytes.data(), samples.data(), bytes.size());
    return bytes;
}

inline std::vector<int16_t> ToSamples(const std::vector<uint8_t>& bytes)
{
    std::vector<int16_t> samples(bytes.size() / 2);
    if (!samples.empty()) std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

}  // namespace testbytes
