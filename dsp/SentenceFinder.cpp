#include "dsp/SentenceFinder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>

namespace sentence_detail {

// ---------------------------------------------------------------- percentile

CSlidingPercentile::CSlidingPercentile(float percentile, float stepDb)
    : m_percentile(percentile), m_stepDb(stepDb), m_perStep(1.0f / stepDb),
      m_histogram(static_cast<size_t>(kRangeDb / stepDb), 0)
{
}

size_t CSlidingPercentile::Step(float db) const
{
    const float step = (db - kLowestDb) * m_perStep;
    if (!(step > 0.0f)) return 0;  // also NaN
    // Truncation is the floor of a positive value.
    const size_t last = m_histogram.size() - 1;
    return step >= float(last) ? last : static_cast<size_t>(step);
}

void CSlidingPercentile::Add(float db)
{
    const size_t step = Step(db);
    m_histogram[step] += 1;
    m_count += 1;
    if (step < m_cursor) m_below += 1;
}

void CSlidingPercentile::Remove(float db)
{
    const size_t step = Step(db);
    if (m_histogram[step] == 0) return;
    m_histogram[step] -= 1;
    m_count -= 1;
    if (step < m_cursor) m_below -= 1;
}

float CSlidingPercentile::Value()
{
    return kLowestDb + float(ValueStep()) * m_stepDb;
}

size_t CSlidingPercentile::ValueStep()
{
    if (m_count == 0) return 0;
    // The value of rank floor(p * (count - 1)), counting from 0: the cursor
    // moves to the step that holds it.
    const size_t rank = static_cast<size_t>(m_percentile / 100.0f * float(m_count - 1));
    while (m_below > rank) {
        m_cursor -= 1;
        m_below -= m_histogram[m_cursor];
    }
    while (m_below + m_histogram[m_cursor] <= rank) {
        m_below += m_histogram[m_cursor];
        m_cursor += 1;
    }
    return m_cursor;
}

// ---------------------------------------------------------------- segmenter

namespace {

constexpr int64_t kSyllableFrames = 10;

}  // namespace

CPauseSegmenter::CPauseSegmenter(const FinderTuning& tuning, int64_t minPauseFrames, int64_t minSentenceFrames)
    : m_tuning(tuning), m_minPause(minPauseFrames), m_minSentence(minSentenceFrames),
      m_holeFrames(std::max<int64_t>(0, std::lround(tuning.edgeHoleMs / 10.0)))
{
}

void CPauseSegmenter::Push(float score, float levelDb)
{
    const int64_t frame = m_frame++;
    if (score > m_tuning.edgeScore) {
        if (!m_inRun) {
            m_inRun = true;
            m_runHasSpeech = false;
            m_runFirst = frame;
            m_runPeakDb = levelDb;
        }
        m_runEnd = frame + 1;
        m_runPeakDb = std::max(m_runPeakDb, levelDb);
        if (score > m_tuning.speechScore) m_runHasSpeech = true;
    } else if (m_inRun && frame - m_runEnd >= m_holeFrames) {
        // Weak speech in noise flickers about the edge score: a dip shorter
        // than a hole leaves the run open.
        CloseRun(m_runEnd);
    }
    // A sentence is complete once a whole minimum pause has gone by after it.
    if (m_pending && !m_inRun && frame + 1 - m_open.end >= m_minPause) Emit();
}

void CPauseSegmenter::Finish()
{
    if (m_inRun) CloseRun(m_runEnd);
    if (m_pending) Emit();
}

void CPauseSegmenter::CloseRun(int64_t end)
{
    m_inRun = false;
    if (m_runHasSpeech) TakeStretch(m_runFirst, end, m_runPeakDb);
}

void CPauseSegmenter::TakeStretch(int64_t first, int64_t end, float peakDb)
{
    // The reference decays by 1 dB a second (100 frames), so that a speaker
    // far quieter than the one before is heard again after a while.
    const float reference = m_speechPeakDb - float(first - m_speechPeakFrame) / 100.0f;
    if (m_haveSpeechLevel && peakDb < reference - m_tuning.quietRejectDb) return;
    // A click is loud but no voice: only a stretch as long as a syllable
    // sets the reference.
    if (end - first >= kSyllableFrames && (!m_haveSpeechLevel || peakDb > reference)) {
        m_speechPeakDb = peakDb;
        m_speechPeakFrame = first;
        m_haveSpeechLevel = true;
    }
    if (m_pending && first - m_open.end < m_minPause) {
        m_open.end = end;
        return;
    }
    if (m_pending) Emit();
    m_open = {first, end};
    m_pending = true;
}

void CPauseSegmenter::Emit()
{
    if (m_open.end - m_open.first >= m_minSentence) m_sentences.push_back(m_open);
    m_pending = false;
}

}  // namespace sentence_detail

