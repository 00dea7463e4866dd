#include "dsp/WordCounter.h"

#include "dsp/WordCounterDetail.h"

#include <emmintrin.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>

const double g_lowPassTaps[kLowPassTapCount] = {
    0.01218354,  -0.009012882, -0.02881839, -0.04743239, -0.04584568, -0.008692503, 0.06446265,
    0.1544655,   0.2289794,    0.257883,    0.2289794,   0.1544655,   0.06446265,   -0.008692503,
    -0.04584568, -0.04743239,  -0.02881839, -0.009012882, 0.01218354,
};

namespace {

constexpr double kFrameSeconds = 0.04;
constexpr double kOverlapSeconds = 0.02;
constexpr double kClipShare = 0.68;
constexpr int32_t kValleyReach = 10;
constexpr double kDepthAboveMedian = 2.0;
constexpr double kDepthBelowMedian = 0.5;
constexpr double kLagTolerance = 0.05;
constexpr double kHitShare = 0.7;
constexpr int kHistoryLength = kLowPassTapCount - 1;

// Lags summed side by side: four SSE2 registers of two lanes, enough
// independent additions to hide the latency of each lag's own chain.
constexpr int32_t kLagLanes = 8;

// Below this many sample pairs in one call, starting threads costs more
// than it saves; a live block of 0.1 s stays well under it at usual rates.
constexpr double kPairsWorthThreads = 64.0 * 1024 * 1024;

double LoadDouble(const uint8_t* at) { return double(int16_t(uint16_t(at[0] | (uint16_t(at[1]) << 8)))); }

// One term of the difference function: rounded to single before its magnitude.
double DifferenceTerm(double earlier, double later) { return double(std::fabs(float(earlier - later))); }

void CentreClip(double* x, int32_t n) {
    double peak = 0.0;
    for (int32_t i = 0; i < n; ++i) peak = std::max(peak, std::fabs(x[i]));
    const double clip = peak * kClipShare;
    for (int32_t i = 0; i < n; ++i) {
        if (std::fabs(x[i]) < clip) {
            x[i] = 0.0;
        } else if (x[i] >= clip) {
            x[i] = x[i] - clip;
        } else if (x[i] <= -clip) {
            x[i] = x[i] + clip;
        }
    }
}

// A stretch [begin, end) of samples that are not zero. Outside all of them a
// pair of samples is two zeros, whose term is +0.0 and leaves a sum unchanged.
struct Run {
    int32_t begin;
    int32_t end;
};

// Writes the runs of x into `runs`, which has room for RunRoomFor(n) of them
// (two runs are at least one zero apart), and answers how many there are.
size_t NonZeroRuns(const double* x, int32_t n, Run* runs) {
    size_t count = 0;
    int32_t i = 0;
    while (i < n) {
        while (i < n && x[i] == 0.0) ++i;
        if (i == n) break;
        const int32_t begin = i;
        while (i < n && x[i] != 0.0) ++i;
        runs[count++] = {begin, i};
    }
    return count;
}

size_t RunRoomFor(int32_t n) { return size_t(std::max(n, 0)) / 2 + 1; }

// Adds the terms of lags firstLag .. firstLag + 7 for every j in [begin, end),
// each lane in ascending j. j + firstLag + 7 must stay inside the frame.
struct LaneSums {
    __m128d sums[kLagLanes / 2];

    LaneSums() {
        for (auto& sum : sums) sum = _mm_setzero_pd();
    }

