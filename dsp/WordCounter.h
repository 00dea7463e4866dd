#pragma once
#include <cstdint>

// Counts the voiced frames of one block as it stands in the file: frames of
// 40 ms whose difference function shows a clear pitch period. Keeps no state
// between calls, so the device's thread and the host's thread may both call it.
int32_t CountVoicedFrames(const uint8_t* data, uint32_t byteCount, uint32_t samplesPerSec, uint16_t bitsPerSample);