// ---------------------------------------------------------------- the finder

using namespace sentence_detail;

namespace {

constexpr double kFrameSeconds = 0.010;
constexpr double kLowestBandHz = 150.0;
constexpr double kHighestBandHz = 7600.0;
constexpr size_t kBandCount = 20;
// The analysis runs at 12 to 24 kHz whatever the input (lower rates as they
// are): enough for the fricatives at the edges of sentences, and cheap at
// 44.1 and 48 kHz.
constexpr uint32_t kAnalysisRateCeiling = 24000;
// Keeps the level of digital silence finite: far below the noise of any
// 16-bit recording.
constexpr float kSilencePower = 0.01f;
// Bins' levels for the steady lines are held to 1 dB: plenty for a margin
// of several, and a small histogram per bin.
constexpr float kBinStepDb = 1.0f;

float PowerToDb(double power)
{
    return 10.0f * std::log10(float(power) + kSilencePower);
}

float DbToPower(float db)
{
    return std::pow(10.0f, db / 10.0f);
}

// PowerToDb to within 0.005 dB, for the many bins of every frame: the
// float's exponent, and a cubic for the log2 of its mantissa in [1, 2).
float QuickPowerToDb(float power)
{
    const float value = power + kSilencePower;
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const int exponent = int((bits >> 23) & 0xFFu) - 127;
    bits = (bits & 0x7FFFFFu) | 0x3F800000u;
    float mantissa;
    std::memcpy(&mantissa, &bits, sizeof mantissa);
    const float log2Mantissa = ((0.153913535f * mantissa - 1.02949275f) * mantissa + 3.01073029f) * mantissa - 2.13381654f;
    return (float(exponent) + log2Mantissa) * 3.01029996f;
}

int64_t MsToFrames(double ms)
{
    return std::lround(ms / 1000.0 / kFrameSeconds);
}

}  // namespace

struct CSentenceFinder::State {
    // Input: channels mixed, low-passed and decimated to the analysis rate.
    uint16_t channels = 1;
    uint32_t decimation = 1;
    uint32_t phase = 0;  // samples are kept where the phase is 0
    int64_t framesFed = 0;
    Biquad antiAlias[2];
    // Analysis frames: `window` samples every `hop`, the first centred on
    // input frame 0.
    size_t hop = 0;
    std::vector<float> window;
    size_t filled = 0;
    CPowerSpectrum spectrum{256};
    std::vector<float> power;
    std::vector<BinRange> bands;
    size_t firstBin = 0;
    size_t binCount = 0;
    // The frames around the one being scored, in rings of `ringFrames`:
    // each bin's power, its steady power up to that frame, each band's
    // level and the frame's level.
    size_t ringFrames = 0;
    int64_t halfWindow = 0;
    int64_t steadyFrames = 0;
    float steadyHeadroom = 1.0f;
    std::vector<float> binPower;
    std::vector<float> binDb;
    std::vector<float> binSteady;
    std::vector<float> bandDb;
    std::vector<float> frameDb;
    // The sliding statistics: one floor per band, one steady level per bin.
    std::vector<CSlidingPercentile> floors;
    std::vector<float> floorToMeanDb;
    std::vector<CSlidingPercentile> steady;
    std::vector<float> steadyStepPower;
    int64_t analysed = 0;  // frames whose spectrum is known
    int64_t scored = 0;    // frames handed to the segmenter
    // Sentence margins, in frames.
    int64_t startPad = 0;
    int64_t endPad = 0;
    FinderTuning tuning;
    CPauseSegmenter segmenter;
    std::vector<SentenceSpan> sentences;
    bool finished = false;

