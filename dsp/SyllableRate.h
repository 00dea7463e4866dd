#pragma once
#include <array>
#include <cstddef>
#include <cstdint>

// How fast a recording is spoken, from its syllables.
//
// A syllable is counted at each nucleus: a peak of the voice's loudness in
// the region that carries the vowels (300 to 2500 Hz, the mean in decibels
// of three bands, each smoothed over about 20 ms), standing at least 2 dB
// above the dips either side of it, at a place where the voice is periodic
// and no more than 12 dB below the voice's recent loudness. Unvoiced
// bursts, fricatives and noise have no pitch period and are not counted,
// however loud. Everything is measured in decibels against the recent
// loudness of the voice, so the level of the recording does not matter.
//
// The rate is syllables per second of speech time: from the first voiced
// moment to the last, with every pause cut to at most kPauseCapSeconds, so
// that a long silence between sentences does not slow the rate while the
// short gaps of running speech (stops, breaths) count as speech.
//
// Formats and units
//   Input is signed 16-bit interleaved samples in host byte order (or 8-bit
//   unsigned through FeedBytes), 1 to kMaxChannels channels, kMinRate to
//   kMaxRate frames per second. The channels are averaged and the mean is
//   taken down to a fixed analysis rate of 8 kHz, so the count of one
//   recording does not depend on its rate or channel count. Analysis runs in
//   hops of 10 ms.
//
// Memory and threads
//   The object holds every buffer it uses; no call allocates, locks or
//   blocks, so Feed may run on an audio thread. One object is used by one
//   thread at a time.
//
// Latency
//   A nucleus is counted once the loudness has fallen again behind it, about
//   30 to 100 ms after the peak at normal rates. Finish() settles the last
//   one at the end of a stream.
class CSyllableCounter {
public:
    static constexpr uint32_t kMinRate = 4000;
    static constexpr uint32_t kMaxRate = 192000;
    static constexpr uint16_t kMaxChannels = 8;
    static constexpr double kAnalysisRate = 8000.0;
    static constexpr double kHopSeconds = 0.01;
    static constexpr double kPauseCapSeconds = 0.3;

    // A fresh counter has no format: Feed counts nothing until Configure.
    CSyllableCounter();

    // Sets the format and starts afresh. False, with the counter unusable
    // until the next good call, for a rate or channel count out of range.
    bool Configure(uint32_t samplesPerSec, uint16_t channels);
    bool IsConfigured() const { return m_channels > 0; }

    // Forgets the stream so far (a seek, a loop back): totals go to 0.
    void Reset();

    // Takes `frameCount` frames of interleaved 16-bit samples. Answers the
    // nuclei that became certain during the call.
    uint32_t Feed(const int16_t* samples, size_t frameCount);
    // The same for samples as stored in a file: 16-bit little-endian or
    // 8-bit unsigned; a torn last frame is ignored, other widths count
    // nothing.
    uint32_t FeedBytes(const uint8_t* data, size_t byteCount, uint16_t bitsPerSample);
    // Ends the stream with a short silence, which settles the last nucleus
    // and the speech time. Answers the nuclei it settled.
    uint32_t Finish();

    // Totals since Configure or Reset.
    uint64_t Nuclei() const { return m_nuclei; }
    double SpeechSeconds() const { return double(m_speechHops) * kHopSeconds; }
    // Where the last hop of speech so far began, in seconds from the start
    // of the stream (within a hop or two); negative before any speech.
    double LastSpeechSeconds() const { return m_lastSpeechHop < 0 ? -1.0 : double(m_lastSpeechHop) * kHopSeconds; }

private:
    struct Biquad {
        double b0 = 1.0, b1 = 0.0, b2 = 0.0, a1 = 0.0, a2 = 0.0;
        double z1 = 0.0, z2 = 0.0;
        double Step(double x)
        {
            const double y = b0 * x + z1;
            z1 = b1 * x - a1 * y + z2;
            z2 = b2 * x - a2 * y;
            return y;
        }
        void Clear() { z1 = z2 = 0.0; }
    };

