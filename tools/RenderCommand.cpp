// `tempvox render`: runs the real pipeline over the capture device as fast
// as it goes and keeps what the device would have played, e.g. a slowed
// copy of a lesson.
#include <cstdio>
#include <string>
#include <unistd.h>

#include "platform/File.h"
#include "platform/MessageBox.h"
#include "platform/Messages.h"
#include "platform/Terminal.h"
#include "platform/Termination.h"
#include "media/AudioLocator.h"
#include "tools/Commands.h"
#include "tools/PlaySettings.h"

namespace {

const char* kRenderUsage =
    "usage: tempvox render IN.wav OUT.wav [--level N] [--volume N] [--noise FILE] [--loop START END] [--just-play]\n"
    "                      [--classic]\n"
    "The refined profile is the default: the tempo is the level's factor exactly, channels stay apart;\n"
    "--classic renders as the original control did.\n";

void ShowProgressBar(CTempvoxCtrl& control)
{
    CWavOut& engine = control.Engine();
    uint32_t total = engine.GetTotalPlayTime();
    uint32_t done = engine.GetCurrentPlayTime();
    int filled = total > 0 ? static_cast<int>(40ull * std::min(done, total) / total) : 0;
    std::fprintf(stderr, "\r[%-40s] %s / %s", std::string(static_cast<size_t>(filled), '#').c_str(),
                 FormatMs(done).c_str(), FormatMs(total).c_str());
}

}  // namespace

int RunRenderCommand(const std::vector<std::string>& args)
{
    PlaySettings settings;
    std::vector<std::string> rest;
    if (!ParsePlaySettings(args, settings, rest, "render")) {
        std::fputs(kRenderUsage, stderr);
        return 2;
    }
    if (rest.size() != 1 || rest[0].rfind("--", 0) == 0) {
        std::fputs(kRenderUsage, stderr);
        return 2;
    }
    if (settings.loop) {
        std::fprintf(stderr, "tempvox render: a loop never ends, so it can't be rendered\n");
        return 2;
    }
    const std::string output = rest[0];
    // The output appears under its name only when it is complete.
    const std::string partial = output + ".part-" + std::to_string(getpid());

    platform::AudioBackendConfig audio;
    audio.backend = platform::AudioBackend::Capture;
    audio.capturePath = partial;
    platform::SetAudioBackend(audio);

    bool ended = false;
    bool progress = platform::IsTerminal(2);
    bool ok = false;
    std::string tempFolder;
    {
        CTempvoxCtrl control;
        tempFolder = control.TempDir();
        control.SetEventSink([&](DISPID id, const std::vector<Variant>&) {
            if (id == 1) ended = true;
        });
        if (ApplyPlaySettings(control, settings, "render") && control.StartPlay()) {
            while (!platform::PumpUntil([&] { return ended; }, 100) && platform::TerminationSignal() == 0) {
                if (progress) ShowProgressBar(control);
            }
            if (platform::TerminationSignal() == 0) WaitForPlayOut(control);
            if (progress) {
                ShowProgressBar(control);
                std::fputc('\n', stderr);
            }
            control.StopPlay();
            // Cut short by a signal, what was written is not the render
            // that was asked for: it goes like any other failure.
            ok = platform::TerminationSignal() == 0;
        } else if (platform::TerminationSignal() == 0) {
            std::fprintf(stderr, "tempvox render: cannot render '%s'\n", settings.source.c_str());
        }
    }
    RemoveTempFolderIfEmpty(tempFolder);
    if (!ok) {
        platform::DeleteFile(partial);
        if (progress) std::fputc('\n', stderr);
        return platform::ExitStatusAfterSignal(1);
    }
    if (std::rename(partial.c_str(), output.c_str()) != 0) {
        std::fprintf(stderr, "tempvox render: cannot write '%s'\n", output.c_str());
        platform::DeleteFile(partial);
        return 1;
    }
    CFile written;
    uint64_t bytes = written.Open(output.c_str(), CFile::modeRead) ? written.GetLength() : 0;
    uint32_t byteRate = 0;
    if (bytes >= 44) {
        unsigned char head[44] = {};
        written.Read(head, 44);
        byteRate = head[28] | (head[29] << 8) | (head[30] << 16) | (static_cast<uint32_t>(head[31]) << 24);
    }
    double seconds = byteRate > 0 && bytes >= 44 ? static_cast<double>(bytes - 44) / byteRate : 0.0;
    std::printf("Wrote %s: %.3f s\n", output.c_str(), seconds);
    return 0;
}
