#include "tools/PlaySettings.h"

#include <cstdio>
#include <cstdlib>

#include "media/AudioLocator.h"
#include "media/EncodedAudio.h"
#include "platform/Download.h"
#include "platform/Messages.h"
#include "platform/Termination.h"
#include "tools/SourceNotes.h"

namespace {

bool ParseInt(const std::string& text, int low, int high, int& out)
{
    char* end = nullptr;
    long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < low || value > high) return false;
    out = static_cast<int>(value);
    return true;
}

// "http://host:port/path" becomes the server part with its scheme, host and
// port, and the path on it; the port argument is then not used.
bool SplitRemote(const std::string& source, std::string& address, std::string& path)
{
    for (const char* scheme : {"http://", "https://", "ftp://"}) {
        std::string prefix = scheme;
        if (source.compare(0, prefix.size(), prefix) != 0) continue;
        size_t slash = source.find('/', prefix.size());
        address = source.substr(0, slash);
        path = slash == std::string::npos ? "/" : source.substr(slash);
        return true;
    }
    return false;
}

}  // namespace

bool ParsePlaySettings(const std::vector<std::string>& args, PlaySettings& settings,
                       std::vector<std::string>& rest, const char* command)
{
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        bool hasValue = i + 1 < args.size();
        if (arg == "--level" && hasValue) {
            if (!ParseInt(args[++i], -60, 50, settings.level)) {
                std::fprintf(stderr, "tempvox %s: --level takes -60 to 50\n", command);
                return false;
            }
        } else if (arg == "--volume" && hasValue) {
            if (!ParseInt(args[++i], 0, 100, settings.volume)) {
                std::fprintf(stderr, "tempvox %s: --volume takes 0 to 100\n", command);
                return false;
            }
        } else if (arg == "--loop" && i + 2 < args.size()) {
            if (!ParseInt(args[i + 1], 0, INT32_MAX, settings.loopStartMs) ||
                !ParseInt(args[i + 2], 0, INT32_MAX, settings.loopEndMs) || settings.loopEndMs <= settings.loopStartMs) {
                std::fprintf(stderr, "tempvox %s: --loop takes START END in milliseconds, END above START\n", command);
                return false;
            }
            settings.loop = true;
            i += 2;
        } else if (arg == "--noise" && hasValue) {
            settings.noise = args[++i];
        } else if (arg == "--just-play") {
            settings.justPlay = true;
        } else if (arg == "--classic") {
            settings.classic = true;
        } else if (arg.rfind("--", 0) != 0 && settings.source.empty()) {
            settings.source = arg;
        } else {
            rest.push_back(arg);
        }
    }
    if (settings.source.empty()) {
        std::fprintf(stderr, "tempvox %s: no audio file given\n", command);
        return false;
    }
    return true;
}

bool ApplyPlaySettings(CTempvoxCtrl& control, const PlaySettings& settings, const char* command)
{
    std::string address;
    std::string path;
    const bool remote = SplitRemote(settings.source, address, path);
    // A cut-short encoded file plays only the frames it holds; say so, or
    // the learner would take the early end for a fault of the player.
    EncodedFrameCounts frames;
    if (!remote && IsEncodedPath(settings.source) && ReadEncodedFrameCounts(settings.source, frames) &&
        frames.held < frames.declared) {
        std::fprintf(stderr, "tempvox %s: %s holds %u of its %u frames\n", command, settings.source.c_str(),
                     frames.held, frames.declared);
    }
    // The profile first: it decides how an https address is fetched.
    control.Engine().SetPlaybackProfile(settings.classic ? kProfileClassic : kProfileRefined);
    BOOL named;
    {
        SourceProgressLine progress(settings.source, command);
        control.SetDecodeProgress(progress.DecodeCallback());
        named = remote ? control.SetPlayFilePath(address.c_str(), 0, path.c_str())
                       : control.SetPlayFilePath(nullptr, -1, settings.source.c_str());
        control.SetDecodeProgress(nullptr);
    }
    // Stopped by a signal while it was decoded: nothing more to say or do.
    if (platform::TerminationSignal() != 0) return false;
    PrintDecodeNotes(control.LastDecode(), settings.source, command);
    if (!named) {
        const HRESULT download = platform::LastDownloadResult();
        if (remote && download != 0) {
            std::fprintf(stderr, "tempvox %s: cannot use '%s': %s\n", command, settings.source.c_str(),
                         platform::DescribeDownloadResult(download));
        } else {
            std::fprintf(stderr, "tempvox %s: cannot use '%s'\n", command, settings.source.c_str());
        }
        return false;
    }
    CWavOut& engine = control.Engine();
    engine.SetChangeSpeedLevel(static_cast<int16_t>(settings.level));
    engine.SetVolume(settings.volume);
    engine.SetJustPlay(settings.justPlay ? TRUE : FALSE);
    if (settings.loop) engine.SetLoopPlaySection(TRUE, settings.loopStartMs, settings.loopEndMs);
    if (!settings.noise.empty()) {
        engine.LoadMixSound(settings.noise.c_str());
        engine.SetMixerFlag(TRUE);
    }
    return true;
}

void WaitForPlayOut(CTempvoxCtrl& control)
{
    CWavOut& engine = control.Engine();
    platform::PumpUntil([&] { return engine.BuffersPlayed() >= engine.BuffersPlayedAtEnd() + kBufferCount - 1; },
                        5000);
}

std::string FormatMs(uint32_t ms)
{
    char text[32];
    std::snprintf(text, sizeof text, "%02u:%02u.%u", ms / 60000, ms / 1000 % 60, ms / 100 % 10);
    return text;
}
