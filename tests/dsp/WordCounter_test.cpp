#include "dsp/WordCounter.h"
#include "dsp/WordCounterDetail.h"
#include "support/WordCounterReference.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace {

const double kPi = 3.14159265358979323846;

// Three harmonics of f with falling amplitude and shifted phases, truncated to 16 bits.
std::vector<uint8_t> ThreeHarmonicBlock(double f, uint32_t rate, size_t count) {
    std::vector<int16_t> samples(count);
    for (size_t i = 0; i < count; ++i) {
        double sum = 0.0;
        for (int h = 1; h <= 3; ++h) sum += (9000.0 / h) * std::sin(2.0 * kPi * f * h * double(i) / rate + h);
        samples[i] = int16_t(sum);
    }
    return wordref::AsBytes(samples);
}

std::vector<double> BlockAsDoubles(const std::vector<uint8_t>& bytes) {
    std::vector<double> samples(bytes.size() / 2);
    SamplesToDoubles(bytes.data(), uint32_t(bytes.size()), 2, samples.data());
    return samples;
}

// The period each frame of a 16-bit block settles on, 0 for an unvoiced frame.
std::vector<uint32_t> FramePeriods(const std::vector<uint8_t>& bytes, uint32_t rate) {
    const std::vector<double> samples = BlockAsDoubles(bytes);
    std::vector<double> filtered(samples.size());
    LowPassFilter(samples.data(), filtered.data(), uint32_t(samples.size()));
    const FrameGeometry geometry = FrameGeometryForRate(rate);
    std::vector<uint32_t> periods;
    for (auto& frame : SplitFrames(filtered.data(), uint32_t(filtered.size()), geometry.frameLen, geometry.overlap)) {
        std::vector<double> difference(frame.size(), 0.0);
        ClipAndDifference(frame.data(), geometry.frameLen, difference.data());
        const std::vector<uint32_t> valleys = FindValleys(difference.data(), geometry.frameLen);
        periods.push_back(valleys.empty() ? 0 : TestPeriod(valleys));
    }
    return periods;
}

TEST(WordCounterTest, HarmonicBlocksAreVoicedAtTheirPeriod) {
    struct Case {
        double f;
        int32_t voiced;
        uint32_t period;
    };
    for (const Case& c : {Case{125.0, 4, 64}, Case{250.0, 4, 32}, Case{180.0, 0, 0}}) {
        SCOPED_TRACE(c.f);
        const std::vector<uint8_t> block = ThreeHarmonicBlock(c.f, 8000, 800);
        EXPECT_EQ(CountVoicedFrames(block.data(), uint32_t(block.size()), 8000, 16), c.voiced);
        EXPECT_EQ(FramePeriods(block, 8000), std::vector<uint32_t>(4, c.period));
    }
}

