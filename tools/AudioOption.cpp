#include <cstdio>

#include "tools/Commands.h"

bool ParseAudioOption(const std::string& value, platform::AudioBackendConfig& config)
{
    if (platform::ParseAudioDevice(value, config)) return true;
    std::fprintf(stderr, "tempvox: unknown audio device '%s' (default, alsa, alsa:DEVICE, null, manual or capture:FILE)\n",
                 value.c_str());
    return false;
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
