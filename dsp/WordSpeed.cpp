#include "dsp/WordSpeed.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace {

constexpr size_t kFrameLength = 256;
constexpr size_t kHop = 128;
constexpr double kPreEmphasis = 0.9375;
constexpr double kCrossingDrop = 0.02;
constexpr double kCrossingThreshold = 5.0;
constexpr double kHighShare = 0.25;
constexpr double kLowShare = 0.125;
constexpr double kHighCeiling = 10.0;
constexpr double kLowCeiling = 2.0;
constexpr int32_t kPauseThatEnds = 8;
constexpr int32_t kShortestSegment = 15;
constexpr int32_t kQuietestPeak = 10;

// Frames of 256 with a hop of 128 in a sequence of `length`; the last 128
// samples start no frame of their own.
size_t FrameCount(size_t length) { return length > kHop ? (length - kHop) / kHop : 0; }

// The first channel as signed integers. Bytes count as signed too, so a
// stored 128 is -128 and not the zero line. Empty for a format it cannot read.
bool FirstChannel(const uint8_t* samples, uint32_t byteCount, uint16_t channels, uint16_t bitsPerSample,
                  std::vector<int32_t>& out) {
    if ((channels != 1 && channels != 2) || (bitsPerSample != 8 && bitsPerSample != 16)) return false;
    const size_t bytesPerSample = bitsPerSample / 8u;
    const size_t stride = bytesPerSample * channels;
    const size_t count = samples == nullptr ? 0 : byteCount / stride;
    out.resize(count);
    for (size_t k = 0; k < count; ++k) {
        const uint8_t* at = samples + k * stride;
        out[k] = bytesPerSample == 1 ? int32_t(int8_t(at[0])) : int32_t(int16_t(uint16_t(at[0] | (at[1] << 8))));
    }
    return true;
}

int32_t Peak(const std::vector<int32_t>& samples) {
    int32_t peak = -1;
    for (const int32_t sample : samples) peak = std::max(peak, std::abs(sample));
    return peak;
}

// Falling crossings only: a sample above zero followed by one below it,
// dropping by more than 0.02. A rising crossing never counts.
std::vector<float> FallingCrossings(const std::vector<float>& x) {
    const size_t frames = x.empty() ? 0 : FrameCount(x.size() - 1);
    std::vector<float> crossings(frames);
    for (size_t i = 0; i < frames; ++i) {
        int32_t count = 0;
        for (size_t p = i * kHop; p < i * kHop + kFrameLength; ++p) {
            const double sample = x[p];
            const double successor = x[p + 1];
            if (sample * successor < 0.0 && sample - successor > kCrossingDrop) ++count;
        }
        crossings[i] = float(count);
    }
    return crossings;
}

std::vector<float> Energies(const std::vector<float>& x) {
    std::vector<float> emphasised(x.size());
    if (!x.empty()) emphasised[0] = x[0];
    for (size_t k = 1; k < x.size(); ++k) emphasised[k] = float(double(x[k]) - kPreEmphasis * double(x[k - 1]));
    std::vector<float> energies(FrameCount(x.size()));
    for (size_t i = 0; i < energies.size(); ++i) {
        float sum = 0.0f;
        for (size_t p = i * kHop; p < i * kHop + kFrameLength; ++p) sum = sum + std::fabs(emphasised[p]);
        energies[i] = sum;
    }
    return energies;
}

// Runs the endpoint detector over the frames and counts the segments it closes.
class SegmentCounter {
public:
    SegmentCounter(float high, float low) : m_high(high), m_low(low) {}

    void Step(float energy, float crossings) {
        const bool voiced = energy > m_low || double(crossings) > kCrossingThreshold;
        switch (m_state) {
        case State::Silence:
        case State::MaybeSpeech:
            if (energy > m_high) {
                m_silence = 0;
                ++m_count;
                m_state = State::Speech;
            } else if (voiced) {
                ++m_count;
                m_state = State::MaybeSpeech;
            } else {
                m_count = 0;
                m_state = State::Silence;
            }
            break;
        case State::Speech:
            if (voiced) {
                ++m_count;
            } else if (m_silence + 1 < kPauseThatEnds) {
                ++m_silence;
                ++m_count;
            } else if (m_count < kShortestSegment) {
                m_silence = 0;
                m_count = 0;
                m_state = State::Silence;
            } else {
                ++m_silence;
                m_state = State::Ended;
            }
            break;
        case State::Ended:
            // This frame only closes the segment; it is lost to the next one.
            ++m_segments;
            m_silence = 0;
            m_count = 0;
            m_state = State::Silence;
            break;
        }
    }

