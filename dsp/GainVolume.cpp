#include "dsp/GainVolume.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

// Gain and volume arrive as plain floats from the engine's fields; a value
// no scan can produce (huge, NaN) must still not make the conversion undefined.
int32_t TruncateToInt32(double value) {
    if (std::isnan(value)) return 0;
    if (value <= double(INT32_MIN) - 1.0) return INT32_MIN;
    if (value >= double(INT32_MAX) + 1.0) return INT32_MAX;
    return int32_t(value);
}

int16_t LoadSample(const uint8_t* at) {
    int16_t sample;
    std::memcpy(&sample, at, sizeof sample);
    return sample;
}

void StoreSample(uint8_t* at, int16_t sample) { std::memcpy(at, &sample, sizeof sample); }

int16_t LowBits16(int32_t value) { return int16_t(uint16_t(uint32_t(value))); }

// Lowers the gain so that `level` would land on the target, rounded to single.
float GainHeldToTarget(float level, float gain) {
    return float((1.0 - (double(level) - kPeakTarget) / double(level)) * double(gain));
}

void ScaleSamples16(uint8_t* data, int32_t byteCount, float volume, float* gain) {
    for (int32_t i = 0; i < byteCount; i += 2) {
        const int16_t sample = LoadSample(data + i);
        const int32_t product = TruncateToInt32(double(sample) * double(*gain));
        int16_t value;
        if (product <= 32767) {
            value = LowBits16(product);
        } else if (i < 2 || byteCount <= i + 2) {
            value = kBlockEdgeRepairValue;
        } else {
            const int32_t before = LoadSample(data + i - 2);
            const int32_t after = LoadSample(data + i + 2);
            value = LowBits16((before + after) >> 1);
            const int32_t quarter = product / 4;
            if (std::abs(before) > quarter || std::abs(after) > quarter) {
                // A neighbour this loud means a real peak, not a lone click:
                // hold the gain down for the rest of the file.
                const float lowered = GainHeldToTarget(float(product), *gain);
                *gain = lowered < kLowestGain ? kLowestGain : lowered;
            }
        }
        StoreSample(data + i, LowBits16(TruncateToInt32(double(value) * double(volume))));
    }
}

void ScaleBytes8(uint8_t* data, int32_t byteCount, float volume) {
    for (int32_t i = 0; i < byteCount; ++i) {
        data[i] = uint8_t(uint32_t(TruncateToInt32(double(data[i]) * double(volume))));
    }
}

}  // namespace

void ScanPeakBlock(PeakScanState& state, const int16_t* samples, uint32_t byteCount, uint32_t* found) {
    *found = 0;
    if (state.bitsPerSample != 16 || state.ratio == 0) return;

    const uint32_t sampleCount = byteCount / 2;
    uint32_t next = 0;
    if (state.window[0] == 0 && state.window[1] == 0 && state.window[2] == 0) {
        if (byteCount < 6) return;
        std::copy(samples, samples + 3, state.window);
        next = 3;
    }

    // The test needs only magnitudes, so the loop carries those, and the
    // gain, in locals: through `state` (int16_t like the samples) every step
    // would be a load and a store. The raw window is put back at the end.
    const uint32_t first = next;
    int32_t before = std::abs(int32_t(state.window[0]));
    int32_t centre = std::abs(int32_t(state.window[1]));
    int32_t after = std::abs(int32_t(state.window[2]));
    float gain = state.gain;
    const int32_t ratio = state.ratio;
    uint32_t peaks = 0;
    for (; next < sampleCount; ++next) {
        if (before < centre && after < centre) {
            const int32_t quarter = centre / ratio;
            if (quarter < before || quarter < after) {
                const float level = float(centre) * gain;
                if (double(level) > kPeakTarget) gain = GainHeldToTarget(level, gain);
                ++peaks;
            }
        }
        before = centre;
        centre = after;
        after = std::abs(int32_t(samples[next]));
    }
    // The last three values the window took: from this block, or from the
    // window it came with when the block held fewer than three samples.
    const uint32_t taken = sampleCount > first ? sampleCount - first : 0;
    int16_t window[3];
    for (int slot = 0; slot < 3; ++slot) {
        const int64_t back = int64_t(taken) - 3 + slot;  // index among the samples taken
        window[slot] = back >= 0 ? samples[first + uint32_t(back)] : state.window[3 + back];
    }
    std::copy(window, window + 3, state.window);
    state.gain = gain;
    *found = peaks;
}

