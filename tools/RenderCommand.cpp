// `tempvox render`: runs the real pipeline over the capture device as fast
// as it goes and keeps what the device would have played, e.g. a slowed
// copy of a lesson.
#include <cstdio>
#include <algorithm>
#include <chrono>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "platform/File.h"
#include "platform/MessageBox.h"
#include "platform/Messages.h"
#include "platform/Terminal.h"
#include "platform/Termination.h"
#include "media/AudioLocator.h"
#include "media/FfmpegEncoder.h"
#include "tools/CommandLine.h"
#include "tools/Commands.h"
#include "tools/ExitCodes.h"
#include "tools/Failures.h"
#include "tools/PlaySettings.h"

namespace {

const char* kRenderFooter =
    "OUT's extension chooses the format: .wav (16-bit PCM), .mp3, .m4a, .ogg, .opus or .flac.\n"
    "The refined profile is the default: the tempo is the level's factor exactly, channels stay apart;\n"
    "--classic renders as the original control did.";

// "96k", "96K" or "96000": bits per second, 6 to 640 kbit/s.
bool ParseBitRate(const std::string& text, int64_t& bitRate)
{
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || end == text.c_str()) return false;
    long long bits = value;
    if (*end == 'k' || *end == 'K') {
        bits = value * 1000;
        ++end;
    }
    if (*end != '\0' || bits < 6000 || bits > 640000) return false;
    bitRate = bits;
    return true;
}

// A bar on standard error while the render runs: percentage of the source
// done and the time left at the pace so far. Drawn only on a terminal;
// cleared at the end so that only the result line stays.
class RenderProgress {
public:
    explicit RenderProgress(bool terminal) : m_terminal(terminal) {}

    void Show(CTempvoxCtrl& control)
    {
        if (!m_terminal) return;
        CWavOut& engine = control.Engine();
        const uint32_t total = engine.GetTotalPlayTime();
        const uint32_t done = std::min(engine.GetCurrentPlayTime(), total);
        const double fraction = total > 0 ? static_cast<double>(done) / total : 0.0;
        const int filled = static_cast<int>(kWidth * fraction);
        const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_started).count();
        std::string left = "--:--";
        if (fraction > 0.0) {
            const auto seconds = static_cast<unsigned>(elapsed * (1.0 - fraction) / fraction + 0.5);
            char text[16];
            std::snprintf(text, sizeof text, "%02u:%02u", seconds / 60, seconds % 60);
            left = text;
        }
        std::fprintf(stderr, "\r\033[K[%-*s] %3d%%  %s left", kWidth, std::string(static_cast<size_t>(filled), '#').c_str(),
                     static_cast<int>(100 * fraction), left.c_str());
        m_shown = true;
    }

    void Clear()
    {
        if (m_shown) std::fputs("\r\033[K", stderr);
        m_shown = false;
    }

private:
    static constexpr int kWidth = 40;
    bool m_terminal;
    bool m_shown = false;
    std::chrono::steady_clock::time_point m_started = std::chrono::steady_clock::now();
};

// The length of what the capture device wrote: its samples over its byte rate.
double SecondsOfCapture(const std::string& path)
{
    CFile written;
    uint64_t bytes = written.Open(path.c_str(), CFile::modeRead) ? written.GetLength() : 0;
    uint32_t byteRate = 0;
    if (bytes >= 44) {
        unsigned char head[44] = {};
        written.Read(head, 44);
        byteRate = head[28] | (head[29] << 8) | (head[30] << 16) | (static_cast<uint32_t>(head[31]) << 24);
    }
    return byteRate > 0 && bytes >= 44 ? static_cast<double>(bytes - 44) / byteRate : 0.0;
}

struct RenderRun {
    bool ok = false;  // the whole file was played into the capture
    int status = kExitFailure;
};

