#pragma once
// The word counter written the plain way, one loop per step and no shortcuts,
// to hold the fast one to the last bit; and the test signals both are fed.
#include "dsp/WordCounterDetail.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace wordref {

inline void LowPassFilter(const double* in, double* out, uint32_t count) {
    std::vector<double> history(18 + size_t(count), 0.0);
    for (uint32_t i = 0; i < count; ++i) history[18 + i] = in[i];
    for (uint32_t i = 0; i < count; ++i) {
        double sum = 0.0;
        for (int k = 0; k < 19; ++k) sum += g_lowPassTaps[k] * history[18 + i - k];
        out[i] = sum;
    }
}

inline void ClipAndDifference(double* x, int32_t n, double* d) {
    double peak = 0.0;
    for (int32_t i = 0; i < n; ++i)
        if (std::fabs(x[i]) > peak) peak = std::fabs(x[i]);
    const double clip = peak * 0.68;
    for (int32_t i = 0; i < n; ++i) {
        if (std::fabs(x[i]) < clip)
            x[i] = 0.0;
        else if (x[i] >= clip)
            x[i] = x[i] - clip;
        else if (x[i] <= -clip)
            x[i] = x[i] + clip;
    }
    for (int32_t k = 1; k < n; ++k) {
        for (int32_t j = 0; j <= n - k - 2; ++j) {
            const float difference = float(x[j] - x[j + k]);
            d[k] += double(std::fabs(difference));
        }
    }
}

inline int32_t CountVoicedFrames(const uint8_t* data, uint32_t byteCount, uint32_t samplesPerSec,
                                 uint16_t bitsPerSample) {
    if (data == nullptr || byteCount == 0) return 0;
    const uint32_t bytesPerSample = bitsPerSample / 8u;
    if (bytesPerSample != 1 && bytesPerSample != 2) return 0;
    const uint32_t n = byteCount / bytesPerSample;
    std::vector<double> samples(n), filtered(n);
    SamplesToDoubles(data, byteCount, bytesPerSample, samples.data());
    const int32_t frameLen = int32_t(0.04 * double(samplesPerSec));
    const int32_t overlap = int32_t(double(samplesPerSec) * 0.02);
    if (frameLen <= overlap) return 0;
    LowPassFilter(samples.data(), filtered.data(), n);
    std::vector<std::vector<double>> frames = SplitFrames(filtered.data(), n, frameLen, overlap);
    std::vector<double> difference(static_cast<size_t>(frameLen));
    int32_t count = 0;
    for (auto& frame : frames) {
        std::fill(difference.begin(), difference.end(), 0.0);
        ClipAndDifference(frame.data(), frameLen, difference.data());
        count += IsFrameVoiced(difference.data(), frameLen);
    }
    return count;
}

// A fixed generator, so that every run and every machine sees the same signals.
class Noise {
public:
    explicit Noise(uint64_t seed) : m_state(seed * 6364136223846793005ULL + 1442695040888963407ULL) {}
    // Uniform in [-1, 1).
    double Next() {
        m_state = m_state * 6364136223846793005ULL + 1442695040888963407ULL;
        return double(int64_t(m_state >> 11) - (int64_t(1) << 52)) / double(int64_t(1) << 52);
    }

private:
    uint64_t m_state;
};

inline int16_t ToSample(double value) {
    if (value > 32767.0) return 32767;
    if (value < -32768.0) return -32768;
    return int16_t(std::lround(value));
}

// Voiced syllables with pauses between them: a glottal pulse train with a
// gliding pitch, shaped by two formant resonators, under a syllable envelope,
// over a little background noise. `channels` interleaves near-copies.
inline std::vector<int16_t> SpeechLikeSamples(uint32_t samplesPerSec, uint16_t channels, double seconds,
                                              uint64_t seed) {
    Noise noise(seed);
    const size_t frames = size_t(seconds * samplesPerSec);
    std::vector<int16_t> out(frames * channels);
    const double pi = 3.14159265358979323846;
    auto resonator = [&](double frequency, double bandwidth, double state[2], double in) {
        const double r = std::exp(-pi * bandwidth / samplesPerSec);
        const double a1 = 2.0 * r * std::cos(2.0 * pi * frequency / samplesPerSec);
        const double a2 = -r * r;
        const double y = in + a1 * state[0] + a2 * state[1];
        state[1] = state[0];
        state[0] = y;
        return y * (1.0 - r);
    };
    double first[2] = {0, 0}, second[2] = {0, 0};
    double phase = 0.0;
    const double syllableSeconds = 0.22 + 0.05 * noise.Next();
    for (size_t i = 0; i < frames; ++i) {
        const double t = double(i) / samplesPerSec;
        const double pitch = 130.0 + 40.0 * std::sin(2.0 * pi * 0.7 * t) + 15.0 * std::sin(2.0 * pi * 3.1 * t);
        phase += pitch / samplesPerSec;
        double pulse = 0.0;
        if (phase >= 1.0) {
            phase -= 1.0;
            pulse = 1.0;
        }
        const double cycle = std::fmod(t, syllableSeconds * 1.6) / syllableSeconds;
        const double envelope = cycle < 1.0 ? std::sin(pi * cycle) : 0.0;
        const double formant1 = 500.0 + 250.0 * std::sin(2.0 * pi * 1.3 * t);
        const double formant2 = 1500.0 + 500.0 * std::sin(2.0 * pi * 0.9 * t);
        const double voiced = resonator(formant1, 90.0, first, pulse * 4.0e5) +
                              0.5 * resonator(formant2, 120.0, second, pulse * 4.0e5);
        const double value = envelope * voiced;
        for (uint16_t c = 0; c < channels; ++c) out[i * channels + c] = ToSample(value + 60.0 * noise.Next());
    }
    return out;
}

inline std::vector<uint8_t> AsBytes(const std::vector<int16_t>& samples) {
    std::vector<uint8_t> bytes(samples.size() * 2);
    for (size_t i = 0; i < samples.size(); ++i) {
        const uint16_t word = uint16_t(samples[i]);
        bytes[2 * i] = uint8_t(word & 0xff);
        bytes[2 * i + 1] = uint8_t(word >> 8);
    }
    return bytes;
}

}  // namespace wordref
