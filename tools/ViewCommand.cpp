#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "platform/Messages.h"
#include "platform/Png.h"
#include "platform/Termination.h"
#include "platform/Window.h"
#include "media/AudioLocator.h"
#include "tools/Commands.h"
#include "tools/PlaySettings.h"

namespace {

const char* kViewUsage =
    "usage: tempvox view FILE|URL -o OUT.png [--size WxH] [--classic]\n"
    "draws the waveform view of what `tempvox play` would play; --classic draws as the original control did\n";

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

// Takes the picture's own options out of `args`; the source and --classic
// are left for the settings `play` shares.
bool TakeViewOptions(const std::vector<std::string>& args, ViewOptions& options, std::vector<std::string>& rest)
{
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if ((arg == "-o" || arg == "--output") && i + 1 < args.size()) {
            options.output = args[++i];
        } else if (arg == "--size" && i + 1 < args.size()) {
            if (!ParseSize(args[++i], options.width, options.height)) {
                std::fprintf(stderr, "tempvox view: --size wants WIDTHxHEIGHT, got '%s'\n", args[i].c_str());
                return false;
            }
        } else {
            rest.push_back(arg);
        }
    }
    return true;
}

}  // namespace

// Draws the view of a file as a host would show it: the control takes the
// source as `play` does (a local file, an http or ftp address, an encoded
// file), in the same profile, and its view is made a child of a top-level
// frame, painted through the message queue, then saved.
int RunViewCommand(const std::vector<std::string>& args)
{
    ViewOptions options;
    std::vector<std::string> settingsArgs;
    if (!TakeViewOptions(args, options, settingsArgs))
        return 2;
    PlaySettings settings;
    std::vector<std::string> rest;
    if (!ParsePlaySettings(settingsArgs, settings, rest, "view") || options.output.empty()) {
        std::fputs(kViewUsage, stderr);
        return 2;
    }
    if (!rest.empty()) {
        std::fprintf(stderr, "tempvox view: unexpected argument '%s'\n%s", rest[0].c_str(), kViewUsage);
        return 2;
    }

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
    std::string tempFolder;
    {
        CTempvoxCtrl control;
        tempFolder = control.TempDir();
        if (frame == nullptr || !ApplyPlaySettings(control, settings, "view")) {
            status = 1;
        } else if (!control.CreateWavViewWnd(0, 0, options.width, options.height,
                                             static_cast<int32_t>(reinterpret_cast<uintptr_t>(frame)))) {
            std::fprintf(stderr, "tempvox view: the view's window could not be made\n");
            status = 1;
        } else {
            try {
                if (!control.AttachWavViewToFile(TRUE))
                    status = 1;
            } catch (const std::exception& failure) {
                std::fprintf(stderr, "tempvox view: %s\n", failure.what());
                status = 1;
            }
        }
        if (status == 0) {
            platform::PumpPendingMessages();
            if (!platform::WritePng(options.output, platform::ComposeWindow(frame))) {
                std::fprintf(stderr, "tempvox view: cannot write '%s'\n", options.output.c_str());
                status = 1;
            }
        }
    }
    DestroyWindow(frame);
    // The control took its own files with it; a folder it made for them and
    // left empty goes too.
    RemoveTempFolderIfEmpty(tempFolder);
    return platform::ExitStatusAfterSignal(status);
}
