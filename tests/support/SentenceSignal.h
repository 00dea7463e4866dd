#pragma once
// Recordings of made-up sentences whose extents are known by construction:
// each sentence is a run of syllables (a gliding harmonic voice under two
// formants, some with a hiss before or after it) with short gaps, and the truth is
// from the first syllable's first sample to the last one's last sample.
// Noises are added at a level relative to the speech's mean power over its
// sentences. Deterministic for a seed.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace sentence_signal {

struct TrueSentence {
    double start = 0.0;  // seconds
    double end = 0.0;
};

class RecordingBuilder {
public:
    RecordingBuilder(int32_t rate, int32_t channels, uint32_t seed = 1) : m_rate(rate), m_channels(channels), m_random(seed) {}

    int32_t Rate() const { return m_rate; }
    int32_t Channels() const { return m_channels; }
    double Seconds() const { return double(m_mono.size()) / m_rate; }
    const std::vector<TrueSentence>& Truth() const { return m_truth; }

    void Silence(double seconds) { m_mono.resize(m_mono.size() + Count(seconds), 0.0); }

    // About `seconds` of syllables at `levelDb` (dB of full scale, peak of
    // a syllable). `commaAt` (0 to 1) puts a pause of `commaSeconds` at that
    // point of the sentence instead of a syllable gap.
    void Sentence(double seconds, double levelDb = -12.0, double commaAt = -1.0, double commaSeconds = 0.15)
    {
        const double start = Seconds();
        const double amplitude = 32767.0 * std::pow(10.0, levelDb / 20.0);
        bool commaDone = commaAt < 0.0;
        while (Seconds() - start < seconds) {
            // A vowel, some with a hissing consonant before or after it.
            if (m_random() % 3 == 0) Fricative(Uniform(0.06, 0.10), amplitude * 0.25);
            Voiced(Uniform(0.10, 0.22), amplitude);
            if (m_random() % 4 == 0) Fricative(Uniform(0.06, 0.10), amplitude * 0.25);
            if (Seconds() - start >= seconds) break;
            if (!commaDone && Seconds() - start >= commaAt * seconds) {
                Silence(commaSeconds);
                commaDone = true;
            } else {
                Silence(Uniform(0.04, 0.10));
            }
        }
        m_truth.push_back({start, Seconds()});
        const size_t first = Count(start);
        for (size_t i = first; i < m_mono.size(); ++i) m_speechEnergy += m_mono[i] * m_mono[i];
        m_speechSamples += m_mono.size() - first;
    }

    // A breath: low-passed noise with a slow swell, not speech.
    void Breath(double seconds, double levelDb)
    {
        const double amplitude = 32767.0 * std::pow(10.0, levelDb / 20.0);
        const size_t count = Count(seconds);
        std::normal_distribution<double> gauss(0.0, 1.0);
        double smooth = 0.0;
        for (size_t i = 0; i < count; ++i) {
            smooth += 0.2 * (gauss(m_random) - smooth);
            const double swell = std::sin(3.14159265358979 * double(i) / double(count));
            m_mono.push_back(amplitude * 2.0 * smooth * swell);
        }
    }

    // A click: 5 ms of a loud decaying tick.
    void Click(double levelDb)
    {
        const double amplitude = 32767.0 * std::pow(10.0, levelDb / 20.0);
        const size_t count = Count(0.005);
        for (size_t i = 0; i < count; ++i)
            m_mono.push_back(amplitude * std::exp(-double(i) / (0.001 * m_rate)) * ((i & 1) ? 1.0 : -1.0));
    }

    double SpeechPowerDb() const
    {
        return 10.0 * std::log10(m_speechEnergy / double(std::max<size_t>(1, m_speechSamples)));
    }

    // Noises over the whole recording, each at `snrDb` below the speech's
    // mean power.
    void AddWhiteNoise(double snrDb) { AddNoise(snrDb, [&](size_t) { return Gauss(); }); }
    void AddPinkNoise(double snrDb)
    {
        // Paul Kellet's economy filter: white noise through three poles.
        double b0 = 0.0, b1 = 0.0, b2 = 0.0;
        AddNoise(snrDb, [&](size_t) {
            const double white = Gauss();
            b0 = 0.99765 * b0 + white * 0.0990460;
            b1 = 0.96300 * b1 + white * 0.2965164;
            b2 = 0.57000 * b2 + white * 1.0526913;
            return b0 + b1 + b2 + white * 0.1848;
        });
    }
    // Mains hum: 50 Hz and its odd harmonics.
    void AddHum(double snrDb)
    {
        AddNoise(snrDb, [&](size_t i) {
            const double t = double(i) / m_rate;
            double value = 0.0;
            for (int h : {1, 3, 5, 7}) value += std::sin(2.0 * 3.14159265358979 * 50.0 * h * t) / h;
            return value;
        });
    }
    // A music bed: a triad and its octave below, changing every two seconds.
    void AddChords(double snrDb)
    {
        static const double kChords[4][3] = {
            {261.6, 329.6, 392.0}, {220.0, 261.6, 329.6}, {174.6, 220.0, 261.6}, {196.0, 246.9, 293.7}};
        AddNoise(snrDb, [&](size_t i) {
            const double t = double(i) / m_rate;
            const double* chord = kChords[size_t(t / 2.0) % 4];
            double value = 0.0;
            for (double f : {chord[0], chord[1], chord[2], chord[0] / 2.0}) {
                // A soft tone: the fundamental and a ninth of its third harmonic.
                value += std::sin(2.0 * 3.14159265358979 * f * t) + std::sin(2.0 * 3.14159265358979 * 3.0 * f * t) / 9.0;
            }
            return value;
        });
    }

