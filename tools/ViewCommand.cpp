#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Messages.h"
#include "platform/Png.h"
#include "platform/Termination.h"
#include "platform/Window.h"
#include "media/AudioLocator.h"
#include "tools/CommandLine.h"
#include "tools/Commands.h"
#include "tools/ExitCodes.h"
#include "tools/Failures.h"
#include "tools/PlaySettings.h"

namespace {

struct ViewOptions {
    std::string output;
    int width = 800;
    int height = 240;
};

bool ParseSize(const std::string& text, int& width, int& height)
{
    int w = 0;
    int h = 0;
    char extra = 0;
    if (std::sscanf(text.c_str(), "%dx%d%c", &w, &h, &extra) != 2 || w <= 0 || h <= 0 || w > 8192 || h > 8192)
        return false;
    width = w;
    height = h;
    return true;
}

}  // namespace

// Draws the view of a file as a host would show it: the control takes the
// source as `play` does (a local file, an http or ftp address, an encoded
// file), in the same profile, and its view is made a child of a top-level
// frame, painted through the message queue, then saved.
int RunViewCommand(const std::vector<std::string>& args)
{
    CLI::App app{"Draws the waveform view of what `tempvox play` would play to a PNG.", "tempvox view"};
    SetUpCommand(app, "--classic draws as the original control did.");
    PlaySettings settings;
    AddPlaySettingsOptions(app, settings);
    ViewOptions options;
    app.add_option("-o,--output", options.output, "the PNG to write")->required()->type_name("OUT.png");
    std::string size;
    app.add_option("--size", size, "the picture's size (default 800x240)")->type_name("WxH");
    if (const std::optional<int> status = ParseCommandLine(app, args)) return *status;
    if (!size.empty() && !ParseSize(size, options.width, options.height))
        return UsageError(app, "--size wants WIDTHxHEIGHT, got '" + size + "'");
    if (const std::optional<Failure> failure = CheckOutputPath(options.output))
        return ReportFailure("view", options.output, *failure);

    RegisterWindowClass("TempvoxViewFrame", 0, true, RGB(255, 255, 255));
    HWND frame = CreateWindowExA(0, "TempvoxViewFrame", "tempvox view", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0,
                                 options.width, options.height, nullptr, 0,
                                 [](HWND window, UINT message, WPARAM, LPARAM) -> LRESULT {
                                     if (message == WM_PAINT) {
                                         PAINTSTRUCT paint;
                                         BeginPaint(window, &paint);
                                         EndPaint(window, &paint);
                                     }
                                     return 0;
                                 });
    int status = 0;
    // Told once the control is gone, so that the reason comes after the
    // control's own boxes, as the last line.
    std::optional<std::pair<std::string, Failure>> reason;
    std::string tempFolder;
    {
        CTempvoxCtrl control;
        tempFolder = control.TempDir();
        status = frame == nullptr ? kExitFailure : ApplyPlaySettings(control, settings, "view");
        if (status != kExitOk) {
            // Its reason was told when the source was named.
        } else if (!control.CreateWavViewWnd(0, 0, options.width, options.height,
                                             static_cast<int32_t>(reinterpret_cast<uintptr_t>(frame)))) {
            std::fprintf(stderr, "tempvox view: the view's window could not be made\n");
            status = kExitFailure;
        } else {
            // The file's own fault first, said plainly, then the view's.
            std::optional<Failure> failure;
            try {
                if (!control.AttachWavViewToFile(TRUE)) failure = Failure{kExitUnsupported, "the view cannot draw this file"};
            } catch (const std::exception& error) {
                failure = Failure{kExitUnsupported, error.what()};
            }
            if (failure) {
                if (!IsRemoteSource(settings.source)) {
                    if (std::optional<Failure> fileFailure = CheckInputFile(settings.source)) failure = fileFailure;
                }
                status = failure->exitCode;
                reason.emplace(settings.source, *failure);
            }
        }
        if (status == 0) {
            platform::PumpPendingMessages();
            if (!platform::WritePng(options.output, platform::ComposeWindow(frame))) {
                status = kExitCannotWrite;
                reason.emplace(options.output, Failure{kExitCannotWrite, "cannot be written"});
            }
        }
    }
    DestroyWindow(frame);
    // The control took its own files with it; a folder it made for them and
    // left empty goes too.
    RemoveTempFolderIfEmpty(tempFolder);
    if (reason) ReportFailure("view", reason->first, reason->second);
    return platform::ExitStatusAfterSignal(status);
}
