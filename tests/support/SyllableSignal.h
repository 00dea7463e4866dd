#pragma once
// Syllable-like test sound: a voice (harmonics of 100 Hz) or white hiss
// under a loudness envelope laid out in linear ramps, so that a test knows
// how many syllables it holds and where, without running any estimator.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace test_signals {

constexpr double kPi = 3.14159265358979323846;

// A loudness envelope laid out in pieces: each ramps linearly from where the
// last one ended to `level` (amplitude, 1 = the peak) over `seconds`.
struct Piece {
    double seconds;
    double level;
};

// Syllables of the test: 60 ms up, 80 ms held, 60 ms down.
inline std::vector<Piece> Syllable() { return {{0.06, 1.0}, {0.08, 1.0}, {0.06, 0.0}}; }

inline std::vector<Piece> Train(int syllables, double gapSeconds)
{
    std::vector<Piece> pieces{{0.3, 0.0}};
    for (int i = 0; i < syllables; ++i) {
        for (const Piece& p : Syllable()) pieces.push_back(p);
        pieces.push_back({gapSeconds, 0.0});
    }
    pieces.push_back({0.3, 0.0});
    return pieces;
}

enum class Source { Voice, Hiss };

// The envelope over a source: a voice (harmonics of 100 Hz falling 6 dB an
// octave, up to 3 kHz, a little vibrato so that no two periods are alike)
// or white hiss. `peak` is the amplitude at level 1; every channel carries
// the same signal, the second one at half the level.
inline std::vector<int16_t> Render(const std::vector<Piece>& pieces, Source source, int rate, int channels = 1,
                            double peak = 12000.0)
{
    std::vector<int16_t> out;
    double level = 0.0;
    double phase = 0.0;
    uint32_t noise = 12345;
    int64_t n = 0;
    for (const Piece& p : pieces) {
        const int64_t frames = std::llround(p.seconds * rate);
        const double from = level;
        for (int64_t i = 0; i < frames; ++i, ++n) {
            const double envelope = from + (p.level - from) * double(i + 1) / double(frames);
            double value = 0.0;
            if (source == Source::Voice) {
                const double t = double(n) / rate;
                phase += 2.0 * kPi * 100.0 * (1.0 + 0.02 * std::sin(2.0 * kPi * 5.0 * t)) / rate;
                for (int h = 1; h * 100 <= 3000; ++h) value += std::sin(h * phase) / h;
                value *= 0.5;
            } else {
                noise = noise * 1664525u + 1013904223u;
                value = (double(noise >> 8) / double(1 << 24) - 0.5) * 2.0;
            }
            const double sample = std::clamp(value * envelope * peak, -32768.0, 32767.0);
            for (int c = 0; c < channels; ++c) out.push_back(int16_t(std::lround(c == 0 ? sample : sample / 2)));
        }
        level = p.level;
    }
    return out;
}

}  // namespace test_signals
