#include "dsp/SpeedChanger.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "support/SpeechLikeSignal.h"
#include "support/SpeedChangerReference.h"

namespace {

constexpr int32_t kBlock = 2205;  // 0.1 s of 22050 Hz mono
constexpr int32_t kFrame = speed_reference::kFrameLength;

std::vector<int16_t> ChangeSpeed(const std::vector<int16_t>& samples, int16_t level)
{
    CSpeedChanger changer;
    changer.Load(samples.data(), int32_t(samples.size()), level);
    const int32_t runCount = changer.Run();
    int16_t* out = nullptr;
    int32_t count = -1;
    changer.TakeOutput(&out, &count);
    std::unique_ptr<int16_t[]> owned(out);
    EXPECT_EQ(runCount, count);
    return std::vector<int16_t>(out, out + count);
}

std::vector<int16_t> RampBlock()
{
    std::vector<int16_t> s(kBlock);
    for (int32_t i = 0; i < kBlock; ++i)
        s[i] = int16_t((((i * 37) % 2001) - 1000) * 8);
    return s;
}

std::vector<int16_t> Noise(int32_t count, int32_t amplitude, uint32_t seed)
{
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int32_t> value(-amplitude, amplitude - 1);
    std::vector<int16_t> s(count);
    for (auto& v : s)
        v = int16_t(value(rng));
    return s;
}

std::vector<int16_t> Speech(int32_t count, uint32_t seed = 1, int32_t rate = 22050)
{
    return test_signals::SpeechLike(rate, count, 1, seed);
}

int64_t Sum(const std::vector<int16_t>& s) { return std::accumulate(s.begin(), s.end(), int64_t(0)); }

// Index of the first difference, or -1.
int64_t FirstMismatch(const std::vector<int16_t>& a, const std::vector<int16_t>& b)
{
    if (a.size() != b.size())
        return int64_t(std::min(a.size(), b.size()));
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i])
            return int64_t(i);
    return -1;
}

TEST(SpeedChangerTest, ReproducesTheRampBlockTable)
{
    struct Case {
        int16_t level;
        size_t count;
        int64_t sum;
    };
    const Case cases[] = {
        {-50, 2584, -61429}, {-30, 2584, -80675}, {-20, 2367, -52513}, {-10, 2205, -69371}, {5, 1936, -80260},
        {10, 1881, -99005},  {20, 1611, -64848},  {30, 1449, -68941},  {40, 1395, -108788}, {50, 1232, -80778},
    };
    const std::vector<int16_t> block = RampBlock();
    for (const Case& c : cases) {
        const std::vector<int16_t> out = ChangeSpeed(block, c.level);
        EXPECT_EQ(out.size(), c.count) << "level " << c.level;
        EXPECT_EQ(Sum(out), c.sum) << "level " << c.level;
    }
}

TEST(SpeedChangerTest, LevelsMapToFactorsHopsAndCapacities)
{
    struct Case {
        int16_t level;
        float factor;
        int32_t hop;
        int32_t capacity;
    };
    // The ends, the step in capacity between -41 and -40, the single-precision
    // factors either side of 0; beyond the ends the factor is held at them.
    const Case cases[] = {
        {-60, 0.5f, 55, 3}, {-41, 0.65833336f, 72, 3}, {-40, 0.66666669f, 73, 2}, {-1, 0.99166667f, 109, 2},
        {0, 1.0f, 110, 2},  {1, 1.02f, 112, 2},        {50, 2.0f, 220, 2},        {51, 2.0f, 220, 2},
        {32767, 2.0f, 220, 2}, {-61, 0.5f, 55, 3},     {-32768, 0.5f, 55, 3},
    };
    for (const Case& c : cases) {
        const float factor = CSpeedChanger::FactorForLevel(c.level);
        EXPECT_EQ(factor, c.factor) << "level " << c.level;
        EXPECT_EQ(CSpeedChanger::AnalysisHop(110, factor), c.hop) << "level " << c.level;
        EXPECT_EQ(CSpeedChanger::CapacityMultiple(factor), c.capacity) << "level " << c.level;

        CSpeedChanger changer;
        const int16_t sample = 0;
        changer.Load(&sample, 1, c.level);
        EXPECT_EQ(changer.Factor(), c.factor) << "level " << c.level;
    }
}

