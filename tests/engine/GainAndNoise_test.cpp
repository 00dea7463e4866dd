#include <gtest/gtest.h>

#include "engine/WavOut.h"
#include "support/WavOutProbe.h"
#include "support/HostHarness.h"
#include "support/WavFiles.h"

using namespace testwav;

namespace {

const Format kMono16{1, 1, 22050, 16};

// A triangle with true peaks of `peak` (neighbours above a quarter of it).
std::vector<int16_t> Triangle(size_t count, int peak)
{
    std::vector<int16_t> samples(count);
    for (size_t i = 0; i < count; ++i) {
        int phase = static_cast<int>(i % 100);
        int rising = phase < 50 ? phase : 100 - phase;  // 0..50
        samples[i] = static_cast<int16_t>((rising - 25) * peak / 25);
    }
    return samples;
}

}  // namespace

TEST(GainAndNoise, OpeningScansTheGainByWidth)
{
    HostHarness host;
    struct Case {
        const char* name;
        Format format;
        std::string data;
        bool opened;
        float gain;
    };
    const Case cases[] = {
        {"quiet 16-bit", kMono16, Samples16(Triangle(44100, 3000)), true, 10.0f},
        {"full-scale 16-bit", kMono16, Samples16(Triangle(44100, 32000)), true, 1.0f},
        {"silence", kMono16, std::string(44100, '\0'), true, 50.0f},
        {"8-bit is not scanned", Format{1, 1, 22050, 8}, std::string(22050, '\x10'), true, 1.0f},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CWavOut engine;
        std::string path = WriteFile(std::string(c.name) + ".wav", CanonicalWav(c.format, c.data));
        EXPECT_EQ(engine.StartPlay(path.c_str()) != FALSE, c.opened);
        EXPECT_FLOAT_EQ(CWavOutProbe::Gain(engine), c.gain);
        engine.StopPlay();
    }
}

TEST(GainAndNoise, VolumeTakesTheLowSixteenBits)
{
    CWavOut engine;
    EXPECT_EQ(engine.GetVolume(), 100);
    struct Case {
        int32_t given;
        BOOL accepted;
        int32_t readBack;
    };
    const Case cases[] = {{50, TRUE, 50}, {29, TRUE, 28}, {101, FALSE, 28}, {-1, FALSE, 28},
                          {65636, TRUE, 100}, {0, TRUE, 0}, {7, TRUE, 7}, {65535, FALSE, 7}, {65536, TRUE, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.given);
        EXPECT_EQ(engine.SetVolume(c.given), c.accepted);
        EXPECT_EQ(engine.GetVolume(), c.readBack);
    }
}

TEST(GainAndNoise, NoiseIsMixedFromTheFifthBlockAndABadLoadKeepsIt)
{
    HostHarness host;
    std::vector<int16_t> speech = Triangle(20 * 2205, 32000);
    std::string speechData = Samples16(speech);
    std::string speechPath = WriteFile("speech.wav", CanonicalWav(kMono16, speechData));
    std::string noisePath = WriteFile("noise.wav", CanonicalWav(kMono16, Samples16(std::vector<int16_t>(3000, 700))));
    std::string notRiff = WriteFile("noise_bad.wav", std::string("RIFX") + std::string(80, '\0'));

    CWavOut engine;
    engine.m_hNotifyWnd = host.Window();
    engine.SetJustPlay(TRUE);
    engine.LoadMixSound(noisePath.c_str());
    engine.LoadMixSound(notRiff.c_str());
    engine.LoadMixSound("/nonexistent/noise.wav");
    EXPECT_EQ(host.BoxIds(), std::vector<int>{215});
    engine.SetMixerFlag(TRUE);
    EXPECT_EQ(engine.GetMixerFlag(), TRUE);
    ASSERT_TRUE(engine.StartPlay(speechPath.c_str()));

    std::vector<bool> untouched;
    for (int step = 0; step < 6; ++step) {
        size_t mark = host.PlayedBytes().size();
        ASSERT_TRUE(host.Step());
        untouched.push_back(host.PlayedBytes().substr(mark) == speechData.substr(static_cast<size_t>(step) * 4410, 4410));
    }
    // The first noise sound is still the one in use: blocks 5 and 6 carry it.
    EXPECT_EQ(untouched, (std::vector<bool>{true, true, true, true, false, false}));

    // Dropping the noise while mixing is on stops the mix; the flag stays.
    engine.LoadMixSound(nullptr);
    EXPECT_EQ(engine.GetMixerFlag(), TRUE);
    ASSERT_TRUE(host.Step(4));
    size_t mark = host.PlayedBytes().size();
    ASSERT_TRUE(host.Step());
    EXPECT_EQ(host.PlayedBytes().substr(mark), speechData.substr(10 * 4410, 4410));
    engine.StopPlay();
}
