// `tempvox rate`: how fast a recording is spoken, in syllables per second
// and words per minute, for the whole file and, on request, for each of
// its sentences as `tempvox segments` and PlaySentence find them.
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "engine/SentenceScan.h"
#include "engine/SpeakingRate.h"
#include "platform/Exceptions.h"
#include "tools/Commands.h"

namespace {

const char* kRateUsage =
    "usage: tempvox rate FILE.wav [--per-sentence] [--syllables-per-word R]\n"
    "Syllables per second of speech (pauses count up to 0.3 s each) and words per minute at R syllables\n"
    "a word (1.45 unless given, 1 to 8). --per-sentence also rates each sentence, as\n"
    "`tempvox segments` finds them.\n";

void PrintRate(const char* label, const SpeakingRate& rate, double syllablesPerWord)
{
    std::printf("%s%6.2f syllables/s %6.1f words/min  (%llu syllables in %.2f s of speech)\n", label,
                rate.SyllablesPerSecond(), rate.WordsPerMinute(syllablesPerWord),
                static_cast<unsigned long long>(rate.syllables), rate.speechSeconds);
}

}  // namespace

int RunRateCommand(const std::vector<std::string>& args)
{
    std::string path;
    bool perSentence = false;
    double syllablesPerWord = kDefaultSyllablesPerWord;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--per-sentence") {
            perSentence = true;
        } else if (args[i] == "--syllables-per-word" && i + 1 < args.size()) {
            char* end = nullptr;
            syllablesPerWord = std::strtod(args[++i].c_str(), &end);
            if (end == args[i].c_str() || *end != '\0' || !IsSyllablesPerWordValid(syllablesPerWord)) {
                std::fprintf(stderr, "tempvox rate: syllables per word must be a number from %g to %g, got '%s'\n",
                             kMinSyllablesPerWord, kMaxSyllablesPerWord, args[i].c_str());
                return 2;
            }
        } else if (path.empty() && args[i].rfind("--", 0) != 0) {
            path = args[i];
        } else {
            std::fputs(kRateUsage, stderr);
            return 2;
        }
    }
    if (path.empty()) {
        std::fputs(kRateUsage, stderr);
        return 2;
    }
    try {
        if (perSentence) {
            const SentenceScan scan = ScanSentences(path, SentenceFinderSettings{});
            if (scan.error != SentenceScanError::None) {
                std::fprintf(stderr, "tempvox rate: %s\n", scan.message.c_str());
                return 1;
            }
            for (const SentenceTimes& sentence : scan.sentences) {
                char label[48];
                std::snprintf(label, sizeof label, "%7.2f-%7.2f s ", sentence.startMs / 1000.0, sentence.endMs / 1000.0);
                const SpeakingRate rate = MeasureFileSpeakingRate(path, uint32_t(sentence.startMs),
                                                                  uint32_t(sentence.endMs));
                PrintRate(label, rate, syllablesPerWord);
            }
        }
        const SpeakingRate whole = MeasureFileSpeakingRate(path, 0, WaveFileMilliseconds(path));
        PrintRate(perSentence ? "whole file        " : "", whole, syllablesPerWord);
    } catch (const CFileException& failure) {
        std::fprintf(stderr, "tempvox rate: %s\n", failure.what());
        return 1;
    } catch (const std::invalid_argument& failure) {
        std::fprintf(stderr, "tempvox rate: %s\n", failure.what());
        return 1;
    }
    return 0;
}
