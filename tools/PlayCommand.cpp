// `tempvox play`: plays one recording through the control, prints its
// events, and on a terminal shows a progress line and takes keys.
#include <cstdio>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>

#include "platform/GtkPresenter.h"
#include "platform/Messages.h"
#include "platform/Terminal.h"
#include "platform/Termination.h"
#include "media/AudioLocator.h"
#include "platform/Window.h"
#include "tools/CommandLine.h"
#include "tools/Commands.h"
#include "tools/ExitCodes.h"
#include "tools/Failures.h"
#include "tools/PlaySettings.h"
#include "tools/SentenceSteps.h"

namespace {

const char* kPlayFooter =
    "On a terminal one status line shows the time, total, percentage, tempo and state; the events are\n"
    "printed with -v, or when standard output is not a terminal.\n"
    "Keys: space or p pause/resume, left/right jump 5 s, up/down 60 s, [ ] tempo one step slower/faster\n"
    "(0.5x to 2.0x), { } halve/double the tempo, backspace 1.0x, 9 0 volume down/up, m mute,\n"
    "l A-B loop (first press A, second B, third clears), ? this list, q or Esc quit;\n"
    "n next sentence, b back a sentence (or to this one's start after 1 s), r repeat it,\n"
    "s pause after each sentence (on/off).\n"
    "--view shows the waveform in a window: drag to select a section, which then plays in a loop;\n"
    "right-click the selection to save it; the window stays until closed.";

// Levels whose tempo a listener can tell apart from the next: 0.5x to 2.0x
// in steps of about a tenth (the level table: below 0 the factor is
// 1 + level / 120, above it 1 + level / 50).
constexpr int16_t kAudibleLevels[] = {-60, -48, -36, -30, -24, -12, 0, 5, 10, 15, 25, 35, 50};

int16_t NextAudibleLevel(int16_t level, int direction)
{
    if (direction > 0) {
        for (int16_t step : kAudibleLevels)
            if (step > level) return step;
        return kAudibleLevels[std::size(kAudibleLevels) - 1];
    }
    for (size_t i = std::size(kAudibleLevels); i-- > 0;)
        if (kAudibleLevels[i] < level) return kAudibleLevels[i];
    return kAudibleLevels[0];
}

std::string FactorText(int16_t level)
{
    char text[16];
    std::snprintf(text, sizeof text, "%.2fx", CTempoStage::FactorForLevel(level));
    return text;
}

// The audible level nearest to `factor`, clamped to 0.5x..2.0x.
int16_t NearestAudibleLevel(double factor)
{
    int16_t best = kAudibleLevels[0];
    for (int16_t level : kAudibleLevels)
        if (std::abs(CTempoStage::FactorForLevel(level) - factor) < std::abs(CTempoStage::FactorForLevel(best) - factor))
            best = level;
    return best;
}

const char* kKeysHelp =
    "keys: space/p pause, left/right 5 s, up/down 60 s, [ ] tempo step, { } halve/double, backspace 1.0x, "
    "9 0 volume, m mute, l A-B loop, n b r s sentences, q quit";

// What the keys change beyond the engine's own state: the volume to come
// back to after a mute, and the A-B loop being set.
class PlayerKeys {
public:
    explicit PlayerKeys(CTempvoxCtrl& control) : m_control(control) {}

