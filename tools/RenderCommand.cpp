// `tempvox render`: runs the real pipeline over the capture device as fast
// as it goes and keeps what the device would have played, e.g. a slowed
// copy of a lesson.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "platform/File.h"
#include "platform/MessageBox.h"
#include "platform/Messages.h"
#include "platform/Terminal.h"
#include "platform/Termination.h"
#include "media/AudioLocator.h"
#include "media/FfmpegEncoder.h"
#include "tools/Commands.h"
#include "tools/PlaySettings.h"

namespace {

const char* kRenderUsage =
    "usage: tempvox render IN OUT [--level N] [--volume N] [--noise FILE] [--just-play] [--classic] [--bitrate N[k]]\n"
    "OUT's extension chooses the format: .wav (16-bit PCM), .mp3, .m4a, .ogg, .opus or .flac;\n"
    "--bitrate sets the bits per second of the lossy ones (e.g. 96k)\n"
    "The refined profile is the default: the tempo is the level's factor exactly, channels stay apart;\n"
    "--classic renders as the original control did.\n";

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

void ShowProgressBar(CTempvoxCtrl& control)
{
    CWavOut& engine = control.Engine();
    uint32_t total = engine.GetTotalPlayTime();
    uint32_t done = engine.GetCurrentPlayTime();
    int filled = total > 0 ? static_cast<int>(40ull * std::min(done, total) / total) : 0;
    std::fprintf(stderr, "\r[%-40s] %s / %s", std::string(static_cast<size_t>(filled), '#').c_str(),
                 FormatMs(done).c_str(), FormatMs(total).c_str());
}

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

}  // namespace

int RunRenderCommand(const std::vector<std::string>& args)
{
    PlaySettings settings;
    std::vector<std::string> rest;
    if (!ParsePlaySettings(args, settings, rest, "render")) {
        std::fputs(kRenderUsage, stderr);
        return 2;
    }
    int64_t bitRate = 0;
    std::vector<std::string> outputs;
    for (size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == "--bitrate" && i + 1 < rest.size()) {
            if (!ParseBitRate(rest[++i], bitRate)) {
                std::fprintf(stderr, "tempvox render: --bitrate takes 6k to 640k, not '%s'\n", rest[i].c_str());
                return 2;
            }
        } else if (rest[i].rfind("--", 0) == 0) {
            std::fprintf(stderr, "tempvox render: unknown option '%s'\n%s", rest[i].c_str(), kRenderUsage);
            return 2;
        } else {
            outputs.push_back(rest[i]);
        }
    }
    if (outputs.size() != 1) {
        std::fputs(kRenderUsage, stderr);
        return 2;
    }
    if (settings.loop) {
        std::fprintf(stderr, "tempvox render: a loop never ends, so it can't be rendered\n");
        return 2;
    }
    const std::string output = outputs[0];
    // Any extension but those of the encoded forms gets a .wav, as always.
    media::EncodeSettings encoding;
    const bool encoded = media::EncodedKindForPath(output, encoding.kind);
    if (bitRate > 0 && (!encoded || !media::IsLossy(encoding.kind))) {
        std::fprintf(stderr, "tempvox render: --bitrate is for .mp3, .m4a, .ogg and .opus outputs\n");
        return 2;
    }
    encoding.bitRate = bitRate;
    // The output appears under its name only when it is complete. An
    // encoded output is first rendered to a .wav of its own beside it.
    const std::string partial = output + ".part-" + std::to_string(getpid());
    const std::string rendered = encoded ? partial + ".wav" : partial;

    platform::AudioBackendConfig audio;
    audio.backend = platform::AudioBackend::Capture;
    audio.capturePath = rendered;
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
        // The word counts are no part of the sound and nobody reads them
        // here: render never counts (--just-play stays accepted).
        settings.justPlay = true;
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
    const double renderedSeconds = ok ? SecondsOfCapture(rendered) : 0.0;
    if (ok && encoded) {
        std::string error;
        ok = media::EncodeFile(rendered, partial, encoding, error, [] { return platform::TerminationSignal() == 0; });
        if (!ok && platform::TerminationSignal() == 0)
            std::fprintf(stderr, "tempvox render: cannot write '%s': %s\n", output.c_str(), error.c_str());
        platform::DeleteFile(rendered);
    }
    if (!ok) {
        platform::DeleteFile(partial);
        if (encoded) platform::DeleteFile(rendered);
        if (progress) std::fputc('\n', stderr);
        return platform::ExitStatusAfterSignal(1);
    }
    if (std::rename(partial.c_str(), output.c_str()) != 0) {
        std::fprintf(stderr, "tempvox render: cannot write '%s'\n", output.c_str());
        platform::DeleteFile(partial);
        return 1;
    }
    std::printf("Wrote %s: %.3f s\n", output.c_str(), renderedSeconds);
    return 0;
}
