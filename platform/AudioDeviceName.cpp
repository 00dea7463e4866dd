#include "platform/WaveOut.h"

namespace platform {

namespace {

// The text after `prefix`, when `text` starts with it and goes on.
bool TakeSuffix(const std::string& text, const std::string& prefix, std::string& suffix)
{
    if (text.size() <= prefix.size() || text.compare(0, prefix.size(), prefix) != 0) return false;
    suffix = text.substr(prefix.size());
    return true;
}

}  // namespace

bool ParseAudioDevice(const std::string& text, AudioBackendConfig& config)
{
    AudioBackendConfig parsed = config;
    std::string suffix;
    if (text == "default") {
        parsed.backend = AlsaOutputAvailable() ? AudioBackend::Alsa : AudioBackend::Null;
    } else if (text == "alsa") {
        parsed.backend = AudioBackend::Alsa;
    } else if (TakeSuffix(text, "alsa:", suffix)) {
        parsed.backend = AudioBackend::Alsa;
        parsed.alsaDevice = suffix;
    } else if (text == "null") {
        parsed.backend = AudioBackend::Null;
    } else if (text == "manual") {
        parsed.backend = AudioBackend::Manual;
    } else if (TakeSuffix(text, "capture:", suffix)) {
        parsed.backend = AudioBackend::Capture;
        parsed.capturePath = suffix;
    } else {
        return false;
    }
    config = parsed;
    return true;
}

}  // namespace platform
