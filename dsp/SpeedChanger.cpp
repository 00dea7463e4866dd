#include "dsp/SpeedChanger.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr float kLowestScore = -3.4028235e38f;
// 2*pi as a single, widened: the window is defined through this value and
// not through the double nearest to 2*pi.
constexpr double kTwoPiSingle = 6.2831854820251465;

// Array with room on the stack for the sizes a block's search needs; larger
// requests, which only unusual callers make, go to the heap.
template <typename T, int32_t LocalCapacity>
class ScratchArray {
public:
    explicit ScratchArray(int32_t count)
    {
        if (count > LocalCapacity) {
            m_heap.resize(size_t(count));
            m_data = m_heap.data();
        }
    }
    T* data() { return m_data; }

private:
    T m_local[LocalCapacity];
    std::vector<T> m_heap;
    T* m_data = m_local;
};

using WideScratch = ScratchArray<double, 512>;
using ScoreScratch = ScratchArray<float, 64>;

void Widen(const float* x, int32_t count, double* wide)
{
    for (int32_t i = 0; i < count; ++i)
        wide[i] = x[i];
}

// Each step rounds the double sum to single; the round trip through
// single keeps the running sum in a double register between steps.
inline __m128d RoundToSingle(__m128d x) { return _mm_cvtps_pd(_mm_cvtpd_ps(x)); }

// Scores of 2 * Pairs neighbouring candidates, one candidate per lane. Every
// lane still sums its own terms in ascending j, so the results are those of
// the plain loop to the last bit.
template <int Pairs>
inline void ScoreLanes(const double* reference, int32_t terms, const double* search, float* scores)
{
    __m128d sums[Pairs];
    for (int p = 0; p < Pairs; ++p)
        sums[p] = _mm_setzero_pd();
    for (int32_t j = 0; j < terms; ++j) {
        const __m128d r = _mm_set1_pd(reference[j]);
        // Unrolled so that the sums stay in registers.
#pragma GCC unroll 16
        for (int p = 0; p < Pairs; ++p) {
            const __m128d product = _mm_mul_pd(r, _mm_loadu_pd(search + j + 2 * p));
            sums[p] = RoundToSingle(_mm_add_pd(sums[p], product));
        }
    }
    for (int p = 0; p < Pairs; ++p)
        _mm_storel_epi64(reinterpret_cast<__m128i*>(scores + 2 * p), _mm_castps_si128(_mm_cvtpd_ps(sums[p])));
}

float ScoreOne(const double* reference, int32_t terms, const double* search)
{
    float sum = 0.0f;
    for (int32_t j = 0; j < terms; ++j)
        sum = float(double(sum) + reference[j] * search[j]);
    return sum;
}

// scores[c] for c below `candidates`: the correlation of the reference with
// search[c...]. Products of two widened singles are exact in double.
void ScoreCandidates(const double* reference, int32_t terms, const double* search, int32_t candidates, float* scores)
{
    // Each lane's step waits for the previous one's add and two conversions,
    // so a wide group keeps enough independent sums in flight.
    int32_t c = 0;
    for (; c + 20 <= candidates; c += 20)
        ScoreLanes<10>(reference, terms, search + c, scores + c);
    for (; c + 8 <= candidates; c += 8)
        ScoreLanes<4>(reference, terms, search + c, scores + c);
    if (c + 4 <= candidates) {
        ScoreLanes<2>(reference, terms, search + c, scores + c);
        c += 4;
    }
    if (c + 2 <= candidates) {
        ScoreLanes<1>(reference, terms, search + c, scores + c);
        c += 2;
    }
    if (c < candidates)
        scores[c] = ScoreOne(reference, terms, search + c);
}

// Strictly greater replaces, so of equal scores the first stands.
int32_t FirstBest(const float* scores, int32_t count)
{
    float best = kLowestScore;
    int32_t bestIndex = 0;
    for (int32_t i = 0; i < count; ++i) {
        if (scores[i] > best) {
            best = scores[i];
            bestIndex = i;
        }
    }
    return bestIndex;
}

