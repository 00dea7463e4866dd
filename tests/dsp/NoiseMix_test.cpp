#include "dsp/NoiseMix.h"

#include <gtest/gtest.h>

#include "support/SampleBytes.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using testbytes::ToBytes;
using testbytes::ToSamples;

std::vector<int16_t> Mix16(std::vector<int16_t> block, const std::vector<int16_t>& noise, uint32_t* index) {
    auto bytes = ToBytes(block);
    const auto noiseBytes = ToBytes(noise);
    MixNoise16(bytes.data(), uint32_t(bytes.size()), noiseBytes.data(), uint32_t(noiseBytes.size()), index);
    return ToSamples(bytes);
}

std::shared_ptr<NoiseSound> Sound16(const std::vector<int16_t>& samples, uint32_t samplesPerSec = 22050) {
    auto sound = std::make_shared<NoiseSound>();
    sound->channels = 1;
    sound->bitsPerSample = 16;
    sound->samplesPerSec = samplesPerSec;
    sound->data = ToBytes(samples);
    return sound;
}

TEST(NoiseMix16, OneRepeatedNoiseValue) {
    struct Case {
        int16_t block, noise, expected;
    };
    const std::vector<Case> cases = {
        {0, 0, 0},          {1000, 500, 1500},     {10000, 10000, 20000}, {16000, 16000, 32000},
        {-16000, 16000, 0}, {-20000, 3000, -17000}, {-3000, -20000, -23000}, {16383, 16384, 32767},
        {16384, 16384, 16384}, {16385, 16384, 16385}, {30000, 100, 30000},   {100, 30000, 30000},
        {32767, 32767, 32767}, {-32768, 5, -32768},  {5, -32768, -32768},
    };
    for (const auto& c : cases) {
        uint32_t index = 0;
        EXPECT_EQ(Mix16({c.block}, {c.noise, c.noise}, &index), std::vector<int16_t>{c.expected})
            << c.block << " with " << c.noise;
    }
}

TEST(NoiseMix16, TestsOneNoiseSampleAndTakesTheNext) {
    struct Case {
        std::string name;
        std::vector<int16_t> block, noise;
        uint32_t indexBefore;
        std::vector<int16_t> expected;
        uint32_t indexAfter;
    };
    const std::vector<Case> cases = {
        {"value taken is one further on", {1000, 1000, 1000, 1000}, {100, 200, 300}, 0, {1200, 1300, 1100, 1200}, 1},
        {"noise shorter than the block wraps", {0, 0, 0, 0, 0}, {1, 2}, 0, {2, 1, 2, 1, 2}, 1},
        {"starts where the last block left off", {0, 0}, {1, 2, 3, 4}, 2, {4, 1}, 0},
        {"test at a quiet sample, louder one added", {20000, 0}, {0, 20000, 0}, 0, {-25536, 0}, 2},
        {"index from elsewhere restarts", {0}, {7, 8}, 5, {8}, 1},
        {"empty block", {}, {1, 2}, 1, {}, 1},
    };
    for (const auto& c : cases) {
        uint32_t index = c.indexBefore;
        EXPECT_EQ(Mix16(c.block, c.noise, &index), c.expected) << c.name;
        EXPECT_EQ(index, c.indexAfter) << c.name;
    }
}

TEST(NoiseMix16, AddsOnlyWhatFitsAndOtherwiseTheLouderWins) {
    std::mt19937 random(11);
    std::uniform_int_distribution<int> level(-32768, 32767);
    for (int trial = 0; trial < 200000; ++trial) {
        const int16_t sample = int16_t(level(random));
        const int16_t noise = int16_t(level(random));
        uint32_t index = 0;
        const int32_t mixed = Mix16({sample}, {noise, noise}, &index)[0];
        const int32_t sum = int32_t(sample) + noise;
        if (sum >= -32768 && sum <= 32767 && mixed == sum) continue;
        const bool noiseLouder = std::abs(int32_t(noise)) > std::abs(int32_t(sample));
        ASSERT_EQ(mixed, noiseLouder ? noise : sample) << sample << " with " << noise;
    }
}