TEST(WordCounterTest, BlocksWithNothingToCountGiveZero) {
    const std::vector<uint8_t> voiced = ThreeHarmonicBlock(125.0, 8000, 800);
    const std::vector<uint8_t> silence16(1600, 0);
    const std::vector<uint8_t> silence8(800, 128);
    struct Case {
        const char* name;
        const uint8_t* data;
        uint32_t bytes;
        uint32_t rate;
        uint16_t bits;
    };
    const Case cases[] = {
        {"16-bit silence", silence16.data(), 1600, 8000, 16},
        {"8-bit silence", silence8.data(), 800, 8000, 8},
        {"no data", nullptr, 1600, 8000, 16},
        {"no bytes", voiced.data(), 0, 8000, 16},
        {"fewer samples than the overlap", voiced.data(), 2 * 100, 8000, 16},
        {"one sample short of a frame", voiced.data(), 2 * 319, 8000, 16},
        {"rate too low for a frame", voiced.data(), 1600, 24, 16},
        {"rate of zero", voiced.data(), 1600, 0, 16},
        {"24-bit samples", voiced.data(), 1599, 8000, 24},
        {"samples narrower than a byte", voiced.data(), 1600, 8000, 4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(CountVoicedFrames(c.data, c.bytes, c.rate, c.bits), 0);
    }
    // The same voiced block, whole, does count: the cases above fail for their own reason.
    EXPECT_EQ(CountVoicedFrames(voiced.data(), 1600, 8000, 16), 4);
}

TEST(WordCounterTest, FrameGeometryFollowsTheRate) {
    struct Case {
        uint32_t rate;
        int32_t frameLen;
        int32_t overlap;
        int32_t framesInATenth;
    };
    // An odd half frame truncates; below 25 Hz there is no frame at all.
    const Case cases[] = {{11025, 441, 220, 3}, {22050, 882, 441, 4}, {25, 1, 0, 2}, {24, 0, 0, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rate);
        const FrameGeometry geometry = FrameGeometryForRate(c.rate);
        EXPECT_EQ(geometry.frameLen, c.frameLen);
        EXPECT_EQ(geometry.overlap, c.overlap);
        EXPECT_EQ(FrameCountFor(uint32_t(c.rate / 10), geometry), c.framesInATenth);
    }
    const FrameGeometry at22050 = FrameGeometryForRate(22050);
    EXPECT_EQ(FrameCountFor(882, at22050), 1);
    EXPECT_EQ(FrameCountFor(881, at22050), 0);
    EXPECT_EQ(FrameCountFor(100, at22050), 0);
    // Stereo doubles the samples of a block but not the frame: twice the frames.
    EXPECT_EQ(FrameCountFor(4410, at22050), 9);
}

TEST(WordCounterTest, OneWholeFrameIsCountedAndOneSampleLessIsNot) {
    // 441 Hz at 22050 gives a period of exactly 50 samples.
    const std::vector<uint8_t> block = ThreeHarmonicBlock(441.0, 22050, 882);
    EXPECT_EQ(CountVoicedFrames(block.data(), 1764, 22050, 16), 1);
    EXPECT_EQ(CountVoicedFrames(block.data(), 1762, 22050, 16), 0);
    EXPECT_EQ(FramePeriods(block, 22050), std::vector<uint32_t>{50});
}

TEST(WordCounterTest, SamplesToDoublesScalesEachWidth) {
    const uint8_t bytes8[] = {0, 128, 255, 127};
    double out8[4];
    SamplesToDoubles(bytes8, 4, 1, out8);
    EXPECT_EQ(out8[0], -1.0);
    EXPECT_EQ(out8[1], 0.0);
    EXPECT_EQ(out8[2], 0.9921875);
    EXPECT_EQ(out8[3], -0.0078125);

    const uint8_t bytes16[] = {0x00, 0x80, 0xff, 0x7f, 0x01, 0x00, 0xff, 0xff, 0x55};
    double out16[5] = {7, 7, 7, 7, 7};
    SamplesToDoubles(bytes16, 9, 2, out16);
    EXPECT_EQ(out16[0], -1.0);
    EXPECT_EQ(out16[1], 32767 * 3.0517578125e-05);
    EXPECT_EQ(out16[2], 3.0517578125e-05);
    EXPECT_EQ(out16[3], -3.0517578125e-05);
    EXPECT_EQ(out16[4], 7) << "the odd last byte is no sample";

    double untouched[2] = {5, 6};
    SamplesToDoubles(bytes16, 6, 3, untouched);
    EXPECT_EQ(untouched[0], 5);
    EXPECT_EQ(untouched[1], 6);
}

TEST(WordCounterTest, LowPassFilterStartsFromSilenceAndMatchesThePlainSum) {
    std::vector<double> impulse(25, 0.0);
    impulse[0] = 1.0;
    std::vector<double> response(25);
    LowPassFilter(impulse.data(), response.data(), 25);
    for (int k = 0; k < 19; ++k) EXPECT_EQ(response[size_t(k)], g_lowPassTaps[k]) << k;
    for (size_t k = 19; k < 25; ++k) EXPECT_EQ(response[k], 0.0);

    std::vector<double> ones(40, 1.0), level(40);
    LowPassFilter(ones.data(), level.data(), 40);
    EXPECT_NEAR(level[39], 0.89846149, 1e-12);
    EXPECT_EQ(level[0], g_lowPassTaps[0]) << "no memory of an earlier block";

    wordref::Noise noise(3);
    for (uint32_t count : {1u, 2u, 19u, 20u, 333u, 1000u}) {
        std::vector<double> in(count), fast(count), plain(count);
        for (double& v : in) v = noise.Next();
        LowPassFilter(in.data(), fast.data(), count);
        wordref::LowPassFilter(in.data(), plain.data(), count);
        EXPECT_EQ(std::memcmp(fast.data(), plain.data(), count * sizeof(double)), 0) << count;
    }
}

TEST(WordCounterTest, SplitFramesCopiesWholeFramesOnly) {
    std::vector<double> samples(1000);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = double(i);
    struct Case {
        uint32_t count;
        int32_t frameLen, overlap;
        size_t frames;
    };
    for (const Case& c : {Case{1000, 320, 160, 5}, Case{959, 320, 160, 4}, Case{320, 320, 160, 1},
                          Case{319, 320, 160, 0}, Case{100, 320, 160, 0}, Case{1000, 441, 220, 3}}) {
        const auto frames = SplitFrames(samples.data(), c.count, c.frameLen, c.overlap);
        ASSERT_EQ(frames.size(), c.frames) << c.count;
        for (size_t f = 0; f < frames.size(); ++f) {
            ASSERT_EQ(frames[f].size(), size_t(c.frameLen));
            EXPECT_EQ(frames[f].front(), double(f * size_t(c.frameLen - c.overlap)));
            EXPECT_EQ(frames[f].back(), frames[f].front() + c.frameLen - 1);
        }
    }
}

TEST(WordCounterTest, ClipAndDifferenceLeavesOutThePairOnTheLastSample) {
    double frame[] = {1.0, 0.5, 0.0, -1.0};
    double difference[4] = {0, 0, 0, 0};
    ClipAndDifference(frame, 4, difference);
    const double clip = 0.68;
    EXPECT_EQ(frame[0], 1.0 - clip);
    EXPECT_EQ(frame[1], 0.0);
    EXPECT_EQ(frame[2], 0.0);
    EXPECT_EQ(frame[3], -1.0 + clip);
    const double high = double(float(1.0 - clip));
    EXPECT_EQ(difference[0], 0.0);
    EXPECT_EQ(difference[1], high + 0.0) << "j = 0 and 1 only; the pair (2, 3) is left out";
    EXPECT_EQ(difference[2], high);
    EXPECT_EQ(difference[3], 0.0) << "the last lag has no terms";
}

// Frames of every kind the counter meets, at every length from tiny to 44100 Hz.
std::vector<double> TestFrame(int kind, int32_t length, wordref::Noise& noise) {
    std::vector<double> frame(size_t(length), 0.0);
    const double period = 12.0 + 90.0 * (noise.Next() + 1.0);
    for (int32_t i = 0; i < length; ++i) {
        const double t = double(i);
        switch (kind) {
        case 0:  // tone
            frame[size_t(i)] = 0.5 * std::sin(2.0 * kPi * t / period);
            break;
        case 1:  // harmonics with a decay, like one voiced stretch
            frame[size_t(i)] = std::exp(-std::fmod(t, period) / 20.0) * std::sin(2.0 * kPi * 3.0 * t / period) +
                               0.3 * std::sin(2.0 * kPi * t / period + 1.0);
            break;
        case 2:  // noise
            frame[size_t(i)] = noise.Next() * 1e-3;
            break;
        case 3:  // silence, including negative zeros
            frame[size_t(i)] = (i % 3 == 0) ? -0.0 : 0.0;
            break;
        case 4:  // sparse clicks over negative zeros
            frame[size_t(i)] = (noise.Next() > 0.9) ? noise.Next() : -0.0;
            break;
        default:  // quantised values, so many differences are exactly zero
            frame[size_t(i)] = std::round(noise.Next() * 4.0) / 4.0;
            break;
        }
    }
    return frame;
}

TEST(WordCounterTest, FastDifferenceIsBitExactOnManyFrames) {
    const int32_t lengths[] = {1, 2, 3, 9, 10, 11, 17, 21, 33, 64, 100, 160, 220, 320, 441};
    wordref::Noise noise(11);
    int compared = 0;
    auto compare = [&](std::vector<double> frame, const char* what) {
        const int32_t length = int32_t(frame.size());
        std::vector<double> plainFrame = frame;
        std::vector<double> fast(frame.size(), 0.0), plain(frame.size(), 0.0);
        ClipAndDifference(frame.data(), length, fast.data());
        wordref::ClipAndDifference(plainFrame.data(), length, plain.data());
        ++compared;
        ASSERT_EQ(std::memcmp(frame.data(), plainFrame.data(), frame.size() * sizeof(double)), 0) << what;
        ASSERT_EQ(std::memcmp(fast.data(), plain.data(), fast.size() * sizeof(double)), 0)
            << what << " length " << length;
    };
    for (int round = 0; round < 660; ++round)
        for (int32_t length : lengths) compare(TestFrame(round % 6, length, noise), "synthetic");
    for (int round = 0; round < 60; ++round)
        for (int32_t length : {882, 1764}) compare(TestFrame(round % 6, length, noise), "synthetic, full size");
    // Real frames of the counter: filtered speech-like audio, mono and stereo.
    for (uint16_t channels : {1, 2}) {
        const std::vector<int16_t> speech = wordref::SpeechLikeSamples(22050, channels, 1.0, channels);
        std::vector<double> samples(speech.size()), filtered(speech.size());
        for (size_t i = 0; i < speech.size(); ++i) samples[i] = speech[i] * 3.0517578125e-05;
        LowPassFilter(samples.data(), filtered.data(), uint32_t(samples.size()));
        for (auto& frame : SplitFrames(filtered.data(), uint32_t(filtered.size()), 882, 441))
            compare(frame, "speech-like");
    }
    EXPECT_GE(compared, 10000);
}

TEST(WordCounterTest, FastCountMatchesThePlainCount) {
    struct Case {
        uint32_t rate;
        uint16_t channels;
        uint16_t bits;
        double seconds;
    };
    const Case cases[] = {
        {8000, 1, 16, 10.0},  // enough frames to be spread over threads
        {11025, 1, 8, 1.0},  {16000, 2, 16, 0.5}, {22050, 1, 16, 1.0}, {22050, 2, 16, 0.3}, {44100, 2, 16, 0.1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rate * 10 + c.channels);
        const std::vector<int16_t> speech = wordref::SpeechLikeSamples(c.rate, c.channels, c.seconds, c.rate);
        std::vector<uint8_t> bytes = wordref::AsBytes(speech);
        if (c.bits == 8) {
            bytes.resize(speech.size());
            for (size_t i = 0; i < speech.size(); ++i) bytes[i] = uint8_t((speech[i] >> 8) + 128);
        }
        const int32_t plain = wordref::CountVoicedFrames(bytes.data(), uint32_t(bytes.size()), c.rate, c.bits);
        EXPECT_GT(plain, 0) << "the signal should hold voiced frames";
        EXPECT_EQ(CountVoicedFrames(bytes.data(), uint32_t(bytes.size()), c.rate, c.bits), plain);
    }
}

TEST(WordCounterTest, TestPeriodNeedsMostMultiplesUpToTheLastValley) {
    struct Case {
        std::vector<uint32_t> valleys;
        uint32_t period;
    };
    const Case cases[] = {
        {{100}, 0},           {{100, 199}, 100},      {{100, 195}, 100},       {{100, 200}, 0},
        {{100, 201}, 0},      {{100, 206}, 0},        {{100, 300}, 0},         {{100, 200, 300}, 100},
        {{100, 250, 400}, 0}, {{50, 100, 150, 200}, 50}, {{50, 100, 151, 260}, 0}, {{}, 0},
        {{0, 10}, 0},  // a period of 0 must not loop for ever
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.valleys));
        EXPECT_EQ(TestPeriod(c.valleys), c.period);
    }
}