    void Add(const double* x, int32_t firstLag, int32_t begin, int32_t end) {
        const __m128d magnitudeMask = _mm_castsi128_pd(_mm_set1_epi64x(0x7fffffffffffffffLL));
        __m128d s0 = sums[0], s1 = sums[1], s2 = sums[2], s3 = sums[3];
        for (int32_t j = begin; j < end; ++j) {
            const __m128d earlier = _mm_set1_pd(x[j]);
            const double* later = x + j + firstLag;
            const __m128d t0 = _mm_cvtps_pd(_mm_cvtpd_ps(_mm_sub_pd(earlier, _mm_loadu_pd(later))));
            const __m128d t1 = _mm_cvtps_pd(_mm_cvtpd_ps(_mm_sub_pd(earlier, _mm_loadu_pd(later + 2))));
            const __m128d t2 = _mm_cvtps_pd(_mm_cvtpd_ps(_mm_sub_pd(earlier, _mm_loadu_pd(later + 4))));
            const __m128d t3 = _mm_cvtps_pd(_mm_cvtpd_ps(_mm_sub_pd(earlier, _mm_loadu_pd(later + 6))));
            s0 = _mm_add_pd(s0, _mm_and_pd(t0, magnitudeMask));
            s1 = _mm_add_pd(s1, _mm_and_pd(t1, magnitudeMask));
            s2 = _mm_add_pd(s2, _mm_and_pd(t2, magnitudeMask));
            s3 = _mm_add_pd(s3, _mm_and_pd(t3, magnitudeMask));
        }
        sums[0] = s0, sums[1] = s1, sums[2] = s2, sums[3] = s3;
    }

    void Store(double* out) const {
        for (int32_t q = 0; q < kLagLanes / 2; ++q) _mm_storeu_pd(out + 2 * q, sums[q]);
    }
};

// Visits, in ascending order, the union of the runs and of the runs moved
// down by firstLag .. firstLag + 7, cut to [0, limit): every j at which some
// lane of the group has a sample that is not zero on either side.
template <typename Visit>
void ForEachBusyStretch(std::span<const Run> runs, int32_t firstLag, int32_t limit, Visit visit) {
    const int32_t widen = firstLag + kLagLanes - 1;
    size_t own = 0, moved = 0;
    bool open = false;
    Run current{0, 0};
    auto flush = [&] {
        const int32_t begin = std::max(current.begin, 0);
        const int32_t end = std::min(current.end, limit);
        if (begin < end) visit(begin, end);
    };
    for (;;) {
        // Both lists are sorted: once a head starts at the limit, so does the rest.
        const bool ownLeft = own < runs.size() && runs[own].begin < limit;
        const bool movedLeft = moved < runs.size() && runs[moved].begin - widen < limit;
        if (!ownLeft && !movedLeft) break;
        Run next;
        if (ownLeft && (!movedLeft || runs[own].begin <= runs[moved].begin - widen)) {
            next = runs[own++];
        } else {
            next = {runs[moved].begin - widen, runs[moved].end - firstLag};
            ++moved;
        }
        if (open && next.begin <= current.end) {
            current.end = std::max(current.end, next.end);
        } else {
            if (open) flush();
            current = next;
            open = true;
        }
    }
    if (open) flush();
}

// `runScratch` has room for RunRoomFor(n) runs.
void DifferenceOfClipped(const double* x, int32_t n, double* d, Run* runScratch) {
    d[0] = 0.0;
    if (n < 2) return;
    const std::span<const Run> runs(runScratch, NonZeroRuns(x, n, runScratch));
    int32_t firstLag = 1;
    // Lags up to n - 2 have terms; j of lag k runs to n - k - 2.
    for (; firstLag + kLagLanes - 1 <= n - 2; firstLag += kLagLanes) {
        const int32_t lastLag = firstLag + kLagLanes - 1;
        const int32_t sharedEnd = n - lastLag - 1;
        LaneSums lanes;
        ForEachBusyStretch(runs, firstLag, sharedEnd,
                           [&](int32_t begin, int32_t end) { lanes.Add(x, firstLag, begin, end); });
        lanes.Store(d + firstLag);
        for (int32_t lane = 0; lane < kLagLanes - 1; ++lane) {
            const int32_t lag = firstLag + lane;
            double sum = d[lag];
            for (int32_t j = sharedEnd; j <= n - lag - 2; ++j) sum += DifferenceTerm(x[j], x[j + lag]);
            d[lag] = sum;
        }
    }
    for (int32_t lag = firstLag; lag <= n - 1; ++lag) {
        double sum = 0.0;
        for (int32_t j = 0; j <= n - lag - 2; ++j) sum += DifferenceTerm(x[j], x[j + lag]);
        d[lag] = sum;
    }
}

double MedianOfThree(double a, double b, double c) {
    if (a > b) std::swap(a, b);
    if (b > c) std::swap(b, c);
    return std::max(a, b);
}

bool DepthNearMedian(double depth, double median) {
    return depth <= median * kDepthAboveMedian && depth >= median * kDepthBelowMedian;
}

// Working memory to judge frames of up to `frameLen` samples. Sized once;
// judging a frame never grows it.
struct FrameWorkspace {
    explicit FrameWorkspace(int32_t frameLen)
        : frame(size_t(std::max(frameLen, 0))),
          difference(frame.size()),
          runs(RunRoomFor(frameLen)),
          found(frame.size()),
          kept(2 * frame.size()) {}

