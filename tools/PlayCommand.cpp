#include <cstdio>
#include <string>

#include "engine/WavOut.h"
#include "platform/Messages.h"
#include "tools/Commands.h"

namespace {

struct PlayOptions {
    std::string path;
    platform::AudioBackendConfig audio;
    bool audioGiven = false;
};

bool ParsePlayOptions(const std::vector<std::string>& args, PlayOptions& options)
{
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--audio" && i + 1 < args.size()) {
            if (!ParseAudioOption(args[++i], options.audio)) return false;
            options.audioGiven = true;
        } else if (arg.rfind("--", 0) == 0) {
            std::fprintf(stderr, "tempvox play: unknown option '%s'\n", arg.c_str());
            return false;
        } else if (options.path.empty()) {
            options.path = arg;
        } else {
            std::fprintf(stderr, "tempvox play: more than one file given\n");
            return false;
        }
    }
    if (options.path.empty()) {
        std::fprintf(stderr, "usage: tempvox play FILE [--audio alsa|null|capture:OUT.wav]\n");
        return false;
    }
    return true;
}

}  // namespace

int RunPlayCommand(const std::vector<std::string>& args)
{
    PlayOptions options;
    if (!ParsePlayOptions(args, options)) return 2;
    if (!options.audioGiven) options.audio = DefaultAudioBackend();
    if (options.audio.backend == platform::AudioBackend::Manual) {
        std::fprintf(stderr, "tempvox play: the manual device is for tests; use alsa, null or capture\n");
        return 2;
    }
    platform::SetAudioBackend(options.audio);

    bool endTold = false;
    HWND window = CreateMessageWindow([&](HWND, UINT message, WPARAM, LPARAM) -> LRESULT {
        if (message == WM_PLAYCOMPLETE) endTold = true;
        return 0;
    });

    int exitCode = 0;
    {
        CWavOut engine;
        engine.m_hNotifyWnd = window;
        if (!engine.StartPlay(options.path.c_str())) {
            std::fprintf(stderr, "tempvox play: cannot play '%s'\n", options.path.c_str());
            engine.StopPlay();
            exitCode = 1;
        } else {
            std::printf("Playing %s (%u ms)\n", options.path.c_str(), engine.GetTotalPlayTime());
            std::fflush(stdout);
            platform::PumpUntil([&] { return endTold; }, UINT32_MAX);
            std::printf("End of play\n");
            std::fflush(stdout);
            // The end is told while three buffers are still queued; let them
            // play out before the device is closed.
            uint32_t playedAtEnd = engine.BuffersPlayed();
            platform::PumpUntil([&] { return engine.BuffersPlayed() >= playedAtEnd + kBufferCount - 1; }, 2000);
            engine.StopPlay();
        }
    }
    DestroyWindow(window);
    return exitCode;
}