    // Acts on one key; true when it asked to quit.
    bool Handle(platform::Key key)
    {
        CWavOut& engine = m_control.Engine();
        const int16_t level = engine.GetChangeSpeedLevel();
        switch (key) {
        case platform::Key::Space:
        case platform::Key::Pause:
            if (engine.GetPlayerState() == 2) {
                m_control.ResumePlay();
            } else {
                m_control.PausePlay();
            }
            break;
        case platform::Key::Left: engine.SpeedBack(5000); break;
        case platform::Key::Right: engine.SpeedUp(5000); break;
        case platform::Key::Down: engine.SpeedBack(60000); break;
        case platform::Key::Up: engine.SpeedUp(60000); break;
        case platform::Key::Slower: engine.SetChangeSpeedLevel(NextAudibleLevel(level, -1)); break;
        case platform::Key::Faster: engine.SetChangeSpeedLevel(NextAudibleLevel(level, +1)); break;
        case platform::Key::Halve:
            engine.SetChangeSpeedLevel(NearestAudibleLevel(CTempoStage::FactorForLevel(level) / 2));
            break;
        case platform::Key::Double:
            engine.SetChangeSpeedLevel(NearestAudibleLevel(CTempoStage::FactorForLevel(level) * 2));
            break;
        case platform::Key::TempoReset: engine.SetChangeSpeedLevel(0); break;
        case platform::Key::VolumeDown: SetVolume(std::max(0, Volume() - 10)); break;
        case platform::Key::VolumeUp: SetVolume(std::min(100, Volume() + 10)); break;
        case platform::Key::Mute:
            m_muted = !m_muted;
            engine.SetVolume(m_muted ? 0 : m_volume);
            break;
        case platform::Key::LoopPoint: NextLoopPoint(); break;
        case platform::Key::Help: m_helpAsked = true; break;
        case platform::Key::Quit: return true;
        default: break;
        }
        return false;
    }

    // "vol 70", "muted", "A 00:01.0", "A-B 00:01.0-00:03.0", or empty.
    std::string Status() const
    {
        std::string text;
        if (m_muted) text += "muted";
        else if (m_volume != 100) text += "vol " + std::to_string(m_volume);
        if (m_loopState == 1) text += std::string(text.empty() ? "" : "  ") + "A " + FormatMs(m_loopA);
        if (m_loopState == 2)
            text += std::string(text.empty() ? "" : "  ") + "A-B " + FormatMs(m_loopA) + "-" + FormatMs(m_loopB);
        return text;
    }

    bool TakeHelpRequest()
    {
        const bool asked = m_helpAsked;
        m_helpAsked = false;
        return asked;
    }

private:
    int Volume() const { return m_volume; }
    void SetVolume(int volume)
    {
        m_volume = volume;
        m_muted = false;
        m_control.Engine().SetVolume(volume);
    }
    // First press A, second B (the loop starts), third clears it.
    void NextLoopPoint()
    {
        CWavOut& engine = m_control.Engine();
        const uint32_t now = engine.GetCurrentPlayTime();
        if (m_loopState == 0) {
            m_loopA = now;
            m_loopState = 1;
        } else if (m_loopState == 1 && now > m_loopA) {
            m_loopB = now;
            m_loopState = 2;
            engine.SetLoopPlaySection(TRUE, m_loopA, m_loopB);
        } else {
            m_loopState = 0;
            engine.SetLoopPlaySection(FALSE, 0, 0);
        }
    }