TEST(NoiseMix16, NoWholeNoiseSampleIsNeverRead) {
    const std::vector<uint8_t> original = {1, 2, 3, 4};
    const uint8_t oneByte[1] = {0x7f};
    for (uint32_t noiseBytes : {0u, 1u}) {
        auto block = original;
        uint32_t index = 0;
        MixNoise16(block.data(), uint32_t(block.size()), noiseBytes ? oneByte : nullptr, noiseBytes, &index);
        EXPECT_EQ(block, original) << noiseBytes;
        EXPECT_EQ(index, 0u);
    }
    auto block = original;
    uint32_t index = 1;
    const auto noise = ToBytes({5, 6});
    MixNoise16(block.data(), 1, noise.data(), uint32_t(noise.size()), &index);
    EXPECT_EQ(block, original);
    EXPECT_EQ(index, 1u);
}

TEST(NoiseMix8, MeansRaisedByTheLevelFactor) {
    struct Case {
        std::string name;
        std::vector<uint8_t> block, noise, expected;
        uint32_t indexAfter;
    };
    const std::vector<Case> cases = {
        {"silence in both", {128}, {128}, {166}, 0},
        {"just below the wrap", {192}, {200}, {255}, 0},
        {"first mean that wraps", {197}, {197}, {0}, 0},
        {"full scale wraps", {255}, {255}, {75}, 0},
        {"zero stays zero", {0}, {0}, {0}, 0},
        {"same noise byte for the whole step", {10, 10, 10, 10}, {1, 2, 3}, {6, 7, 7, 6}, 1},
        {"empty noise leaves the block", {10, 20}, {}, {10, 20}, 0},
    };
    for (const auto& c : cases) {
        auto block = c.block;
        uint32_t index = 0;
        MixNoise8(block.data(), uint32_t(block.size()), c.noise.data(), uint32_t(c.noise.size()), &index);
        EXPECT_EQ(block, c.expected) << c.name;
        EXPECT_EQ(index, c.indexAfter) << c.name;
    }
}

TEST(NoiseSlot, MixesOnlyAFittingPublishedSoundWithMixingOn) {
    struct Case {
        std::string name;
        bool publish, mixOn, nullData;
        uint16_t channels, bitsPerSample;
        uint32_t samplesPerSec;
        bool mixed;
    };
    const std::vector<Case> cases = {
        {"fits", true, true, false, 1, 16, 22050, true},
        {"nothing published", false, true, false, 1, 16, 22050, false},
        {"mixing off", true, false, false, 1, 16, 22050, false},
        {"no block", true, true, true, 1, 16, 22050, false},
        {"other rate", true, true, false, 1, 16, 44100, false},
        {"other channels", true, true, false, 2, 16, 22050, false},
        {"other width", true, true, false, 1, 8, 22050, false},
    };
    for (const auto& c : cases) {
        CNoiseSlot slot;
        if (c.publish) slot.Publish(Sound16({100, 200, 300}));
        std::vector<uint8_t> block = ToBytes({1000, 1000});
        const bool result = slot.Mix(c.nullData ? nullptr : block.data(), uint32_t(block.size()), c.channels,
                                     c.bitsPerSample, c.samplesPerSec, c.mixOn);
        EXPECT_EQ(result, c.mixed) << c.name;
        const std::vector<int16_t> expected = c.mixed ? std::vector<int16_t>{1200, 1300} : std::vector<int16_t>{1000, 1000};
        EXPECT_EQ(ToSamples(block), expected) << c.name;
        EXPECT_EQ(slot.NoiseIndex(), c.mixed ? 2u : 0u) << c.name;
    }
}

