#include "dsp/GainVolume.h"

#include <gtest/gtest.h>

#include "support/SampleBytes.h"

#include <string>
#include <vector>

namespace {

using testbytes::ToBytes;
using testbytes::ToSamples;

float ScanSamples(const std::vector<int16_t>& samples) {
    const auto bytes = ToBytes(samples);
    return ScanPeakGainOver(bytes.data(), bytes.size());
}

// A stream of `count` samples of 1 with a peak of `height` centred at
// `centre`, its neighbours at half height.
std::vector<int16_t> PeakInFlatStream(size_t count, size_t centre, int16_t height) {
    std::vector<int16_t> samples(count, 1);
    samples[centre - 1] = int16_t(height / 2);
    samples[centre] = height;
    samples[centre + 1] = int16_t(height / 2);
    return samples;
}

struct ScanCase {
    std::string name;
    std::vector<int16_t> samples;
    float gain;
};

TEST(PeakScan, GainLeftByThePeaksOfAStream) {
    std::vector<int16_t> afterSilence(1024, 0);
    afterSilence.insert(afterSilence.end(), {20000, 10000, 1, 1});

    const std::vector<ScanCase> cases = {
        {"silence", std::vector<int16_t>(3000, 0), 50.0f},
        {"peak 600 reaches the target exactly", {300, 600, 300, 0}, 50.0f},
        {"peak 601", {300, 601, 300, 0}, 49.916805f},
        {"peak 1000", {500, 1000, 500, 0}, 30.0f},
        {"peak 3000", {1500, 3000, 1500, 0}, 10.0f},
        {"peak 20000", {10000, 20000, 10000, 0}, 1.5f},
        {"peak 30000", {15000, 30000, 15000, 0}, 1.0f},
        {"peak 32000 is clamped to the lowest gain", {16000, 32000, 16000, 0}, 1.0f},
        {"negative peak", {-500, -1000, -500, 0}, 30.0f},
        {"mixed-sign neighbours", {-500, 1000, -500, 0}, 30.0f},
        {"lone click", {1, 1, 20000, 1, 1}, 50.0f},
        {"neighbour at exactly a quarter", {1, 5000, 20000, 1, 1}, 50.0f},
        {"neighbour just above a quarter", {1, 5001, 20000, 1, 1}, 1.5f},
        {"flat top", {10000, 20000, 20000, 10000, 1}, 50.0f},
        {"larger peak second", {500, 1000, 500, 1500, 3000, 1500, 0}, 10.0f},
        {"larger peak first", {1500, 3000, 1500, 500, 1000, 500, 0}, 10.0f},
        {"last centre of the file is never tested", {1, 10000, 20000, 10000}, 50.0f},
        {"peak at the end of the first read", PeakInFlatStream(2048, 1023, 20000), 1.5f},
        {"peak at the start of the second read", PeakInFlatStream(2048, 1024, 20000), 1.5f},
        {"peak seen from a short last read", PeakInFlatStream(2051, 2048, 20000), 1.5f},
        {"window of silence restarts at the next read", afterSilence, 50.0f},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ScanSamples(c.samples), c.gain) << c.name;
    }
}

TEST(PeakScan, BlockCountsPeaksAndLowersGainBelowOneWithinTheScan) {
    PeakScanState state;
    const std::vector<int16_t> samples = {16000, 32000, 16000, 1, 2, 1, 0};
    uint32_t found = 99;
    ScanPeakBlock(state, samples.data(), uint32_t(samples.size() * 2), &found);
    EXPECT_EQ(found, 2u);
    EXPECT_EQ(state.gain, 0.9375f);
    EXPECT_EQ(state.window[0], 2);
    EXPECT_EQ(state.window[1], 1);
    EXPECT_EQ(state.window[2], 0);

    PeakScanState shortBlock;
    ScanPeakBlock(shortBlock, samples.data(), 5, &found);
    EXPECT_EQ(found, 0u);
    EXPECT_EQ(shortBlock.window[1], 0);

    PeakScanState eightBit;
    eightBit.bitsPerSample = 8;
    ScanPeakBlock(eightBit, samples.data(), uint32_t(samples.size() * 2), &found);
    EXPECT_EQ(found, 0u);
    EXPECT_EQ(eightBit.gain, 50.0f);
}

