// The refined profile's word counts: the live CountWordFire reports and the
// ten-second report give words by the syllables of the file, and
// GetWordSpeedByAsyn gives words per minute of its stretch by them, at any
// rate and channel count. The files hold syllables laid out by hand, so the
// expected words follow from their number.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "engine/WavOut.h"
#include "support/HostHarness.h"
#include "support/SyllableSignal.h"
#include "support/WavFiles.h"

using namespace testwav;
using namespace test_signals;

namespace {

// `syllables` syllables (0.2 s each) `gap` seconds apart after `lead`
// seconds of silence, and a second of silence at the end.
std::string SyllableFile(const std::string& name, int rate, int channels, int syllables, double gap,
                         double lead = 0.3)
{
    std::vector<Piece> pieces{{lead, 0.0}};
    for (int i = 0; i < syllables; ++i) {
        for (const Piece& p : Syllable()) pieces.push_back(p);
        pieces.push_back({gap, 0.0});
    }
    pieces.push_back({1.0, 0.0});
    const std::vector<int16_t> samples = Render(pieces, Source::Voice, rate, channels, 30000.0);
    return WriteFile(name, CanonicalWav(Format{1, uint16_t(channels), uint32_t(rate), 16}, Samples16(samples)));
}

class RefinedWordCount : public ::testing::Test {
protected:
    HostHarness host;
    CWavOut engine;

    void SetUp() override
    {
        engine.m_hNotifyWnd = host.Window();
        engine.SetPlaybackProfile(kProfileRefined);
        // A report with every block, so that none is left unsaid at the end.
        engine.SetCountWordTimeSpan(100);
    }

    // The ten-second report and the sum of the live ones over the whole file.
    std::pair<WPARAM, WPARAM> PlayAndCount(const std::string& path)
    {
        host.Take();
        EXPECT_TRUE(engine.StartPlay(path.c_str()));
        for (int guard = 0; guard < 2000 && host.Step(); ++guard) {
        }
        engine.StopPlay();
        host.Pump();
        const std::vector<HostHarness::Message> reports = host.Received(WM_WORDCOUNT);
        EXPECT_FALSE(reports.empty());
        if (reports.empty()) return {0, 0};
        EXPECT_EQ(reports[0].lParam, 10000);
        WPARAM live = 0;
        for (size_t i = 1; i < reports.size(); ++i) live += reports[i].wParam;
        return {reports[0].wParam, live};
    }
};

TEST_F(RefinedWordCount, ReportsWordsBySyllablesAtAnyFormatAndRatio)
{
    struct Case {
        int rate;
        int channels;
        int syllables;
        double ratio;
        WPARAM words;  // syllables / ratio, rounded down
    };
    const Case cases[] = {
        {22050, 1, 30, 1.5, 20}, {44100, 2, 30, 1.5, 20}, {16000, 1, 30, 1.0, 30},
        {11025, 2, 25, 2.0, 12}, {48000, 1, 7, 1.5, 4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.rate << " Hz x" << c.channels << ", ratio " << c.ratio);
        engine.SetSyllablesPerWord(c.ratio);
        const std::string path = SyllableFile("refined-count.wav", c.rate, c.channels, c.syllables, 0.1);
        const auto [tenSeconds, live] = PlayAndCount(path);
        // The whole file lies within the first ten seconds.
        EXPECT_EQ(tenSeconds, c.words);
        EXPECT_EQ(live, c.words);
    }
}

TEST_F(RefinedWordCount, TenSecondReportCountsOnlyTheFirstTenSeconds)
{
    engine.SetSyllablesPerWord(1.0);
    // Syllables every 0.5 s from 0.3 s: those starting before 9.8 s end by
    // 10 s, 20 of them; the file goes on to 30 in all.
    const std::string path = SyllableFile("refined-ten.wav", 22050, 1, 30, 0.3);
    const auto [tenSeconds, live] = PlayAndCount(path);
    EXPECT_EQ(tenSeconds, 20u);
    EXPECT_EQ(live, 30u);
}

TEST_F(RefinedWordCount, JustPlayCountsNothing)
{
    engine.SetJustPlay(TRUE);
    const std::string path = SyllableFile("refined-quiet.wav", 22050, 1, 10, 0.1);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    for (int guard = 0; guard < 200 && host.Step(); ++guard) {
    }
    engine.StopPlay();
    host.Pump();
    EXPECT_TRUE(host.Received(WM_WORDCOUNT).empty());
}

TEST_F(RefinedWordCount, WordSpeedIsWordsPerMinuteOfSpeech)
{
    struct Case {
        int rate;
        int channels;
        double gap;
        double ratio;
        int32_t timeSpan;
        int syllables;  // that many periods of 0.2 s + gap fill the stretch
    };
    const Case cases[] = {
        {22050, 1, 0.1, 1.5, 6, 20},
        {44100, 2, 0.1, 1.5, 6, 20},
        {16000, 1, 0.25, 1.5, 9, 20},
        {22050, 2, 0.05, 1.0, 6, 24},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.rate << " Hz x" << c.channels << ", gap " << c.gap);
        engine.SetSyllablesPerWord(c.ratio);
        engine.SetJustPlay(TRUE);
        // The stretch starts one second into the samples, where the first
        // syllable starts, and ends where a syllable would start.
        const std::string path = SyllableFile("refined-speed.wav", c.rate, c.channels, 40, c.gap, 1.0);
        ASSERT_TRUE(engine.StartPlay(path.c_str()));
        host.Take();
        EXPECT_EQ(engine.GetWordSpeedByAsyn(2.0f, c.timeSpan), 1);
        std::vector<HostHarness::Message> done;
        for (int wait = 0; wait < 500 && done.empty(); ++wait) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            host.Pump();
            done = host.Received(WM_WORDSPEEDDONE);
        }
        engine.StopPlay();
        ASSERT_EQ(done.size(), 1u);
        // Speech time runs from the first voice to the last: every period
        // but the last one's closing gap.
        const double speechSeconds = c.syllables * (0.2 + c.gap) - c.gap;
        const double expected = c.syllables / speechSeconds * 60.0 / c.ratio;
        EXPECT_NEAR(double(done[0].wParam), expected, expected * 0.03);
    }
}

}  // namespace
