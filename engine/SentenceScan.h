#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "dsp/SentenceFinder.h"

// One sentence in milliseconds of the file: [startMs, endMs).
struct SentenceTimes {
    int32_t startMs = 0;
    int32_t endMs = 0;
};

enum class SentenceScanError {
    None,
    CannotOpen,   // no such file, not a regular file, or not readable
    NotWave,      // no RIFF WAVE head, or no format or data chunk
    NotPcm,       // samples other than 8- or 16-bit integer PCM
    BadSettings,  // a minimum pause or sentence length out of range
};

struct SentenceScan {
    SentenceScanError error = SentenceScanError::None;
    // Why, for a person, when error is not None.
    std::string message;
    uint32_t samplesPerSec = 0;
    uint16_t channels = 0;
    int64_t totalFrames = 0;
    std::vector<SentenceTimes> sentences;
};

// Reads the wave file at `path` once from start to end, in blocks, and finds
// its sentences (CSentenceFinder). The file is only read. Blocks the calling
// thread for one pass over the file.
SentenceScan ScanSentences(const std::string& path, const SentenceFinderSettings& settings);

// The sentence that holds `timeMs` ([start, end)), or -1.
int32_t SentenceAt(const std::vector<SentenceTimes>& sentences, int32_t timeMs);