// Index of the best match among `candidates` starts in `search`, which holds
// candidates + terms - 1 values; the reference holds `terms`.
int32_t BestCandidate(const float* reference, int32_t terms, const float* search, int32_t candidates)
{
    if (terms <= 0 || candidates <= 0)
        return 0;  // with no terms every score is 0.0 and the first candidate stands
    ScoreScratch scores(candidates);
    CSpeedChanger::ScoreOffsets(reference, terms, search, candidates, scores.data());
    return FirstBest(scores.data(), candidates);
}

// out[k] = in[k] * window[k] + out[k], with the exact product and the sum in
// double and only the sum rounded to single.
void OverlapAdd(const float* in, const float* window, float* out, int64_t count)
{
    int64_t k = 0;
    for (; k + 4 <= count; k += 4) {
        const __m128 x = _mm_loadu_ps(in + k);
        const __m128 w = _mm_loadu_ps(window + k);
        const __m128 y = _mm_loadu_ps(out + k);
        const __m128d low = _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(x), _mm_cvtps_pd(w)), _mm_cvtps_pd(y));
        const __m128d high = _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(x, x)), _mm_cvtps_pd(_mm_movehl_ps(w, w))),
                                        _mm_cvtps_pd(_mm_movehl_ps(y, y)));
        _mm_storeu_ps(out + k, _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high)));
    }
    for (; k < count; ++k)
        out[k] = float(double(in[k]) * double(window[k]) + double(out[k]));
}

// Hann window of 2H + 1 values, angle, cosine and value each rounded to single.
void FillWindow(int32_t halfFrame, float* window)
{
    for (int32_t i = 0; i <= 2 * halfFrame; ++i) {
        const float angle = float(i * kTwoPiSingle / (2 * halfFrame));
        const float cosine = float(std::cos(double(angle)));
        window[i] = float((1.0 - double(cosine)) * 0.5);
    }
}

std::vector<float> MakeWindow(int32_t halfFrame)
{
    std::vector<float> window(size_t(2 * halfFrame + 1));
    FillWindow(halfFrame, window.data());
    return window;
}

int32_t HalfFrameFor(int32_t rate) { return int32_t(rate * 5 / 1000.0 + 0.5); }

// The window depends on H alone, and H on the constructor's rate, so every
// block gets the same one: it is made once rather than 221 cosines a block.
const float* WindowFor(int32_t halfFrame, std::vector<float>& storage)
{
    static const int32_t s_usualHalfFrame = HalfFrameFor(CSpeedChanger::kDefaultRate);
    static const std::vector<float> s_usualWindow = MakeWindow(s_usualHalfFrame);
    if (halfFrame == s_usualHalfFrame)
        return s_usualWindow.data();
    storage = MakeWindow(halfFrame);
    return storage.data();
}

// The first frame alone spans 2H + 1 samples. A shorter block, as the last
// of a file can be, and a changer whose rate was released go out unchanged.
bool TooShortToChange(int32_t halfFrame, int64_t count) { return halfFrame < 1 || count < 2 * halfFrame + 1; }

int16_t ToSample(float value)
{
    const double v = value;
    if (v > 32767.0)
        return 32767;
    if (v < -32768.0)
        return -32768;
    return int16_t(v >= 0.0 ? int32_t(v + 0.5) : int32_t(v - 0.5));
}

// Two values as ToSample gives them, as 32-bit integers in the low half.
// Adding a half with the value's sign and truncating is the same rounding;
// values beyond the range are first held one past it, where the truncation
// stays in range and the saturating pack that follows clamps them.
inline __m128i RoundPair(__m128d v)
{
    const __m128d signBit = _mm_set1_pd(-0.0);
    v = _mm_min_pd(_mm_max_pd(v, _mm_set1_pd(-32769.0)), _mm_set1_pd(32768.0));
    const __m128d half = _mm_or_pd(_mm_and_pd(v, signBit), _mm_set1_pd(0.5));
    return _mm_cvttpd_epi32(_mm_add_pd(v, half));
}

}  // namespace

CSpeedChanger::CSpeedChanger() : m_factor(1.0f)
{
    m_input.rate = kDefaultRate;
    m_output.rate = kDefaultRate;
}

CSpeedChanger::~CSpeedChanger() { Release(); }

float CSpeedChanger::FactorForLevel(int16_t level)
{
    if (level > 0) {
        const float factor = float(level / 50.0 + 1.0);
        return factor > 2.0f ? 2.0f : factor;
    }
    const float factor = float(level / 120.0 + 1.0);
    return factor < 0.5f ? 0.5f : factor;
}

