#include <cstdio>
#include <string>
#include <vector>

#include "platform/Exceptions.h"
#include "platform/Messages.h"
#include "platform/Png.h"
#include "platform/Termination.h"
#include "platform/Window.h"
#include "media/AudioLocator.h"
#include "media/DecodedAudio.h"
#include "platform/OwnedFiles.h"
#include "tools/SourceNotes.h"
#include "tools/Commands.h"
#include "view/WaveViewCtrl.h"

namespace {

struct ViewOptions {
    std::string input;
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

bool ParseOptions(const std::vector<std::string>& args, ViewOptions& options)
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
        } else if (!arg.empty() && arg[0] != '-' && options.input.empty()) {
            options.input = arg;
        } else {
            std::fprintf(stderr, "tempvox view: unexpected argument '%s'\n", arg.c_str());
            return false;
        }
    }
    if (options.input.empty() || options.output.empty()) {
        std::fprintf(stderr, "usage: tempvox view FILE -o OUT.png [--size WxH]\n");
        return false;
    }
    return true;
}

}  // namespace

// Draws the view of a file as a host would show it: a top-level frame with
// the view filling it, painted through the message queue, then saved.
int RunViewCommand(const std::vector<std::string>& args)
{
    ViewOptions options;
    if (!ParseOptions(args, options))
        return 2;

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
    // The view's private copy goes beside the file when it can, else into
    // the temporary folder, which is removed again if this run left it empty.
    const std::string tempFolder = MakeTempFolder();
    // A file the view can't read as it stands (MP3, FLAC, 24-bit WAV...) is
    // shown through a decoded .wav of this run's own.
    media::DecodeReport decoded;
    if (media::IsWorthDecoding(options.input)) {
        SourceProgressLine progress(options.input, "view");
        decoded = media::DecodeToWav(options.input, tempFolder, progress.DecodeCallback());
        progress.Clear();
        PrintDecodeNotes(decoded, options.input, "view");
    }
    const std::string shown = decoded.wavPath.empty() ? options.input : decoded.wavPath;
    {
        CWaveViewCtrl view;
        view.SetTemporaryFolder(tempFolder);
        if (frame == nullptr || !view.Create(ViewRect{0, 0, options.width, options.height}, frame)) {
            std::fprintf(stderr, "tempvox view: the view's window could not be made\n");
            DestroyWindow(frame);
            if (!decoded.wavPath.empty()) platform::DeleteOwnedFile(decoded.wavPath);
            RemoveTempFolderIfEmpty(tempFolder);
            return 1;
        }
        try {
            view.AttachFile(shown);
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "tempvox view: %s\n", failure.what());
            status = 1;
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
    if (!decoded.wavPath.empty()) platform::DeleteOwnedFile(decoded.wavPath);
    RemoveTempFolderIfEmpty(tempFolder);
    return platform::ExitStatusAfterSignal(status);
}
