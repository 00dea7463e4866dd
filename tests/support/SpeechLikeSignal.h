#pragma once
// A deterministic stand-in for recorded speech: a glottal pulse train near
// 120 Hz with a slow pitch glide, shaped by two formant resonators, under a
// syllable-rate envelope with short pauses, plus a little breath noise.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace test_signals {

struct Resonator {
    double feedback1 = 0.0;
    double feedback2 = 0.0;
    double previous1 = 0.0;
    double previous2 = 0.0;

    Resonator(double centreHz, double bandwidthHz, double sampleRate)
    {
        const double pi = 3.14159265358979323846;
        const double radius = std::exp(-pi * bandwidthHz / sampleRate);
        feedback1 = 2.0 * radius * std::cos(2.0 * pi * centreHz / sampleRate);
        feedback2 = -radius * radius;
    }
    double Step(double x)
    {
        const double y = x + feedback1 * previous1 + feedback2 * previous2;
        previous2 = previous1;
        previous1 = y;
        return y;
    }
};

// `frames` frames of `channels` interleaved samples; the right channel is a
// quieter copy of the left. `seed` moves the pitch, formants and noise.
inline std::vector<int16_t> SpeechLike(int32_t sampleRate, int32_t frames, int32_t channels = 1, uint32_t seed = 1)
{
    const double pi = 3.14159265358979323846;
    std::mt19937 noise(seed);
    const double basePitch = 105.0 + (seed % 7) * 5.0;
    Resonator first(650.0 + (seed % 5) * 40.0, 90.0, sampleRate);
    Resonator second(1150.0 + (seed % 3) * 150.0, 120.0, sampleRate);
    std::vector<int16_t> samples(size_t(frames) * channels);
    double phase = 0.0;
    for (int32_t i = 0; i < frames; ++i) {
        const double t = double(i) / sampleRate;
        const double pitch = basePitch * (1.0 + 0.08 * std::sin(2.0 * pi * 1.3 * t));
        phase += pitch / sampleRate;
        double pulse = 0.0;
        if (phase >= 1.0) {
            phase -= 1.0;
            pulse = 1.0;
        }
        const double syllable = std::sin(2.0 * pi * 4.0 * t + seed);
        const double envelope = syllable > 0.15 ? syllable : 0.0;
        const double breath = (double(noise()) / 4294967295.0 - 0.5) * 0.02;
        const double voiced = second.Step(first.Step(pulse * envelope + breath));
        const double value = std::clamp(voiced * 400.0, -32768.0, 32767.0);
        samples[size_t(i) * channels] = int16_t(value);
        for (int32_t c = 1; c < channels; ++c)
            samples[size_t(i) * channels + c] = int16_t(value * 0.8);
    }
    return samples;
}

}  // namespace test_signals
