#include "dsp/SentenceFinder.h"
#include "dsp/SentenceFinderDetail.h"
#include "support/SentenceSignal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

using namespace sentence_detail;
using sentence_signal::RecordingBuilder;
using sentence_signal::TrueSentence;

namespace {

const double kPi = 3.14159265358979323846;

// ---------------------------------------------------------------- stages

// The definition of the DFT, summed directly in double precision.
std::vector<double> DirectHannPower(const std::vector<float>& frame)
{
    const size_t n = frame.size();
    std::vector<double> power(n / 2 + 1);
    for (size_t k = 0; k <= n / 2; ++k) {
        std::complex<double> sum = 0.0;
        for (size_t i = 0; i < n; ++i) {
            const double window = 0.5 - 0.5 * std::cos(2.0 * kPi * double(i) / double(n));
            sum += window * double(frame[i]) * std::polar(1.0, -2.0 * kPi * double(i * k) / double(n));
        }
        power[k] = std::norm(sum);
    }
    return power;
}

TEST(PowerSpectrum, AgreesWithTheDirectSumOfTheDefinition)
{
    std::mt19937 random(5);
    std::normal_distribution<float> gauss(0.0f, 3000.0f);
    for (size_t n : {4u, 16u, 256u, 512u}) {
        SCOPED_TRACE(n);
        std::vector<float> frame(n);
        for (float& v : frame) v = gauss(random);
        CPowerSpectrum spectrum(n);
        std::vector<float> power(n / 2 + 1);
        spectrum.Compute(frame.data(), power.data());
        const std::vector<double> expected = DirectHannPower(frame);
        double largest = *std::max_element(expected.begin(), expected.end());
        for (size_t k = 0; k <= n / 2; ++k) EXPECT_NEAR(power[k], expected[k], 1e-4 * largest) << k;
    }
}

TEST(PowerSpectrum, CosineOnABinFillsThatBinAndItsTwoNeighbours)
{
    // Under a Hann window, a cosine of amplitude A on bin k gives X[k] =
    // A n / 4 and X[k +- 1] = -A n / 8, and nothing elsewhere.
    struct Case {
        size_t n;
        size_t bin;
        double amplitude;
    };
    for (const Case& c : {Case{64, 5, 1.0}, Case{256, 40, 1000.0}, Case{512, 100, 20000.0}}) {
        SCOPED_TRACE(c.bin);
        std::vector<float> frame(c.n);
        for (size_t i = 0; i < c.n; ++i)
            frame[i] = float(c.amplitude * std::cos(2.0 * kPi * double(c.bin * i) / double(c.n)));
        CPowerSpectrum spectrum(c.n);
        std::vector<float> power(c.n / 2 + 1);
        spectrum.Compute(frame.data(), power.data());
        const double centre = std::pow(c.amplitude * double(c.n) / 4.0, 2.0);
        EXPECT_NEAR(power[c.bin], centre, centre * 1e-4);
        EXPECT_NEAR(power[c.bin - 1], centre / 4.0, centre * 1e-4);
        EXPECT_NEAR(power[c.bin + 1], centre / 4.0, centre * 1e-4);
        for (size_t k = 0; k <= c.n / 2; ++k) {
            if (k + 1 < c.bin || k > c.bin + 1) {
                EXPECT_LT(power[k], centre * 1e-6) << k;
            }
        }
    }
}

TEST(PowerSpectrum, RefusesSizesThatAreNoPowerOfTwo)
{
    for (size_t n : {0u, 2u, 3u, 100u, 511u}) EXPECT_THROW(CPowerSpectrum{n}, std::invalid_argument) << n;
}

TEST(NoiseMeanAbovePercentile, MatchesTheGammaQuantilesInClosedForm)
{
    struct Case {
        double bins;
        double percentile;
        double expectedDb;
    };
    // Shape 1 (exponential): the p-quantile is -ln(1 - p). Shape 2: the
    // 10 % quantile solves 1 - e^-x (1 + x) = 0.1, x = 0.531812.
    const Case cases[] = {
        {1.0, 10.0, 10.0 * std::log10(1.0 / -std::log(0.9))},
        {1.0, 50.0, 10.0 * std::log10(1.0 / std::log(2.0))},
        {0.3, 10.0, 10.0 * std::log10(1.0 / -std::log(0.9))},
        {2.0, 10.0, 10.0 * std::log10(2.0 / 0.531812)},
        {1.0, 0.0, 0.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bins);
        EXPECT_NEAR(NoiseMeanAbovePercentileDb(c.bins, c.percentile), c.expectedDb, 0.01);
    }
    // Wider bands spread less: the mean comes closer to the percentile.
    EXPECT_LT(NoiseMeanAbovePercentileDb(40.0, 10.0), NoiseMeanAbovePercentileDb(8.0, 10.0));
    EXPECT_GT(NoiseMeanAbovePercentileDb(40.0, 10.0), 0.0f);
}

TEST(LogBands, CoverTheRangeWithoutGapsAndWithABinEach)
{
    struct Case {
        double low;
        double high;
        size_t count;
        size_t fft;
        double rate;
        size_t firstBin;  // round(low / bin width)
        size_t endBin;    // round(high / bin width)
    };
    const Case cases[] = {
        {150.0, 7600.0, 20, 512, 22050.0, 3, 176},
        {150.0, 7520.0, 20, 512, 16000.0, 5, 241},
        {150.0, 3760.0, 20, 256, 8000.0, 5, 120},
        // More bands than bins: each still gets one, and they stop at n/2.
        {150.0, 1000.0, 40, 16, 4000.0, 1, 4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rate);
        const std::vector<BinRange> bands = LogBands(c.low, c.high, c.count, c.fft, c.rate);
        ASSERT_FALSE(bands.empty());
        EXPECT_EQ(bands.front().first, c.firstBin);
        EXPECT_EQ(bands.back().end, c.endBin);
        EXPECT_LE(bands.size(), c.count);
        for (size_t i = 0; i < bands.size(); ++i) {
            EXPECT_LT(bands[i].first, bands[i].end);
            EXPECT_LE(bands[i].end, c.fft / 2);
            if (i > 0) {
                EXPECT_EQ(bands[i].first, bands[i - 1].end);
            }
        }
    }
}

TEST(SlidingPercentile, FollowsTheRankOfTheValuesInTheWindow)
{
    // Against sorting the window's values, held to the same steps.
    std::mt19937 random(11);
    std::uniform_real_distribution<float> level(-30.0f, 190.0f);
    struct Case {
        float percentile;
        float step;
        size_t window;
    };
    for (const Case& c : {Case{10.0f, 0.25f, 50}, Case{0.0f, 1.0f, 7}, Case{50.0f, 0.25f, 201}, Case{100.0f, 1.0f, 30}}) {
        SCOPED_TRACE(c.percentile);
        CSlidingPercentile sliding(c.percentile, c.step);
        std::vector<float> values;
        for (int i = 0; i < 2000; ++i) {
            values.push_back(level(random));
            sliding.Add(values.back());
            if (values.size() > c.window) sliding.Remove(values[values.size() - c.window - 1]);
            std::vector<float> held(values.end() - std::min(values.size(), c.window), values.end());
            for (float& v : held) {
                v = std::clamp(v, CSlidingPercentile::kLowestDb, CSlidingPercentile::kLowestDb + CSlidingPercentile::kRangeDb - c.step);
                v = CSlidingPercentile::kLowestDb + std::floor((v - CSlidingPercentile::kLowestDb) / c.step) * c.step;
            }
            std::sort(held.begin(), held.end());
            const size_t rank = size_t(c.percentile / 100.0f * float(held.size() - 1));
            ASSERT_NEAR(sliding.Value(), held[rank], 1e-3) << i;
            ASSERT_EQ(sliding.Count(), held.size());
        }
    }
}

TEST(SlidingPercentile, EmptyWindowAnswersTheBottom)
{
    CSlidingPercentile sliding(10.0f);
    EXPECT_EQ(sliding.Value(), CSlidingPercentile::kLowestDb);
    sliding.Add(60.0f);
    sliding.Remove(60.0f);
    EXPECT_EQ(sliding.Count(), 0u);
    EXPECT_EQ(sliding.Value(), CSlidingPercentile::kLowestDb);
}

// ---------------------------------------------------------------- segmenter

struct Stretch {
    int frames;
    float score;
    float levelDb;
};

std::vector<CPauseSegmenter::Range> Segment(const std::vector<Stretch>& stretches, int minPause = 30, int minSentence = 25)
{
    CPauseSegmenter segmenter(FinderTuning{}, minPause, minSentence);
    for (const Stretch& s : stretches)
        for (int i = 0; i < s.frames; ++i) segmenter.Push(s.score, s.levelDb);
    segmenter.Finish();
    return segmenter.Sentences();
}

TEST(PauseSegmenter, DecidesByTheRulesOfPausesAndThresholds)
{
    // Default tuning: speech above 3, edges above 1, holes up to 5 frames,
    // quiet stretches 30 dB under the speech before them dropped.
    using R = CPauseSegmenter::Range;
    struct Case {
        const char* what;
        std::vector<Stretch> input;
        std::vector<R> expected;
    };
    const Case cases[] = {
        {"two sentences a long pause apart", {{10, 0, 0}, {50, 8, 90}, {40, 0, 0}, {50, 8, 90}, {10, 0, 0}}, {{10, 60}, {100, 150}}},
        {"a pause shorter than the minimum joins them", {{10, 0, 0}, {50, 8, 90}, {29, 0, 0}, {50, 8, 90}, {10, 0, 0}}, {{10, 139}}},
        {"a pause of exactly the minimum parts them", {{10, 0, 0}, {50, 8, 90}, {30, 0, 0}, {50, 8, 90}, {10, 0, 0}}, {{10, 60}, {90, 140}}},
        {"edges above the low score stay with the sentence", {{10, 0, 0}, {6, 2, 60}, {40, 8, 90}, {8, 2, 60}, {40, 0, 0}}, {{10, 64}}},
        {"a stretch that never reaches the high score is none", {{10, 0, 0}, {60, 2, 70}, {40, 0, 0}}, {}},
        {"a short dip under the edge does not end it", {{10, 0, 0}, {30, 8, 90}, {5, 0.5, 0}, {10, 2, 60}, {40, 0, 0}}, {{10, 55}}},
        {"a long dip does", {{10, 0, 0}, {30, 8, 90}, {6, 0.5, 0}, {10, 2, 60}, {40, 0, 0}}, {{10, 40}}},
        {"shorter than the minimum sentence is dropped", {{10, 0, 0}, {24, 8, 90}, {40, 0, 0}, {25, 8, 90}, {40, 0, 0}}, {{74, 99}}},
        {"a breath 35 dB under the speech neither counts nor joins",
         {{10, 0, 0}, {50, 8, 90}, {12, 0, 0}, {26, 8, 55}, {12, 0, 0}, {50, 8, 90}, {10, 0, 0}},
         {{10, 60}, {110, 160}}},
        {"a speaker 20 dB quieter is speech", {{10, 0, 0}, {50, 8, 90}, {40, 0, 0}, {50, 8, 70}, {10, 0, 0}}, {{10, 60}, {100, 150}}},
        {"speech to the very end ends with the input", {{10, 0, 0}, {50, 8, 90}}, {{10, 60}}},
        {"nothing but silence", {{200, 0, 0}}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(Segment(c.input), c.expected);
    }
}

TEST(PauseSegmenter, QuietReferenceFadesSoAMuchQuieterSpeakerIsHeardAgain)
{
    // 40 dB quieter: dropped right after the loud speech, taken once the
    // reference has fallen by more than 10 dB (1 dB a second, 100 frames).
    const std::vector<Stretch> soon = {{10, 0, 0}, {50, 8, 90}, {100, 0, 0}, {50, 8, 50}, {10, 0, 0}};
    EXPECT_EQ(Segment(soon).size(), 1u);
    const std::vector<Stretch> later = {{10, 0, 0}, {50, 8, 90}, {1200, 0, 0}, {50, 8, 50}, {10, 0, 0}};
    EXPECT_EQ(Segment(later).size(), 2u);
}

TEST(PauseSegmenter, ASentenceIsOutOnceAWholePauseFollowsIt)
{
    CPauseSegmenter segmenter(FinderTuning{}, 30, 25);
    for (int i = 0; i < 50; ++i) segmenter.Push(8.0f, 90.0f);
    for (int i = 0; i < 29; ++i) segmenter.Push(0.0f, 0.0f);
    EXPECT_TRUE(segmenter.Sentences().empty());
    segmenter.Push(0.0f, 0.0f);
    ASSERT_EQ(segmenter.Sentences().size(), 1u);
    EXPECT_EQ(segmenter.Sentences()[0], (CPauseSegmenter::Range{0, 50}));
}

// ---------------------------------------------------------------- the finder

std::vector<SentenceSpan> Find(const RecordingBuilder& recording, size_t block = 4096,
                               const SentenceFinderSettings& settings = {})
{
    const std::vector<int16_t> samples = recording.Samples();
    const size_t channels = size_t(recording.Channels());
    const size_t frames = samples.size() / channels;
    CSentenceFinder finder(uint32_t(recording.Rate()), uint16_t(channels), settings);
    for (size_t at = 0; at < frames; at += block) finder.Feed(&samples[at * channels], std::min(block, frames - at));
    return finder.Finish();
}

// Every true sentence found once, each boundary within 100 ms, nothing else.
void ExpectSentences(const std::vector<SentenceSpan>& found, const std::vector<TrueSentence>& truth, int32_t rate)
{
    ASSERT_EQ(found.size(), truth.size());
    for (size_t i = 0; i < truth.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_NEAR(double(found[i].startFrame) / rate, truth[i].start, 0.1);
        EXPECT_NEAR(double(found[i].endFrame) / rate, truth[i].end, 0.1);
    }
}

// Five sentences of 1.2 to 3 s with pauses of 0.5 to 1.2 s; two have a
// comma pause of 150 ms inside.
RecordingBuilder Lesson(int32_t rate, int32_t channels, uint32_t seed)
{
    RecordingBuilder recording(rate, channels, seed);
    recording.Silence(0.6);
    recording.Sentence(2.0);
    recording.Silence(0.7);
    recording.Sentence(2.6, -12.0, 0.5, 0.15);
    recording.Silence(1.2);
    recording.Sentence(1.2, -16.0);
    recording.Silence(0.5);
    recording.Sentence(3.0, -10.0, 0.3, 0.15);
    recording.Silence(0.9);
    recording.Sentence(1.5);
    recording.Silence(0.8);
    return recording;
}

TEST(SentenceFinder, FindsTheSentencesUnderEveryKindOfBackground)
{
    struct Case {
        const char* what;
        int32_t rate;
        int32_t channels;
        void (*noise)(RecordingBuilder&);
    };
    const Case cases[] = {
        {"clean, 8 kHz", 8000, 1, [](RecordingBuilder&) {}},
        {"clean, 16 kHz", 16000, 1, [](RecordingBuilder&) {}},
        {"clean, 48 kHz stereo", 48000, 2, [](RecordingBuilder&) {}},
        {"white noise at 20 dB", 22050, 1, [](RecordingBuilder& r) { r.AddWhiteNoise(20.0); }},
        {"white noise at 10 dB", 44100, 2, [](RecordingBuilder& r) { r.AddWhiteNoise(10.0); }},
        {"pink noise at 15 dB", 16000, 2, [](RecordingBuilder& r) { r.AddPinkNoise(15.0); }},
        {"hum as loud as the speech", 22050, 1, [](RecordingBuilder& r) { r.AddHum(0.0); }},
        {"a music bed 10 dB down", 44100, 1, [](RecordingBuilder& r) { r.AddChords(10.0); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        RecordingBuilder recording = Lesson(c.rate, c.channels, 3);
        c.noise(recording);
        ExpectSentences(Find(recording), recording.Truth(), c.rate);
    }
}

TEST(SentenceFinder, BreathsClicksAndAQuieterSpeakerInThePauses)
{
    RecordingBuilder recording(22050, 1, 9);
    recording.Silence(0.5);
    recording.Sentence(1.8);
    recording.Silence(0.3);
    recording.Breath(0.35, -48.0);  // 36 dB under the speech's peaks
    recording.Silence(0.3);
    recording.Sentence(2.0);
    recording.Silence(0.4);
    recording.Click(-6.0);
    recording.Silence(0.4);
    recording.Sentence(1.6, -30.0);  // the next speaker, 18 dB quieter
    recording.Silence(0.7);
    recording.Sentence(1.6, -30.0);
    recording.Silence(0.5);
    ExpectSentences(Find(recording), recording.Truth(), 22050);
}

TEST(SentenceFinder, TheMinimumPauseDecidesWhatACommaIs)
{
    RecordingBuilder recording(16000, 1, 4);
    recording.Silence(0.5);
    recording.Sentence(3.0, -12.0, 0.5, 0.45);  // a 450 ms pause inside
    recording.Silence(0.8);
    const std::vector<TrueSentence>& truth = recording.Truth();
    SentenceFinderSettings settings;
    EXPECT_EQ(Find(recording, 4096, settings).size(), 2u);
    settings.minPauseMs = 600;
    const std::vector<SentenceSpan> joined = Find(recording, 4096, settings);
    ASSERT_EQ(joined.size(), 1u);
    EXPECT_NEAR(double(joined[0].startFrame) / 16000, truth[0].start, 0.1);
    EXPECT_NEAR(double(joined[0].endFrame) / 16000, truth[0].end, 0.1);
}

TEST(SentenceFinder, TheAnswerDoesNotDependOnTheBlocksFed)
{
    RecordingBuilder recording = Lesson(44100, 2, 12);
    recording.AddPinkNoise(20.0);
    const std::vector<SentenceSpan> whole = Find(recording, size_t(1) << 30);
    EXPECT_EQ(Find(recording, 1), whole);
    EXPECT_EQ(Find(recording, 441), whole);
    EXPECT_EQ(Find(recording, 65536), whole);
}

TEST(SentenceFinder, SentencesComeOutWhileTheInputStillFlows)
{
    RecordingBuilder recording(16000, 1, 2);
    recording.Silence(0.5);
    recording.Sentence(1.5);
    recording.Silence(1.0);
    recording.Sentence(1.5);
    recording.Silence(3.0);
    const std::vector<int16_t> samples = recording.Samples();
    CSentenceFinder finder(16000, 1);
    // The first sentence is decided about a second after its pause is long
    // enough: it is out 2.5 s after its end.
    const size_t firstDecided = size_t((recording.Truth()[0].end + 2.5) * 16000);
    finder.Feed(samples.data(), firstDecided);
    EXPECT_EQ(finder.Sentences().size(), 1u);
    finder.Feed(samples.data() + firstDecided, samples.size() - firstDecided);
    EXPECT_EQ(finder.FramesFed(), int64_t(samples.size()));
    EXPECT_EQ(finder.Finish().size(), 2u);
    // Input after the end changes nothing.
    finder.Feed(samples.data(), samples.size());
    EXPECT_EQ(finder.Finish().size(), 2u);
}

TEST(SentenceFinder, EdgeCasesOfTheInput)
{
    CSentenceFinder empty(22050, 1);
    EXPECT_TRUE(empty.Finish().empty());

    const std::vector<int16_t> silence(22050 * 5, 0);
    CSentenceFinder silent(22050, 1);
    silent.Feed(silence.data(), silence.size());
    EXPECT_TRUE(silent.Finish().empty());

    // Speech from the first sample to the last: one sentence, all of it.
    RecordingBuilder recording(16000, 1, 6);
    recording.Sentence(2.5);
    const std::vector<SentenceSpan> found = Find(recording);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].startFrame, 0);
    EXPECT_NEAR(double(found[0].endFrame), double(recording.Samples().size()), 16000 * 0.1);
    EXPECT_LE(found[0].endFrame, int64_t(recording.Samples().size()));
}

TEST(SentenceFinder, RefusesWhatItCannotJudge)
{
    struct Case {
        uint32_t rate;
        uint16_t channels;
        int32_t minPauseMs;
        int32_t minSentenceMs;
    };
    for (const Case& c : {Case{3999, 1, 300, 250}, Case{22050, 0, 300, 250}, Case{22050, 1, 49, 250},
                          Case{22050, 1, 60001, 250}, Case{22050, 1, 300, -1}}) {
        SentenceFinderSettings settings;
        settings.minPauseMs = c.minPauseMs;
        settings.minSentenceMs = c.minSentenceMs;
        EXPECT_THROW(CSentenceFinder(c.rate, c.channels, settings), std::invalid_argument) << c.rate << " " << c.minPauseMs;
    }
    EXPECT_NO_THROW(CSentenceFinder(4000, 8));
}

}  // namespace
