// The tempo change in reserved memory: block for block what the changer
// gives, in place or not, and without the allocator once reserved.
#include "dsp/SpeedChanger.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "support/CountingAllocator.h"
#include "support/SpeechLikeSignal.h"
#include "support/SpeedChangerReference.h"

namespace {

constexpr int32_t kBlock = 2205;  // 0.1 s of 22050 Hz mono
constexpr int16_t kUntouched = 0x5A5A;

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
    std::vector<int16_t> s(size_t(std::max(count, 0)));
    for (auto& v : s)
        v = int16_t(value(rng));
    return s;
}

int64_t Sum(const int16_t* samples, int32_t count) { return std::accumulate(samples, samples + count, int64_t(0)); }

// The stage's output for `block` into a fresh buffer of `capacity` samples,
// cut to what it wrote; `written` gets the stage's answer.
std::vector<int16_t> RunStage(CSpeedChangeStage& stage, const std::vector<int16_t>& block, int16_t level,
                              int32_t capacity, int32_t* written = nullptr)
{
    std::vector<int16_t> out(size_t(capacity), kUntouched);
    const int32_t answer = stage.RunInto(block.data(), int32_t(block.size()), level, out.data(), capacity);
    if (written)
        *written = answer;
    out.resize(size_t(std::max(answer, 0)));
    return out;
}

TEST(SpeedChangeStageTest, ReproducesTheRampBlockTableInPlace)
{
    struct Case {
        int16_t level;
        int32_t count;
        int64_t sum;
    };
    // The ramp block's table of the changer, level by level.
    const Case cases[] = {
        {-50, 2584, -61429}, {-30, 2584, -80675}, {-20, 2367, -52513}, {-10, 2205, -69371}, {5, 1936, -80260},
        {10, 1881, -99005},  {20, 1611, -64848},  {30, 1449, -68941},  {40, 1395, -108788}, {50, 1232, -80778},
    };
    CSpeedChangeStage stage;
    stage.Reserve(kBlock);
    for (const Case& c : cases) {
        // The block in a buffer of ten blocks, as the engine holds it.
        std::vector<int16_t> buffer = RampBlock();
        buffer.resize(10 * kBlock, kUntouched);
        const int32_t written = stage.RunInto(buffer.data(), kBlock, c.level, buffer.data(), int32_t(buffer.size()));
        EXPECT_EQ(written, c.count) << "level " << c.level;
        EXPECT_EQ(Sum(buffer.data(), written), c.sum) << "level " << c.level;
        // Nothing is written past the output, nor past the block it replaced.
        EXPECT_EQ(buffer[size_t(std::max(written, kBlock))], kUntouched) << "level " << c.level;
    }
}

// One stage, reserved once, through a stream of blocks of every kind; each
// must come out as the plain version gives it on its own.
TEST(SpeedChangeStageTest, MatchesThePlainVersionBlockAfterBlock)
{
    constexpr int32_t kLongest = 9000;
    CSpeedChangeStage stage;
    stage.Reserve(kLongest);
    std::mt19937 rng(77);
    auto pick = [&](int32_t low, int32_t high) { return std::uniform_int_distribution<int32_t>(low, high)(rng); };
    for (int32_t trial = 0; trial < 400; ++trial) {
        int32_t n = trial % 4 == 0 ? kBlock : pick(0, kLongest);
        if (trial % 7 == 0)
            n = pick(0, speed_reference::kFrameLength);  // shorter than a frame, or just one
        const int16_t levels[] = {int16_t(pick(-60, 50)), 0, -32768, 32767};
        const int16_t level = levels[trial % 9 == 0 ? 1 + trial % 3 : 0];
        std::vector<int16_t> block;
        switch (trial % 4) {
        case 0: block = test_signals::SpeechLike(22050, n, 1, uint32_t(trial)); break;
        case 1: block = Noise(n, pick(1, 32768), uint32_t(trial)); break;
        case 2: {  // full-scale square wave: overlap sums at the edge of the range
            const int32_t halfPeriod = pick(20, 200);
            for (int32_t i = 0; i < n; ++i)
                block.push_back((i / halfPeriod) % 2 ? int16_t(32767) : int16_t(-32768));
            break;
        }
        default: block = Noise(n, 2, uint32_t(trial)); break;  // many tied scores
        }
        const std::vector<int16_t> expected = speed_reference::ChangeSpeed(block, level);
        const int32_t room = 3 * kLongest;
        if (trial % 2 == 0) {
            ASSERT_EQ(RunStage(stage, block, level, room), expected) << "trial " << trial << " length " << n;
        } else {
            std::vector<int16_t> buffer = block;
            buffer.resize(size_t(room));
            const int32_t written = stage.RunInto(buffer.data(), n, level, buffer.data(), room);
            buffer.resize(size_t(std::max(written, 0)));
            ASSERT_EQ(buffer, expected) << "in place, trial " << trial << " length " << n;
        }
    }
}

