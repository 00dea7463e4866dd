#include "dsp/TempoStretcher.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "dsp/TempoKernels.h"

namespace {

// Output hop and crossfade. With the crossfade as long as the hop, every
// output frame is a mix of two segments, like overlap-add of 25 ms Hann
// windows at half overlap: short enough that slowed speech does not stutter,
// long enough to hold a few periods of a low voice.
constexpr double kHopSeconds = 0.0125;
constexpr double kOverlapSeconds = 0.0125;
// How far the search may move a segment either way from its nominal place:
// more than half of the longest voice period (about 80 Hz), so a segment
// that starts in step with the previous one can always be found.
constexpr double kSearchSeconds = 0.012;
// The coarse search runs on the channel sum averaged down to about this
// rate: enough for the first formant and the voice periods, a tenth of the
// work at 44.1 kHz. Which period lines up best to the sample is left to the
// full-rate refinement of the best few coarse peaks.
constexpr double kCoarseRate = 4000.0;
// Below this mean square the segment before is taken as silence, where the
// search has nothing to match and the nominal place is kept.
constexpr double kQuietMeanSquare = 1.0;
// Coarse peaks refined at the full rate: those whose squared correlation
// reaches this share of the best one's.
constexpr float kPeakShare = 0.8f;

int64_t FloorDiv(int64_t a, int64_t b)
{
    const int64_t q = a / b;
    return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

int64_t CeilDiv(int64_t a, int64_t b) { return -FloorDiv(-a, b); }

double SumOfSquares(const float* x, int n) { return tempo_kernels::Dot(x, x, n); }

// Normalised cross-correlation of `reference` with each of `count`
// candidates starting at `candidates`, each `length` values long, into
// scores[0..count), squared with its sign kept: it ranks the candidates the
// same without a square root for each. `candidates` holds
// count + length - 1 values.
void ScoreMatches(const float* reference, const float* candidates, int count, int length, float* scores)
{
    double energy = SumOfSquares(candidates, length);
    for (int j = 0; j < count; ++j) {
        const float* x = candidates + j;
        const double product = tempo_kernels::Dot(reference, x, length);
        scores[j] = float(product * std::abs(product) / (energy + 1.0));
        if (j + 1 < count)
            energy = std::max(0.0, energy + double(x[length]) * x[length] - double(x[0]) * x[0]);
    }
}

// Index of the highest of scores[0..count); the first of equal ones.
int Highest(const float* scores, int count)
{
    int best = 0;
    for (int j = 1; j < count; ++j)
        if (scores[j] > scores[best])
            best = j;
    return best;
}

// Normalised cross-correlation of `reference` with x[0..length).
double Similarity(const float* reference, const float* x, int length)
{
    return double(tempo_kernels::Dot(reference, x, length)) / std::sqrt(SumOfSquares(x, length) + 1.0);
}

// Weights of the cubic through x[-1], x[0], x[1], x[2], read at fraction f
// between x[0] and x[1]; at f = 0 they are exactly 0, 1, 0, 0.
struct Cubic {
    float w[4];
    explicit Cubic(double f)
    {
        w[0] = float(-f * (f - 1) * (f - 2) / 6);
        w[1] = float((f + 1) * (f - 1) * (f - 2) / 2);
        w[2] = float(-(f + 1) * f * (f - 2) / 2);
        w[3] = float((f + 1) * f * (f - 1) / 6);
    }
    float At(const float* x) const { return w[0] * x[-1] + w[1] * x[0] + w[2] * x[1] + w[3] * x[2]; }
};

// x read from `start` plus `fraction` on, n values.
void ReadBetween(const float* __restrict x, float fraction, int n, float* __restrict into)
{
    if (fraction == 0.0f) {
        std::copy_n(x, n, into);
        return;
    }
    const Cubic cubic(fraction);
    for (int i = 0; i < n; ++i)
        into[i] = cubic.At(x + i);
}

int16_t ToSample(float v)
{
    const float r = v + (v >= 0.0f ? 0.5f : -0.5f);
    if (r >= 32767.0f)
        return 32767;
    if (r <= -32768.0f)
        return -32768;
    return int16_t(r);
}

}  // namespace

bool CTempoStretcher::Configure(int sampleRate, int channels, int maxBlockFrames)
{
    m_channels = 0;
    if (sampleRate < kMinRate || sampleRate > kMaxRate || channels < 1 || channels > kMaxChannels ||
        maxBlockFrames < 1 || maxBlockFrames > 4 * kMaxRate)
        return false;
    m_rate = sampleRate;
    m_maxBlock = maxBlockFrames;
    m_hop = int(std::lround(sampleRate * kHopSeconds));
    m_overlap = std::min(m_hop, int(std::lround(sampleRate * kOverlapSeconds)));
    m_search = int(std::lround(sampleRate * kSearchSeconds));
    m_decimation = int(std::lround(sampleRate / kCoarseRate));
    // Averaging pairs saves little and blurs what sets a low rate's match
    // apart: search such a rate at the full rate alone.
    if (m_decimation < 3)
        m_decimation = 1;
    // Silence ahead of the first frame, so the first hops read real frames
    // only where the input has them, and whole coarse values.
    m_lead = int(CeilDiv(m_search + m_hop + m_decimation + kReadMargin, m_decimation) * m_decimation);
    // What a call leaves behind (history for the search and the next
    // crossfade, input for a hop not yet possible) plus one block.
    m_inCapacity =
        int64_t(maxBlockFrames) + 4 * m_hop + m_overlap + 2 * m_search + 4 * m_decimation + 4 * kReadMargin + 64;
    m_inCapacity = std::max<int64_t>(m_inCapacity, m_lead);
    m_outCapacity = 2 * int64_t(maxBlockFrames) + 2 * m_overlap + 2 * m_hop + 8;

    m_input.assign(size_t(m_inCapacity) * channels, 0.0f);
    m_sum.assign(size_t(m_inCapacity), 0.0f);
    m_coarse.assign(size_t(m_inCapacity / m_decimation + 2), 0.0f);
    m_output.assign(size_t(m_outCapacity) * channels, 0);
    m_marks.assign(kMarkCount, Mark{0, 0.0});
    // Coarse scores, then one refinement's full-rate scores (or, without a
    // coarse stage, all full-rate scores).
    m_scores.assign(size_t(2 * m_search + 2 * m_decimation + 8), 0.0f);
    // The previous segment's continuation, and the segments being faded.
    m_scratch.assign(size_t(3 * m_hop), 0.0f);
    m_fade.resize(size_t(m_overlap));
    const double pi = 3.14159265358979323846;
    for (int i = 0; i < m_overlap; ++i)
        m_fade[size_t(i)] = float(0.5 - 0.5 * std::cos(pi * i / m_overlap));

    m_channels = channels;
    Reset();
    return true;
}

void CTempoStretcher::SetFactor(double factor)
{
    if (std::isnan(factor))
        return;
    m_factor = std::clamp(factor, kMinFactor, kMaxFactor);
}

void CTempoStretcher::Reset()
{
    if (!IsConfigured())
        return;
    m_inBegin = 0;
    m_inEnd = 0;
    m_coarseEnd = 0;
    AppendSilence(m_lead);
    // A segment of that silence was laid just before output frame 0, so the
    // first hop fades in from silence and output frame 0 maps to input 0.
    m_previous = m_lead - m_hop;
    m_previousFraction = 0.0f;
    m_nominal = double(m_previous);
    m_hopFactor = m_factor;
    m_outBegin = 0;
    m_outEnd = 0;
    m_received = 0;
    m_produced = 0;
    m_dropped = 0;
    m_markFirst = 0;
    m_markCount = 0;
    AddMark(0, 0.0);
    m_draining = false;
    m_drained = false;
}

int CTempoStretcher::MaxOutputFrames(int inFrames) const
{
    // From one call to the next the nominal place can move by no more than
    // the new input plus a crossfade; each hop moves it by at least half a
    // hop and gives one hop of output.
    return 2 * std::max(inFrames, 0) + 2 * m_overlap + m_hop + 4;
}

int CTempoStretcher::Process(const int16_t* in, int inFrames, int16_t* out, int outCapacityFrames)
{
    if (!IsConfigured())
        return 0;
    Compact();
    if (in && inFrames > 0) {
        if (m_draining)
            m_dropped += inFrames;
        else
            AppendInput(in, inFrames);
    }
    RunHops();
    return Pull(out, outCapacityFrames);
}

int CTempoStretcher::Drain(int16_t* out, int outCapacityFrames)
{
    if (!IsConfigured())
        return 0;
    Compact();
    m_draining = true;
    const double inputEnd = double(m_lead + m_received);
    while (!m_drained) {
        // The input frame heard at the end of the output made so far.
        const double heard = m_nominal + m_hop;
        if (heard >= inputEnd) {
            // Cut the last hop where the input ran out, at the rate it was laid.
            const int64_t excess = std::llround((heard - inputEnd) / m_hopFactor);
            const int64_t cut = std::min(excess, m_outEnd - m_outBegin);
            m_outEnd -= cut;
            m_produced -= cut;
            m_drained = true;
            break;
        }
        if (RunHops() > 0)
            continue;
        if (m_outCapacity - m_outEnd < m_hop)
            break;   // the caller has to take output first
        const int64_t room = InputRoom();
        if (room <= 0)
            break;
        AppendSilence(int(std::min<int64_t>(room, m_hop + m_search + m_overlap + 2 * m_decimation)));
    }
    return Pull(out, outCapacityFrames);
}

double CTempoStretcher::InputPositionAt(int64_t outputFrame) const
{
    if (m_markCount == 0)
        return 0.0;
    auto at = [this](int i) -> const Mark& { return m_marks[size_t((m_markFirst + i) % kMarkCount)]; };
    const Mark& oldest = at(0);
    const Mark& newest = at(m_markCount - 1);
    if (outputFrame <= oldest.output)
        return oldest.input + double(outputFrame - oldest.output) * m_factor;
    if (outputFrame >= newest.output)
        return newest.input + double(outputFrame - newest.output) * m_factor;
    int lo = 0;
    int hi = m_markCount - 1;   // at(lo).output <= outputFrame < at(hi).output
    while (hi - lo > 1) {
        const int mid = (lo + hi) / 2;
        if (at(mid).output <= outputFrame)
            lo = mid;
        else
            hi = mid;
    }
    const Mark& a = at(lo);
    const Mark& b = at(hi);
    return a.input + (b.input - a.input) * double(outputFrame - a.output) / double(b.output - a.output);
}

void CTempoStretcher::AppendInput(const int16_t* in, int frames)
{
    const int64_t take = std::min<int64_t>(frames, InputRoom());
    m_dropped += frames - take;
    const size_t at = size_t(m_inEnd - m_inBegin);
    float* sum = m_sum.data() + at;
    if (m_channels == 1) {
        float* x = m_input.data() + at;
        for (int64_t i = 0; i < take; ++i) {
            x[i] = float(in[i]);
            sum[i] = x[i];
        }
    } else {
        const int channels = m_channels;
        for (int64_t i = 0; i < take; ++i) {
            float s = 0.0f;
            for (int c = 0; c < channels; ++c) {
                const float v = float(in[i * channels + c]);
                m_input[size_t(c) * size_t(m_inCapacity) + at + size_t(i)] = v;
                s += v;
            }
            sum[i] = s;
        }
    }
    m_inEnd += take;
    m_received += take;
    UpdateCoarse();
}

void CTempoStretcher::AppendSilence(int frames)
{
    const int64_t take = std::min<int64_t>(frames, InputRoom());
    const size_t at = size_t(m_inEnd - m_inBegin);
    for (int c = 0; c < m_channels; ++c)
        std::fill_n(m_input.data() + size_t(c) * size_t(m_inCapacity) + at, size_t(take), 0.0f);
    std::fill_n(m_sum.data() + at, size_t(take), 0.0f);
    m_inEnd += take;
    UpdateCoarse();
}

void CTempoStretcher::UpdateCoarse()
{
    const int d = m_decimation;
    const float scale = 1.0f / float(d);
    const int64_t first = m_inBegin / d;
    while ((m_coarseEnd + 1) * d <= m_inEnd) {
        const float* s = m_sum.data() + (m_coarseEnd * d - m_inBegin);
        float acc = 0.0f;
        for (int k = 0; k < d; ++k)
            acc += s[k];
        m_coarse[size_t(m_coarseEnd - first)] = acc * scale;
        ++m_coarseEnd;
    }
}

void CTempoStretcher::Compact()
{
    if (m_outBegin > 0) {
        const size_t n = size_t(m_outEnd - m_outBegin) * size_t(m_channels);
        std::memmove(m_output.data(), m_output.data() + size_t(m_outBegin) * size_t(m_channels), n * sizeof(int16_t));
        m_outEnd -= m_outBegin;
        m_outBegin = 0;
    }
    // The next hop reads from its search window, which starts at least half a
    // hop after the last nominal place, and from the continuation of the last
    // segment; the coarse search may start up to one coarse value earlier.
    const int d = m_decimation;
    int64_t keep = std::min<int64_t>(int64_t(std::floor(m_nominal + 0.5 * m_hop)) - m_search - 1, m_previous + m_hop) -
                   d - kReadMargin;
    keep = std::clamp(FloorDiv(keep, d) * d, m_inBegin, FloorDiv(m_inEnd, d) * d);
    const int64_t drop = keep - m_inBegin;
    if (drop <= 0)
        return;
    const size_t left = size_t(m_inEnd - keep);
    for (int c = 0; c < m_channels; ++c) {
        float* x = m_input.data() + size_t(c) * size_t(m_inCapacity);
        std::memmove(x, x + drop, left * sizeof(float));
    }
    std::memmove(m_sum.data(), m_sum.data() + drop, left * sizeof(float));
    std::memmove(m_coarse.data(), m_coarse.data() + drop / d, size_t(m_coarseEnd - keep / d) * sizeof(float));
    m_inBegin = keep;
}

int CTempoStretcher::RunHops()
{
    int hops = 0;
    while (m_outCapacity - m_outEnd >= m_hop) {
        const double nominal = m_nominal + m_factor * m_hop;
        const int64_t base = std::llround(nominal);
        const int64_t reference = m_previous + m_hop;
        // The search reads up to a hop past its window (the full-rate scores
        // use the overlap, the segment itself the hop), the crossfade the
        // overlap past the reference; one more coarse value covers rounding.
        const int64_t needed = std::max(base + m_search + m_hop, reference + m_overlap) + m_decimation + kReadMargin;
        if (needed > m_inEnd)
            break;
        float fraction = 0.0f;
        const int64_t start = Search(base, reference, m_previousFraction, &fraction);
        Emit(reference, m_previousFraction, start, fraction);
        m_previous = start;
        m_previousFraction = fraction;
        m_nominal = nominal;
        m_hopFactor = m_factor;
        m_produced += m_hop;
        // The next hop starts on the unmixed continuation of this segment.
        AddMark(m_produced, double(start + m_hop - m_lead) + fraction);
        ++hops;
    }
    return hops;
}

int64_t CTempoStretcher::Search(int64_t base, int64_t reference, float referenceFraction, float* fraction)
{
    *fraction = 0.0f;
    const int length = m_overlap;
    const float* sum = m_sum.data();
    float* target = m_scratch.data();
    ReadBetween(sum + (reference - m_inBegin), referenceFraction, length, target);
    if (SumOfSquares(target, length) < kQuietMeanSquare * length)
        return base;
    const int64_t best = SearchWhole(base, reference, target);
    // A parabola through the scores either side places the match between
    // samples: a period rarely spans a whole number of them, and a splice
    // half a sample out of step would leave a rough edge on a held vowel.
    const float* at = sum + (best - m_inBegin);
    const double before = Similarity(target, at - 1, length);
    const double here = Similarity(target, at, length);
    const double after = Similarity(target, at + 1, length);
    const double curve = before - 2 * here + after;
    if (curve >= 0.0 || here < before || here < after)
        return best;
    const double offset = std::clamp(0.5 * (before - after) / curve, -0.5, 0.5);
    *fraction = float(offset < 0.0 ? 1.0 + offset : offset);
    if (*fraction >= 1.0f)   // so little below the sample that it rounds to it
        *fraction = 0.0f;
    return offset < 0.0 && *fraction > 0.0f ? best - 1 : best;
}

int64_t CTempoStretcher::SearchWhole(int64_t base, int64_t reference, const float* target)
{
    const int length = m_overlap;
    const float* sum = m_sum.data();
    const int64_t lo = base - m_search;
    const int64_t hi = base + m_search;
    float* scores = m_scores.data();
    const int d = m_decimation;
    if (d == 1) {
        const int count = int(hi - lo + 1);
        ScoreMatches(target, sum + (lo - m_inBegin), count, length, scores);
        return lo + Highest(scores, count);
    }

    // Coarse: the same lag grid as the full-rate candidates, every d-th.
    const int coarseLength = length / d;
    const int64_t coarseReference = FloorDiv(reference + d / 2, d);
    const int64_t shift = reference - coarseReference * d;
    const int64_t first = CeilDiv(lo - shift, d);
    const int count = int(FloorDiv(hi - shift, d) - first + 1);
    const int64_t coarseBegin = m_inBegin / d;
    ScoreMatches(m_coarse.data() + (coarseReference - coarseBegin), m_coarse.data() + (first - coarseBegin), count,
                 coarseLength, scores);

    // A steady voice matches about as well one period later or earlier, and
    // at the coarse rate it cannot be told which of those periods lines up
    // best to the sample; so the few best coarse peaks are all refined.
    int peaks[kRefinedPeaks];
    int found = 0;
    for (int j = 0; j < count; ++j) {
        const bool peak = (j == 0 || scores[j] > scores[j - 1]) && (j + 1 == count || scores[j] >= scores[j + 1]);
        if (!peak)
            continue;
        int at = found < kRefinedPeaks ? found++ : kRefinedPeaks;
        if (at == kRefinedPeaks) {
            if (scores[j] <= scores[peaks[kRefinedPeaks - 1]])
                continue;
            at = kRefinedPeaks - 1;
        }
        while (at > 0 && scores[peaks[at - 1]] < scores[j]) {
            peaks[at] = peaks[at - 1];
            --at;
        }
        peaks[at] = j;
    }
    // Peaks well below the best are not worth a closer look.
    while (found > 1 && scores[peaks[found - 1]] < kPeakShare * scores[peaks[0]])
        --found;

    // Full rate around each peak; a coarse value spans d lags, so the best
    // full-rate lag lies within about half of that either way.
    const int reach = (d + 1) / 2;
    float* fine = scores + count;
    int64_t best = base;
    float bestScore = -std::numeric_limits<float>::infinity();
    for (int p = 0; p < found; ++p) {
        const int64_t guess = (first + peaks[p]) * d + shift;
        const int64_t from = std::max(lo, guess - reach);
        const int64_t to = std::min(hi, guess + reach);
        if (to < from)
            continue;
        const int n = int(to - from + 1);
        ScoreMatches(target, sum + (from - m_inBegin), n, length, fine);
        const int j = Highest(fine, n);
        if (fine[j] > bestScore) {
            bestScore = fine[j];
            best = from + j;
        }
    }
    return best;
}

void CTempoStretcher::Emit(int64_t reference, float referenceFraction, int64_t start, float fraction)
{
    const int channels = m_channels;
    const int overlap = m_overlap;
    const int hop = m_hop;
    const float* fade = m_fade.data();
    float* from = m_scratch.data() + hop;
    float* to = from + hop;
    int16_t* out = m_output.data() + size_t(m_outEnd) * size_t(channels);
    for (int c = 0; c < channels; ++c) {
        const float* x = m_input.data() + size_t(c) * size_t(m_inCapacity);
        ReadBetween(x + (reference - m_inBegin), referenceFraction, overlap, from);
        ReadBetween(x + (start - m_inBegin), fraction, hop, to);
        int16_t* o = out + c;
        for (int i = 0; i < overlap; ++i)
            o[size_t(i) * channels] = ToSample(from[i] + fade[i] * (to[i] - from[i]));
        for (int i = overlap; i < hop; ++i)
            o[size_t(i) * channels] = ToSample(to[i]);
    }
    m_outEnd += hop;
}

void CTempoStretcher::AddMark(int64_t output, double input)
{
    if (m_markCount < kMarkCount) {
        m_marks[size_t((m_markFirst + m_markCount) % kMarkCount)] = Mark{output, input};
        ++m_markCount;
    } else {
        m_marks[size_t(m_markFirst)] = Mark{output, input};
        m_markFirst = (m_markFirst + 1) % kMarkCount;
    }
}

int CTempoStretcher::Pull(int16_t* out, int capacity)
{
    if (!out || capacity <= 0)
        return 0;
    const int64_t n = std::min<int64_t>(capacity, m_outEnd - m_outBegin);
    std::memcpy(out, m_output.data() + size_t(m_outBegin) * size_t(m_channels),
                size_t(n) * size_t(m_channels) * sizeof(int16_t));
    m_outBegin += n;
    return int(n);
}

void WidenU8ToS16(const uint8_t* in, int16_t* out, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        out[i] = int16_t((int(in[i]) - 128) * 256);
}

void NarrowS16ToU8(const int16_t* in, uint8_t* out, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        const int v = ((int(in[i]) + 128) >> 8) + 128;   // arithmetic shift: floor
        out[i] = uint8_t(std::min(v, 255));
    }
}