TEST(PeakScan, BlocksOfAnySizeSeeTheSamePeaks) {
    // The window carries from block to block, so one stream cut into blocks
    // of one, two or more samples finds what one block finds: here two
    // peaks, 1000 (gain 30) and then 3000 (gain 10).
    const std::vector<int16_t> samples = {7, 500, 1000, 500, 9, 1500, 3000, 1500, 4, 3, 8};
    for (const size_t size : std::initializer_list<size_t>{1, 2, 3, 4, 5, samples.size()}) {
        PeakScanState state;
        uint32_t total = 0;
        for (size_t at = 0; at < samples.size(); at += size) {
            uint32_t found = 0;
            const size_t count = std::min(size, samples.size() - at);
            ScanPeakBlock(state, samples.data() + at, uint32_t(count * 2), &found);
            total += found;
        }
        // A block of fewer than three samples can't start the window.
        if (size < 3) {
            EXPECT_EQ(total, 0u) << size;
            continue;
        }
        EXPECT_EQ(total, 2u) << size;
        EXPECT_EQ(state.gain, 10.0f) << size;
        EXPECT_EQ(state.window[0], 4) << size;
        EXPECT_EQ(state.window[1], 3) << size;
        EXPECT_EQ(state.window[2], 8) << size;
    }
}

TEST(PeakScan, StopsAfterTheLastReadThatPassesTheirLimit) {
    // Alternating 1, 2 holds a peak on every second sample: 511 in the first
    // read, 512 in each later one, so the read of samples 2644992..2646015,
    // the 2584th, is the last one scanned; it tests centres up to 2646013.
    std::vector<int16_t> alternating(2650000);
    for (size_t k = 0; k < alternating.size(); ++k) alternating[k] = (k % 2) ? 2 : 1;

    auto withPeakAt = [&](size_t centre) {
        auto samples = alternating;
        samples[centre - 1] = 10000;
        samples[centre] = 20000;
        samples[centre + 1] = 10000;
        return samples;
    };
    EXPECT_EQ(ScanSamples(alternating), 50.0f);
    EXPECT_EQ(ScanSamples(withPeakAt(2646013)), 1.5f);
    EXPECT_EQ(ScanSamples(withPeakAt(2646014)), 50.0f);
}

struct ScaleCase {
    std::string name;
    std::vector<int16_t> samples;
    float gain;
    float volume;
    std::vector<int16_t> expected;
    float gainAfter;
};

TEST(GainAndVolume, SixteenBitBlocks) {
    const std::vector<ScaleCase> cases = {
        {"unity passes unchanged", {100, -200, 32767, -32768}, 1.0f, 1.0f, {100, -200, 32767, -32768}, 1.0f},
        {"lone spike repaired, gain stays", {1000, 20000, 1000}, 2.0f, 1.0f, {2000, 1500, 2000}, 2.0f},
        {"true peak lowers the gain for what follows", {1000, 20000, 15000}, 2.0f, 1.0f, {2000, 8500, 22500}, 1.5f},
        {"neighbour before is taken after scaling", {3000, 20000, 1000}, 2.0f, 0.25f, {1500, 312, 500}, 2.0f},
        {"repair of a negative sum rounds down", {-3000, 20000, -1001}, 2.0f, 1.0f, {-6000, -3501, -2002}, 2.0f},
        {"lowered gain is held at one", {30000, 32000, 30000}, 1.2f, 1.0f, {16383, 23191, 30000}, 1.0f},
        {"over range at the first place", {20000, 100, 100}, 2.0f, 0.5f, {8191, 100, 100}, 2.0f},
        {"over range at the last place", {100, 100, 20000}, 2.0f, 1.0f, {200, 200, 16383}, 2.0f},
        {"below the range wraps", {-20000}, 2.0f, 1.0f, {25536}, 2.0f},
        {"volume zero", {1000, -32768, 20000, 7}, 2.0f, 0.0f, {0, 0, 0, 0}, 2.0f},
        {"volume truncates towards zero", {-3, 3, -32768}, 1.0f, 0.5f, {-1, 1, -16384}, 1.0f},
    };
    for (const auto& c : cases) {
        auto bytes = ToBytes(c.samples);
        float gain = c.gain;
        EXPECT_TRUE(ApplyGainAndVolume(bytes.data(), int32_t(bytes.size()), 16, c.volume, &gain)) << c.name;
        EXPECT_EQ(ToSamples(bytes), c.expected) << c.name;
        EXPECT_EQ(gain, c.gainAfter) << c.name;
    }
}

