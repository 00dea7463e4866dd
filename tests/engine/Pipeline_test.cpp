#include <gtest/gtest.h>

#include "engine/WavOut.h"
#include "support/WavOutProbe.h"
#include "support/HostHarness.h"
#include "support/WavFiles.h"

using namespace testwav;

namespace {

// A voiced 16-bit signal with a full-scale true peak, so the automatic gain
// stays at 1.0 and a block passes the gain stage unchanged.
std::vector<int16_t> VoicedSamples(size_t count)
{
    std::vector<int16_t> samples(count);
    for (size_t i = 0; i < count; ++i) {
        int phase = static_cast<int>(i % 147);
        samples[i] = static_cast<int16_t>((phase < 74 ? phase : 147 - phase) * 300 - 11000);
    }
    samples[500] = 16000;
    samples[501] = 32000;
    samples[502] = 16000;
    return samples;
}

struct PlayedBlock {
    size_t bytes;
    bool raw;  // equal to the file's block as read
};

}  // namespace

TEST(Pipeline, SpeedChangeStartsWithTheFifthBlockAndFollowsTheLevel)
{
    HostHarness host;
    std::vector<int16_t> samples = VoicedSamples(20 * 2205);
    std::string data = Samples16(samples);
    std::string path = WriteFile("voiced.wav", CanonicalWav(Format{1, 1, 22050, 16}, data));

    CWavOut engine;
    engine.m_hNotifyWnd = host.Window();
    engine.SetJustPlay(TRUE);
    engine.SetChangeSpeedLevel(50);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    ASSERT_FLOAT_EQ(CWavOutProbe::Gain(engine), 1.0f);

    std::vector<PlayedBlock> played;
    for (int step = 1; step <= 8; ++step) {
        // Blocks 5 and 6 are refilled at level 50; from then on level 0.
        if (step == 3) engine.SetChangeSpeedLevel(0);
        size_t mark = host.PlayedBytes().size();
        ASSERT_TRUE(host.Step());
        std::string block = host.PlayedBytes().substr(mark);
        size_t fileBlock = static_cast<size_t>(step - 1);
        played.push_back({block.size(), block == data.substr(fileBlock * 4410, 4410)});
    }
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        EXPECT_TRUE(played[i].raw);
    }
    EXPECT_FALSE(played[4].raw);
    EXPECT_LT(played[4].bytes, 4410u);
    EXPECT_FALSE(played[5].raw);
    EXPECT_TRUE(played[6].raw);
    EXPECT_TRUE(played[7].raw);
    engine.StopPlay();
}

TEST(Pipeline, SpeedLevelIsHeldToItsRange)
{
    CWavOut engine;
    const std::pair<int16_t, int16_t> cases[] = {{51, 50}, {50, 50}, {-61, -60}, {-60, -60}, {32767, 50},
                                                 {-32768, -60}, {0, 0}, {-13, -13}};
    for (auto [given, stored] : cases) {
        engine.SetChangeSpeedLevel(given);
        EXPECT_EQ(engine.GetChangeSpeedLevel(), stored) << given;
    }
}