    // Loudness is measured in three bands across the vowel region; a
    // consonant between two vowels takes its dip in at least one of them.
    static constexpr int kBandCount = 3;
    // Voicing: normalised autocorrelation on the voice band at 4 kHz over a
    // 40 ms window, for periods of 2.25 to 20 ms (50 to about 450 Hz).
    static constexpr int kVoiceWindow = 160;
    static constexpr int kMinLag = 9;
    static constexpr int kMaxLag = 80;
    static constexpr int kVoiceHistory = 256;  // power of two, > window + lag
    // Hops whose loudness is remembered until their voicing is known.
    static constexpr int kHopHistory = 16;  // power of two
    static constexpr double kSilentDb = -200.0;

    void TakeMono(double mean);
    void TakeAnalysisSample(double x);
    void EndHop();
    bool WindowIsVoiced() const;
    void PickPeak(double level, bool voiced);
    void CountSpeechHop(int64_t hop);

    // Format.
    uint32_t m_rate = 0;
    uint16_t m_channels = 0;

    // Taking the mean of the channels down to 8 kHz: analysis sample k lies
    // at input position k * rate / 8000, kept in whole numbers so that
    // hours of input do not drift.
    std::array<Biquad, 4> m_antiAlias;
    uint64_t m_inputIndex = 0;
    uint64_t m_outputIndex = 0;
    double m_previousMean = 0.0;

    // The analysis at 8 kHz.
    std::array<std::array<Biquad, 2>, kBandCount> m_bands;
    std::array<Biquad, 3> m_voiceBand;
    bool m_oddVoiceSample = false;
    std::array<float, kVoiceHistory> m_voice{};
    uint32_t m_voiceWrite = 0;
    std::array<Biquad, kBandCount> m_envelope;
    std::array<double, kBandCount> m_power{};
    int m_hopFill = 0;
    int64_t m_hopIndex = 0;
    std::array<double, kHopHistory> m_hopLevel{};

    // Peak picking on the smoothed loudness in dB: the voice's recent
    // loudness, whether the contour is rising, and the highest (rising) or
    // lowest (falling) point since it turned.
    double m_loud = kSilentDb;
    bool m_rising = false;
    double m_extreme = kSilentDb;
    bool m_extremeVoiced = false;

    // Totals.
    uint64_t m_nuclei = 0;
    uint64_t m_speechHops = 0;
    int64_t m_lastSpeechHop = -1;
    uint32_t m_newNuclei = 0;

};

// A measured rate: syllables over speech time.
struct SpeakingRate {
    uint64_t syllables = 0;
    double speechSeconds = 0.0;
    double SyllablesPerSecond() const { return speechSeconds > 0.0 ? double(syllables) / speechSeconds : 0.0; }
    double WordsPerMinute(double syllablesPerWord) const
    {
        return syllablesPerWord > 0.0 ? SyllablesPerSecond() * 60.0 / syllablesPerWord : 0.0;
    }
};

// The whole of a stretch as stored in a file, 8- or 16-bit PCM. An empty
// stretch, a format out of range or a stretch without voice gives 0 of both.
SpeakingRate MeasureSpeakingRate(const uint8_t* data, size_t byteCount, uint32_t samplesPerSec, uint16_t channels,
                                 uint16_t bitsPerSample);

// Syllables per word: English prose averages about 1.45; other languages
// (or a learner's simpler texts) need their own figure.
constexpr double kDefaultSyllablesPerWord = 1.45;
constexpr double kMinSyllablesPerWord = 1.0;
constexpr double kMaxSyllablesPerWord = 8.0;
bool IsSyllablesPerWordValid(double ratio);

// Turns nuclei, as they come, into whole words: the fraction of a word left
// over is carried to the next call, so the words handed out over a stream
// add up to its syllables / ratio, rounded down.
class CWordTally {
public:
    void SetSyllablesPerWord(double ratio) { m_ratio = ratio; }
    void Clear()
    {
        m_syllables = 0;
        m_words = 0;
    }
    // The whole words that the new nuclei complete.
    uint32_t Add(uint32_t nuclei);

private:
    double m_ratio = kDefaultSyllablesPerWord;
    uint64_t m_syllables = 0;
    uint64_t m_words = 0;
};