TEST(GainAndVolume, OtherWidthsAndCounts) {
    struct Case {
        std::string name;
        uint16_t bitsPerSample;
        int32_t byteCount;
        float volume;
        std::vector<uint8_t> bytes;
        std::vector<uint8_t> expected;
    };
    const std::vector<Case> cases = {
        {"8-bit scales bytes uncentred, no gain", 8, 4, 0.5f, {128, 255, 0, 1}, {64, 127, 0, 0}},
        {"8-bit at volume zero", 8, 3, 0.0f, {128, 255, 7}, {0, 0, 0}},
        {"24-bit is left alone", 24, 6, 0.5f, {1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5, 6}},
        {"empty block", 16, 0, 0.5f, {9, 9}, {9, 9}},
        {"negative count", 16, -2, 0.5f, {9, 9}, {9, 9}},
        // 1000 doubles to 2000; the odd last byte pairs with the byte after it.
        {"odd count takes the following byte", 16, 3, 1.0f, {0xE8, 0x03, 0x10, 0x01}, {0xD0, 0x07, 0x20, 0x02}},
    };
    for (const auto& c : cases) {
        auto bytes = c.bytes;
        float gain = 2.0f;
        EXPECT_TRUE(ApplyGainAndVolume(bytes.data(), c.byteCount, c.bitsPerSample, c.volume, &gain)) << c.name;
        EXPECT_EQ(bytes, c.expected) << c.name;
        EXPECT_EQ(gain, 2.0f) << c.name;
    }
}

TEST(Volume, PercentRoundTrip) {
    int readBackLower = 0;
    for (long percent = 0; percent <= 100; ++percent) {
        float volume = -1.0f;
        ASSERT_TRUE(VolumeFromPercent(percent, &volume)) << percent;
        EXPECT_EQ(volume, float(percent / 100.0)) << percent;
        const long readBack = PercentFromVolume(volume);
        EXPECT_TRUE(readBack == percent || readBack == percent - 1) << percent;
        if (readBack != percent) ++readBackLower;
    }
    EXPECT_EQ(readBackLower, 50);

    const std::vector<std::pair<long, long>> readBacks = {{0, 0},  {1, 0},  {2, 1},  {5, 5},   {7, 7},
                                                          {29, 28}, {50, 50}, {96, 95}, {100, 100}};
    for (const auto& [set, read] : readBacks) {
        float volume = 0.0f;
        ASSERT_TRUE(VolumeFromPercent(set, &volume));
        EXPECT_EQ(PercentFromVolume(volume), read) << set;
    }
}

}  // namespace

namespace {

std::vector<int16_t> ScaledFrames(std::vector<int16_t> samples, uint16_t channels, float volume, float* gain)
{
    ApplyGainAndVolumeFrames(reinterpret_cast<uint8_t*>(samples.data()), uint32_t(samples.size() * 2), 16, channels,
                             volume, gain);
    return samples;
}

}  // namespace

// The refined stage: every channel scaled alone, clipping held at full
// scale, and the gain lowered only by a peak of the same channel.
TEST(GainVolumeFrames, ChannelsStayApartAndClippingIsHeld)
{
    struct Case {
        const char* name;
        std::vector<int16_t> in;  // interleaved left, right
        float gain;
        float volume;
        std::vector<int16_t> out;  // by hand: round(clamp(sample * gain) * volume)
        bool gainLowered;
    };
    const Case cases[] = {
        // The second left sample is a true peak (its neighbours are loud):
        // the gain comes down so that 30000 x 1.5 lands on the 30000 target,
        // i.e. to 1.0, from the next sample on.
        {"quiet right beside a clipping left", {30000, 100, 30000, -101, 30000, 102, 30000, 103}, 1.5f, 1.0f,
         {32767, 150, 32767, -101, 30000, 102, 30000, 103}, true},
        {"negative products are held, not wrapped", {0, 0, -30000, 0, 0, 0}, 2.0f, 1.0f, {0, 0, -32768, 0, 0, 0},
         false},
        {"a lone click lowers nothing", {10, 10, 30000, 10, 10, 10, 10, 10}, 1.5f, 1.0f,
         {15, 15, 32767, 15, 15, 15, 15, 15}, false},
        {"volume after gain", {1000, -1000, 2000, -2000}, 2.0f, 0.5f, {1000, -1000, 2000, -2000}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        float gain = c.gain;
        EXPECT_EQ(ScaledFrames(c.in, 2, c.volume, &gain), c.out);
        EXPECT_EQ(gain < c.gain, c.gainLowered);
        EXPECT_GE(gain, 1.0f);
    }
    // 8-bit: the volume scales about the midpoint, so silence stays silent.
    std::vector<uint8_t> bytes = {128, 228, 28, 255, 0};
    float gain = 3.0f;
    ApplyGainAndVolumeFrames(bytes.data(), uint32_t(bytes.size()), 8, 1, 0.5f, &gain);
    EXPECT_EQ(bytes, (std::vector<uint8_t>{128, 178, 78, 192, 64}));
}
