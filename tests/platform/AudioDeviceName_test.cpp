// How a device is named on the command line, in the container and through
// the module: one parser for all three.
#include <gtest/gtest.h>

#include "platform/WaveOut.h"

namespace {

using platform::AudioBackend;

struct DeviceCase {
    const char* text;
    bool accepted;
    AudioBackend backend;
    const char* alsaDevice;
    const char* capturePath;
};

TEST(AudioDeviceName, EachNameGivesItsDeviceAndAnyOtherLeavesTheConfigAlone)
{
    const DeviceCase cases[] = {
        {"alsa", true, AudioBackend::Alsa, "default", ""},
        {"alsa:hw:1,0", true, AudioBackend::Alsa, "hw:1,0", ""},
        {"alsa:file:'out.raw',raw", true, AudioBackend::Alsa, "file:'out.raw',raw", ""},
        {"null", true, AudioBackend::Null, "default", ""},
        {"manual", true, AudioBackend::Manual, "default", ""},
        {"capture:out.wav", true, AudioBackend::Capture, "default", "out.wav"},
        {"capture:/tmp/a b.wav", true, AudioBackend::Capture, "default", "/tmp/a b.wav"},
        // A prefix with nothing after it names nothing.
        {"alsa:", false, AudioBackend::Capture, "kept", "kept.wav"},
        {"capture:", false, AudioBackend::Capture, "kept", "kept.wav"},
        {"", false, AudioBackend::Capture, "kept", "kept.wav"},
        {"Null", false, AudioBackend::Capture, "kept", "kept.wav"},
        {"pulse", false, AudioBackend::Capture, "kept", "kept.wav"},
        {"nullx", false, AudioBackend::Capture, "kept", "kept.wav"},
    };
    for (const DeviceCase& c : cases) {
        platform::AudioBackendConfig config;
        config.backend = AudioBackend::Capture;
        config.alsaDevice = "kept";
        config.capturePath = "kept.wav";
        if (c.accepted) {
            config.alsaDevice = "default";
            config.capturePath.clear();
        }
        EXPECT_EQ(platform::ParseAudioDevice(c.text, config), c.accepted) << c.text;
        EXPECT_EQ(config.backend, c.backend) << c.text;
        EXPECT_EQ(config.alsaDevice, c.alsaDevice) << c.text;
        EXPECT_EQ(config.capturePath, c.capturePath) << c.text;
    }
}

TEST(AudioDeviceName, DefaultIsTheCardWhenOneAnswersElseTheNullDevice)
{
    platform::AudioBackendConfig config;
    ASSERT_TRUE(platform::ParseAudioDevice("default", config));
    EXPECT_EQ(config.backend, platform::AlsaOutputAvailable() ? AudioBackend::Alsa : AudioBackend::Null);
}

}  // namespace