    CTempvoxCtrl& m_control;
    int m_volume = 100;
    bool m_muted = false;
    int m_loopState = 0;
    uint32_t m_loopA = 0;
    uint32_t m_loopB = 0;
    bool m_helpAsked = false;
};

// One line, redrawn in place, on a terminal: time, total, percentage,
// tempo factor, state, then the sentence and the keys' own state.
class ProgressLine {
public:
    explicit ProgressLine(bool enabled) : m_enabled(enabled) {}
    void Clear()
    {
        if (m_enabled) std::fputs("\r\033[K", stdout);
        if (m_enabled) std::fflush(stdout);
    }
    void Show(CTempvoxCtrl& control, const std::string& extra = "")
    {
        if (!m_enabled) return;
        CWavOut& engine = control.Engine();
        const char* state = engine.GetPlayerState() == 2 ? "paused" : "playing";
        const uint32_t now = engine.GetCurrentPlayTime();
        const uint32_t total = engine.GetTotalPlayTime();
        const unsigned percent = total > 0 ? static_cast<unsigned>(100ull * std::min(now, total) / total) : 0;
        std::printf("\r\033[K%s / %s %3u%%  %s  [%s]%s%s", FormatMs(now).c_str(), FormatMs(total).c_str(), percent,
                    FactorText(engine.GetChangeSpeedLevel()).c_str(), state, extra.empty() ? "" : "  ", extra.c_str());
        std::fflush(stdout);
    }
    // A line of its own above the status line.
    void Say(const char* text)
    {
        if (!m_enabled) return;
        std::printf("\r\033[K%s\n", text);
    }
private:
    bool m_enabled;
};

// The view in a real window: the control's view is a child of a host frame
// that the presenter shows. Play restarts on space once stopped, and a
// selected section plays again each time it ends.
int RunWithView(CTempvoxCtrl& control, bool& ended)
{
    std::string whyNot;
    std::unique_ptr<platform::GtkPresenter> presenter = platform::GtkPresenter::Create(whyNot);
    if (!presenter) {
        std::fprintf(stderr, "tempvox play: --view: the window is not available: %s (set DISPLAY, or run under xvfb-run)\n",
                     whyNot.c_str());
        return 2;
    }
    constexpr int kWidth = 800;
    constexpr int kViewHeight = 240;
    RegisterWindowClass("TempvoxPlayWindow", CS_HREDRAW | CS_VREDRAW, true, RGB(240, 240, 240));
    HWND frame = CreateWindowExA(0, "TempvoxPlayWindow", "Tempvox", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, kWidth,
                                 kViewHeight, nullptr, 0, [](HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
                                     if (message == WM_PAINT) {
                                         PAINTSTRUCT paint;
                                         BeginPaint(window, &paint);
                                         EndPaint(window, &paint);
                                         return LRESULT{0};
                                     }
                                     return DefWindowProcA(window, message, wParam, lParam);
                                 });
    presenter->Show(frame, "Tempvox - " + control.GetPlayFilePath());
    if (!control.CreateWavViewWnd(0, 0, kWidth, kViewHeight,
                                  static_cast<int32_t>(reinterpret_cast<uintptr_t>(frame))) ||
        !control.AttachWavViewToFile(TRUE)) {
        DestroyWindow(frame);
        return 1;
    }
    bool quit = false;
    PlayerKeys keys(control);
    presenter->SetKeyHandler([&](platform::Key key) {
        if (key == platform::Key::Space && control.Engine().GetPlayerState() == 0) {
            ended = false;
            control.StartPlay();
            return;
        }
        if (keys.Handle(key)) quit = true;
    });
    if (!control.StartPlay()) {
        DestroyWindow(frame);
        return 1;
    }
    while (!quit && !presenter->Closed() && platform::TerminationSignal() == 0) {
        presenter->ProcessEvents();
        platform::PumpUntil([&] { return ended; }, 10);
        if (!ended) continue;
        ended = false;
        if (control.Engine().GetPlayerState() != 0) {
            WaitForPlayOut(control);
            control.StopPlay();
        }
        Variant selected;
        control.Invoke(24, InvokeKind::Method, {}, &selected);
        if (selected.intValue) control.StartPlay();
    }
    control.StopPlay();
    DestroyWindow(frame);
    presenter->ProcessEvents();
    return 0;
}

}  // namespace

int PlayWithControl(CTempvoxCtrl& control, const PlaySettings& settings, bool withView, double shadowFactor,
                    bool printEvents);