TEST(WordCounterTest, FindNearValleyTakesTheFirstWithinFivePercent) {
    const std::vector<uint32_t> valleys = {100, 204, 210, 300};
    struct Case {
        uint32_t lag;
        size_t index;
    };
    for (const Case& c : {Case{200, 1}, Case{220, 2}, Case{300, 3}, Case{286, 3}, Case{285, 0}, Case{100, 0},
                          Case{250, 0}, Case{0, 0}}) {
        EXPECT_EQ(FindNearValley(valleys, c.lag), c.index) << c.lag;
    }
}

TEST(WordCounterTest, CleanValleysKeepsDepthsNearTheMedians) {
    struct Case {
        std::vector<uint32_t> valleys;
        std::vector<double> depths;
        std::vector<uint32_t> kept;
    };
    const Case cases[] = {
        {{20, 40, 60}, {5.0, 5.0, 5.0}, {20, 40, 60, 60, 40, 20}},
        {{20, 40, 60, 80}, {10.0, 10.0, 30.0, 10.0}, {20, 40, 80, 40, 20}},
        {{20, 40, 60, 80}, {10.0, 10.0, 20.0, 10.0}, {20, 40, 60, 80, 60, 40, 20}},
        {{20, 40, 60, 80}, {10.0, 4.9, 10.0, 5.0}, {20, 60, 80, 60, 40, 20}},
    };
    for (const Case& c : cases) {
        std::vector<double> difference(100, 99.0);
        for (size_t i = 0; i < c.valleys.size(); ++i) difference[c.valleys[i]] = c.depths[i];
        std::vector<uint32_t> valleys = c.valleys;
        CleanValleys(valleys, difference.data());
        EXPECT_EQ(valleys, c.kept) << testing::PrintToString(c.depths);
    }
}