TEST(SpeedChangeStageTest, OutputIsCutToTheRoomGiven)
{
    const std::vector<int16_t> speech = test_signals::SpeechLike(22050, kBlock, 1, 9);
    for (int16_t level : {-60, 0, 50}) {
        const std::vector<int16_t> full = speed_reference::ChangeSpeed(speech, level);
        const int32_t fullCount = int32_t(full.size());
        CSpeedChangeStage stage;
        stage.Reserve(kBlock);
        for (int32_t capacity : {0, 1, 7, fullCount - 1, fullCount, fullCount + 40}) {
            SCOPED_TRACE(testing::Message() << "level " << level << " capacity " << capacity);
            std::vector<int16_t> out(size_t(capacity) + 1, kUntouched);
            const int32_t written = stage.RunInto(speech.data(), kBlock, level, out.data(), capacity);
            ASSERT_EQ(written, std::min(capacity, fullCount));
            EXPECT_TRUE(std::equal(out.begin(), out.begin() + written, full.begin()));
            EXPECT_TRUE(std::all_of(out.begin() + written, out.end(), [](int16_t v) { return v == kUntouched; }));
        }
    }
}

TEST(SpeedChangeStageTest, BlocksBeyondTheRoomAreLeftAlone)
{
    const std::vector<int16_t> speech = test_signals::SpeechLike(22050, kBlock + 1, 1, 5);
    struct Case {
        const char* name;
        int32_t reserved;  // -1: never reserved
        const int16_t* samples;
        int32_t count;
        int32_t written;
    };
    const Case cases[] = {
        {"one sample past the room", kBlock, speech.data(), kBlock + 1, -1},
        {"a stage never reserved", -1, speech.data(), 1, -1},
        {"room for nothing", 0, speech.data(), 1, -1},
        {"an empty block needs no room", -1, speech.data(), 0, 0},
        {"no samples at all", 0, nullptr, kBlock, 0},
        {"a negative count is an empty block", 0, speech.data(), -5, 0},
        {"a block shorter than a frame is copied", 220, speech.data(), 220, 220},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CSpeedChangeStage stage;
        if (c.reserved >= 0)
            stage.Reserve(c.reserved);
        std::vector<int16_t> out(3 * size_t(kBlock + 1), kUntouched);
        EXPECT_EQ(stage.RunInto(c.samples, c.count, 25, out.data(), int32_t(out.size())), c.written);
        const size_t copied = size_t(std::max(c.written, 0));
        EXPECT_TRUE(std::equal(out.begin(), out.begin() + copied, speech.begin()));
        EXPECT_TRUE(std::all_of(out.begin() + copied, out.end(), [](int16_t v) { return v == kUntouched; }));
    }
    // A second reservation replaces the first: the longer block now fits.
    CSpeedChangeStage stage;
    stage.Reserve(10);
    stage.Reserve(kBlock + 1);
    EXPECT_EQ(stage.ReservedSamples(), kBlock + 1);
    std::vector<int16_t> block(speech.begin(), speech.end());
    EXPECT_EQ(RunStage(stage, block, -30, 3 * (kBlock + 1)), speed_reference::ChangeSpeed(block, -30));
}

TEST(SpeedChangeStageTest, ChangingBlocksNeverTouchesTheAllocator)
{
    const std::vector<int16_t> speech = test_signals::SpeechLike(22050, 40 * kBlock, 1, 3);
    std::vector<int16_t> out(3 * kBlock);
    auto block = [&](int32_t b) { return speech.data() + size_t(b) * kBlock; };

    // The counter sees the allocations of the changer that allocates per block.
    {
        counting_allocator::MarkedScope marked;
        CSpeedChanger changer;
        changer.Load(block(0), kBlock, 25);
        changer.Run();
        int16_t* taken = nullptr;
        int32_t count = 0;
        changer.TakeOutput(&taken, &count);
        delete[] taken;
        EXPECT_GE(marked.SoFar().allocations, 3);
    }

    CSpeedChangeStage stage;
    stage.Reserve(kBlock);
    counting_allocator::MarkedScope marked;
    for (int32_t b = 0; b < 40; ++b) {
        const int16_t level = int16_t(-60 + (b * 110) / 39);
        stage.RunInto(block(b), kBlock, level, out.data(), int32_t(out.size()));
    }
    EXPECT_EQ(marked.SoFar(), counting_allocator::Counts{});
}

}  // namespace