TEST(NoiseSlot, NewSoundStartsOverAndOtherwiseThePositionRunsOn) {
    CNoiseSlot slot;
    auto mixTwo = [&](bool mixOn) {
        std::vector<uint8_t> block = ToBytes({0, 0});
        const bool mixed = slot.Mix(block.data(), uint32_t(block.size()), 1, 16, 22050, mixOn);
        return mixed ? ToSamples(block) : std::vector<int16_t>{};
    };
    const auto first = Sound16({1, 2, 3, 4, 5});
    slot.Publish(first);
    EXPECT_EQ(slot.Sound(), first);
    EXPECT_EQ(mixTwo(true), (std::vector<int16_t>{2, 3}));
    EXPECT_EQ(mixTwo(false), std::vector<int16_t>{});
    EXPECT_EQ(mixTwo(true), (std::vector<int16_t>{4, 5}));

    slot.Publish(Sound16({10, 20, 30}));
    EXPECT_EQ(slot.NoiseIndex(), 0u);
    EXPECT_EQ(mixTwo(true), (std::vector<int16_t>{20, 30}));

    slot.Publish(nullptr);
    EXPECT_EQ(slot.Sound(), nullptr);
    EXPECT_EQ(mixTwo(true), std::vector<int16_t>{});
    EXPECT_EQ(slot.NoiseIndex(), 2u);

    slot.Publish(first);
    EXPECT_EQ(mixTwo(true), (std::vector<int16_t>{2, 3}));

    auto empty = Sound16({});
    slot.Publish(empty);
    std::vector<uint8_t> block = ToBytes({7, 8});
    EXPECT_TRUE(slot.Mix(block.data(), uint32_t(block.size()), 1, 16, 22050, true));
    EXPECT_EQ(ToSamples(block), (std::vector<int16_t>{7, 8}));
}

// Sound g holds g * 1000 + j at place j. Mixed into silence, each block sample
// becomes the noise value one place on, so a block tells which sound made it
// and whether it was made by that sound alone, in order.
constexpr int kStressSounds = 20;
size_t StressSoundLength(int g) { return size_t(50 + 37 * g); }

::testing::AssertionResult IsWhollyOneSound(const std::vector<int16_t>& out, bool mixed) {
    if (!mixed) {
        if (std::all_of(out.begin(), out.end(), [](int16_t v) { return v == 0; })) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << "a block reported as left alone was changed";
    }
    const int g = out[0] / 1000;
    if (g < 1 || g > kStressSounds) return ::testing::AssertionFailure() << "no sound starts with " << out[0];
    const size_t length = StressSoundLength(g);
    const size_t firstPlace = size_t(out[0] % 1000);
    for (size_t k = 0; k < out.size(); ++k) {
        const int expected = g * 1000 + int((firstPlace + k) % length);
        if (firstPlace >= length || out[k] != expected) {
            return ::testing::AssertionFailure() << "sample " << k << " is " << out[k] << ", sound " << g
                                                 << " gives " << expected;
        }
    }
    return ::testing::AssertionSuccess();
}

TEST(NoiseSlot, HostPublishesWhileTheDeviceMixes) {
    constexpr int kMinPublications = 4000;
    constexpr int kMaxPublications = 4000000;
    constexpr size_t kMinMixed = 1000, kMinUntouched = 200;
    constexpr size_t kBlockSamples = 64;

    CNoiseSlot slot;
    std::atomic<bool> hostDone{false}, deviceStopped{false};
    std::atomic<size_t> mixedBlocks{0}, untouchedBlocks{0};
    std::thread host([&] {
        // Keeps publishing until the device has met both kinds of block many
        // times, however the two threads happen to be scheduled.
        auto deviceHasSeenEnough = [&] { return mixedBlocks >= kMinMixed && untouchedBlocks >= kMinUntouched; };
        for (int i = 0; i < kMaxPublications && !deviceStopped && (i < kMinPublications || !deviceHasSeenEnough());
             ++i) {
            const int g = 1 + i % kStressSounds;
            if (i % 5 == 4) {
                slot.Publish(nullptr);
                continue;
            }
            std::vector<int16_t> samples(StressSoundLength(g));
            for (size_t j = 0; j < samples.size(); ++j) samples[j] = int16_t(g * 1000 + int(j));
            // Every seventh sound has a rate that fits no block.
            slot.Publish(Sound16(samples, i % 7 == 3 ? 44100 : 22050));
            if (i % 16 == 0) std::this_thread::yield();
        }
        hostDone = true;
    });

    while (!hostDone) {
        std::vector<uint8_t> block(kBlockSamples * 2, 0);
        const bool mixed = slot.Mix(block.data(), uint32_t(block.size()), 1, 16, 22050, true);
        const auto verdict = IsWhollyOneSound(ToSamples(block), mixed);
        if (!verdict) {
            ADD_FAILURE() << verdict.message();
            break;
        }
        ++(mixed ? mixedBlocks : untouchedBlocks);
    }
    deviceStopped = true;
    host.join();
    EXPECT_GE(mixedBlocks, kMinMixed);
    EXPECT_GE(untouchedBlocks, kMinUntouched);
}

}  // namespace
