// `tempvox segments`: the sentences of a wave file, as JSON, as subtitles
// (SubRip or WebVTT) or as a label track that audio editors import.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "engine/SentenceScan.h"
#include "tools/Commands.h"
#include "tools/Json.h"

namespace {

const char* kSegmentsUsage =
    "usage: tempvox segments FILE.wav [--min-pause MS] [--format json|srt|vtt|labels]\n"
    "  --min-pause  the shortest pause that ends a sentence, 50 to 60000 ms (default 300)\n"
    "  --format     json (default), srt or vtt subtitles, or labels: start<TAB>end<TAB>text in seconds\n";

enum class Format { Json, Srt, Vtt, Labels };

struct SegmentsOptions {
    std::string input;
    int32_t minPauseMs = SentenceFinderSettings{}.minPauseMs;
    Format format = Format::Json;
};

bool ParseOptions(const std::vector<std::string>& args, SegmentsOptions& options)
{
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--min-pause" && i + 1 < args.size()) {
            const std::string& value = args[++i];
            char* end = nullptr;
            const long ms = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || ms < 50 || ms > 60000) {
                std::fprintf(stderr, "tempvox segments: --min-pause wants 50 to 60000 (ms), got '%s'\n", value.c_str());
                return false;
            }
            options.minPauseMs = static_cast<int32_t>(ms);
        } else if (arg == "--format" && i + 1 < args.size()) {
            const std::string& value = args[++i];
            if (value == "json") {
                options.format = Format::Json;
            } else if (value == "srt") {
                options.format = Format::Srt;
            } else if (value == "vtt") {
                options.format = Format::Vtt;
            } else if (value == "labels") {
                options.format = Format::Labels;
            } else {
                std::fprintf(stderr, "tempvox segments: unknown format '%s'\n", value.c_str());
                return false;
            }
        } else if (!arg.empty() && arg[0] != '-' && options.input.empty()) {
            options.input = arg;
        } else {
            std::fprintf(stderr, "tempvox segments: unexpected argument '%s'\n", arg.c_str());
            return false;
        }
    }
    if (options.input.empty()) {
        std::fprintf(stderr, "tempvox segments: no file named\n");
        return false;
    }
    return true;
}

// HH:MM:SS and the milliseconds after `separator` (',' for SubRip, '.' for
// WebVTT).
std::string Timestamp(int32_t ms, char separator)
{
    char text[32];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d%c%03d", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, separator,
                  ms % 1000);
    return text;
}

std::string Seconds(int32_t ms, const char* format)
{
    char text[32];
    std::snprintf(text, sizeof text, format, ms / 1000.0);
    return text;
}

void Print(const SegmentsOptions& options, const SentenceScan& scan)
{
    const std::vector<SentenceTimes>& sentences = scan.sentences;
    switch (options.format) {
    case Format::Json: {
        const double duration = double(scan.totalFrames) / double(scan.samplesPerSec);
        std::printf("{\"file\":%s,\"rate\":%" PRIu32 ",\"channels\":%u,\"duration\":%s,\"min_pause_ms\":%d,\"sentences\":[",
                    JsonString(options.input).c_str(), scan.samplesPerSec, unsigned(scan.channels),
                    JsonNumber(duration).c_str(), options.minPauseMs);
        for (size_t i = 0; i < sentences.size(); ++i) {
            std::printf("%s\n {\"start\":%s,\"end\":%s}", i == 0 ? "" : ",", Seconds(sentences[i].startMs, "%.3f").c_str(),
                        Seconds(sentences[i].endMs, "%.3f").c_str());
        }
        std::printf("%s]}\n", sentences.empty() ? "" : "\n");
        break;
    }
    case Format::Srt:
        for (size_t i = 0; i < sentences.size(); ++i) {
            std::printf("%zu\n%s --> %s\nSentence %zu\n\n", i + 1, Timestamp(sentences[i].startMs, ',').c_str(),
                        Timestamp(sentences[i].endMs, ',').c_str(), i + 1);
        }
        break;
    case Format::Vtt:
        std::printf("WEBVTT\n\n");
        for (size_t i = 0; i < sentences.size(); ++i) {
            std::printf("%zu\n%s --> %s\nSentence %zu\n\n", i + 1, Timestamp(sentences[i].startMs, '.').c_str(),
                        Timestamp(sentences[i].endMs, '.').c_str(), i + 1);
        }
        break;
    case Format::Labels:
        // The label-track text of audio editors: start, end, label.
        for (size_t i = 0; i < sentences.size(); ++i) {
            std::printf("%s\t%s\tSentence %zu\n", Seconds(sentences[i].startMs, "%.6f").c_str(),
                        Seconds(sentences[i].endMs, "%.6f").c_str(), i + 1);
        }
        break;
    }
}

}  // namespace

int RunSegmentsCommand(const std::vector<std::string>& args)
{
    SegmentsOptions options;
    if (!ParseOptions(args, options)) {
        std::fputs(kSegmentsUsage, stderr);
        return 2;
    }
    SentenceFinderSettings settings;
    settings.minPauseMs = options.minPauseMs;
    const SentenceScan scan = ScanSentences(options.input, settings);
    if (scan.error != SentenceScanError::None) {
        std::fprintf(stderr, "tempvox segments: %s\n", scan.message.c_str());
        return 1;
    }
    Print(options, scan);
    return std::fflush(stdout) == 0 ? 0 : 1;
}