int32_t CSpeedChanger::CapacityMultiple(float factor) { return int32_t(1.0 / double(factor) + 1.5); }

int32_t CSpeedChanger::AnalysisHop(int32_t halfFrame, float factor)
{
    return int32_t(halfFrame * double(factor) + 0.5);
}

void CSpeedChanger::Load(const int16_t* samples, int32_t count, int16_t level)
{
    // An output that shares the input array must not outlive it.
    if (m_output.data == m_input.data) {
        m_output.data = nullptr;
        m_output.count = 0;
    }
    delete[] m_input.data;
    m_input.data = nullptr;

    const int32_t n = samples ? std::max(count, 0) : 0;
    m_input.data = new float[size_t(n)];
    for (int32_t i = 0; i < n; ++i)
        m_input.data[i] = samples[i];
    m_input.count = n;
    m_factor = FactorForLevel(level);
}

namespace {

// Mean of each whole run of `factor` samples into `result`, count / factor values.
void DecimateInto(const float* samples, int32_t count, int32_t factor, float* result)
{
    const int32_t runs = factor > 0 && count > 0 ? count / factor : 0;
    for (int32_t m = 0; m < runs; ++m) {
        const float* run = samples + int64_t(m) * factor;
        float sum = 0.0f;
        for (int32_t k = 0; k < factor; ++k)
            sum = float(double(sum) + double(run[k]));
        result[m] = float(double(sum) / factor);
    }
}

}  // namespace

float* CSpeedChanger::DecimateAverage(const float* samples, int32_t count, int32_t factor)
{
    const int32_t runs = factor > 0 && count > 0 ? count / factor : 0;
    float* result = new float[size_t(runs)];
    DecimateInto(samples, count, factor, result);
    return result;
}

void CSpeedChanger::ScoreOffsets(const float* reference, int32_t terms, const float* search, int32_t candidates,
                                 float* scores)
{
    if (candidates <= 0)
        return;
    terms = std::max(terms, 0);
    // Widened once here rather than at every step of every lane.
    WideScratch wideReference(terms);
    WideScratch wideSearch(candidates + terms - 1);
    Widen(reference, terms, wideReference.data());
    Widen(search, candidates + terms - 1, wideSearch.data());
    ScoreCandidates(wideReference.data(), terms, wideSearch.data(), candidates, scores);
}

int32_t CSpeedChanger::FindBestOffset(const float* decimatedReference, int32_t decimatedReferenceCount,
                                      const float* reference, int32_t referenceCount, int32_t length,
                                      const float* decimatedSearch, const float* search, int32_t searchLength,
                                      int32_t factor)
{
    const int32_t diff = searchLength - length;
    if (factor <= 0 || length < 0 || diff < factor)
        return 0;

    // Missing reference samples would add a product of 0 to a sum that is
    // never -0.0, which leaves it unchanged: they are simply not summed.
    const int32_t coarseTerms = std::clamp(length / factor, 0, std::max(decimatedReferenceCount, 0));
    const int32_t coarse = BestCandidate(decimatedReference, coarseTerms, decimatedSearch, diff / factor);

    const int32_t first = std::max(0, factor * coarse - factor);
    const int32_t end = std::min(factor * coarse + factor, diff);
    const int32_t fineTerms = std::clamp(length, 0, std::max(referenceCount, 0));
    return first + BestCandidate(reference, fineTerms, search + first, end - first);
}

