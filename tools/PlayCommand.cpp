// `tempvox play`: plays one recording through the control, prints its
// events, and on a terminal shows a progress line and takes keys.
#include <cstdio>
#include <string>

#include "platform/Messages.h"
#include "platform/Terminal.h"
#include "tools/Commands.h"
#include "tools/PlaySettings.h"

namespace {

const char* kPlayUsage =
    "usage: tempvox play FILE|URL [--level N] [--volume N] [--loop START END] [--noise FILE] [--just-play]\n"
    "                   [--audio alsa|null|capture:OUT.wav]\n"
    "keys on a terminal: space pause/resume, left/right jump 5 s, up/down speed level +/-10, q stop\n";

class ProgressLine {
public:
    explicit ProgressLine(bool enabled) : m_enabled(enabled) {}
    void Clear()
    {
        if (m_enabled) std::fputs("\r\033[K", stdout);
    }
    void Show(CTempvoxCtrl& control)
    {
        if (!m_enabled) return;
        CWavOut& engine = control.Engine();
        const char* state = engine.GetPlayerState() == 2 ? "paused" : "playing";
        std::printf("\r\033[K%s / %s  level %d  [%s]", FormatMs(engine.GetCurrentPlayTime()).c_str(),
                    FormatMs(engine.GetTotalPlayTime()).c_str(), engine.GetChangeSpeedLevel(), state);
        std::fflush(stdout);
    }
private:
    bool m_enabled;
};

void HandleKey(platform::Key key, CTempvoxCtrl& control, bool& quit)
{
    CWavOut& engine = control.Engine();
    switch (key) {
    case platform::Key::Space:
        if (engine.GetPlayerState() == 2) {
            control.ResumePlay();
        } else {
            control.PausePlay();
        }
        break;
    case platform::Key::Left: engine.SpeedBack(5000); break;
    case platform::Key::Right: engine.SpeedUp(5000); break;
    case platform::Key::Up: engine.SetChangeSpeedLevel(static_cast<int16_t>(engine.GetChangeSpeedLevel() + 10)); break;
    case platform::Key::Down: engine.SetChangeSpeedLevel(static_cast<int16_t>(engine.GetChangeSpeedLevel() - 10)); break;
    case platform::Key::Quit: quit = true; break;
    default: break;
    }
}

}  // namespace

int RunPlayCommand(const std::vector<std::string>& args)
{
    PlaySettings settings;
    std::vector<std::string> rest;
    if (!ParsePlaySettings(args, settings, rest, "play")) {
        std::fputs(kPlayUsage, stderr);
        return 2;
    }
    platform::AudioBackendConfig audio;
    bool audioGiven = false;
    for (size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == "--audio" && i + 1 < rest.size()) {
            if (!ParseAudioOption(rest[++i], audio)) return 2;
            audioGiven = true;
        } else {
            std::fprintf(stderr, "tempvox play: unknown option '%s'\n%s", rest[i].c_str(), kPlayUsage);
            return 2;
        }
    }
    if (!audioGiven) audio = DefaultAudioBackend();
    if (audio.backend == platform::AudioBackend::Manual) {
        std::fprintf(stderr, "tempvox play: the manual device is for tests; use alsa, null or capture\n");
        return 2;
    }
    platform::SetAudioBackend(audio);

    CTempvoxCtrl control;
    ProgressLine progress(platform::IsTerminal(1));
    bool ended = false;
    control.SetEventSink([&](DISPID id, const std::vector<Variant>& eventArgs) {
        const EventInfo* event = FindEvent(id);
        progress.Clear();
        std::printf("%s", event != nullptr ? event->name : "event");
        for (const Variant& arg : eventArgs) std::printf(" %d", arg.intValue);
        std::printf("\n");
        std::fflush(stdout);
        if (id == 1) ended = true;
    });
    if (!ApplyPlaySettings(control, settings, "play")) return 1;
    if (!control.StartPlay()) {
        std::fprintf(stderr, "tempvox play: cannot play '%s'\n", settings.source.c_str());
        return 1;
    }

    platform::RawKeyboard keyboard;
    bool quit = false;
    while (!ended && !quit) {
        platform::PumpUntil([&] { return ended; }, keyboard.Active() ? 20 : 200);
        progress.Show(control);
        if (keyboard.Active()) HandleKey(keyboard.Read(30), control, quit);
    }
    if (ended) WaitForPlayOut(control);
    progress.Show(control);
    progress.Clear();
    control.StopPlay();
    platform::PumpPendingMessages();
    return 0;
}
