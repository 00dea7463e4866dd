#include <cstdio>

#include "tools/Commands.h"

bool ParseAudioOption(const std::string& value, platform::AudioBackendConfig& config)
{
    const std::string capturePrefix = "capture:";
    const std::string alsaPrefix = "alsa:";
    if (value == "alsa") {
        config.backend = platform::AudioBackend::Alsa;
    } else if (value.rfind(alsaPrefix, 0) == 0 && value.size() > alsaPrefix.size()) {
        config.backend = platform::AudioBackend::Alsa;
        config.alsaDevice = value.substr(alsaPrefix.size());
    } else if (value == "null") {
        config.backend = platform::AudioBackend::Null;
    } else if (value == "manual") {
        config.backend = platform::AudioBackend::Manual;
    } else if (value.rfind(capturePrefix, 0) == 0 && value.size() > capturePrefix.size()) {
        config.backend = platform::AudioBackend::Capture;
        config.capturePath = value.substr(capturePrefix.size());
    } else {
        std::fprintf(stderr, "tempvox: unknown audio device '%s' (alsa, alsa:DEVICE, null, manual or capture:FILE)\n",
                     value.c_str());
        return false;
    }
    return true;
}

platform::AudioBackendConfig DefaultAudioBackend()
{
    platform::AudioBackendConfig config;
    if (platform::AlsaOutputAvailable()) {
        config.backend = platform::AudioBackend::Alsa;
    } else {
        std::fprintf(stderr, "tempvox: no sound device answers; playing on the null device\n");
        config.backend = platform::AudioBackend::Null;
    }
    return config;
}