int RunPlayCommand(const std::vector<std::string>& args)
{
    CLI::App app{"Plays a recording to its end.", "tempvox play"};
    SetUpCommand(app, kPlayFooter);
    PlaySettings settings;
    AddPlaySettingsOptions(app, settings);
    std::string audioName;
    bool withView = false;
    double shadowFactor = 0.0;
    app.add_option("--audio", audioName, "output device: alsa, alsa:DEVICE, null or capture:OUT.wav")
        ->type_name("DEVICE");
    app.add_flag("--view", withView, "show the waveform in a window");
    bool printEvents = false;
    app.add_flag("-v,--events", printEvents, "print the control's events on a terminal too, one a line");
    app.add_option("--shadow", shadowFactor,
                   "after each sentence pause K times its length (default 1) for you to repeat it")
        ->expected(0, 1)
        ->default_str("1")
        ->type_name("K")
        ->check(CLI::Range(0.1, 10.0));
    if (const std::optional<int> status = ParseCommandLine(app, args)) return *status;
    platform::AudioBackendConfig audio;
    if (audioName.empty()) {
        audio = DefaultAudioBackend();
    } else if (!ParseAudioOption(audioName, audio)) {
        return kExitUsage;
    }
    if (audio.backend == platform::AudioBackend::Manual)
        return UsageError(app, "the manual device is for tests; use alsa, null or capture");
    platform::SetAudioBackend(audio);

    std::string tempFolder;
    int status;
    {
        CTempvoxCtrl control;
        tempFolder = control.TempDir();
        // On a terminal the status line says it all; events are asked for.
        // Piped or logged, they are printed as they always were.
        status = PlayWithControl(control, settings, withView, shadowFactor, printEvents || !platform::IsTerminal(1));
    }
    // The control took its own files with it; a folder it made for them
    // and left empty goes too.
    RemoveTempFolderIfEmpty(tempFolder);
    return platform::ExitStatusAfterSignal(status);
}

int PlayWithControl(CTempvoxCtrl& control, const PlaySettings& settings, bool withView, double shadowFactor,
                    bool printEvents)
{
    ProgressLine progress(platform::IsTerminal(1));
    bool ended = false;
    std::unique_ptr<CSentenceSteps> steps;
    control.SetEventSink([&](DISPID id, const std::vector<Variant>& eventArgs) {
        if (id == 1) ended = true;
        if (id == 4 && steps) steps->OnSentenceDone();
        if (!printEvents) return;
        const EventInfo* event = FindEvent(id);
        progress.Clear();
        std::printf("%s", event != nullptr ? event->name : "event");
        for (const Variant& arg : eventArgs) std::printf(" %d", arg.intValue);
        std::printf("\n");
        std::fflush(stdout);
    });
    if (const int status = ApplyPlaySettings(control, settings, "play"); status != kExitOk) return status;
    if (withView) return RunWithView(control, ended);
    // Sentence keys (and shadowing) on the sentences found in the file.
    steps = std::make_unique<CSentenceSteps>(control, shadowFactor);
    if (steps->Shadowing() && steps->Count() == 0) {
        std::fprintf(stderr, "tempvox play: --shadow found no sentences in '%s'\n", settings.source.c_str());
        return 1;
    }
    if (!steps->Start()) {
        return ReportStartFailure(control, settings, "play",
                                  Failure{kExitDevice, "the sound device cannot be opened (absent or busy)"});
    }

    platform::RawKeyboard keyboard;
    PlayerKeys keys(control);
    const auto statusText = [&] {
        const std::string sentence = steps->Status();
        const std::string own = keys.Status();
        return sentence + (sentence.empty() || own.empty() ? "" : "  ") + own;
    };
    bool quit = false;
    bool shadowed = false;
    while (!ended && !quit && !shadowed && platform::TerminationSignal() == 0) {
        platform::PumpUntil([&] { return ended; }, keyboard.Active() ? 20 : 200);
        shadowed = steps->Tick();
        progress.Show(control, statusText());
        if (!keyboard.Active()) continue;
        // Every key that came is handled, however many came together.
        for (platform::Key key = keyboard.Read(30); key != platform::Key::None && !quit; key = keyboard.Read(0)) {
            if (!steps->HandleKey(key)) quit = keys.Handle(key);
        }
        if (keys.TakeHelpRequest()) progress.Say(kKeysHelp);
    }
    if (ended && platform::TerminationSignal() == 0) WaitForPlayOut(control);
    progress.Clear();
    control.StopPlay();
    platform::PumpPendingMessages();
    return 0;
}