TEST(SpeedChangerTest, DecimationRoundsTheSumAfterEveryAddition)
{
    struct Case {
        std::string name;
        std::vector<float> samples;
        std::vector<float> means;
    };
    std::vector<float> bigFirst(10, 1.0f);
    bigFirst[0] = 16777216.0f;  // 2^24: each +1 rounds away in single
    const Case cases[] = {
        {"one run", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, {4.5f}},
        {"partial run ignored", {10, 10, 10, 10, 10, 10, 10, 10, 10, 10, -5, 99}, {10.0f}},
        {"short of one run", {1, 2, 3, 4, 5, 6, 7, 8, 9}, {}},
        {"empty", {}, {}},
        {"single-precision sum", bigFirst, {1677721.625f}},
    };
    for (const Case& c : cases) {
        std::unique_ptr<float[]> means(
            CSpeedChanger::DecimateAverage(c.samples.data(), int32_t(c.samples.size()), 10));
        ASSERT_EQ(speed_reference::Decimate(c.samples, 10).size(), c.means.size()) << c.name;
        for (size_t m = 0; m < c.means.size(); ++m)
            EXPECT_EQ(means[m], c.means[m]) << c.name << " element " << m;
    }
}

TEST(SpeedChangerTest, OutputRoundsHalvesAwayFromZeroAndHoldsTheRange)
{
    struct Case {
        float value;
        int16_t sample;
    };
    const Case cases[] = {
        {0.0f, 0},           {-0.0f, 0},           {0.49999997f, 0},       {0.5f, 1},           {-0.5f, -1},
        {1.5f, 2},           {2.5f, 3},            {-2.5f, -3},            {-1.4999999f, -1},   {123.5f, 124},
        {-123.5f, -124},     {32766.5f, 32767},    {32767.0f, 32767},      {32767.4f, 32767},   {32767.5f, 32767},
        {32768.0f, 32767},   {1e9f, 32767},        {3.4e38f, 32767},       {-32767.5f, -32768}, {-32768.0f, -32768},
        {-32768.4f, -32768}, {-32768.5f, -32768},  {-1e9f, -32768},        {-3.4e38f, -32768},
    };
    const int32_t n = int32_t(std::size(cases));
    // Every value through every vector lane and through the scalar tail.
    for (int32_t rotation = 0; rotation < n; ++rotation) {
        for (int32_t count : {n, 1, 2, 3, 5, 7}) {
            std::vector<float> values;
            for (int32_t i = 0; i < count; ++i)
                values.push_back(cases[(i + rotation) % n].value);
            std::vector<int16_t> samples(values.size());
            CSpeedChanger::RoundToSamples(values.data(), count, samples.data());
            for (int32_t i = 0; i < count; ++i) {
                const Case& c = cases[(i + rotation) % n];
                ASSERT_EQ(samples[i], c.sample) << "value " << c.value;
                ASSERT_EQ(speed_reference::ToSample(c.value), c.sample) << "value " << c.value;
            }
        }
    }
}

TEST(SpeedChangerTest, SilenceKeepsItsLength)
{
    const std::vector<int16_t> silence(kBlock, 0);
    for (int16_t level : {-60, -20, 1, 10, 50}) {
        const std::vector<int16_t> out = ChangeSpeed(silence, level);
        EXPECT_EQ(out, silence) << "level " << level;
    }

    // The first search sees only zeros and gives 0; the speech after the
    // silence is then copied at unchanged tempo, one sample late.
    std::vector<int16_t> silenceThenSpeech(1102, 0);
    const std::vector<int16_t> speech = Speech(kBlock - 1102, 3);
    silenceThenSpeech.insert(silenceThenSpeech.end(), speech.begin(), speech.end());
    for (int16_t level : {1, 10, 25, 50}) {
        const std::vector<int16_t> out = ChangeSpeed(silenceThenSpeech, level);
        ASSERT_EQ(out.size(), size_t(kBlock)) << "level " << level;
        for (int32_t i = kFrame + 1; i < kBlock; ++i)
            ASSERT_EQ(out[i], silenceThenSpeech[i - 1]) << "level " << level << " sample " << i;
    }
}