// Plays the source through a control onto the capture file `rendered`, as
// fast as it goes, with a progress bar on a terminal.
RenderRun RenderToCapture(PlaySettings settings, const std::string& output, const std::string& rendered)
{
    platform::AudioBackendConfig audio;
    audio.backend = platform::AudioBackend::Capture;
    audio.capturePath = rendered;
    platform::SetAudioBackend(audio);

    bool ended = false;
    RenderProgress progress(platform::IsTerminal(2));
    RenderRun run;
    std::string tempFolder;
    {
        CTempvoxCtrl control;
        tempFolder = control.TempDir();
        control.SetEventSink([&](DISPID id, const std::vector<Variant>&) {
            if (id == 1) ended = true;
        });
        // The word counts are no part of the sound and nobody reads them
        // here: render never counts (--just-play stays accepted).
        settings.justPlay = true;
        run.status = ApplyPlaySettings(control, settings, "render");
        if (run.status == kExitOk && control.StartPlay()) {
            progress.Show(control);
            while (!platform::PumpUntil([&] { return ended; }, 100) && platform::TerminationSignal() == 0)
                progress.Show(control);
            if (platform::TerminationSignal() == 0) WaitForPlayOut(control);
            progress.Clear();
            control.StopPlay();
            // Cut short by a signal, what was written is not the render
            // that was asked for: it goes like any other failure.
            run.ok = platform::TerminationSignal() == 0;
        } else if (platform::TerminationSignal() == 0 && run.status == kExitOk) {
            run.status = ReportStartFailure(control, settings, "render",
                                        Failure{kExitCannotWrite, "cannot write " + output});
        }
    }
    RemoveTempFolderIfEmpty(tempFolder);
    return run;
}

}  // namespace

int RunRenderCommand(const std::vector<std::string>& args)
{
    CLI::App app{"Writes what would be played, as fast as it goes.", "tempvox render"};
    SetUpCommand(app, kRenderFooter);
    PlaySettings settings;
    AddPlaySettingsOptions(app, settings);
    std::string output;
    app.add_option("output", output, "the file to write")->required()->type_name("OUT");
    std::string bitRateText;
    app.add_option("--bitrate", bitRateText, "bits per second of .mp3, .m4a, .ogg and .opus, 6k to 640k (e.g. 96k)")
        ->type_name("N[k]");
    if (const std::optional<int> status = ParseCommandLine(app, args)) return *status;
    int64_t bitRate = 0;
    if (!bitRateText.empty() && !ParseBitRate(bitRateText, bitRate))
        return UsageError(app, "--bitrate takes 6k to 640k, not '" + bitRateText + "'");
    if (settings.loop) return UsageError(app, "a loop never ends, so it can't be rendered");
    // Any extension but those of the encoded forms gets a .wav, as always.
    media::EncodeSettings encoding;
    const bool encoded = media::EncodedKindForPath(output, encoding.kind);
    if (bitRate > 0 && (!encoded || !media::IsLossy(encoding.kind)))
        return UsageError(app, "--bitrate is for .mp3, .m4a, .ogg and .opus outputs");
    encoding.bitRate = bitRate;
    if (const std::optional<Failure> failure = CheckOutputPath(output)) return ReportFailure("render", output, *failure);
    // The output appears under its name only when it is complete. An
    // encoded output is first rendered to a .wav of its own beside it.
    const std::string partial = output + ".part-" + std::to_string(getpid());
    const std::string rendered = encoded ? partial + ".wav" : partial;

    const RenderRun run = RenderToCapture(settings, output, rendered);
    bool ok = run.ok;
    int status = run.status;
    const double renderedSeconds = ok ? SecondsOfCapture(rendered) : 0.0;
    if (ok && encoded) {
        std::string error;
        ok = media::EncodeFile(rendered, partial, encoding, error, [] { return platform::TerminationSignal() == 0; });
        if (!ok && platform::TerminationSignal() == 0)
            status = ReportFailure("render", output, Failure{kExitCannotWrite, "cannot be written: " + error});
        platform::DeleteFile(rendered);
    }
    if (!ok) {
        platform::DeleteFile(partial);
        if (encoded) platform::DeleteFile(rendered);
        return platform::ExitStatusAfterSignal(status);
    }
    if (std::rename(partial.c_str(), output.c_str()) != 0) {
        const int renamed = ReportFailure("render", output, Failure{kExitCannotWrite, std::strerror(errno)});
        platform::DeleteFile(partial);
        return renamed;
    }
    std::printf("Wrote %s: %.3f s\n", output.c_str(), renderedSeconds);
    return 0;
}
