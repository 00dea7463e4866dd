#pragma once
// The stages of CSentenceFinder, one class each, so that each can be checked
// on its own. Only the finder and its tests include this.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sentence_detail {

// The inner settings of the finder, tuned on synthetic speech under room
// noise, hum and a music bed (bench/sentence-eval.sh, on texts and seeds of
// its own). Levels are in dB.
struct FinderTuning {
    // A band's floor: this percentile of its level over `floorWindowMs`
    // centred on the frame, raised to where the mean of a noise with that
    // percentile would lie.
    float floorPercentile = 10.0f;
    int32_t floorWindowMs = 2000;
    // A spectral line that holds its power for `steadyMs` before or after a
    // frame (a held note of a music bed, a swelling hum) is background
    // there: `steadyPercentile` of the bin's power over that time, raised by
    // `steadyHeadroomDb` to cover the beating of partials that share a bin.
    int32_t steadyMs = 500;
    float steadyPercentile = 10.0f;
    float steadyHeadroomDb = 3.0f;
    // A band counts by how far it stands above its background, less
    // `bandOffsetDb` and at most `bandCapDb` (one loud band must not outvote
    // the rest); a frame's score is the mean over the bands.
    float bandOffsetDb = 0.5f;
    float bandCapDb = 30.0f;
    // Speech is where the score passes `speechScore`, extended both ways
    // while it stays above `edgeScore`.
    float speechScore = 3.0f;
    float edgeScore = 1.0f;
    // Dips under the edge score shorter than this do not end a stretch.
    int32_t edgeHoleMs = 50;
    // Speech fades into any noise before it ends (a nasal, a breathy
    // vowel): each sentence is widened by these margins, never by more than
    // half the minimum pause.
    int32_t startPadMs = 20;
    int32_t endPadMs = 60;
    // A stretch whose loudest frame is this far below the loudest speech
    // before it (a breath, a click, a chair) is no speech. The reference
    // falls by 1 dB a second, so that a much quieter speaker who follows is
    // heard again after a while.
    float quietRejectDb = 30.0f;
};

// A second-order section, direct form I.
struct Biquad {
    float b0 = 1.0f, b1 = 0.0f, b2 = 0.0f, a1 = 0.0f, a2 = 0.0f;
    float x1 = 0.0f, x2 = 0.0f, y1 = 0.0f, y2 = 0.0f;

    float Step(float x)
    {
        const float y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = y;
        return y;
    }
    // A low-pass of quality `q` at `cutoffHz` (bilinear transform, the
    // cutoff pre-warped).
    static Biquad LowPass(double cutoffHz, double sampleRate, double q);
};

// The power spectrum of real frames of one power-of-two length under a Hann
// window: bins 0 to n/2, |X[k]|^2, X[k] = sum of w[i] x[i] e^(-2 pi j i k / n).
class CPowerSpectrum {
public:
    // Throws std::invalid_argument unless n is a power of two from 4 on.
    explicit CPowerSpectrum(size_t n);
    size_t Size() const { return m_n; }
    // `frame` holds Size() samples; `power` receives Size() / 2 + 1 values.
    void Compute(const float* frame, float* power);

private:
    size_t m_n;
    std::vector<float> m_window;
    std::vector<float> m_cos;
    std::vector<float> m_sin;
    std::vector<uint32_t> m_reversed;
    std::vector<float> m_re;
    std::vector<float> m_im;
    std::vector<float> m_splitCos;
    std::vector<float> m_splitSin;
};

// How far the mean of a noise band lies above the given percentile of its
// power, in dB: the power of a band of `bins` independent bins of Gaussian
// noise follows a gamma distribution of shape `bins` (fewer than 1 count as
// 1). A percentile of 0 or less gives 0.
float NoiseMeanAbovePercentileDb(double bins, double percentile);

// Contiguous runs of spectrum bins, log-spaced between two frequencies;
// every band holds at least one bin, and none reaches past bin n/2.
struct BinRange {
    size_t first = 0;
    size_t end = 0;
    bool operator==(const BinRange&) const = default;
};
std::vector<BinRange> LogBands(double lowHz, double highHz, size_t bandCount, size_t fftSize, double sampleRate);

// A percentile of the values in a window that the caller slides: values
// come in at one end and leave at the other. Values are held to `stepDb`
// on [kLowestDb, kLowestDb + kRangeDb) (those outside count at its ends);
// the answer is the lower edge of the step that holds the value of rank
// floor(percentile / 100 * (count - 1)), counted from 0.
class CSlidingPercentile {
public:
    static constexpr float kLowestDb = -20.0f;
    static constexpr float kRangeDb = 200.0f;

    explicit CSlidingPercentile(float percentile, float stepDb = 0.25f);
    void Add(float db);
    // Removes a value that was added and has not been removed.
    void Remove(float db);
    size_t Count() const { return m_count; }
    // kLowestDb when empty.
    float Value();
    // The same as the index of its step: Value() = kLowestDb + step * stepDb.
    size_t ValueStep();

private:
    size_t Step(float db) const;
    float m_percentile;
    float m_stepDb;
    float m_perStep;
    std::vector<uint32_t> m_histogram;
    size_t m_count = 0;
    // The step of the last answer and how many values lie below it; moved a
    // little after each change instead of counting from the bottom.
    size_t m_cursor = 0;
    size_t m_below = 0;
};

// Turns frame scores into sentences: hysteresis between the two scores,
// quiet stretches dropped, stretches closer than the minimum pause joined,
// short ones dropped. Frames are 10 ms, numbered from 0 and pushed in
// order; the sentences are frame ranges [first, end).
class CPauseSegmenter {
public:
    struct Range {
        int64_t first = 0;
        int64_t end = 0;
        bool operator==(const Range&) const = default;
    };

    CPauseSegmenter(const FinderTuning& tuning, int64_t minPauseFrames, int64_t minSentenceFrames);
    // The score of the next frame and its level (dB, any reference).
    void Push(float score, float levelDb);
    // No more frames: the open stretch ends with the last one.
    void Finish();
    // Sentences complete so far: each is followed by a whole minimum pause
    // (or by the end).
    const std::vector<Range>& Sentences() const { return m_sentences; }

private:
    void CloseRun(int64_t end);
    void TakeStretch(int64_t first, int64_t end, float peakDb);
    void Emit();

    FinderTuning m_tuning;
    int64_t m_minPause;
    int64_t m_minSentence;
    int64_t m_holeFrames;
    int64_t m_frame = 0;
    // The run of frames above the edge score under way.
    bool m_inRun = false;
    bool m_runHasSpeech = false;
    int64_t m_runFirst = 0;
    int64_t m_runEnd = 0;  // after the last frame above the edge score
    float m_runPeakDb = 0.0f;
    // The sentence being grown, not yet closed by a long enough pause.
    bool m_pending = false;
    Range m_open;
    // The loudest speech heard, and where, for judging quiet stretches.
    bool m_haveSpeechLevel = false;
    float m_speechPeakDb = 0.0f;
    int64_t m_speechPeakFrame = 0;
    std::vector<Range> m_sentences;
};

}  // namespace sentence_detail