TEST(SpeedChangerTest, SmallSlowdownsOnlyDelayTheBlockByOneSample)
{
    const std::vector<std::vector<int16_t>> blocks = {RampBlock(), Speech(kBlock, 1), Speech(kBlock, 2),
                                                      Noise(kBlock, 30000, 7)};
    for (size_t b = 0; b < blocks.size(); ++b) {
        for (int16_t level = -13; level <= -1; ++level) {
            const std::vector<int16_t> out = ChangeSpeed(blocks[b], level);
            ASSERT_EQ(out.size(), size_t(kBlock)) << "block " << b << " level " << level;
            // Past the first overlap the halves of the window sum to one.
            for (int32_t i = 2 * kFrame; i < kBlock; ++i)
                ASSERT_EQ(out[i], blocks[b][i - 1]) << "block " << b << " level " << level << " sample " << i;
        }
    }
    // Further down the frames drift far enough for a search to pull them back.
    EXPECT_GT(ChangeSpeed(Speech(kBlock, 1), -20).size(), size_t(kBlock));
}

TEST(SpeedChangerTest, LevelZeroHandsTheBlockBackAndCanBeReloaded)
{
    const std::vector<int16_t> speech = Speech(kBlock, 4);
    CSpeedChanger changer;
    changer.Load(speech.data(), kBlock, 0);
    EXPECT_EQ(changer.Run(), kBlock);
    int16_t* out = nullptr;
    int32_t count = 0;
    changer.TakeOutput(&out, &count);
    EXPECT_EQ(std::vector<int16_t>(out, out + count), speech);
    delete[] out;

    // The input array, shared with the output at factor 1.0, is freed by the
    // reload; the output must not be left pointing at it.
    changer.Load(speech.data(), kBlock, 25);
    changer.Run();
    changer.TakeOutput(&out, &count);
    EXPECT_EQ(FirstMismatch(std::vector<int16_t>(out, out + count), speed_reference::ChangeSpeed(speech, 25)), -1);
    delete[] out;

    changer.Load(speech.data(), kBlock, 0);
    changer.Run();
    changer.Release();
    changer.Release();
    changer.TakeOutput(&out, &count);
    EXPECT_EQ(count, 0);
    delete[] out;
}

// Meant for the AddressSanitizer build as much as for the results: every
// length from an empty block up to a few frames.
TEST(SpeedChangerTest, EveryShortLengthMatchesThePlainVersion)
{
    const std::vector<int16_t> speech = Speech(700, 5);
    const std::vector<int16_t> noise = Noise(700, 32768, 11);
    for (const auto* signal : {&speech, &noise}) {
        for (int32_t n = 0; n <= 700; ++n) {
            const std::vector<int16_t> block(signal->begin(), signal->begin() + n);
            for (int16_t level : {-60, -41, -40, -1, 1, 25, 50}) {
                const std::vector<int16_t> out = ChangeSpeed(block, level);
                if (n < kFrame) {
                    ASSERT_EQ(out, block) << "length " << n << " level " << level;
                }
                ASSERT_LE(out.size(), size_t(n) * CSpeedChanger::CapacityMultiple(CSpeedChanger::FactorForLevel(level)));
                ASSERT_EQ(FirstMismatch(out, speed_reference::ChangeSpeed(block, level)), -1)
                    << "length " << n << " level " << level;
            }
        }
    }
}