float ScanPeakGainWith(const PeakScanReader& read) {
    std::array<int16_t, kPeakScanReadBytes / 2> scratch{};
    PeakScanState state;

    uint32_t bytesRead = read(scratch.data(), kPeakScanReadBytes);
    uint32_t totalPeaks = 0;
    while (bytesRead > 0 && totalPeaks < kPeakScanMaxPeaks) {
        uint32_t found = 0;
        // A reader that claims more than it was given room for is held to the scratch array.
        ScanPeakBlock(state, scratch.data(), std::min(bytesRead, kPeakScanReadBytes), &found);
        bytesRead = read(scratch.data(), kPeakScanReadBytes);
        totalPeaks += found;
    }
    return state.gain < kLowestGain ? kLowestGain : state.gain;
}

float ScanPeakGainOver(const uint8_t* data, size_t byteCount) {
    size_t position = 0;
    return ScanPeakGainWith([&](int16_t* into, uint32_t capacity) {
        const size_t count = std::min<size_t>(capacity, byteCount - position);
        if (count > 0) std::memcpy(into, data + position, count);
        position += count;
        return uint32_t(count);
    });
}

bool ApplyGainAndVolume(uint8_t* data, int32_t byteCount, uint16_t bitsPerSample, float volume, float* gain) {
    if (bitsPerSample == 16) {
        ScaleSamples16(data, byteCount, volume, gain);
    } else if (bitsPerSample == 8) {
        ScaleBytes8(data, byteCount, volume);
    }
    return true;
}

namespace {

// Whether some sample of the block, times the gain, lies beyond 16 bits.
bool AnySampleCouldClip(const uint8_t* data, uint32_t count, float gain) {
    int32_t loudest = 0;
    for (uint32_t i = 0; i < count; ++i) loudest = std::max(loudest, std::abs(int32_t(LoadSample(data + 2 * size_t(i)))));
    return double(loudest) * double(gain) > 32767.0;
}

}  // namespace

bool ApplyGainAndVolumeFrames(uint8_t* data, uint32_t byteCount, uint16_t bitsPerSample, uint16_t channels,
                              float volume, float* gain) {
    if (channels == 0) return false;
    if (bitsPerSample == 8) {
        for (uint32_t i = 0; i < byteCount; ++i) {
            const double scaled = (double(data[i]) - 128.0) * double(volume) + 128.0;
            data[i] = uint8_t(std::clamp(int32_t(scaled + 0.5), 0, 255));
        }
        return true;
    }
    if (bitsPerSample != 16) return true;
    // The gain and the volume in locals: the bytes may alias anything, so
    // through the pointer the gain would be read again for every sample.
    const uint32_t count = byteCount / 2;
    const double scale = double(volume);
    float held = *gain;
    if (!AnySampleCouldClip(data, count, held)) {
        // Most blocks once the scan has set the gain: nothing to hold down,
        // so the loop has no test in it and vectorizes. The same arithmetic.
        for (uint32_t i = 0; i < count; ++i) {
            const double level = double(LoadSample(data + 2 * size_t(i))) * double(held) * scale;
            StoreSample(data + 2 * size_t(i), int16_t(int32_t(level + (level < 0.0 ? -0.5 : 0.5))));
        }
        return true;
    }
    for (uint32_t i = 0; i < count; ++i) {
        const int16_t sample = LoadSample(data + 2 * size_t(i));
        const double product = double(sample) * double(held);
        if (std::abs(product) > 32767.0 && i >= channels && i + channels < count) {
            // The neighbours of the same channel tell a true peak from a
            // lone click; a true one holds the gain down from here on.
            const int32_t before = LoadSample(data + 2 * size_t(i - channels));
            const int32_t after = LoadSample(data + 2 * size_t(i + channels));
            const double quarter = std::abs(product) / 4.0;
            if (std::abs(before) > quarter || std::abs(after) > quarter) {
                const float lowered = GainHeldToTarget(float(std::abs(product)), held);
                held = lowered < kLowestGain ? kLowestGain : lowered;
            }
        }
        // Nearest, halves away from zero; a cast truncates, so the half is
        // added on the side of the sign (cheaper than a library rounding).
        const double level = std::clamp(product, -32768.0, 32767.0) * scale;
        StoreSample(data + 2 * size_t(i), int16_t(int32_t(level + (level < 0.0 ? -0.5 : 0.5))));
    }
    *gain = held;
    return true;
}

bool VolumeFromPercent(long volume, float* out) {
    const uint16_t percent = uint16_t(static_cast<unsigned long>(volume));
    if (percent > 100) return false;
    *out = float(double(percent) / 100.0);
    return true;
}

long PercentFromVolume(float volume) {
    const double percent = double(volume) * 100.0;
    // Only 0 to 1 ever comes from VolumeFromPercent; a NaN or a factor with no
    // long percent reads as 0 rather than an undefined conversion.
    if (!(percent > double(LONG_MIN) - 1.0) || !(percent < double(LONG_MAX))) return 0;
    return long(percent);
}