namespace {

// The tempo change of a block of n >= 2H + 1 samples into `out`, which holds
// `capacity` zeros; `dec` holds the block decimated. Answers the index of
// the last sample written, which the changer gives out as its count.
int32_t ChangeTempo(const float* in, int64_t n, float factor, int32_t halfFrame, const float* window,
                    const float* dec, float* out, int64_t capacity)
{
    using C = CSpeedChanger;
    constexpr int32_t kDecimation = C::kDecimation;
    const int32_t frameLength = 2 * halfFrame + 1;
    const int32_t analysisHop = C::AnalysisHop(halfFrame, factor);
    const int64_t decCount = n / kDecimation;

    for (int32_t i = 0; i < halfFrame; ++i)
        out[i] = in[i];
    for (int32_t i = halfFrame; i <= 2 * halfFrame; ++i)
        out[i] = float(double(in[i]) * double(window[i]));

    // continuation: the input position that goes on from the last frame
    // without a jump. nominal: where the tempo alone would be. centre: the
    // output position of the next frame's centre. outputEnd: the end mark.
    int64_t continuation = halfFrame;
    int64_t nominal = 0;
    int64_t centre = frameLength;
    int64_t outputEnd = frameLength;
    int64_t referenceEnd = continuation + frameLength;
    // A frame starts halfFrame before its centre. The room left is checked
    // per frame so that no input whatever can write past the output.
    auto layFrame = [&](const float* source, int64_t count) {
        const int64_t start = centre - halfFrame;
        count = std::min(count, capacity - start);
        if (count > 0)
            OverlapAdd(source, window, out + start, count);
    };

    for (bool searching = analysisHop < n; searching;) {
        if (continuation > n)
            break;
        if (referenceEnd > n)
            referenceEnd = n;
        nominal += analysisHop;
        const int64_t searchEnd = std::min<int64_t>(nominal + 2 * halfFrame + frameLength, n);
        int64_t offset;
        if (nominal <= continuation && searchEnd >= referenceEnd) {
            // The seamless continuation lies within the search range, so it
            // is taken without a search; the tempo changes only at a search.
            offset = continuation - nominal;
        } else {
            // Near the end of the block the reference can reach past the
            // input and past dec; its missing samples score as 0.
            const int32_t referenceCount = int32_t(std::min<int64_t>(frameLength, n - continuation));
            const int32_t decimatedReferenceCount =
                int32_t(std::min<int64_t>(frameLength / kDecimation, decCount - continuation / kDecimation));
            offset = C::FindBestOffset(dec + continuation / kDecimation, decimatedReferenceCount, in + continuation,
                                       referenceCount, frameLength, dec + nominal / kDecimation, in + nominal,
                                       int32_t(searchEnd - nominal), kDecimation);
            // 0 also stands for "no room to search"; either way the rest
            // of the block goes out as a plain copy.
            if (offset == 0)
                break;
        }
        const int64_t match = nominal + offset;
        const int64_t frameEnd = std::min<int64_t>(match + frameLength, n);
        const int64_t added = frameEnd - match;
        layFrame(in + match, added);
        if (added > halfFrame) {
            outputEnd += added - halfFrame - 1;
            centre += halfFrame;
        }
        continuation = match + halfFrame;
        referenceEnd = continuation + frameLength;
        searching = nominal + analysisHop < n;
    }

    // Only the rising half of the window, up to its peak.
    const int64_t closingEnd = std::min<int64_t>(continuation + halfFrame, n);
    if (continuation < n)
        layFrame(in + continuation, std::min(closingEnd, n - 1) - continuation + 1);

    for (int64_t i = closingEnd + 1; i < n && outputEnd + 1 < capacity; ++i) {
        ++outputEnd;
        out[outputEnd] = in[i];
    }

    return int32_t(std::min<int64_t>({outputEnd, capacity, INT32_MAX}));
}

}  // namespace

int32_t CSpeedChanger::Run()
{
    FreeOutput();
    if (m_factor == 1.0f) {
        m_output.count = m_input.count;
        m_output.data = m_input.data;
        return m_output.count;
    }
    const int32_t n = m_input.count;
    const int32_t halfFrame = HalfFrameFor(m_input.rate);
    if (TooShortToChange(halfFrame, n)) {
        CopyInputToOutput();
        return m_output.count;
    }

    const int64_t capacity = int64_t(n) * CapacityMultiple(m_factor);
    m_output.data = new float[size_t(capacity)]();
    std::unique_ptr<float[]> dec(DecimateAverage(m_input.data, n, kDecimation));
    std::vector<float> windowStorage;
    const float* window = WindowFor(halfFrame, windowStorage);
    m_output.count = ChangeTempo(m_input.data, n, m_factor, halfFrame, window, dec.get(), m_output.data, capacity);
    return m_output.count;
}