TEST(SpeedChangerTest, MatchesThePlainVersionOnRandomBlocks)
{
    std::mt19937 rng(20240611);
    auto pick = [&](int32_t low, int32_t high) { return std::uniform_int_distribution<int32_t>(low, high)(rng); };
    for (int32_t trial = 0; trial < 600; ++trial) {
        const int32_t n = trial % 3 == 0 ? kBlock : pick(kFrame, 9000);
        int16_t level = int16_t(pick(-60, 49));
        if (level >= 0)
            ++level;
        std::vector<int16_t> block;
        switch (trial % 6) {
        case 0: block = Speech(n, uint32_t(trial), pick(0, 1) ? 22050 : 44100); break;
        case 1: block = Noise(n, pick(1, 32768), uint32_t(trial)); break;
        case 2: block = Noise(n, 2, uint32_t(trial)); break;  // many tied scores
        case 3: {
            block.assign(size_t(pick(0, n)), 0);
            const std::vector<int16_t> speech = Speech(n - int32_t(block.size()), uint32_t(trial));
            block.insert(block.end(), speech.begin(), speech.end());
            break;
        }
        case 4: {  // full-scale square wave: overlap sums at the edge of the range
            const int32_t halfPeriod = pick(20, 200);
            for (int32_t i = 0; i < n; ++i)
                block.push_back((i / halfPeriod) % 2 ? int16_t(32767) : int16_t(-32768));
            break;
        }
        default: {  // speech interleaved as stereo, as a 44100 Hz stereo block arrives
            block = test_signals::SpeechLike(44100, (n + 1) / 2, 2, uint32_t(trial));
            block.resize(size_t(n));
            break;
        }
        }
        const std::vector<int16_t> out = ChangeSpeed(block, level);
        ASSERT_EQ(FirstMismatch(out, speed_reference::ChangeSpeed(block, level)), -1)
            << "trial " << trial << " length " << n << " level " << level;
    }
}

// Every lane count and remainder, with values whose products need all 48
// bits, so that any other rounding than one per step in double shows.
TEST(SpeedChangerTest, ScoresMatchThePlainSumsBitForBit)
{
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> wide(-32768.0f, 32767.0f);
    for (int32_t terms = 0; terms <= 230; terms += (terms < 30 ? 1 : 17)) {
        for (int32_t candidates = 1; candidates <= 25; ++candidates) {
            std::vector<float> reference(static_cast<size_t>(terms));
            std::vector<float> search(size_t(candidates + terms));
            for (auto& v : reference)
                v = wide(rng);
            for (auto& v : search)
                v = wide(rng);
            std::vector<float> scores(static_cast<size_t>(candidates));
            CSpeedChanger::ScoreOffsets(reference.data(), terms, search.data(), candidates, scores.data());
            for (int32_t c = 0; c < candidates; ++c) {
                const float plain = speed_reference::Correlate(reference, 0, search, c, terms);
                ASSERT_EQ(std::bit_cast<uint32_t>(scores[c]), std::bit_cast<uint32_t>(plain))
                    << "terms " << terms << " candidates " << candidates << " lane " << c;
            }
        }
    }
}

TEST(SpeedChangerTest, FindBestOffsetMatchesThePlainSearch)
{
    std::mt19937 rng(77);
    auto pick = [&](int32_t low, int32_t high) { return std::uniform_int_distribution<int32_t>(low, high)(rng); };
    for (int32_t trial = 0; trial < 3000; ++trial) {
        const int32_t n = pick(1, 1200);
        std::vector<int16_t> samples = trial % 2 ? Speech(n, uint32_t(trial)) : Noise(n, trial % 4 ? 3 : 20000, uint32_t(trial));
        const std::vector<float> in(samples.begin(), samples.end());
        const std::vector<float> dec = speed_reference::Decimate(in, 10);
        const int32_t length = trial % 5 ? kFrame : pick(0, 300);
        const int32_t searchStart = pick(0, n - 1);
        const int32_t searchLength = pick(0, n - searchStart);
        // The reference may run past the end of the block.
        const int32_t referenceStart = pick(0, n);
        const int32_t referenceCount = std::min(length, n - referenceStart);
        const int32_t decimatedReferenceCount =
            std::min(length / 10, int32_t(dec.size()) - referenceStart / 10);

        const int32_t fast = CSpeedChanger::FindBestOffset(
            dec.data() + referenceStart / 10, decimatedReferenceCount, in.data() + referenceStart, referenceCount,
            length, dec.data() + searchStart / 10, in.data() + searchStart, searchLength, 10);
        const int32_t plain =
            speed_reference::BestOffset(in, dec, referenceStart, searchStart, length, searchLength);
        ASSERT_EQ(fast, plain) << "trial " << trial << " length " << length << " search " << searchStart << "+"
                               << searchLength << " reference " << referenceStart;
    }
}

}  // namespace