    State(const FinderTuning& t, int64_t minPause, int64_t minSentence) : tuning(t), segmenter(t, minPause, minSentence) {}

    void TakeSample(float value);
    void AnalyseFrame();
    float SteadyPower(int64_t centre, size_t bin) const;
    void ScoreFrame(int64_t centre);
    void CollectSentences();
    size_t Slot(int64_t frame) const { return size_t(frame % int64_t(ringFrames)); }
};

CSentenceFinder::CSentenceFinder(uint32_t samplesPerSec, uint16_t channels, const SentenceFinderSettings& settings)
{
    if (samplesPerSec < kLowestRate)
        throw std::invalid_argument("sample rate " + std::to_string(samplesPerSec) + " Hz is below " +
                                    std::to_string(kLowestRate) + " Hz");
    if (channels == 0) throw std::invalid_argument("no channels");
    if (settings.minPauseMs < 50 || settings.minPauseMs > 60000)
        throw std::invalid_argument("minimum pause must be 50 to 60000 ms, got " + std::to_string(settings.minPauseMs));
    if (settings.minSentenceMs < 0 || settings.minSentenceMs > 60000)
        throw std::invalid_argument("minimum sentence must be 0 to 60000 ms, got " +
                                    std::to_string(settings.minSentenceMs));

    const FinderTuning& tuning = settings.tuning;
    const int64_t minPauseFrames = std::max<int64_t>(1, MsToFrames(settings.minPauseMs));
    m_state = std::make_unique<State>(tuning, minPauseFrames, MsToFrames(settings.minSentenceMs));
    State& s = *m_state;
    s.channels = channels;
    s.decimation = (samplesPerSec + kAnalysisRateCeiling - 1) / kAnalysisRateCeiling;
    const double rate = double(samplesPerSec) / s.decimation;
    if (s.decimation > 1) {
        // Fourth-order Butterworth below the new Nyquist frequency.
        const double cutoff = 0.45 * rate;
        s.antiAlias[0] = Biquad::LowPass(cutoff, samplesPerSec, 0.54119610);
        s.antiAlias[1] = Biquad::LowPass(cutoff, samplesPerSec, 1.30656296);
    }
    s.hop = static_cast<size_t>(std::lround(rate * kFrameSeconds));
    // 21 to 32 ms: long enough to resolve the harmonics of a voice.
    const size_t fftSize = rate > 12000.0 ? 512 : 256;
    s.spectrum = CPowerSpectrum(fftSize);
    s.power.assign(fftSize / 2 + 1, 0.0f);
    s.window.assign(fftSize, 0.0f);
    // Half a window of silence ahead, so that frame 0 is centred on the
    // first sample.
    s.filled = fftSize / 2;
    s.bands = LogBands(kLowestBandHz, std::min(kHighestBandHz, 0.47 * rate), kBandCount, fftSize, rate);
    s.firstBin = s.bands.front().first;
    s.binCount = s.bands.back().end - s.firstBin;

    s.halfWindow = std::max<int64_t>(1, MsToFrames(tuning.floorWindowMs / 2.0));
    s.steadyFrames = std::clamp<int64_t>(MsToFrames(tuning.steadyMs), 0, s.halfWindow);
    s.steadyHeadroom = DbToPower(tuning.steadyHeadroomDb);
    s.ringFrames = size_t(2 * s.halfWindow + 1);
    s.binPower.assign(s.ringFrames * s.binCount, 0.0f);
    s.binDb.assign(s.ringFrames * s.binCount, 0.0f);
    s.binSteady.assign(s.ringFrames * s.binCount, 0.0f);
    s.bandDb.assign(s.ringFrames * s.bands.size(), 0.0f);
    s.frameDb.assign(s.ringFrames, 0.0f);
    s.floors.assign(s.bands.size(), CSlidingPercentile(tuning.floorPercentile));
    for (const BinRange& band : s.bands) {
        // Neighbouring bins under a Hann window are not independent: the
        // window spreads each over 1.5 bins.
        const double independent = double(band.end - band.first) / 1.5;
        s.floorToMeanDb.push_back(NoiseMeanAbovePercentileDb(independent, tuning.floorPercentile));
    }
    if (s.steadyFrames > 0) {
        s.steady.assign(s.binCount, CSlidingPercentile(tuning.steadyPercentile, kBinStepDb));
        // The power of each step of the bins' histograms, looked up rather
        // than raised for every bin of every frame.
        for (float db = CSlidingPercentile::kLowestDb; db < CSlidingPercentile::kLowestDb + CSlidingPercentile::kRangeDb;
             db += kBinStepDb)
            s.steadyStepPower.push_back(DbToPower(db));
    }
    s.startPad = std::clamp<int64_t>(MsToFrames(tuning.startPadMs), 0, minPauseFrames / 2);
    s.endPad = std::clamp<int64_t>(MsToFrames(tuning.endPadMs), 0, minPauseFrames / 2);
}