void CSpeedChanger::TakeOutput(int16_t** out, int32_t* count)
{
    const int32_t n = m_output.data ? m_output.count : 0;
    int16_t* samples = new int16_t[size_t(n)];
    RoundToSamples(m_output.data, n, samples);
    *out = samples;
    *count = n;
}

void CSpeedChanger::RoundToSamples(const float* values, int32_t count, int16_t* samples)
{
    int32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const __m128 x = _mm_loadu_ps(values + i);
        const __m128i low = RoundPair(_mm_cvtps_pd(x));
        const __m128i high = RoundPair(_mm_cvtps_pd(_mm_movehl_ps(x, x)));
        const __m128i four = _mm_unpacklo_epi64(low, high);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(samples + i), _mm_packs_epi32(four, four));
    }
    for (; i < count; ++i)
        samples[i] = ToSample(values[i]);
}

void CSpeedChanger::Release()
{
    // After a run at factor 1.0 both buffers name one array.
    if (m_output.data && m_output.data != m_input.data) {
        delete[] m_output.data;
        m_output = SampleBuffer{};
    }
    if (m_input.data) {
        delete[] m_input.data;
        if (m_output.data == m_input.data)
            m_output = SampleBuffer{};
        m_input = SampleBuffer{};
    }
}

void CSpeedChanger::FreeOutput()
{
    if (m_output.data != m_input.data)
        delete[] m_output.data;
    m_output.data = nullptr;
    m_output.count = 0;
}

void CSpeedChanger::CopyInputToOutput()
{
    m_output.data = new float[size_t(m_input.count)];
    if (m_input.count > 0)
        std::memcpy(m_output.data, m_input.data, sizeof(float) * size_t(m_input.count));
    m_output.count = m_input.count;
}

// ---------------------------------------------------------------- stage

CSpeedChangeStage::CSpeedChangeStage() : m_halfFrame(HalfFrameFor(CSpeedChanger::kDefaultRate))
{
    // The window is the changer's own, made here rather than by the first
    // block, whichever thread runs it.
    m_window = std::make_unique<float[]>(size_t(2 * m_halfFrame + 1));
    FillWindow(m_halfFrame, m_window.get());
}

CSpeedChangeStage::~CSpeedChangeStage() = default;

void CSpeedChangeStage::Reserve(int32_t maxSamples)
{
    const int32_t samples = std::max(maxSamples, 0);
    // The factor never goes below 0.5, which gives the widest output.
    const int64_t widest = int64_t(samples) * CSpeedChanger::CapacityMultiple(0.5f);
    // All or nothing: a failed allocation leaves the old room as it was.
    auto input = std::make_unique<float[]>(size_t(samples));
    auto output = std::make_unique<float[]>(size_t(widest));
    auto decimated = std::make_unique<float[]>(size_t(samples / CSpeedChanger::kDecimation));
    m_input = std::move(input);
    m_output = std::move(output);
    m_decimated = std::move(decimated);
    m_reserved = samples;
}

int32_t CSpeedChangeStage::RunInto(const int16_t* samples, int32_t count, int16_t level, int16_t* out,
                                   int32_t capacity)
{
    const int32_t n = samples ? std::max(count, 0) : 0;
    if (n > m_reserved)
        return -1;
    // Read whole before anything is written, so that `out` may be `samples`.
    for (int32_t i = 0; i < n; ++i)
        m_input[i] = samples[i];

    // The searches' scratch stays on the stack at the stage's one rate:
    // at most 22 coarse and 20 fine candidates, frames of 221 samples.
    const float factor = CSpeedChanger::FactorForLevel(level);
    const float* result = m_input.get();
    int32_t produced = n;
    if (factor != 1.0f && !TooShortToChange(m_halfFrame, n)) {
        const int64_t room = int64_t(n) * CSpeedChanger::CapacityMultiple(factor);
        std::fill(m_output.get(), m_output.get() + room, 0.0f);
        DecimateInto(m_input.get(), n, CSpeedChanger::kDecimation, m_decimated.get());
        produced = ChangeTempo(m_input.get(), n, factor, m_halfFrame, m_window.get(), m_decimated.get(),
                               m_output.get(), room);
        result = m_output.get();
    }
    const int32_t written = std::clamp(produced, 0, std::max(capacity, 0));
    CSpeedChanger::RoundToSamples(result, written, out);
    return written;
}
