#include "dsp/SyllableRate.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kHopSamples = 80;  // 10 ms at 8 kHz
constexpr int kVoiceWindowLength = 160;

// The three loudness bands: the first formant's range, the lower and the
// upper part of the second's.
constexpr double kBandEdgesHz[] = {300.0, 700.0, 1400.0, 2500.0};
// Each band's power is smoothed by a low-pass filter, not summed over
// hops: a sum over a fixed stretch holds one glottal pulse or two as the
// pitch drifts, a ripple of up to 3 dB at a low voice, while the filter
// takes the pulses of a 100 Hz voice down by 24 dB. It settles in about
// 20 ms, short enough to keep the dip between two syllables of fast speech.
constexpr double kEnvelopeHz = 25.0;
// A nucleus stands at least this far above the lowest point on each side.
constexpr double kDipDb = 2.0;
// ... and no more than this far below the voice's recent loudness, which
// falls by kLoudDecayDbPerHop when no louder voice renews it (5 dB a
// second), so that a quieter speaker after a loud one is heard.
constexpr double kPeakBelowLoudDb = 12.0;
constexpr double kLoudDecayDbPerHop = 0.05;
// A voiced hop within this far below the recent loudness is speech time.
constexpr double kSpeechBelowLoudDb = 30.0;
// The voice is periodic where the normalised autocorrelation reaches this.
// A nucleus needs the voice at its own hop: the click of a voice that
// starts abruptly peaks a hop before the voicing window fills.
constexpr double kVoicedCorrelation = 0.5;
// Above 8 kHz the mean is cut below the analysis rate's half before it is
// sampled again, steeply (eighth order): a fricative's hiss at 5 to 7 kHz
// would otherwise fold into the loudness bands, more or less of it with the
// file's own rate.
constexpr double kAntiAliasHz = 3400.0;
// Below this mean square (-120 dB of full scale) the voice band is digital
// silence, where the correlation means nothing. Any higher floor would
// depend on the recording's level; quiet hiss and hum are kept out by the
// loudness gates, which are relative.
constexpr double kQuietMeanSquare = 1e-12;

// The usual bilinear designs of second-order sections, frequency prewarped,
// coefficients divided by a0.
template <typename Section>
void DesignSection(Section& s, double cornerHz, double rate, double q, bool highPass)
{
    const double w = 2.0 * kPi * cornerHz / rate;
    const double alpha = std::sin(w) / (2.0 * q);
    const double c = std::cos(w);
    const double a0 = 1.0 + alpha;
    const double edge = highPass ? (1.0 + c) : (1.0 - c);
    s.b0 = edge / 2.0 / a0;
    s.b1 = (highPass ? -edge : edge) / a0;
    s.b2 = edge / 2.0 / a0;
    s.a1 = -2.0 * c / a0;
    s.a2 = (1.0 - alpha) / a0;
    s.Clear();
}

// The quality factors of second-order and fourth-order Butterworth responses.
constexpr double kButterworth2Q = 0.70710678;
constexpr double kButterworth4Q1 = 0.54119610;
constexpr double kButterworth4Q2 = 1.30656296;
constexpr double kButterworth8Q[4] = {0.50979558, 0.60134489, 0.89997622, 2.56291545};

// Sum of a[i] * b[i] over one voicing window, in eight partial sums so that
// the adds do not wait on each other (and the compiler may vectorise them).
double WindowDot(const float* a, const float* b)
{
    static_assert(kVoiceWindowLength % 8 == 0);
    float s[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    for (int i = 0; i < kVoiceWindowLength; i += 8)
        for (int k = 0; k < 8; ++k) s[k] += a[i + k] * b[i + k];
    return double(((s[0] + s[4]) + (s[1] + s[5])) + ((s[2] + s[6]) + (s[3] + s[7])));
}

double ToDecibels(double power) { return 10.0 * std::log10(power + 1e-12); }

}  // namespace

CSyllableCounter::CSyllableCounter() = default;

bool CSyllableCounter::Configure(uint32_t samplesPerSec, uint16_t channels)
{
    m_rate = 0;
    m_channels = 0;
    if (samplesPerSec < kMinRate || samplesPerSec > kMaxRate || channels == 0 || channels > kMaxChannels) return false;
    m_rate = samplesPerSec;
    m_channels = channels;
    for (size_t i = 0; i < m_antiAlias.size(); ++i)
        DesignSection(m_antiAlias[i], kAntiAliasHz, samplesPerSec, kButterworth8Q[i], false);
    for (int b = 0; b < kBandCount; ++b) {
        DesignSection(m_envelope[b], kEnvelopeHz, kAnalysisRate, kButterworth2Q, false);
        DesignSection(m_bands[b][0], kBandEdgesHz[b], kAnalysisRate, kButterworth2Q, true);
        DesignSection(m_bands[b][1], kBandEdgesHz[b + 1], kAnalysisRate, kButterworth2Q, false);
    }
    // The voice band keeps the fundamental and the first harmonics, where
    // the period shows most clearly and where little noise of a
    // fricative lies.
    DesignSection(m_voiceBand[0], 80.0, kAnalysisRate, kButterworth2Q, true);
    DesignSection(m_voiceBand[1], 900.0, kAnalysisRate, kButterworth4Q1, false);
    DesignSection(m_voiceBand[2], 900.0, kAnalysisRate, kButterworth4Q2, false);
    Reset();
    return true;
}