CSentenceFinder::~CSentenceFinder() = default;

void CSentenceFinder::Feed(const int16_t* samples, size_t frameCount)
{
    State& s = *m_state;
    if (s.finished) return;
    const float scale = 1.0f / float(s.channels);
    for (size_t i = 0; i < frameCount; ++i) {
        int32_t sum = 0;
        for (uint16_t c = 0; c < s.channels; ++c) sum += samples[i * s.channels + c];
        float value = float(sum) * scale;
        if (s.decimation > 1) {
            // Every decimation-th filtered sample, from the first on.
            value = s.antiAlias[1].Step(s.antiAlias[0].Step(value));
            const bool keep = s.phase == 0;
            s.phase = (s.phase + 1) % s.decimation;
            if (!keep) continue;
        }
        s.TakeSample(value);
    }
    s.framesFed += int64_t(frameCount);
    s.CollectSentences();
}

void CSentenceFinder::State::TakeSample(float value)
{
    window[filled++] = value;
    if (filled < window.size()) return;
    AnalyseFrame();
    // Keep the overlap for the next frame.
    std::copy(window.begin() + ptrdiff_t(hop), window.end(), window.begin());
    filled = window.size() - hop;
}

void CSentenceFinder::State::AnalyseFrame()
{
    spectrum.Compute(window.data(), power.data());
    const int64_t frame = analysed++;
    const size_t slot = Slot(frame);
    std::copy(power.begin() + ptrdiff_t(firstBin), power.begin() + ptrdiff_t(firstBin + binCount),
              binPower.begin() + ptrdiff_t(slot * binCount));
    if (steadyFrames > 0) {
        // The steady level of each bin over the reach up to this frame.
        const int64_t leaving = frame - steadyFrames - 1;
        for (size_t k = 0; k < binCount; ++k) {
            const float db = QuickPowerToDb(power[firstBin + k]);
            binDb[slot * binCount + k] = db;
            steady[k].Add(db);
            if (leaving >= 0) steady[k].Remove(binDb[Slot(leaving) * binCount + k]);
            binSteady[slot * binCount + k] = steadyStepPower[steady[k].ValueStep()];
        }
    }
    float* levels = &bandDb[slot * bands.size()];
    double total = 0.0;
    for (size_t b = 0; b < bands.size(); ++b) {
        double sum = 0.0;
        for (size_t k = bands[b].first; k < bands[b].end; ++k) sum += power[k];
        total += sum;
        // Mean power per bin, so that wide and narrow bands read alike.
        levels[b] = PowerToDb(sum / double(bands[b].end - bands[b].first));
        floors[b].Add(levels[b]);
    }
    frameDb[slot] = PowerToDb(total);
    // The floors now hold the frames up to this one: the frame half a window
    // back has its whole window.
    const int64_t centre = frame - halfWindow;
    if (centre >= 0) ScoreFrame(centre);
}

