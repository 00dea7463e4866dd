#pragma once
#include <cstdint>
#include <string>

// Turns an encoded wzq file into a 16-bit PCM .wav beside it, through the
// codec library. Where a file of that name already stands (and is not this
// process's own) or the folder can't be written, the .wav goes into
// `fallbackFolder` (ending in '/') under a free name; without a fallback
// folder that is a failure. The path of the .wav, or empty on failure.
std::string ConvertToWav(const std::string& path, const std::string& fallbackFolder = std::string());

// The bare name the codec library is loaded by.
extern const char* const kCodecLibraryName;

// The frames an encoded file's header promises and the whole frames that
// follow it in the file. A conversion decodes only the frames held, so a
// tool can tell its user when a file was cut short.
struct EncodedFrameCounts {
    uint32_t declared = 0;
    uint32_t held = 0;
};

// The counts of a file whose header the conversion would take; false (and
// the counts untouched) for a missing file or a header it would refuse.
bool ReadEncodedFrameCounts(const std::string& path, EncodedFrameCounts& counts);

// The same conversion through the library of the given name; for hosts that
// ship the codec under a name of their own. `counts`, when given, receives
// the counts of a header that was taken.
std::string ConvertToWavWith(const std::string& path, const char* libraryName,
                             const std::string& fallbackFolder = std::string(), EncodedFrameCounts* counts = nullptr);
