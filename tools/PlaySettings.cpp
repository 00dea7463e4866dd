#include "tools/PlaySettings.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "media/AudioLocator.h"
#include "media/EncodedAudio.h"
#include "media/FfmpegDecoder.h"
#include "platform/Download.h"
#include "platform/Messages.h"
#include "platform/Termination.h"
#include "tools/ExitCodes.h"
#include "tools/Failures.h"
#include "tools/Language.h"
#include "tools/SourceNotes.h"

namespace {

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

// A file the control would not take: every format but plain PCM WAV goes
// through the FFmpeg plugin, so without it that is the reason to give.
Failure NotPlayable()
{
    std::string missing;
    if (!media::FfmpegAvailable(missing)) return Failure{kExitUnsupported, "cannot decode it: " + missing};
    return Failure{kExitUnsupported, std::string("not audio tempvox can play; ") + kSupportedInputs};
}

// Says why the control would not take `source`, after its own box: the
// download's failure for an address, else what is wrong with the file.
int ReportSourceFailure(const std::string& source, bool remote, const char* command)
{
    if (remote) {
        const HRESULT download = platform::LastDownloadResult();
        if (download != 0) {
            std::string reason = platform::DescribeDownloadResult(download);
            const std::string detail = platform::LastDownloadDetail();
            if (!detail.empty()) reason += " (" + detail + ")";
            return ReportFailure(command, source, Failure{kExitNetwork, reason});
        }
    } else if (const std::optional<Failure> failure = CheckInputFile(source)) {
        return ReportFailure(command, source, *failure);
    }
    return ReportFailure(command, source, NotPlayable());
}

// "RIFF" and "WAVE" where a wave file has them.
bool HasWaveHead(const std::string& path)
{
    char head[12] = {};
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) return false;
    const size_t got = std::fread(head, 1, sizeof head, file);
    std::fclose(file);
    return got == sizeof head && std::memcmp(head, "RIFF", 4) == 0 && std::memcmp(head + 8, "WAVE", 4) == 0;
}

}  // namespace

void AddPlaySettingsOptions(CLI::App& app, PlaySettings& settings)
{
    app.add_option("source", settings.source, "a local file, or an http://, https:// or ftp:// address")
        ->required()
        ->type_name("FILE|URL");
    app.add_option("--level", settings.level, "tempo level, -60 (0.5x) to 50 (2.0x); 0 is the recorded tempo")
        ->check(CLI::Range(-60, 50));
    app.add_option("--volume", settings.volume, "volume, 0 to 100")->check(CLI::Range(0, 100));
    app.add_option_function<std::vector<int>>(
           "--loop",
           [&settings](const std::vector<int>& bounds) {
               if (bounds[1] <= bounds[0]) throw CLI::ValidationError("--loop", "END must be above START");
               settings.loop = true;
               settings.loopStartMs = bounds[0];
               settings.loopEndMs = bounds[1];
           },
           "play the section from START to END ms again and again")
        ->expected(2)
        ->type_name("START END")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--noise", settings.noise, "mix this recording in as background noise")->type_name("FILE");
    app.add_flag("--just-play", settings.justPlay, "switch word counting off");
    app.add_flag("--classic", settings.classic, "play as the original control did (the refined profile is the default)");
    settings.languageSlot = LanguageSlotFromEnvironment();
    app.add_option_function<std::string>(
           "--lang",
           [&settings](const std::string& name) { settings.languageSlot = *LanguageSlotForName(name); },
           "the language of the player's messages and menu (default: the locale's; Chinese locales zh, all others en)")
        ->check(CLI::IsMember({"en", "zh"}))
        ->type_name("en|zh");
}

int ApplyPlaySettings(CTempvoxCtrl& control, const PlaySettings& settings, const char* command)
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
    // The control starts in the Chinese slot; a learner reads its boxes in
    // their own language from the first one on.
    control.SetLanguageType(settings.languageSlot);
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
    if (platform::TerminationSignal() != 0) return kExitFailure;
    PrintDecodeNotes(control.LastDecode(), settings.source, command);
    if (!named) return ReportSourceFailure(settings.source, remote, command);
    CWavOut& engine = control.Engine();
    engine.SetChangeSpeedLevel(static_cast<int16_t>(settings.level));
    engine.SetVolume(settings.volume);
    engine.SetJustPlay(settings.justPlay ? TRUE : FALSE);
    if (settings.loop) engine.SetLoopPlaySection(TRUE, settings.loopStartMs, settings.loopEndMs);
    if (!settings.noise.empty()) {
        engine.LoadMixSound(settings.noise.c_str());
        engine.SetMixerFlag(TRUE);
    }
    return kExitOk;
}

int ReportStartFailure(CTempvoxCtrl& control, const PlaySettings& settings, const char* command,
                       const Failure& deviceFailure)
{
    std::string address;
    std::string path;
    const bool remote = SplitRemote(settings.source, address, path);
    if (!remote) {
        if (const std::optional<Failure> failure = CheckInputFile(settings.source))
            return ReportFailure(command, settings.source, *failure);
    }
    // A file that had to be decoded and could not be; or one taken as a
    // wave file as it stands, whose head the engine refused.
    const bool decodedNothing = !control.LastDecode().reason.empty() && control.LastDecode().wavPath.empty();
    const bool unreadableWave = !remote && control.LastDecode().wavPath.empty() && !IsEncodedPath(settings.source) &&
                                !HasWaveHead(settings.source);
    if (decodedNothing || unreadableWave)
        return ReportFailure(command, settings.source, NotPlayable());
    return ReportFailure(command, settings.source, deviceFailure);
}

void WaitForPlayOut(CTempvoxCtrl& control)
{
    CWavOut& engine = control.Engine();
    platform::PumpUntil([&] { return engine.BuffersPlayed() >= engine.BuffersPlayedAtEnd() + kBufferCount - 1; },
                        5000);
}

bool IsRemoteSource(const std::string& source)
{
    std::string address;
    std::string path;
    return SplitRemote(source, address, path);
}

std::string FormatMs(uint32_t ms)
{
    char text[32];
    std::snprintf(text, sizeof text, "%02u:%02u.%u", ms / 60000, ms / 1000 % 60, ms / 100 % 10);
    return text;
}