void CSyllableCounter::Reset()
{
    for (Biquad& s : m_antiAlias) s.Clear();
    for (auto& band : m_bands)
        for (Biquad& s : band) s.Clear();
    for (Biquad& s : m_voiceBand) s.Clear();
    m_inputIndex = 0;
    m_outputIndex = 0;
    m_previousMean = 0.0;
    m_oddVoiceSample = false;
    m_voice.fill(0.0f);
    m_voiceWrite = 0;
    for (Biquad& s : m_envelope) s.Clear();
    m_power.fill(0.0);
    m_hopFill = 0;
    m_hopIndex = 0;
    m_hopLevel.fill(kSilentDb);
    m_loud = kSilentDb;
    m_rising = false;
    m_extreme = kSilentDb;
    m_extremeVoiced = false;
    m_nuclei = 0;
    m_speechHops = 0;
    m_lastSpeechHop = -1;
    m_newNuclei = 0;
}

uint32_t CSyllableCounter::Feed(const int16_t* samples, size_t frameCount)
{
    m_newNuclei = 0;
    if (m_channels == 0 || samples == nullptr) return 0;
    const double scale = 1.0 / (32768.0 * m_channels);
    for (size_t f = 0; f < frameCount; ++f) {
        int32_t sum = 0;
        for (uint16_t c = 0; c < m_channels; ++c) sum += samples[f * m_channels + c];
        TakeMono(sum * scale);
    }
    return m_newNuclei;
}

uint32_t CSyllableCounter::FeedBytes(const uint8_t* data, size_t byteCount, uint16_t bitsPerSample)
{
    m_newNuclei = 0;
    if (m_channels == 0 || data == nullptr) return 0;
    if (bitsPerSample == 16) {
        const size_t frameBytes = size_t(2) * m_channels;
        const size_t frames = byteCount / frameBytes;
        const double scale = 1.0 / (32768.0 * m_channels);
        for (size_t f = 0; f < frames; ++f) {
            const uint8_t* frame = data + f * frameBytes;
            int32_t sum = 0;
            for (uint16_t c = 0; c < m_channels; ++c)
                sum += int16_t(uint16_t(frame[2 * c] | frame[2 * c + 1] << 8));
            TakeMono(sum * scale);
        }
    } else if (bitsPerSample == 8) {
        const size_t frames = byteCount / m_channels;
        const double scale = 1.0 / (128.0 * m_channels);
        for (size_t f = 0; f < frames; ++f) {
            int32_t sum = 0;
            for (uint16_t c = 0; c < m_channels; ++c) sum += int32_t(data[f * m_channels + c]) - 128;
            TakeMono(sum * scale);
        }
    }
    return m_newNuclei;
}

uint32_t CSyllableCounter::Finish()
{
    m_newNuclei = 0;
    if (m_channels == 0) return 0;
    // A tenth of a second of silence runs the smoothing and the voicing
    // window past the last sound and lets the loudness fall behind the
    // last peak.
    const uint32_t frames = m_rate / 10 + 1;
    for (uint32_t f = 0; f < frames; ++f) TakeMono(0.0);
    return m_newNuclei;
}

void CSyllableCounter::TakeMono(double mean)
{
    if (m_rate == kAnalysisRate) {
        TakeAnalysisSample(mean);
        return;
    }
    double y = mean;
    if (m_rate > kAnalysisRate) {
        for (Biquad& section : m_antiAlias) y = section.Step(y);
    }
    // The analysis samples that lie after the previous frame and at or
    // before this one, on the straight line between the two.
    const int64_t frame = int64_t(m_inputIndex);
    for (;;) {
        const int64_t placeTimes8k = int64_t(m_outputIndex) * int64_t(m_rate);
        if (placeTimes8k > frame * int64_t(kAnalysisRate)) break;
        const double fraction = double(placeTimes8k - (frame - 1) * int64_t(kAnalysisRate)) / kAnalysisRate;
        TakeAnalysisSample(m_previousMean + fraction * (y - m_previousMean));
        m_outputIndex += 1;
    }
    m_previousMean = y;
    m_inputIndex += 1;
}