    std::vector<double> frame;
    std::vector<double> difference;
    std::vector<Run> runs;
    std::vector<uint32_t> found;  // the strict local minima
    std::vector<uint32_t> kept;   // those that pass the cleaning, some twice
};

void ClipAndDifferenceWith(double* frame, int32_t frameLen, double* difference, Run* runScratch) {
    if (frameLen <= 0) return;
    CentreClip(frame, frameLen);
    DifferenceOfClipped(frame, frameLen, difference, runScratch);
}

// Strict local minima over ten neighbours each side into `found`, which has
// room for frameLen; answers how many.
size_t LocalMinimaInto(const double* difference, int32_t frameLen, uint32_t* found) {
    if (frameLen - kValleyReach <= kValleyReach) return 0;
    size_t count = 0;
    for (int32_t i = kValleyReach; i < frameLen - kValleyReach; ++i) {
        bool lowest = true;
        for (int32_t m = 1; m <= kValleyReach && lowest; ++m)
            lowest = difference[i] < difference[i - m] && difference[i] < difference[i + m];
        if (lowest) found[count++] = uint32_t(i);
    }
    return count;
}

// The valleys CleanValleys keeps of `count` (at least three) into `kept`,
// which has room for twice as many; answers how many.
size_t CleanValleysInto(const uint32_t* valleys, size_t count, const double* difference, uint32_t* kept) {
    auto depth = [&](size_t index) { return difference[valleys[index]]; };
    size_t keptCount = 0;
    for (size_t group = 0; group + 3 <= count; group += 3) {
        const double median = MedianOfThree(depth(group), depth(group + 1), depth(group + 2));
        for (size_t i = group; i < group + 3; ++i)
            if (DepthNearMedian(depth(i), median)) kept[keptCount++] = valleys[i];
    }
    const double tailMedian = MedianOfThree(depth(count - 3), depth(count - 2), depth(count - 1));
    for (size_t i = count; i-- > 0;)
        if (DepthNearMedian(depth(i), tailMedian)) kept[keptCount++] = valleys[i];
    return keptCount;
}

std::span<const uint32_t> ValleysOf(const double* difference, int32_t frameLen, FrameWorkspace& work) {
    const size_t count = LocalMinimaInto(difference, frameLen, work.found.data());
    if (count <= 2) return {work.found.data(), count};
    return {work.kept.data(), CleanValleysInto(work.found.data(), count, difference, work.kept.data())};
}

int32_t IsVoicedWith(const double* difference, int32_t frameLen, FrameWorkspace& work) {
    const std::span<const uint32_t> valleys = ValleysOf(difference, frameLen, work);
    if (valleys.empty()) return 0;
    return TestPeriod(valleys) != 0 ? 1 : 0;
}

// 1 when the frame of `frameLen` filtered samples from `start` is voiced.
int32_t JudgeFrame(const double* start, int32_t frameLen, FrameWorkspace& work) {
    std::memcpy(work.frame.data(), start, size_t(frameLen) * sizeof(double));
    std::fill(work.difference.begin(), work.difference.end(), 0.0);
    ClipAndDifferenceWith(work.frame.data(), frameLen, work.difference.data(), work.runs.data());
    return IsVoicedWith(work.difference.data(), frameLen, work);
}

// What CountVoicedFrames makes of a block before judging its frames.
struct BlockShape {
    uint32_t bytesPerSample = 0;
    uint32_t count = 0;  // samples
    FrameGeometry geometry;
    int32_t frameCount = 0;
};

// False for a block with nothing to count.
bool ShapeOf(const uint8_t* data, uint32_t byteCount, uint32_t samplesPerSec, uint16_t bitsPerSample,
             BlockShape& shape) {
    if (data == nullptr || byteCount == 0) return false;
    shape.bytesPerSample = bitsPerSample / 8u;
    // Other widths leave every sample at 0.0, which no frame can call voiced;
    // below 8 bits there is no whole sample to divide by.
    if (shape.bytesPerSample != 1 && shape.bytesPerSample != 2) return false;
    shape.count = byteCount / shape.bytesPerSample;
    shape.geometry = FrameGeometryForRate(samplesPerSec);
    shape.frameCount = FrameCountFor(shape.count, shape.geometry);
    return shape.frameCount > 0;
}

// The block as doubles and low-passed into `filtered`. `samples` and
// `filtered` hold shape.count values, `history` kHistoryLength more.
void FilterBlock(const uint8_t* data, uint32_t byteCount, const BlockShape& shape, double* samples, double* history,
                 double* filtered);

// Every frame of the call is independent; each lands in its own slot so the
// sum comes out in frame order whatever thread ran it.
class FrameCounter {
public:
    FrameCounter(const double* filtered, FrameGeometry geometry, int32_t frameCount)
        : m_filtered(filtered), m_geometry(geometry), m_voiced(size_t(frameCount), 0) {}

