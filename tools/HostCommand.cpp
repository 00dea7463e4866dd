// `tempvox host`: a container for trying and testing the control from a
// terminal or a script. One command a line in, one JSON object a line out.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include <deque>
#include <memory>

#include "platform/Clock.h"
#include "platform/Debug.h"
#include "platform/HostUi.h"
#include "platform/MessageBox.h"
#include "platform/Messages.h"
#include "platform/Png.h"
#include "platform/Termination.h"
#include "platform/Window.h"
#include "media/AudioLocator.h"
#include "shell/TempvoxCtrl.h"
#include "tools/CommandLine.h"
#include "tools/Commands.h"
#include "tools/ExitCodes.h"
#include "tools/HostScript.h"
#include "tools/Json.h"

namespace {

std::mutex g_outputLock;

void EmitLine(const std::string& json)
{
    std::lock_guard<std::mutex> lock(g_outputLock);
    std::fwrite(json.data(), 1, json.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void EmitError(const std::string& why)
{
    EmitLine("{\"error\":" + JsonString(why) + "}");
}

std::string VariantJson(const Variant& value)
{
    switch (value.type) {
    case VarType::Bool: return value.intValue ? "true" : "false";
    case VarType::I2:
    case VarType::I4: return std::to_string(value.intValue);
    case VarType::R4: return JsonNumber(value.floatValue);
    case VarType::Str: return value.text ? JsonString(*value.text) : "null";
    case VarType::Empty: return "null";
    }
    return "null";
}

using hostscript::Token;

// ---------------------------------------------------------------- host UI

// Menus, dialogues and boxes answered from queues that the script fills
// with `answer`; an empty queue answers as a headless host would.
class ContainerUi : public platform::IHostUi {
public:
    // A dialogue's answer, and how long it stays up first, as a person
    // taking their time: meanwhile play goes on, the section loops and the
    // timers fire.
    struct DialogAnswer {
        platform::FileDialogAnswer answer;
        uint32_t openMs = 0;
    };
    std::deque<UINT_PTR> menuAnswers;
    std::deque<DialogAnswer> dialogAnswers;
    std::deque<int> boxAnswers;

    UINT_PTR TrackPopupMenu(const platform::PopupMenuRequest& request) override
    {
        UINT_PTR choice = 0;
        if (!menuAnswers.empty()) {
            choice = menuAnswers.front();
            menuAnswers.pop_front();
        }
        std::string items;
        for (const platform::MenuItem& item : request.items) {
            items += (items.empty() ? "" : ",") + JsonString(item.text);
        }
        EmitLine("{\"menu\":[" + items + "],\"choice\":" + std::to_string(choice) + "}");
        return choice;
    }

    platform::FileDialogAnswer ShowFileDialog(const platform::FileDialogRequest& request) override
    {
        platform::FileDialogAnswer answer;
        if (!dialogAnswers.empty()) {
            answer = dialogAnswers.front().answer;
            StayOpen(dialogAnswers.front().openMs);
            dialogAnswers.pop_front();
        }
        EmitLine(std::string("{\"dialog\":") + (request.openDialog ? "\"open\"" : "\"save\"") +
                 ",\"folder\":" + JsonString(request.initialFolder) +
                 ",\"answer\":" + (answer.accepted ? JsonString(answer.path) : "null") + "}");
        return answer;
    }

    // Lets `ms` of play pass inside the dialogue: on the manual clock and
    // device a tenth of a second is one block heard and 100 ms of timers;
    // otherwise the message loop runs for that long.
    static void StayOpen(uint32_t ms)
    {
        for (uint32_t passed = 0; passed < ms; passed += 100) {
            const uint32_t slice = std::min<uint32_t>(100, ms - passed);
            platform::ManualWaveOut* device = platform::ManualWaveOut::Current();
            if (device != nullptr && !device->IsPaused() && device->QueuedCount() > 0) {
                device->Step();
                platform::PumpPendingMessages();
            }
            if (platform::CurrentManualClock() != nullptr) {
                platform::AdvanceClockAndPump(slice);
            } else {
                platform::PumpFor(slice);
            }
        }
    }

    int AnswerBox(const platform::MessageBoxRequest& request)
    {
        std::string json = "{\"box\":" + (request.catalogueId >= 0 ? std::to_string(request.catalogueId) : "null");
        if (request.catalogueId < 0) json += ",\"caption\":" + JsonString(request.caption);
        EmitLine(json + ",\"text\":" + JsonString(request.text) + "}");
        UINT kind = request.type & 0xF;
        bool yesNo = kind == MB_YESNO || kind == MB_YESNOCANCEL;
        int answer = yesNo ? IDYES : IDOK;
        if (!boxAnswers.empty()) {
            answer = boxAnswers.front();
            boxAnswers.pop_front();
            if (yesNo) answer = answer == IDOK ? IDYES : IDNO;
        }
        return answer;
    }
};

// ---------------------------------------------------------------- container

struct HostOptions {
    platform::AudioBackendConfig audio;
    bool manualClock = false;
    bool debug = false;
    std::string script;
};

class Container {
public:
    Container(const HostOptions& options, ContainerUi& ui) : m_options(options), m_ui(ui) {}

    int Run(std::istream& input);

private:
    void RunLine(const std::string& line);
    void RunMemberLine(const std::vector<Token>& tokens);
    void RunPump(const std::vector<Token>& tokens);
    void RunStep(const std::vector<Token>& tokens);
    void RunAdvance(const std::vector<Token>& tokens);
    void RunWait(const std::vector<Token>& tokens);
    void RunMouse(const std::vector<Token>& tokens, bool rightButton);
    void RunResize(const std::vector<Token>& tokens);
    void RunAnswer(const std::vector<Token>& tokens);
    void RunSnapshot(const std::vector<Token>& tokens);
    void OnEvent(DISPID id, const std::vector<Variant>& args);

    HostOptions m_options;
    ContainerUi& m_ui;
    HWND m_hostWindow = nullptr;
    std::unique_ptr<CTempvoxCtrl> m_control;
    std::vector<std::string> m_firedEvents;
    bool m_quit = false;
};

void Container::OnEvent(DISPID id, const std::vector<Variant>& args)
{
    const EventInfo* event = FindEvent(id);
    std::string name = event != nullptr ? event->name : "#" + std::to_string(id);
    std::string json = "{\"event\":" + JsonString(name) + ",\"args\":[";
    for (size_t i = 0; i < args.size(); ++i) json += (i ? "," : "") + VariantJson(args[i]);
    EmitLine(json + "]}");
    m_firedEvents.push_back(name);
}

int Container::Run(std::istream& input)
{
    // The host's own window, which a view can be made a child of.
    RegisterWindowClass("TempvoxHostWindow", CS_HREDRAW | CS_VREDRAW, true, RGB(240, 240, 240));
    m_hostWindow = CreateWindowExA(0, "TempvoxHostWindow", "Tempvox host", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 640,
                                   260, nullptr, 0, [](HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
                                       if (message == WM_PAINT) {
                                           PAINTSTRUCT paint;
                                           BeginPaint(window, &paint);
                                           EndPaint(window, &paint);
                                           return LRESULT{0};
                                       }
                                       return DefWindowProcA(window, message, wParam, lParam);
                                   });
    EmitLine("{\"hostwnd\":" + std::to_string(reinterpret_cast<uintptr_t>(m_hostWindow)) + "}");
    m_control = std::make_unique<CTempvoxCtrl>();
    m_control->SetEventSink([this](DISPID id, const std::vector<Variant>& args) { OnEvent(id, args); });
    std::string line;
    while (!m_quit && platform::TerminationSignal() == 0 && std::getline(input, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        RunLine(line);
    }
    m_control->StopPlay();
    platform::PumpPendingMessages();
    const std::string tempFolder = m_control->TempDir();
    m_control.reset();
    // Ended by a signal, the control is gone with its files; an empty
    // temporary folder goes too, as after the other tools.
    if (platform::TerminationSignal() != 0) RemoveTempFolderIfEmpty(tempFolder);
    DestroyWindow(m_hostWindow);
    return 0;
}

void Container::RunLine(const std::string& line)
{
    const hostscript::Line parsed =
        hostscript::ParseLine(line, static_cast<long long>(reinterpret_cast<uintptr_t>(m_hostWindow)));
    switch (parsed.kind) {
    case hostscript::Line::Blank: return;
    case hostscript::Line::Echo: return EmitLine("{\"echo\":" + JsonString(parsed.text) + "}");
    case hostscript::Line::Error: return EmitError(parsed.text);
    case hostscript::Line::Command: break;
    }
    const std::string& word = parsed.word;
    const std::vector<Token>& tokens = parsed.tokens;
    if (word == "quit") {
        m_quit = true;
    } else if (word == "pump") {
        RunPump(tokens);
    } else if (word == "step") {
        RunStep(tokens);
    } else if (word == "advance") {
        RunAdvance(tokens);
    } else if (word == "wait") {
        RunWait(tokens);
    } else if (word == "mouse") {
        RunMouse(tokens, false);
    } else if (word == "rmouse") {
        RunMouse(tokens, true);
    } else if (word == "resize") {
        RunResize(tokens);
    } else if (word == "answer") {
        RunAnswer(tokens);
    } else if (word == "snapshot") {
        RunSnapshot(tokens);
    } else if (word == "queued") {
        platform::ManualWaveOut* device = platform::ManualWaveOut::Current();
        EmitLine("{\"queued\":" + std::to_string(device != nullptr ? device->QueuedCount() : 0) + "}");
    } else {
        RunMemberLine(tokens);
    }
}

void Container::RunMemberLine(const std::vector<Token>& tokens)
{
    hostscript::MemberCall call;
    std::string error;
    if (!hostscript::ReadMemberCall(tokens, call, error)) return EmitError(error);
    Variant result;
    HRESULT hr = m_control->Invoke(call.member->id, call.kind, call.args, &result, &error);
    if (hr != S_OK) return EmitError(error);
    std::string json = "{\"call\":" + JsonString(call.member->name);
    if (call.kind != InvokeKind::PropertyPut && call.member->result != VarType::Empty) {
        json += ",\"result\":" + VariantJson(result);
    }
    EmitLine(json + "}");
}

void Container::RunPump(const std::vector<Token>& tokens)
{
    if (tokens.size() > 1) {
        if (tokens[1].kind != Token::Integer || tokens[1].integer < 0) return EmitError("pump takes milliseconds");
        platform::PumpFor(static_cast<uint32_t>(tokens[1].integer));
    } else {
        platform::PumpPendingMessages();
    }
}

void Container::RunStep(const std::vector<Token>& tokens)
{
    long long count = 1;
    if (tokens.size() > 1) {
        if (tokens[1].kind != Token::Integer || tokens[1].integer < 1) return EmitError("step takes a count of 1 or more");
        count = tokens[1].integer;
    }
    for (long long i = 0; i < count; ++i) {
        platform::ManualWaveOut* device = platform::ManualWaveOut::Current();
        if (device == nullptr) return EmitError("step: no manual device is open");
        if (!device->Step()) return EmitError("step: the device is paused or has nothing queued");
        platform::PumpPendingMessages();
    }
}

void Container::RunAdvance(const std::vector<Token>& tokens)
{
    if (tokens.size() != 2 || tokens[1].kind != Token::Integer || tokens[1].integer < 0) {
        return EmitError("advance takes milliseconds");
    }
    if (platform::CurrentManualClock() == nullptr) return EmitError("advance needs --clock manual");
    platform::AdvanceClockAndPump(static_cast<uint64_t>(tokens[1].integer));
}

void Container::RunWait(const std::vector<Token>& tokens)
{
    if (tokens.size() < 2 || tokens[1].kind != Token::Word) return EmitError("wait takes an event name");
    std::string name = tokens[1].text;
    bool known = false;
    for (const EventInfo& event : ControlEvents()) known = known || name == event.name;
    if (!known) return EmitError("wait: unknown event '" + name + "'");
    uint32_t timeoutMs = 10000;
    if (tokens.size() > 2) {
        if (tokens[2].kind != Token::Integer || tokens[2].integer < 0) return EmitError("wait takes milliseconds");
        timeoutMs = static_cast<uint32_t>(tokens[2].integer);
    }
    size_t seen = m_firedEvents.size();
    auto fired = [&] {
        for (size_t i = seen; i < m_firedEvents.size(); ++i) {
            if (m_firedEvents[i] == name) return true;
        }
        return false;
    };
    if (!platform::PumpUntil(fired, timeoutMs)) {
        EmitError("wait " + name + ": no event within " + std::to_string(timeoutMs) + " ms");
    }
}

void Container::RunMouse(const std::vector<Token>& tokens, bool rightButton)
{
    // mouse down|move|up X Y [flags]   or   rmouse X Y
    size_t at = rightButton ? 1 : 2;
    if (tokens.size() < at + 2 || tokens[at].kind != Token::Integer || tokens[at + 1].kind != Token::Integer) {
        return EmitError(rightButton ? "rmouse takes X Y" : "mouse takes down|move|up X Y [flags]");
    }
    UINT message = WM_RBUTTONDOWN;
    WPARAM flags = MK_RBUTTON;
    if (!rightButton) {
        const std::string& action = tokens[1].text;
        if (action == "down") {
            message = WM_LBUTTONDOWN;
            flags = MK_LBUTTON;
        } else if (action == "move") {
            message = WM_MOUSEMOVE;
            flags = MK_LBUTTON;
        } else if (action == "up") {
            message = WM_LBUTTONUP;
            flags = 0;
        } else {
            return EmitError("mouse takes down, move or up");
        }
        if (tokens.size() > 4) {
            if (tokens[4].kind != Token::Integer || tokens[4].integer < 0) return EmitError("mouse flags are a number");
            flags = static_cast<WPARAM>(tokens[4].integer);
        }
    }
    platform::PostMouseInput(m_hostWindow, message, static_cast<int>(tokens[at].integer),
                             static_cast<int>(tokens[at + 1].integer), flags);
    platform::PumpPendingMessages();
}

void Container::RunResize(const std::vector<Token>& tokens)
{
    if (tokens.size() != 3 || tokens[1].kind != Token::Integer || tokens[2].kind != Token::Integer ||
        tokens[1].integer < 1 || tokens[2].integer < 1) {
        return EmitError("resize takes W H");
    }
    int width = static_cast<int>(tokens[1].integer);
    int height = static_cast<int>(tokens[2].integer);
    // The view, when there is one, takes the new size; the host grows to fit.
    HWND view = reinterpret_cast<HWND>(static_cast<uintptr_t>(static_cast<uint32_t>(m_control->GetWavViewCtrlHwnd())));
    RECT host{};
    GetClientRect(m_hostWindow, &host);
    if (view != nullptr) {
        RECT viewRect{};
        GetWindowRect(view, &viewRect);
        POINT corner{viewRect.left, viewRect.top};
        ScreenToClient(m_hostWindow, &corner);
        MoveWindow(view, corner.x, corner.y, width, height, TRUE);
        width = std::max<int>(width + corner.x, host.right);
        height = std::max<int>(height + corner.y, host.bottom);
    }
    MoveWindow(m_hostWindow, 0, 0, width, height, TRUE);
    platform::PumpPendingMessages();
}

void Container::RunAnswer(const std::vector<Token>& tokens)
{
    // answer menu ID|none, answer dialog PATH|cancel [MS], answer box ok|cancel
    const bool dialogWithTime = tokens.size() == 4 && tokens[1].text == "dialog";
    if (tokens.size() != 3 && !dialogWithTime) {
        return EmitError("answer takes menu ID|none, dialog PATH|cancel [MS] or box ok|cancel");
    }
    const std::string& what = tokens[1].text;
    const Token& value = tokens[2];
    if (what == "menu") {
        if (value.kind == Token::Integer && value.integer >= 0) {
            m_ui.menuAnswers.push_back(static_cast<UINT_PTR>(value.integer));
        } else if (value.text == "none") {
            m_ui.menuAnswers.push_back(0);
        } else {
            return EmitError("answer menu takes an id or none");
        }
    } else if (what == "dialog") {
        platform::FileDialogAnswer answer;
        if (value.kind == Token::String) {
            answer.accepted = true;
            answer.path = *value.string;
        } else if (value.text == "cancel") {
            answer.accepted = false;
        } else if (value.kind == Token::Word) {
            answer.accepted = true;
            answer.path = value.text;
        } else {
            return EmitError("answer dialog takes a path or cancel");
        }
        uint32_t openMs = 0;
        if (dialogWithTime) {
            if (tokens[3].kind != Token::Integer || tokens[3].integer < 0 || tokens[3].integer > 3600000) {
                return EmitError("answer dialog: the time it stays open is 0 to 3600000 ms");
            }
            openMs = static_cast<uint32_t>(tokens[3].integer);
        }
        m_ui.dialogAnswers.push_back({answer, openMs});
    } else if (what == "box") {
        if (value.text == "ok") {
            m_ui.boxAnswers.push_back(IDOK);
        } else if (value.text == "cancel") {
            m_ui.boxAnswers.push_back(IDCANCEL);
        } else {
            return EmitError("answer box takes ok or cancel");
        }
    } else {
        EmitError("answer takes menu, dialog or box");
    }
}

void Container::RunSnapshot(const std::vector<Token>& tokens)
{
    if (tokens.size() != 2) return EmitError("snapshot takes a file name");
    std::string path = tokens[1].kind == Token::String ? *tokens[1].string : tokens[1].text;
    platform::PumpPendingMessages();
    UpdateWindow(m_hostWindow);
    Framebuffer picture = platform::ComposeWindow(m_hostWindow);
    if (!platform::WritePng(path, picture)) EmitError("snapshot: cannot write " + path);
}

// Nothing when the container should run, else the status to exit with.
std::optional<int> ParseHostOptions(const std::vector<std::string>& args, HostOptions& options)
{
    CLI::App app{"The control's test container: reads a script of member calls and prints JSON lines.",
                 "tempvox host"};
    SetUpCommand(app);
    std::string audioName = "null";
    std::string clock = "real";
    app.add_option("--audio", audioName, "output device: manual, null (default), alsa or capture:FILE")
        ->type_name("DEVICE");
    app.add_option("--clock", clock, "real (default) or manual")->check(CLI::IsMember({"real", "manual"}));
    app.add_flag("--debug", options.debug, "print the engine's debug lines");
    app.add_option("--script", options.script, "read the script from FILE rather than standard input")
        ->type_name("FILE");
    if (const std::optional<int> status = ParseCommandLine(app, args)) return status;
    if (!ParseAudioOption(audioName, options.audio)) return kExitUsage;
    options.manualClock = clock == "manual";
    return std::nullopt;
}

}  // namespace

int RunHostCommand(const std::vector<std::string>& args)
{
    HostOptions options;
    if (const std::optional<int> status = ParseHostOptions(args, options)) return *status;
    platform::SetAudioBackend(options.audio);
    platform::ManualClock manualClock(0);
    if (options.manualClock) platform::SetClock(&manualClock);
    if (options.debug) {
        platform::SetDebugSink([](const std::string& text) { EmitLine("{\"debug\":" + JsonString(text) + "}"); });
    }
    ContainerUi ui;
    platform::SetHostUi(&ui);
    platform::SetMessageBoxHandler([&ui](const platform::MessageBoxRequest& request) { return ui.AnswerBox(request); });

    int exitCode;
    {
    Container container(options, ui);
    if (options.script.empty()) {
        exitCode = container.Run(std::cin);
    } else {
        std::ifstream script(options.script);
        if (!script) {
            std::fprintf(stderr, "tempvox host: cannot read %s\n", options.script.c_str());
            return 2;
        }
        exitCode = container.Run(script);
    }
    }
    platform::SetDebugSink(nullptr);
    platform::SetMessageBoxHandler(nullptr);
    platform::SetHostUi(nullptr);
    platform::SetClock(nullptr);
    return platform::ExitStatusAfterSignal(exitCode);
}
