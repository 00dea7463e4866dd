#include <gtest/gtest.h>

#include <random>

#include "engine/WavOut.h"
#include "platform/MessageBox.h"
#include "platform/Messages.h"
#include "support/WavFiles.h"

using namespace testwav;

// The whole pipeline over a device thread: what the device is given must be
// the file's samples, untouched when no stage is active, from the first
// sample up to the end rule.
TEST(CapturePlayback, WritesTheSourceSamplesUpToTheEndRule)
{
    // Twelve blocks and 30 bytes: the read position stops 30 bytes short of
    // the end of the file, within the head's 44, so those are never played.
    std::mt19937 random(7);
    std::uniform_int_distribution<int> level(-16000, 16000);
    std::vector<int16_t> samples(12 * 2205 + 15);
    for (int16_t& s : samples) s = static_cast<int16_t>(level(random));
    // One true full-scale peak keeps the automatic gain at 1.0.
    samples[1000] = 16000;
    samples[1001] = 32000;
    samples[1002] = 16000;
    Format format{1, 1, 22050, 16};
    std::string path = WriteFile("source.wav", CanonicalWav(format, Samples16(samples)));
    std::string capturePath = TempPath("captured.wav");

    platform::AudioBackendConfig config;
    config.backend = platform::AudioBackend::Capture;
    config.capturePath = capturePath;
    platform::SetAudioBackend(config);
    platform::SetMessageBoxHandler([](const platform::MessageBoxRequest& request) {
        ADD_FAILURE() << "unexpected box: " << request.text;
        return IDOK;
    });

    bool ended = false;
    HWND window = CreateMessageWindow([&](HWND, UINT message, WPARAM, LPARAM) -> LRESULT {
        if (message == WM_PLAYCOMPLETE) ended = true;
        return 0;
    });
    {
        CWavOut engine;
        engine.m_hNotifyWnd = window;
        engine.SetJustPlay(TRUE);
        ASSERT_TRUE(engine.StartPlay(path.c_str()));
        ASSERT_TRUE(platform::PumpUntil([&] { return ended; }, 10000));
        ASSERT_TRUE(platform::PumpUntil([&] { return engine.BuffersPlayed() >= engine.BuffersPlayedAtEnd() + 3; }, 10000));
        ASSERT_TRUE(engine.StopPlay());
    }
    DestroyWindow(window);
    platform::SetMessageBoxHandler(nullptr);
    platform::SetAudioBackend(platform::AudioBackendConfig{});

    std::string captured = ReadFile(capturePath);
    ASSERT_GE(captured.size(), 44u);
    EXPECT_EQ(captured.substr(8, 28), RiffAndFormat(format).substr(8));
    std::vector<int16_t> played = ToSamples16(captured.substr(44));
    std::vector<int16_t> expected(samples.begin(), samples.begin() + 12 * 2205);
    EXPECT_EQ(played, expected);
}