    int32_t Run() {
        const unsigned helpers = HelperCount();
        std::vector<std::thread> threads;
        for (unsigned t = 0; t < helpers; ++t) {
            try {
                threads.emplace_back([this] { Work(); });
            } catch (const std::system_error&) {
                break;  // fewer threads only means slower
            }
        }
        Work();
        for (auto& thread : threads) thread.join();
        if (m_failure) std::rethrow_exception(m_failure);
        int32_t count = 0;
        for (const uint8_t voiced : m_voiced) count += voiced;
        return count;
    }

private:
    unsigned HelperCount() const {
        const double frameLen = m_geometry.frameLen;
        const double pairs = double(m_voiced.size()) * frameLen * frameLen * 0.5;
        if (pairs < kPairsWorthThreads) return 0;
        const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
        const size_t byFrames = m_voiced.size() / 8;
        return unsigned(std::min<size_t>(cores, std::max<size_t>(byFrames, 1)) - 1);
    }

    void Work() {
        try {
            FrameWorkspace work(m_geometry.frameLen);
            for (;;) {
                const size_t f = m_next.fetch_add(1);
                if (f >= m_voiced.size()) break;
                m_voiced[f] = uint8_t(JudgeFrame(m_filtered + f * size_t(m_geometry.Hop()), m_geometry.frameLen, work));
            }
        } catch (...) {
            std::lock_guard<std::mutex> hold(m_failureLock);
            if (!m_failure) m_failure = std::current_exception();
            m_next.store(m_voiced.size());
        }
    }

    const double* m_filtered;
    FrameGeometry m_geometry;
    std::vector<uint8_t> m_voiced;
    std::atomic<size_t> m_next{0};
    std::mutex m_failureLock;
    std::exception_ptr m_failure;
};

}  // namespace

FrameGeometry FrameGeometryForRate(uint32_t samplesPerSec) {
    FrameGeometry geometry;
    geometry.frameLen = int32_t(kFrameSeconds * double(samplesPerSec));
    geometry.overlap = int32_t(double(samplesPerSec) * kOverlapSeconds);
    return geometry;
}