    // Interleaved 16-bit samples; the channels after the first carry the
    // same sound 2 dB lower.
    std::vector<int16_t> Samples() const
    {
        std::vector<int16_t> out(m_mono.size() * size_t(m_channels));
        for (size_t i = 0; i < m_mono.size(); ++i) {
            for (int32_t c = 0; c < m_channels; ++c) {
                const double value = m_mono[i] * (c == 0 ? 1.0 : 0.794);
                out[i * size_t(m_channels) + size_t(c)] = int16_t(std::clamp(std::lround(value), -32768L, 32767L));
            }
        }
        return out;
    }

private:
    size_t Count(double seconds) const { return size_t(std::lround(seconds * m_rate)); }
    double Uniform(double low, double high) { return std::uniform_real_distribution<double>(low, high)(m_random); }
    double Gauss() { return std::normal_distribution<double>(0.0, 1.0)(m_random); }

    // 20 ms in, 30 ms out: a syllable starts and ends without a click.
    double Envelope(size_t i, size_t count) const
    {
        const double rise = 0.020 * m_rate;
        const double fall = 0.030 * m_rate;
        const double in = std::min(1.0, double(i) / rise);
        const double out = std::min(1.0, double(count - i) / fall);
        return std::min(in, out);
    }

    void Voiced(double seconds, double amplitude)
    {
        const size_t count = Count(seconds);
        const double pitch = Uniform(110.0, 220.0);
        const double glide = Uniform(-0.15, 0.15);
        const double formant1 = Uniform(400.0, 800.0);
        const double formant2 = Uniform(1100.0, 2300.0);
        const int harmonics = int(4000.0 / (pitch * 1.2));
        std::vector<double> weights(size_t(harmonics) + 1, 0.0);
        double total = 0.0;
        for (int h = 1; h <= harmonics; ++h) {
            const double f = h * pitch;
            weights[size_t(h)] = (1.0 + 3.0 * std::exp(-std::pow((f - formant1) / 150.0, 2.0)) +
                                  2.0 * std::exp(-std::pow((f - formant2) / 250.0, 2.0))) / h;
            total += weights[size_t(h)];
        }
        double phase = 0.0;
        for (size_t i = 0; i < count; ++i) {
            const double f0 = pitch * (1.0 + glide * double(i) / double(count));
            phase += 2.0 * 3.14159265358979 * f0 / m_rate;
            double value = 0.0;
            for (int h = 1; h <= harmonics; ++h) value += weights[size_t(h)] * std::sin(h * phase);
            m_mono.push_back(amplitude * Envelope(i, count) * value / total * 2.0);
        }
    }

    // Hiss above 3 kHz: white noise less a smoothed copy of itself.
    void Fricative(double seconds, double amplitude)
    {
        const size_t count = Count(seconds);
        double smooth = 0.0;
        const double pole = std::exp(-2.0 * 3.14159265358979 * 3000.0 / m_rate);
        for (size_t i = 0; i < count; ++i) {
            const double white = Gauss();
            smooth = pole * smooth + (1.0 - pole) * white;
            m_mono.push_back(amplitude * Envelope(i, count) * (white - smooth) * 0.5);
        }
    }

    template <typename Source>
    void AddNoise(double snrDb, Source source)
    {
        std::vector<double> noise(m_mono.size());
        double energy = 0.0;
        for (size_t i = 0; i < noise.size(); ++i) {
            noise[i] = source(i);
            energy += noise[i] * noise[i];
        }
        const double noisePower = energy / double(std::max<size_t>(1, noise.size()));
        const double speechPower = m_speechEnergy / double(std::max<size_t>(1, m_speechSamples));
        const double gain = std::sqrt(speechPower / noisePower * std::pow(10.0, -snrDb / 10.0));
        for (size_t i = 0; i < noise.size(); ++i) m_mono[i] += gain * noise[i];
    }

    int32_t m_rate;
    int32_t m_channels;
    std::mt19937 m_random;
    std::vector<double> m_mono;
    std::vector<TrueSentence> m_truth;
    double m_speechEnergy = 0.0;
    size_t m_speechSamples = 0;
};

}  // namespace sentence_signal