    int32_t Segments() const { return m_segments; }

private:
    enum class State { Silence, MaybeSpeech, Speech, Ended };
    const float m_high;
    const float m_low;
    State m_state = State::Silence;
    int32_t m_count = 0;
    int32_t m_silence = 0;
    int32_t m_segments = 0;
};

int32_t TruncateToInt32(double value) {
    if (!(value > double(INT32_MIN) - 1.0)) return value != value ? 0 : INT32_MIN;
    if (!(value < double(INT32_MAX) + 1.0)) return INT32_MAX;
    return int32_t(value);
}

}  // namespace

int32_t EstimateWordSpeed(const uint8_t* samples, uint32_t byteCount, uint16_t channels, uint16_t bitsPerSample,
                          float wordsPerSegment, int32_t timeSpan) {
    std::vector<int32_t> channel;
    if (!FirstChannel(samples, byteCount, channels, bitsPerSample, channel)) return 0;
    const int32_t peak = Peak(channel);
    if (peak < kQuietestPeak) return 0;

    std::vector<float> x(channel.size());
    for (size_t k = 0; k < channel.size(); ++k) x[k] = float(channel[k]) / float(peak);
    channel = {};

    const std::vector<float> crossings = FallingCrossings(x);
    const std::vector<float> energies = Energies(x);

    float loudest = -1.0f;
    for (const float energy : energies) loudest = std::max(loudest, energy);
    const float high = float(std::min(kHighCeiling, double(loudest) * kHighShare));
    const float low = float(std::min(kLowCeiling, double(loudest) * kLowShare));

    SegmentCounter counter(high, low);
    for (size_t i = 0; i < energies.size(); ++i) {
        // A length that is a multiple of 128 leaves the last energy frame
        // without a crossing frame; it counts as having no crossings.
        counter.Step(energies[i], i < crossings.size() ? crossings[i] : 0.0f);
    }

    const int32_t segments = counter.Segments();
    // The host gives a positive span; anything else has no rate to give.
    if (segments == 0 || timeSpan <= 0) return 0;
    return TruncateToInt32(double(segments) * double(wordsPerSegment) * 60.0 / double(timeSpan));
}

WordSpeedStretch PlanWordSpeedStretch(const WordSpeedStretchRequest& request) {
    WordSpeedStretch stretch;
    stretch.n = request.playTimeMs / 60000u + 1u;
    // One second per minute of play: the stretch starts n seconds in.
    uint64_t start = uint64_t(request.avgBytesPerSec) * stretch.n;

    int64_t dataLength = request.dataChunkLength;
    if (dataLength == 0) {
        dataLength = request.fileLength - int64_t(request.formatLength) - int64_t(request.factExtra) - 20;
        dataLength = std::clamp<int64_t>(dataLength, 0, UINT32_MAX);
    }
    stretch.dataChunkLength = uint32_t(dataLength);

    // A block alignment of 0 aligns nothing.
    if (request.blockAlign != 0 && start % request.blockAlign != 0)
        start = (start / request.blockAlign + 1) * request.blockAlign;

    stretch.seekFromEnd = int64_t(start) - dataLength;
    // A data length beyond the file would put the seek before its start.
    stretch.position = std::max<int64_t>(request.fileLength + stretch.seekFromEnd, 0);

    if (request.timeSpan <= 0) return stretch;
    int64_t size = int64_t(request.avgBytesPerSec) * request.timeSpan;
    if (stretch.position + size >= request.fileLength) size = std::max<int64_t>(request.fileLength - stretch.position, 0);
    stretch.size = uint32_t(std::min<int64_t>(size, UINT32_MAX));
    return stretch;
}
