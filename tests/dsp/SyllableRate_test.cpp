#include "dsp/SyllableRate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "support/SampleBytes.h"
#include "support/SyllableSignal.h"

namespace {

using namespace test_signals;

SpeakingRate Measure(const std::vector<int16_t>& samples, int rate, int channels)
{
    const std::vector<uint8_t> bytes = testbytes::ToBytes(samples);
    return MeasureSpeakingRate(bytes.data(), bytes.size(), uint32_t(rate), uint16_t(channels), 16);
}

TEST(SyllableRateTest, CountsEachVoicedSyllableAtAnyRateChannelsAndLevel)
{
    struct Case {
        int rate;
        int channels;
        double peak;
        int syllables;
        double gapSeconds;
    };
    const Case cases[] = {
        {8000, 1, 12000.0, 12, 0.1},  {11025, 1, 12000.0, 12, 0.1}, {16000, 1, 12000.0, 12, 0.1},
        {22050, 1, 12000.0, 12, 0.1}, {22050, 2, 12000.0, 12, 0.1}, {44100, 2, 12000.0, 12, 0.1},
        {48000, 1, 12000.0, 12, 0.1}, {96000, 2, 12000.0, 5, 0.1},  {44100, 6, 12000.0, 8, 0.1},
        // 30 dB and 64 dB down (a voice of a few steps of 16 bits), and at
        // full scale.
        {22050, 1, 380.0, 12, 0.1},   {44100, 2, 20.0, 12, 0.1},    {44100, 2, 32000.0, 12, 0.1},
        // Slow and fast: long pauses between syllables, or none at all.
        {22050, 1, 12000.0, 6, 0.5},  {16000, 1, 12000.0, 20, 0.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.rate << " Hz x" << c.channels << ", peak " << c.peak << ", "
                                        << c.syllables << " syllables " << c.gapSeconds << " s apart");
        const SpeakingRate rate =
            Measure(Render(Train(c.syllables, c.gapSeconds), Source::Voice, c.rate, c.channels, c.peak), c.rate,
                    c.channels);
        EXPECT_EQ(rate.syllables, uint64_t(c.syllables));
    }
}

TEST(SyllableRateTest, OnlyVoicedPeaksThatStandOutCount)
{
    struct Case {
        const char* name;
        Source source;
        std::vector<Piece> pieces;
        uint64_t syllables;
    };
    // Two syllables joined by a hold at `dip` of the peak's amplitude.
    auto joined = [](double dip) {
        return std::vector<Piece>{{0.2, 0.0}, {0.06, 1.0}, {0.1, 1.0}, {0.05, dip}, {0.1, dip},
                                  {0.05, 1.0}, {0.1, 1.0}, {0.06, 0.0}, {0.2, 0.0}};
    };
    const Case cases[] = {
        {"hiss in syllable-like bursts", Source::Hiss, Train(10, 0.1), 0},
        {"steady voice", Source::Voice, {{0.05, 1.0}, {3.0, 1.0}, {0.05, 0.0}}, 1},
        {"dip of 6 dB between two syllables", Source::Voice, joined(0.5), 2},
        {"dip of 3 dB", Source::Voice, joined(0.707), 2},
        {"dip of 1 dB: one long syllable", Source::Voice, joined(0.89), 1},
        {"silence", Source::Voice, {{2.0, 0.0}}, 0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Measure(Render(c.pieces, c.source, 22050), 22050, 1).syllables, c.syllables) << c.name;
    }
}

TEST(SyllableRateTest, HissBetweenSyllablesAddsNoneAndMildNoiseChangesNothing)
{
    // Voice, hiss as loud as the voice, voice: a fricative between two vowels.
    std::vector<int16_t> voice = Render(Train(2, 0.35), Source::Voice, 16000);
    const std::vector<Piece> hissAt{{0.3 + 0.2 + 0.1, 0.0}, {0.03, 1.0}, {0.14, 1.0}, {0.03, 0.0}, {1.0, 0.0}};
    const std::vector<int16_t> hiss = Render(hissAt, Source::Hiss, 16000, 1, 8000.0);
    std::vector<int16_t> mixed = voice;
    for (size_t i = 0; i < mixed.size() && i < hiss.size(); ++i) mixed[i] = int16_t(mixed[i] + hiss[i]);
    EXPECT_EQ(Measure(mixed, 16000, 1).syllables, 2u);

    // Hiss throughout, 20 dB below the voice's power while it sounds: the
    // voice's harmonics 1/h (h to 30) at half the peak have a mean square of
    // 0.25 x sum 1/(2h^2); uniform hiss of amplitude A has A^2 / 3.
    double harmonics = 0.0;
    for (int h = 1; h <= 30; ++h) harmonics += 1.0 / (2.0 * h * h);
    const double voiceRms = 12000.0 * 0.5 * std::sqrt(harmonics);
    const double hissAmplitude = voiceRms / 10.0 * std::sqrt(3.0);
    std::vector<int16_t> train = Render(Train(12, 0.1), Source::Voice, 22050);
    const std::vector<int16_t> floor = Render({{0.001, 1.0}, {60.0, 1.0}}, Source::Hiss, 22050, 1, hissAmplitude);
    for (size_t i = 0; i < train.size(); ++i) train[i] = int16_t(train[i] + floor[i]);
    EXPECT_EQ(Measure(train, 22050, 1).syllables, 12u);
}

TEST(SyllableRateTest, SpeechTimeCutsEachPauseToThreeTenths)
{
    struct Case {
        double pauseSeconds;
        double expectedSeconds;
    };
    // Two voiced stretches of 1.0 s around a pause; leading and trailing
    // silence never count. The voicing window (60 ms) blurs each edge of
    // the voice by a few hops.
    for (const Case& c : {Case{0.1, 2.1}, Case{0.25, 2.25}, Case{1.0, 2.3}, Case{4.0, 2.3}}) {
        const std::vector<Piece> pieces{{0.5, 0.0}, {0.02, 1.0}, {0.96, 1.0}, {0.02, 0.0}, {c.pauseSeconds, 0.0},
                                        {0.02, 1.0}, {0.96, 1.0}, {0.02, 0.0}, {0.7, 0.0}};
        const SpeakingRate rate = Measure(Render(pieces, Source::Voice, 22050), 22050, 1);
        EXPECT_NEAR(rate.speechSeconds, c.expectedSeconds, 0.1) << "pause " << c.pauseSeconds;
    }
}

TEST(SyllableRateTest, BlocksOfAnySizeGiveTheSameCountAsOneCall)
{
    const std::vector<int16_t> samples = Render(Train(15, 0.08), Source::Voice, 44100, 2);
    const SpeakingRate whole = Measure(samples, 44100, 2);
    for (size_t block : {size_t(1), size_t(441), size_t(4410), size_t(9999)}) {
        CSyllableCounter counter;
        ASSERT_TRUE(counter.Configure(44100, 2));
        uint64_t announced = 0;
        for (size_t start = 0; start < samples.size() / 2; start += block) {
            const size_t frames = std::min(block, samples.size() / 2 - start);
            announced += counter.Feed(samples.data() + start * 2, frames);
        }
        announced += counter.Finish();
        EXPECT_EQ(announced, whole.syllables) << "blocks of " << block;
        EXPECT_EQ(counter.Nuclei(), whole.syllables) << "blocks of " << block;
        EXPECT_DOUBLE_EQ(counter.SpeechSeconds(), whole.speechSeconds) << "blocks of " << block;
    }
}

TEST(SyllableRateTest, ReadsEightAndSixteenBitBytesAlike)
{
    const std::vector<int16_t> samples = Render(Train(9, 0.1), Source::Voice, 11025, 2);
    std::vector<uint8_t> eightBit;
    for (int16_t s : samples) eightBit.push_back(uint8_t((s >> 8) + 128));
    const SpeakingRate eight = MeasureSpeakingRate(eightBit.data(), eightBit.size(), 11025, 2, 8);
    EXPECT_EQ(eight.syllables, 9u);
    EXPECT_EQ(Measure(samples, 11025, 2).syllables, 9u);
    // Other widths, and a torn last frame, count nothing more.
    const std::vector<uint8_t> bytes = testbytes::ToBytes(samples);
    EXPECT_EQ(MeasureSpeakingRate(bytes.data(), bytes.size(), 11025, 2, 24).syllables, 0u);
    EXPECT_EQ(MeasureSpeakingRate(bytes.data(), bytes.size() - 3, 11025, 2, 16).syllables, 9u);
}

TEST(SyllableRateTest, RefusesFormatsOutOfRangeAndStartsAfreshOnReset)
{
    struct Case {
        uint32_t rate;
        uint16_t channels;
        bool accepted;
    };
    for (const Case& c : {Case{3999, 1, false}, Case{4000, 1, true}, Case{192000, 8, true}, Case{192001, 1, false},
                          Case{44100, 0, false}, Case{44100, 9, false}}) {
        CSyllableCounter counter;
        EXPECT_EQ(counter.Configure(c.rate, c.channels), c.accepted) << c.rate << " Hz x" << c.channels;
        EXPECT_EQ(counter.IsConfigured(), c.accepted);
    }
    const std::vector<int16_t> samples = Render(Train(4, 0.1), Source::Voice, 8000);
    CSyllableCounter unconfigured;
    EXPECT_EQ(unconfigured.Feed(samples.data(), samples.size()) + unconfigured.Finish(), 0u);

    CSyllableCounter counter;
    ASSERT_TRUE(counter.Configure(8000, 1));
    counter.Feed(samples.data(), samples.size());
    counter.Finish();
    EXPECT_EQ(counter.Nuclei(), 4u);
    counter.Reset();
    EXPECT_EQ(counter.Nuclei(), 0u);
    EXPECT_EQ(counter.SpeechSeconds(), 0.0);
    counter.Feed(samples.data(), samples.size());
    counter.Finish();
    EXPECT_EQ(counter.Nuclei(), 4u);
}

TEST(SyllableRateTest, RatesFromSyllablesAndSpeechTime)
{
    struct Case {
        uint64_t syllables;
        double seconds;
        double ratio;
        double perSecond;
        double wordsPerMinute;
    };
    // 29 syllables in 6.0 s: 4.8333/s, 290 a minute, 200 words of 1.45.
    const Case cases[] = {{29, 6.0, 1.45, 29.0 / 6.0, 200.0}, {30, 10.0, 1.5, 3.0, 120.0}, {0, 5.0, 1.45, 0.0, 0.0},
                          {10, 0.0, 1.45, 0.0, 0.0},         {10, 2.0, 0.0, 5.0, 0.0}};
    for (const Case& c : cases) {
        SpeakingRate rate{c.syllables, c.seconds};
        EXPECT_NEAR(rate.SyllablesPerSecond(), c.perSecond, 1e-9);
        EXPECT_NEAR(rate.WordsPerMinute(c.ratio), c.wordsPerMinute, 1e-9);
    }
}

TEST(SyllableRateTest, WordTallyCarriesTheFractionOfAWord)
{
    struct Case {
        double ratio;
        std::vector<uint32_t> nuclei;
        std::vector<uint32_t> words;
    };
    const Case cases[] = {
        // 1.45 syllables a word: 2 -> 1 (1.38), 3 -> 2 (2.07), 5 -> 3 (3.45), 29 -> 20.
        {1.45, {2, 1, 2, 24}, {1, 1, 1, 17}},
        {1.0, {0, 3, 1}, {0, 3, 1}},
        {2.0, {1, 1, 1, 1, 1}, {0, 1, 0, 1, 0}},
    };
    for (const Case& c : cases) {
        CWordTally tally;
        tally.SetSyllablesPerWord(c.ratio);
        for (size_t i = 0; i < c.nuclei.size(); ++i)
            EXPECT_EQ(tally.Add(c.nuclei[i]), c.words[i]) << "ratio " << c.ratio << ", step " << i;
    }
    // A ratio raised mid-stream owes no words back.
    CWordTally tally;
    tally.SetSyllablesPerWord(1.0);
    EXPECT_EQ(tally.Add(10), 10u);
    tally.SetSyllablesPerWord(2.0);
    EXPECT_EQ(tally.Add(4), 0u);
    EXPECT_EQ(tally.Add(8), 1u);  // 22 / 2 = 11 words in all
}

TEST(SyllableRateTest, SyllablesPerWordBounds)
{
    struct Case {
        double ratio;
        bool valid;
    };
    for (const Case& c : {Case{1.45, true}, Case{1.0, true}, Case{8.0, true}, Case{0.99, false}, Case{0.0, false},
                          Case{-1.45, false}, Case{8.01, false}, Case{std::nan(""), false}}) {
        EXPECT_EQ(IsSyllablesPerWordValid(c.ratio), c.valid) << c.ratio;
    }
}

}  // namespace
