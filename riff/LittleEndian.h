#pragma once
#include <cstdint>
#include <string>

// Little-endian fields of RIFF files, read from and written to bytes.
namespace riff {

inline uint16_t GetU16(const uint8_t* in)
{
    return static_cast<uint16_t>(in[0] | in[1] << 8);
}

inline uint32_t GetU32(const uint8_t* in)
{
    return uint32_t(in[0]) | uint32_t(in[1]) << 8 | uint32_t(in[2]) << 16 | uint32_t(in[3]) << 24;
}

inline void PutU16(uint8_t* out, uint16_t value)
{
    out[0] = static_cast<uint8_t>(value);
    out[1] = static_cast<uint8_t>(value >> 8);
}

inline void PutU32(uint8_t* out, uint32_t value)
{
    for (int i = 0; i < 4; ++i) out[i] = static_cast<uint8_t>(value >> (8 * i));
}

}  // namespace riff