void CSyllableCounter::TakeAnalysisSample(double x)
{
    for (int b = 0; b < kBandCount; ++b) {
        const double y = m_bands[b][1].Step(m_bands[b][0].Step(x));
        m_power[b] = m_envelope[b].Step(y * y);
    }
    const double voice = m_voiceBand[2].Step(m_voiceBand[1].Step(m_voiceBand[0].Step(x)));
    // Below 900 Hz every other sample is enough.
    if (m_oddVoiceSample) {
        m_voice[m_voiceWrite & (kVoiceHistory - 1)] = float(voice);
        m_voiceWrite += 1;
    }
    m_oddVoiceSample = !m_oddVoiceSample;
    if (++m_hopFill == kHopSamples) EndHop();
}

void CSyllableCounter::EndHop()
{
    const int64_t hop = m_hopIndex++;
    m_hopFill = 0;
    double now = 0.0;
    for (double power : m_power) now += ToDecibels(std::max(power, 0.0)) / kBandCount;
    m_hopLevel[hop & (kHopHistory - 1)] = now;
    // The voicing window that ends now is centred two hops back; the
    // envelope's filter lags by about one hop, so the level read one hop
    // back belongs to the same moment.
    const int64_t centre = hop - 2;
    if (centre < 0) return;
    const double level = m_hopLevel[(centre + 1) & (kHopHistory - 1)];
    const bool voiced = WindowIsVoiced();
    m_loud = std::max(m_loud - kLoudDecayDbPerHop, kSilentDb);
    if (voiced) m_loud = std::max(level, m_loud);
    if (voiced && level >= m_loud - kSpeechBelowLoudDb) CountSpeechHop(centre);
    PickPeak(level, voiced);
}

bool CSyllableCounter::WindowIsVoiced() const
{
    static_assert(kVoiceWindow == kVoiceWindowLength);
    constexpr int kSpan = kVoiceWindow + kMaxLag;
    if (m_voiceWrite < uint32_t(kSpan)) return false;
    float x[kSpan];
    const uint32_t start = m_voiceWrite - kSpan;
    for (int i = 0; i < kSpan; ++i) x[i] = m_voice[(start + uint32_t(i)) & (kVoiceHistory - 1)];
    const double head = WindowDot(x, x);
    if (head < kQuietMeanSquare * kVoiceWindow) return false;
    double lagged = WindowDot(x + kMinLag, x + kMinLag);
    double best = 0.0;
    for (int lag = kMinLag; lag <= kMaxLag; ++lag) {
        const double product = WindowDot(x, x + lag);
        if (lagged > 0.0) best = std::max(best, product / std::sqrt(head * lagged));
        if (lag < kMaxLag) {
            const double in = x[lag + kVoiceWindow];
            const double out = x[lag];
            lagged = std::max(lagged + in * in - out * out, 0.0);
        }
    }
    return best >= kVoicedCorrelation;
}

void CSyllableCounter::PickPeak(double level, bool voiced)
{
    if (m_rising) {
        if (level > m_extreme) {
            m_extreme = level;
            m_extremeVoiced = voiced;
        } else if (level < m_extreme - kDipDb) {
            // The peak stands out on both sides: a nucleus if the voice is
            // there and it is not far below the voice's recent loudness.
            if (m_extremeVoiced && m_extreme >= m_loud - kPeakBelowLoudDb) {
                m_nuclei += 1;
                m_newNuclei += 1;
            }
            m_rising = false;
            m_extreme = level;
        }
    } else if (level < m_extreme) {
        m_extreme = level;
    } else if (level > m_extreme + kDipDb) {
        m_rising = true;
        m_extreme = level;
        m_extremeVoiced = voiced;
    }
}

void CSyllableCounter::CountSpeechHop(int64_t hop)
{
    const int64_t cap = std::llround(kPauseCapSeconds / kHopSeconds);
    const int64_t gap = m_lastSpeechHop < 0 ? 0 : hop - m_lastSpeechHop - 1;
    m_speechHops += uint64_t(std::min(gap, cap)) + 1;
    m_lastSpeechHop = hop;
}

SpeakingRate MeasureSpeakingRate(const uint8_t* data, size_t byteCount, uint32_t samplesPerSec, uint16_t channels,
                                 uint16_t bitsPerSample)
{
    SpeakingRate rate;
    auto counter = std::make_unique<CSyllableCounter>();
    if (!counter->Configure(samplesPerSec, channels)) return rate;
    counter->FeedBytes(data, byteCount, bitsPerSample);
    counter->Finish();
    rate.speechSeconds = counter->SpeechSeconds();
    rate.syllables = rate.speechSeconds > 0.0 ? counter->Nuclei() : 0;
    return rate;
}

bool IsSyllablesPerWordValid(double ratio)
{
    return ratio >= kMinSyllablesPerWord && ratio <= kMaxSyllablesPerWord;
}

uint32_t CWordTally::Add(uint32_t nuclei)
{
    m_syllables += nuclei;
    const uint64_t words = uint64_t(double(m_syllables) / m_ratio);
    if (words <= m_words) return 0;
    const uint64_t added = words - m_words;
    m_words = words;
    return uint32_t(added);
}
