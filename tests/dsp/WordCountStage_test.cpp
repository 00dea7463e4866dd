// The word count in reserved memory: block for block what the plain count
// gives, on the calling thread alone and without the allocator.
#include "dsp/WordCounter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "support/CountingAllocator.h"
#include "support/WordCounterReference.h"

namespace {

const double kPi = 3.14159265358979323846;

// Three harmonics of f, 16-bit: a clear pitch period of rate / f samples.
std::vector<uint8_t> ThreeHarmonicBlock(double f, uint32_t rate, size_t count)
{
    std::vector<int16_t> samples(count);
    for (size_t i = 0; i < count; ++i) {
        double sum = 0.0;
        for (int h = 1; h <= 3; ++h) sum += (9000.0 / h) * std::sin(2.0 * kPi * f * h * double(i) / rate + h);
        samples[i] = int16_t(sum);
    }
    return wordref::AsBytes(samples);
}

std::vector<uint8_t> SpeechBytes(uint32_t rate, uint16_t channels, uint16_t bits, double seconds)
{
    const std::vector<int16_t> speech = wordref::SpeechLikeSamples(rate, channels, seconds, rate + channels);
    if (bits == 16) return wordref::AsBytes(speech);
    std::vector<uint8_t> bytes(speech.size());
    for (size_t i = 0; i < speech.size(); ++i) bytes[i] = uint8_t((speech[i] >> 8) + 128);
    return bytes;
}

// 125 and 250 Hz at 8000 Hz have whole periods of 64 and 32 samples and are
// voiced in every frame; 180 Hz, as the counter's own table has it, in none.
// The second 125 Hz block shows that nothing of the 180 Hz one stays behind.
TEST(WordCountStageTest, HarmonicBlocksAreVoicedInEveryFrameAtAClearPeriod)
{
    struct Case {
        double f;
        int32_t voiced;
    };
    CWordCountStage stage;
    stage.Reserve(1600, 8000, 16);
    // 800 samples at 8000 Hz: frames of 320 every 160, four of them.
    for (const Case& c : {Case{125.0, 4}, Case{250.0, 4}, Case{180.0, 0}, Case{125.0, 4}}) {
        SCOPED_TRACE(c.f);
        const std::vector<uint8_t> block = ThreeHarmonicBlock(c.f, 8000, 800);
        EXPECT_EQ(stage.Count(block.data(), uint32_t(block.size())), c.voiced);
    }
}

// One stage per format, reserved for a tenth of a second, through a stream
// of blocks and a short last one; each count as the plain version gives it.
TEST(WordCountStageTest, CountsBlockAfterBlockAsThePlainVersion)
{
    struct Case {
        uint32_t rate;
        uint16_t channels;
        uint16_t bits;
        double seconds;
    };
    const Case cases[] = {
        {8000, 1, 16, 2.0}, {11025, 1, 8, 2.0}, {22050, 1, 16, 2.0}, {22050, 2, 16, 1.0}, {44100, 2, 16, 1.0},
        // enough frames in one block that the one-call count spreads them over threads
        {48000, 8, 16, 0.25},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.rate << " Hz, " << c.channels << " channels, " << c.bits << " bits");
        const uint32_t blockBytes = c.rate * c.channels * (c.bits / 8) / 10;
        const std::vector<uint8_t> bytes = SpeechBytes(c.rate, c.channels, c.bits, c.seconds);
        CWordCountStage stage;
        stage.Reserve(blockBytes, c.rate, c.bits);
        int32_t total = 0;
        for (size_t start = 0; start < bytes.size(); start += blockBytes) {
            const uint32_t length = uint32_t(std::min<size_t>(blockBytes, bytes.size() - start));
            const int32_t plain = wordref::CountVoicedFrames(bytes.data() + start, length, c.rate, c.bits);
            ASSERT_EQ(stage.Count(bytes.data() + start, length), plain) << "block at byte " << start;
            total += plain;
        }
        EXPECT_GT(total, 0) << "the signal should hold voiced frames";
    }
}

TEST(WordCountStageTest, BlocksWithNothingToCountOrNoRoom)
{
    const std::vector<uint8_t> voiced = ThreeHarmonicBlock(125.0, 8000, 800);
    struct Case {
        const char* name;
        uint32_t reservedBytes;
        uint32_t rate;
        uint16_t bits;
        const uint8_t* data;
        uint32_t bytes;
        int32_t count;
    };
    const Case cases[] = {
        {"the block that fits", 1600, 8000, 16, voiced.data(), 1600, 4},
        {"one sample past the room", 1598, 8000, 16, voiced.data(), 1600, -1},
        {"no room, but nothing to count", 0, 8000, 16, voiced.data(), 2 * 319, 0},
        {"no data", 1600, 8000, 16, nullptr, 1600, 0},
        {"no bytes", 1600, 8000, 16, voiced.data(), 0, 0},
        {"one sample short of a frame", 1600, 8000, 16, voiced.data(), 2 * 319, 0},
        {"rate too low for a frame", 1600, 24, 16, voiced.data(), 1600, 0},
        {"24-bit samples", 1600, 8000, 24, voiced.data(), 1599, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CWordCountStage stage;
        stage.Reserve(c.reservedBytes, c.rate, c.bits);
        EXPECT_EQ(stage.Count(c.data, c.bytes), c.count);
    }
    CWordCountStage neverReserved;
    EXPECT_EQ(neverReserved.Count(voiced.data(), 1600), 0) << "a stage of no format counts nothing";
}

// A head may state any rate; the frames it implies are only worth room
// when a block can hold one.
TEST(WordCountStageTest, RoomNeverExceedsWhatTheLargestBlockNeeds)
{
    const std::vector<uint8_t> voiced = ThreeHarmonicBlock(125.0, 8000, 800);
    // 800 samples: three arrays of doubles, the filter's with 18 more.
    const size_t largestArray = (800 + 18) * sizeof(double);
    struct Case {
        uint32_t rate;
        int32_t count;
    };
    // At 20025 Hz a frame is 801 samples, one more than the block holds.
    const Case cases[] = {{8000, 4}, {20025, 0}, {400000, 0}, {4000000000u, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rate);
        CWordCountStage stage;
        counting_allocator::MarkedScope marked;
        stage.Reserve(1600, c.rate, 16);
        EXPECT_LE(marked.LargestRequest(), largestArray);
        EXPECT_EQ(stage.Count(voiced.data(), 1600), c.count);
    }
}

TEST(WordCountStageTest, CountingNeverTouchesTheAllocatorNorStartsThreads)
{
    // A tenth of a second of 48 kHz eight-channel sound: 39 frames, which
    // the one-call count spreads over a thread it starts.
    const uint32_t blockBytes = 48000 * 8 * 2 / 10;
    const std::vector<uint8_t> bytes = SpeechBytes(48000, 8, 16, 0.3);
    {
        counting_allocator::MarkedScope marked;
        CountVoicedFrames(bytes.data(), blockBytes, 48000, 16);
        EXPECT_GT(marked.SoFar().allocations, 0) << "the counter should see the one-call count allocate";
    }
    CWordCountStage stage;
    stage.Reserve(blockBytes, 48000, 16);
    counting_allocator::MarkedScope marked;
    int32_t voiced = 0;
    for (size_t start = 0; start + blockBytes <= bytes.size(); start += blockBytes)
        voiced += stage.Count(bytes.data() + start, blockBytes);
    EXPECT_EQ(marked.SoFar(), counting_allocator::Counts{});
    EXPECT_GT(voiced, 0);
}

}  // namespace
