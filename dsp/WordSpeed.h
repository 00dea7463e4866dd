#pragma once
#include <cstdint>

// Estimates words per minute in a stretch of samples as stored in the file:
// counts speech segments with a dual-threshold endpoint detector on short-time
// energy and falling zero crossings of the first channel, then scales the
// count by `wordsPerSegment` and `timeSpan` seconds. Leaves `samples` as it was.
int32_t EstimateWordSpeed(const uint8_t* samples, uint32_t byteCount, uint16_t channels, uint16_t bitsPerSample,
                          float wordsPerSegment, int32_t timeSpan);

// Where the stretch for an estimate lies in the file, from the engine's numbers.
struct WordSpeedStretchRequest {
    uint32_t playTimeMs = 0;
    uint32_t avgBytesPerSec = 0;
    uint16_t blockAlign = 0;
    uint32_t dataChunkLength = 0;  // 0 when the header left it open
    uint32_t formatLength = 0;
    uint32_t factExtra = 0;
    int64_t fileLength = 0;
    int32_t timeSpan = 0;
};

struct WordSpeedStretch {
    uint32_t n = 0;                // minute of play, from 1; what the host is answered
    uint32_t dataChunkLength = 0;  // the length used, filled in from the file when it was 0
    int64_t seekFromEnd = 0;       // seek relative to the end of the file
    int64_t position = 0;          // where that seek lands, from the start of the file
    uint32_t size = 0;             // bytes to read from there
};

WordSpeedStretch PlanWordSpeedStretch(const WordSpeedStretchRequest& request);
