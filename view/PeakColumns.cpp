#include "view/PeakColumns.h"

#include <algorithm>
#include <cstring>

namespace view {

namespace {

float Unsigned8(const uint8_t* at)
{
    return (static_cast<int>(at[0]) - 128) / 128.0f;
}

float Signed16(const uint8_t* at)
{
    return static_cast<int16_t>(at[0] | (at[1] << 8)) / 32768.0f;
}

float Signed24(const uint8_t* at)
{
    // The three bytes go to the top of an int so that the sign comes along.
    const int32_t value = static_cast<int32_t>((uint32_t(at[0]) << 8) | (uint32_t(at[1]) << 16) | (uint32_t(at[2]) << 24));
    return static_cast<float>((value >> 8) / 8388608.0);
}

float Signed32(const uint8_t* at)
{
    const int32_t value = static_cast<int32_t>(uint32_t(at[0]) | (uint32_t(at[1]) << 8) | (uint32_t(at[2]) << 16) |
                                               (uint32_t(at[3]) << 24));
    return static_cast<float>(value / 2147483648.0);
}

float Float32(const uint8_t* at)
{
    const uint32_t bits = uint32_t(at[0]) | (uint32_t(at[1]) << 8) | (uint32_t(at[2]) << 16) | (uint32_t(at[3]) << 24);
    float value = 0.0f;
    std::memcpy(&value, &bits, sizeof value);
    // Beyond full scale draws at full scale; a NaN draws as silence.
    if (!(value == value))
        return 0.0f;
    return std::clamp(value, -1.0f, 1.0f);
}

using Decoder = float (*)(const uint8_t*);

Decoder DecoderFor(const SampleLayout& layout)
{
    if (layout.isFloat)
        return layout.bitsPerSample == 32 ? &Float32 : nullptr;
    switch (layout.bitsPerSample) {
    case 8: return &Unsigned8;
    case 16: return &Signed16;
    case 24: return &Signed24;
    case 32: return &Signed32;
    default: return nullptr;
    }
}

}  // namespace

bool CanReadSamples(const SampleLayout& layout)
{
    return layout.channels > 0 && DecoderFor(layout) != nullptr &&
           layout.blockAlign >= uint32_t(layout.channels) * (layout.bitsPerSample / 8);
}

PeakColumns ReadPeakColumns(const uint8_t* samples, const SampleLayout& layout, const TimeAxis& axis)
{
    PeakColumns columns;
    if (axis.width <= 0)
        return columns;
    columns.width = axis.width;
    columns.channels = std::max<int>(layout.channels, 1);
    const size_t entries = static_cast<size_t>(columns.width) * columns.channels;
    columns.low.assign(entries, 0.0f);
    columns.high.assign(entries, 0.0f);
    const Decoder decode = DecoderFor(layout);
    if (!CanReadSamples(layout) || axis.frames == 0 || samples == nullptr)
        return columns;

    const size_t sampleBytes = layout.bitsPerSample / 8;
    for (int column = 0; column < columns.width; ++column) {
        uint64_t first = axis.FirstFrameOfColumn(column);
        uint64_t end = axis.FirstFrameOfColumn(column + 1);
        if (first == end) {
            // More columns than frames: the frame sounding at this time.
            first = std::min<uint64_t>(static_cast<uint64_t>(
                                           (static_cast<unsigned __int128>(column) * axis.frames) / axis.width),
                                       axis.frames - 1);
            end = first + 1;
        }
        float* low = &columns.low[static_cast<size_t>(column) * columns.channels];
        float* high = &columns.high[static_cast<size_t>(column) * columns.channels];
        for (int channel = 0; channel < columns.channels; ++channel) {
            const float value = decode(samples + first * layout.blockAlign + channel * sampleBytes);
            low[channel] = value;
            high[channel] = value;
        }
        for (uint64_t frame = first + 1; frame < end; ++frame) {
            const uint8_t* at = samples + frame * layout.blockAlign;
            for (int channel = 0; channel < columns.channels; ++channel) {
                const float value = decode(at + channel * sampleBytes);
                low[channel] = std::min(low[channel], value);
                high[channel] = std::max(high[channel], value);
            }
        }
    }
    return columns;
}

}  // namespace view
