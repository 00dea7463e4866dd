// `tempvox segments`: the sentences of a wave file, as JSON, as subtitles
// (SubRip or WebVTT) or as a label track that audio editors import.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "engine/SentenceScan.h"
#include "tools/CommandLine.h"
#include "tools/Commands.h"
#include "tools/ExitCodes.h"
#include "tools/Failures.h"
#include "tools/Json.h"

namespace {

enum class Format { Json, Srt, Vtt, Labels };

struct SegmentsOptions {
    std::string input;
    int32_t minPauseMs = SentenceFinderSettings{}.minPauseMs;
    Format format = Format::Json;
};


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
    CLI::App app{"Lists the sentences of a recording.", "tempvox segments"};
    SetUpCommand(app);
    SegmentsOptions options;
    app.add_option("input", options.input, "a wave file")->required()->type_name("FILE.wav");
    app.add_option("--min-pause", options.minPauseMs, "the shortest pause that ends a sentence, 50 to 60000 ms (default 300)")
        ->type_name("MS")
        ->check(CLI::Range(50, 60000));
    const std::map<std::string, Format> formats = {
        {"json", Format::Json}, {"srt", Format::Srt}, {"vtt", Format::Vtt}, {"labels", Format::Labels}};
    app.add_option("--format", options.format,
                   "json (default), srt or vtt subtitles, or labels: start<TAB>end<TAB>text in seconds")
        ->type_name("FORMAT")
        ->transform(CLI::CheckedTransformer(formats));
    if (const std::optional<int> status = ParseCommandLine(app, args)) return *status;
    SentenceFinderSettings settings;
    settings.minPauseMs = options.minPauseMs;
    const SentenceScan scan = ScanSentences(options.input, settings);
    if (scan.error != SentenceScanError::None) {
        if (const std::optional<Failure> failure = CheckInputFile(options.input))
            return ReportFailure("segments", options.input, *failure);
        return ReportFailure("segments", options.input, Failure{kExitUnsupported, scan.message});
    }
    Print(options, scan);
    return std::fflush(stdout) == 0 ? 0 : 1;
}