// A line that holds its power on either side of the frame is background:
// its steady power over the reach before the frame, or over the reach after
// it (the steady power up to the frame a reach later), whichever is higher.
// Speech never holds a line that long: its pitch moves and its syllables
// come and go. Near the end of the input, where no frame a reach later
// exists, only the side before counts.
float CSentenceFinder::State::SteadyPower(int64_t centre, size_t bin) const
{
    const float before = binSteady[Slot(centre) * binCount + bin];
    if (centre + steadyFrames >= analysed) return before;
    return std::max(before, binSteady[Slot(centre + steadyFrames) * binCount + bin]);
}

void CSentenceFinder::State::ScoreFrame(int64_t centre)
{
    const float* bins = &binPower[Slot(centre) * binCount];
    float sum = 0.0f;
    for (size_t b = 0; b < bands.size(); ++b) {
        // The floor is a low percentile: the noise's mean lies above it.
        const float floorPower = DbToPower(floors[b].Value() + floorToMeanDb[b]);
        double heard = 0.0;
        double background = 0.0;
        for (size_t k = bands[b].first; k < bands[b].end; ++k) {
            const size_t bin = k - firstBin;
            float expected = floorPower;
            if (steadyFrames > 0) expected = std::max(expected, SteadyPower(centre, bin) * steadyHeadroom);
            heard += bins[bin];
            background += expected;
        }
        const float excess = PowerToDb(heard) - PowerToDb(background) - tuning.bandOffsetDb;
        sum += std::clamp(excess, 0.0f, tuning.bandCapDb);
    }
    segmenter.Push(sum / float(bands.size()), frameDb[Slot(centre)]);
    scored = centre + 1;
    // The frame that leaves the floors' window before the next centre.
    const int64_t leaving = centre - halfWindow;
    if (leaving >= 0) {
        const float* old = &bandDb[Slot(leaving) * bands.size()];
        for (size_t b = 0; b < bands.size(); ++b) floors[b].Remove(old[b]);
    }
}

void CSentenceFinder::State::CollectSentences()
{
    // Frame t stands for samples [t - 1/2, t + 1/2) hops of the analysis
    // rate, each the decimation in input frames.
    const std::vector<CPauseSegmenter::Range>& ranges = segmenter.Sentences();
    const double inputPerFrame = double(hop) * decimation;
    for (size_t i = sentences.size(); i < ranges.size(); ++i) {
        const int64_t start = std::llround((double(ranges[i].first - startPad) - 0.5) * inputPerFrame);
        const int64_t end = std::llround((double(ranges[i].end + endPad) - 0.5) * inputPerFrame);
        sentences.push_back({std::clamp<int64_t>(start, 0, framesFed), std::clamp<int64_t>(end, 0, framesFed)});
    }
}

const std::vector<SentenceSpan>& CSentenceFinder::Finish()
{
    State& s = *m_state;
    if (s.finished) return s.sentences;
    s.finished = true;
    // Half a window of silence behind, so that the last samples are centred
    // in a frame; then the frames still waiting for the rest of their
    // floors' window, which the input no longer fills.
    const size_t tail = s.window.size() / 2;
    for (size_t i = 0; i < tail; ++i) s.TakeSample(0.0f);
    // Frames centred past the input stand for silence that is not there.
    const int64_t kept = (s.framesFed + int64_t(s.decimation) - 1) / int64_t(s.decimation);
    const int64_t realFrames = (kept + int64_t(s.hop) / 2) / int64_t(s.hop) + 1;
    const int64_t last = std::min(s.analysed, realFrames);
    for (int64_t centre = s.scored; centre < last; ++centre) s.ScoreFrame(centre);
    s.segmenter.Finish();
    s.CollectSentences();
    return s.sentences;
}

const std::vector<SentenceSpan>& CSentenceFinder::Sentences() const
{
    return m_state->sentences;
}

int64_t CSentenceFinder::FramesFed() const
{
    return m_state->framesFed;
}