int32_t FrameCountFor(uint32_t count, FrameGeometry geometry) {
    // A rate below 25 gives frames of no length and a hop of 0: no frames.
    if (geometry.frameLen <= 0 || geometry.Hop() <= 0) return 0;
    const double frames = std::floor((double(count) - double(geometry.overlap)) / double(geometry.Hop()));
    return frames > 0.0 ? int32_t(frames) : 0;
}

void SamplesToDoubles(const uint8_t* bytes, uint32_t byteCount, uint32_t bytesPerSample, double* out) {
    if (bytesPerSample == 1) {
        for (uint32_t i = 0; i < byteCount; ++i) out[i] = double(int32_t(bytes[i]) - 128) * 0.0078125;
    } else if (bytesPerSample == 2) {
        const uint32_t count = byteCount / 2;
        for (uint32_t i = 0; i < count; ++i) out[i] = LoadDouble(bytes + 2 * size_t(i)) * 3.0517578125e-05;
    }
}

namespace {

// LowPassFilter with the caller's `history`, which holds kHistoryLength + count.
void LowPassInto(const double* in, double* out, uint32_t count, double* history) {
    std::fill(history, history + kHistoryLength, 0.0);
    std::copy(in, in + count, history + kHistoryLength);
    const double* newest = history + kHistoryLength;
    uint32_t i = 0;
    // Two outputs at a time, each its own sum over k in ascending order.
    for (; i + 2 <= count; i += 2) {
        __m128d sum = _mm_setzero_pd();
        for (int k = 0; k < kLowPassTapCount; ++k)
            sum = _mm_add_pd(sum, _mm_mul_pd(_mm_set1_pd(g_lowPassTaps[k]), _mm_loadu_pd(newest + i - k)));
        _mm_storeu_pd(out + i, sum);
    }
    for (; i < count; ++i) {
        double sum = 0.0;
        for (int k = 0; k < kLowPassTapCount; ++k) sum += g_lowPassTaps[k] * *(newest + i - k);
        out[i] = sum;
    }
}

void FilterBlock(const uint8_t* data, uint32_t byteCount, const BlockShape& shape, double* samples, double* history,
                 double* filtered) {
    SamplesToDoubles(data, byteCount, shape.bytesPerSample, samples);
    LowPassInto(samples, filtered, shape.count, history);
}

}  // namespace

void LowPassFilter(const double* in, double* out, uint32_t count) {
    std::vector<double> history(kHistoryLength + size_t(count));
    LowPassInto(in, out, count, history.data());
}

std::vector<std::vector<double>> SplitFrames(const double* samples, uint32_t count, int32_t frameLen, int32_t overlap) {
    const FrameGeometry geometry{frameLen, overlap};
    const int32_t frameCount = FrameCountFor(count, geometry);
    std::vector<std::vector<double>> frames(size_t(std::max(frameCount, 0)));
    for (int32_t f = 0; f < frameCount; ++f) {
        const double* start = samples + size_t(f) * size_t(geometry.Hop());
        frames[size_t(f)].assign(start, start + frameLen);
    }
    return frames;
}

void ClipAndDifference(double* frame, int32_t frameLen, double* difference) {
    std::vector<Run> runs(RunRoomFor(frameLen));
    ClipAndDifferenceWith(frame, frameLen, difference, runs.data());
}

int32_t IsFrameVoiced(const double* difference, int32_t frameLen) {
    FrameWorkspace work(frameLen);
    return IsVoicedWith(difference, frameLen, work);
}

std::vector<uint32_t> FindValleys(const double* difference, int32_t frameLen) {
    FrameWorkspace work(frameLen);
    const std::span<const uint32_t> valleys = ValleysOf(difference, frameLen, work);
    return {valleys.begin(), valleys.end()};
}

void CleanValleys(std::vector<uint32_t>& valleys, const double* difference) {
    const size_t count = valleys.size();
    if (count < 3) return;
    std::vector<uint32_t> kept(2 * count);
    kept.resize(CleanValleysInto(valleys.data(), count, difference, kept.data()));
    valleys = std::move(kept);
}

