#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "dsp/SyllableRate.h"

// How fast a stretch of a wave file is spoken, read from the file itself:
// the samples of its data chunk, wherever the chunk stands, untouched by
// tempo, gain or noise. For the control's GetSpeakingRate and the tool's
// `rate` command; runs on the caller's thread and reads the stretch in
// pieces of 64 KiB, so a long file costs no more memory than a short one.

// The samples from `startMs` up to `endMs` (cut to the end of the samples)
// of the 8- or 16-bit PCM wave file at `path`. Throws CFileException when the
// file can't be opened, std::invalid_argument when it is not such a file or
// when the stretch is negative or ends before it starts.
SpeakingRate MeasureFileSpeakingRate(const std::string& path, int64_t startMs, int64_t endMs);

// The length of the samples of that file in milliseconds; throws as above.
uint32_t WaveFileMilliseconds(const std::string& path);
