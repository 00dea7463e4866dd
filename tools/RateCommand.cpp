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
#include "tools/CommandLine.h"
#include "tools/Commands.h"
#include "tools/ExitCodes.h"
#include "tools/Failures.h"

namespace {

void PrintRate(const char* label, const SpeakingRate& rate, double syllablesPerWord)
{
    std::printf("%s%6.2f syllables/s %6.1f words/min  (%llu syllables in %.2f s of speech)\n", label,
                rate.SyllablesPerSecond(), rate.WordsPerMinute(syllablesPerWord),
                static_cast<unsigned long long>(rate.syllables), rate.speechSeconds);
}

}  // namespace

int RunRateCommand(const std::vector<std::string>& args)
{
    CLI::App app{"Syllables per second and words per minute of a recording.", "tempvox rate"};
    SetUpCommand(app,
                 "Pauses count up to 0.3 s each. --per-sentence also rates each sentence, as\n"
                 "`tempvox segments` finds them.");
    std::string path;
    bool perSentence = false;
    double syllablesPerWord = kDefaultSyllablesPerWord;
    app.add_option("input", path, "a wave file")->required()->type_name("FILE.wav");
    app.add_flag("--per-sentence", perSentence, "also rate each sentence");
    app.add_option("--syllables-per-word", syllablesPerWord, "syllables a word, 1 to 8 (default 1.45)")
        ->type_name("R")
        ->check(CLI::Range(kMinSyllablesPerWord, kMaxSyllablesPerWord));
    if (const std::optional<int> status = ParseCommandLine(app, args)) return *status;
    if (const std::optional<Failure> failure = CheckInputFile(path)) return ReportFailure("rate", path, *failure);
    try {
        if (perSentence) {
            const SentenceScan scan = ScanSentences(path, SentenceFinderSettings{});
            if (scan.error != SentenceScanError::None)
                return ReportFailure("rate", path, Failure{kExitUnsupported, scan.message});
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
        return ReportFailure("rate", path, Failure{kExitCannotRead, failure.what()});
    } catch (const std::invalid_argument& failure) {
        return ReportFailure("rate", path, Failure{kExitUnsupported, failure.what()});
    }
    return 0;
}
