#include "tools/SourceNotes.h"

#include <cstdio>

#include "platform/Download.h"
#include "platform/Terminal.h"
#include "platform/Termination.h"
#include "tools/PlaySettings.h"

namespace {

// Shorter files decode in a blink: a line that flashes by only distracts.
constexpr double kShortestShownSeconds = 5.0;

std::string Clock(double seconds)
{
    return FormatMs(seconds > 0 ? static_cast<uint32_t>(seconds * 1000.0) : 0);
}

}  // namespace

SourceProgressLine::SourceProgressLine(const std::string& name, const char* command)
    : m_name(name), m_command(command), m_terminal(platform::IsTerminal(2))
{
    if (m_terminal) platform::SetDownloadObserver([this](uint64_t received, uint64_t total) { ShowDownload(received, total); });
}

SourceProgressLine::~SourceProgressLine()
{
    if (m_terminal) platform::SetDownloadObserver(nullptr);
    Clear();
}

media::DecodeProgress SourceProgressLine::DecodeCallback()
{
    return [this](double done, double total) { return ShowDecoding(done, total); };
}

bool SourceProgressLine::ShowDecoding(double doneSeconds, double totalSeconds)
{
    if (platform::TerminationSignal() != 0) return false;
    if (!m_terminal || (totalSeconds < kShortestShownSeconds && doneSeconds < kShortestShownSeconds)) return true;
    char text[160];
    if (totalSeconds > 0) {
        const double shown = doneSeconds < totalSeconds ? doneSeconds : totalSeconds;
        std::snprintf(text, sizeof text, "decoding  %s / %s  %3d%%", Clock(shown).c_str(), Clock(totalSeconds).c_str(),
                      static_cast<int>(100.0 * shown / totalSeconds));
    } else {
        std::snprintf(text, sizeof text, "decoding  %s", Clock(doneSeconds).c_str());
    }
    Print(text);
    return true;
}

void SourceProgressLine::ShowDownload(uint64_t received, uint64_t total)
{
    // A download that is over within a second needs no line; after that the
    // line is redrawn a few times a second, not at every callback.
    const auto now = std::chrono::steady_clock::now();
    if (now - m_started < std::chrono::seconds(1) || now - m_lastDownloadLine < std::chrono::milliseconds(200)) return;
    m_lastDownloadLine = now;
    char text[160];
    const double mb = 1024.0 * 1024.0;
    if (total > 0) {
        std::snprintf(text, sizeof text, "downloading  %.1f / %.1f MB  %3d%%", double(received) / mb, double(total) / mb,
                      static_cast<int>(100.0 * double(received) / double(total)));
    } else {
        std::snprintf(text, sizeof text, "downloading  %.1f MB", double(received) / mb);
    }
    Print(text);
}

void SourceProgressLine::Print(const std::string& text)
{
    std::fprintf(stderr, "\r\033[Ktempvox %s: %s  %s", m_command.c_str(), m_name.c_str(), text.c_str());
    std::fflush(stderr);
    m_shown = true;
}

void SourceProgressLine::Clear()
{
    if (!m_shown) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    m_shown = false;
}

void PrintDecodeNotes(const media::DecodeReport& report, const std::string& name, const char* command)
{
    if (report.cancelled) return;
    if (report.wavPath.empty()) {
        if (!report.reason.empty()) std::fprintf(stderr, "tempvox %s: %s: %s\n", command, name.c_str(), report.reason.c_str());
        return;
    }
    if (report.stoppedEarly) {
        std::fprintf(stderr, "tempvox %s: %s: decoding stopped at %s (%s); playing what was decoded before\n", command,
                     name.c_str(), Clock(report.decodedSeconds).c_str(), report.reason.c_str());
    }
    // A file cut short (a download that broke off) still plays what it
    // holds; when its head states the length, say how much is missing.
    const double announced = report.stream.announcedSeconds;
    const double missing = announced - report.decodedSeconds;
    if (!report.stoppedEarly && !report.stream.announcedByBitrate && missing > 0.5 && missing > 0.02 * announced) {
        std::fprintf(stderr, "tempvox %s: %s: holds %s of the %s it announces\n", command, name.c_str(),
                     Clock(report.decodedSeconds).c_str(), Clock(announced).c_str());
    }
    if (report.truncatedToWavLimit) {
        std::fprintf(stderr, "tempvox %s: %s: only the first %s fit in a .wav; the rest is left out\n", command,
                     name.c_str(), Clock(report.decodedSeconds).c_str());
    }
    if (report.damagedPackets > 0) {
        std::fprintf(stderr, "tempvox %s: %s: %llu damaged packet(s) passed over\n", command, name.c_str(),
                     static_cast<unsigned long long>(report.damagedPackets));
    }
}