uint32_t TestPeriod(std::span<const uint32_t> valleys) {
    // A period of 0 would never move the lag on; valleys start at lag 10 anyway.
    if (valleys.empty() || valleys.front() == 0) return 0;
    const uint32_t period = valleys.front();
    const uint32_t last = valleys.back();
    uint32_t hits = 1;
    uint64_t lag = 2 * uint64_t(period);
    if (valleys.size() > 1) {
        for (;;) {
            const size_t near = FindNearValley(valleys, uint32_t(std::min<uint64_t>(lag, UINT32_MAX)));
            lag += period;
            if (near != 0) ++hits;
            if (double(last) + double(lag) * kLagTolerance < double(lag)) break;
        }
    }
    const uint32_t expected = last / period + 1;
    return double(hits) / double(expected) > kHitShare ? period : 0;
}

size_t FindNearValley(std::span<const uint32_t> valleys, uint32_t lag) {
    if (lag == 0) return 0;
    for (size_t i = 0; i < valleys.size(); ++i)
        if (std::fabs(double(lag) - double(valleys[i])) / double(lag) < kLagTolerance) return i;
    return 0;
}

int32_t CountVoicedFrames(const uint8_t* data, uint32_t byteCount, uint32_t samplesPerSec, uint16_t bitsPerSample) {
    BlockShape shape;
    if (!ShapeOf(data, byteCount, samplesPerSec, bitsPerSample, shape)) return 0;
    std::vector<double> filtered(shape.count);
    {
        std::vector<double> samples(shape.count);
        std::vector<double> history(kHistoryLength + size_t(shape.count));
        FilterBlock(data, byteCount, shape, samples.data(), history.data(), filtered.data());
    }
    FrameCounter counter(filtered.data(), shape.geometry, shape.frameCount);
    return counter.Run();
}

// ---------------------------------------------------------------- stage

struct CWordCountStage::Workspace {
    Workspace(uint32_t maxSamples, int32_t frameLen)
        : samples(maxSamples), history(kHistoryLength + size_t(maxSamples)), filtered(maxSamples), frames(frameLen) {}

    std::vector<double> samples;
    std::vector<double> history;
    std::vector<double> filtered;
    FrameWorkspace frames;
};

CWordCountStage::CWordCountStage() = default;
CWordCountStage::~CWordCountStage() = default;

void CWordCountStage::Reserve(uint32_t maxBlockBytes, uint32_t samplesPerSec, uint16_t bitsPerSample) {
    const uint32_t bytesPerSample = bitsPerSample / 8u;
    // A width the counter never counts needs no room at all.
    const uint32_t maxSamples = bytesPerSample == 1 || bytesPerSample == 2 ? maxBlockBytes / bytesPerSample : 0;
    // A frame longer than the largest block is never judged, whatever rate
    // a head states; all or nothing: a failed allocation leaves the old room
    // and format.
    const int32_t frameLen = FrameGeometryForRate(samplesPerSec).frameLen;
    m_work = std::make_unique<Workspace>(maxSamples, int32_t(std::min<int64_t>(frameLen, maxSamples)));
    m_samplesPerSec = samplesPerSec;
    m_bitsPerSample = bitsPerSample;
    m_maxSamples = maxSamples;
}

int32_t CWordCountStage::Count(const uint8_t* data, uint32_t byteCount) {
    BlockShape shape;
    if (!ShapeOf(data, byteCount, m_samplesPerSec, m_bitsPerSample, shape)) return 0;
    if (!m_work || shape.count > m_maxSamples) return -1;
    Workspace& work = *m_work;
    FilterBlock(data, byteCount, shape, work.samples.data(), work.history.data(), work.filtered.data());
    // One frame after another on the calling thread: a block of 0.1 s is a
    // few frames, too little to be worth handing to other threads.
    int32_t voiced = 0;
    const size_t hop = size_t(shape.geometry.Hop());
    for (int32_t f = 0; f < shape.frameCount; ++f)
        voiced += JudgeFrame(work.filtered.data() + size_t(f) * hop, shape.geometry.frameLen, work.frames);
    return voiced;
}