TEST(WordCounterTest, FindValleysWantsStrictMinimaOverTenNeighbours) {
    auto vee = [](int32_t length, int32_t at, int32_t flatWidth) {
        std::vector<double> d(static_cast<size_t>(length));
        for (int32_t i = 0; i < length; ++i) d[size_t(i)] = std::max(std::abs(i - at), flatWidth) + 1.0;
        return d;
    };
    struct Case {
        const char* name;
        std::vector<double> difference;
        std::vector<uint32_t> valleys;
    };
    std::vector<double> two = vee(60, 15, 0);
    for (int32_t i = 30; i < 60; ++i) two[size_t(i)] = std::abs(i - 40) + 1.0;
    const Case cases[] = {
        {"sharp valley", vee(60, 30, 0), {30}},
        {"flat bottom", vee(60, 30, 1), {}},
        {"too near the start", vee(60, 9, 0), {}},
        {"too near the end", vee(60, 50, 0), {}},
        {"last place a valley can be", vee(60, 49, 0), {49}},
        {"frame too short to hold one", vee(20, 10, 0), {}},
        {"two valleys", two, {15, 40}},
        {"silence", std::vector<double>(60, 0.0), {}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(FindValleys(c.difference.data(), int32_t(c.difference.size())), c.valleys) << c.name;
}

}  // namespace
