// `tempvox play`: plays one recording through the control, prints its
// events, and on a terminal shows a progress line and takes keys.
#include <cstdio>
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
    "Keys on a terminal: space pause/resume, left/right jump 5 s, up/down tempo one step (0.5x to 2.0x), q stop;\n"
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

class ProgressLine {
public:
    explicit ProgressLine(bool enabled) : m_enabled(enabled) {}
    void Clear()
    {
        if (m_enabled) std::fputs("\r\033[K", stdout);
    }
    void Show(CTempvoxCtrl& control, const std::string& sentence = "")
    {
        if (!m_enabled) return;
        CWavOut& engine = control.Engine();
        const char* state = engine.GetPlayerState() == 2 ? "paused" : "playing";
        std::printf("\r\033[K%s / %s  %s  [%s]%s%s", FormatMs(engine.GetCurrentPlayTime()).c_str(),
                    FormatMs(engine.GetTotalPlayTime()).c_str(), FactorText(engine.GetChangeSpeedLevel()).c_str(),
                    state, sentence.empty() ? "" : "  ", sentence.c_str());
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
    case platform::Key::Up: engine.SetChangeSpeedLevel(NextAudibleLevel(engine.GetChangeSpeedLevel(), +1)); break;
    case platform::Key::Down: engine.SetChangeSpeedLevel(NextAudibleLevel(engine.GetChangeSpeedLevel(), -1)); break;
    case platform::Key::Quit: quit = true; break;
    default: break;
    }
}

// The view in a real window: the control's view is a child of a host frame
// that the presenter shows. Play restarts on space once stopped, and a
// selected section plays again each time it ends.
int RunWithView(CTempvoxCtrl& control, bool& ended)
{
    std::unique_ptr<platform::GtkPresenter> presenter = platform::GtkPresenter::Create();
    if (!presenter) {
        std::fprintf(stderr, "tempvox play: --view needs a display (set DISPLAY, or run under xvfb-run)\n");
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
    presenter->SetKeyHandler([&](platform::Key key) {
        if (key == platform::Key::Space && control.Engine().GetPlayerState() == 0) {
            ended = false;
            control.StartPlay();
            return;
        }
        HandleKey(key, control, quit);
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

int PlayWithControl(CTempvoxCtrl& control, const PlaySettings& settings, bool withView, double shadowFactor);

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
        status = PlayWithControl(control, settings, withView, shadowFactor);
    }
    // The control took its own files with it; a folder it made for them
    // and left empty goes too.
    RemoveTempFolderIfEmpty(tempFolder);
    return platform::ExitStatusAfterSignal(status);
}

int PlayWithControl(CTempvoxCtrl& control, const PlaySettings& settings, bool withView, double shadowFactor)
{
    ProgressLine progress(platform::IsTerminal(1));
    bool ended = false;
    std::unique_ptr<CSentenceSteps> steps;
    control.SetEventSink([&](DISPID id, const std::vector<Variant>& eventArgs) {
        const EventInfo* event = FindEvent(id);
        progress.Clear();
        std::printf("%s", event != nullptr ? event->name : "event");
        for (const Variant& arg : eventArgs) std::printf(" %d", arg.intValue);
        std::printf("\n");
        std::fflush(stdout);
        if (id == 1) ended = true;
        if (id == 4 && steps) steps->OnSentenceDone();
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
    bool quit = false;
    bool shadowed = false;
    while (!ended && !quit && !shadowed && platform::TerminationSignal() == 0) {
        platform::PumpUntil([&] { return ended; }, keyboard.Active() ? 20 : 200);
        shadowed = steps->Tick();
        progress.Show(control, steps->Status());
        if (!keyboard.Active()) continue;
        const platform::Key key = keyboard.Read(30);
        if (!steps->HandleKey(key)) HandleKey(key, control, quit);
    }
    if (ended && platform::TerminationSignal() == 0) WaitForPlayOut(control);
    progress.Show(control, steps->Status());
    progress.Clear();
    control.StopPlay();
    platform::PumpPendingMessages();
    return 0;
}
