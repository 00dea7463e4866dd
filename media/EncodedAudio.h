#pragma once
#include <string>

// Turns an encoded wzq file into a 16-bit PCM .wav beside it, through the
// codec library. Where a file of that name already stands (and is not this
// process's own) or the folder can't be written, the .wav goes into
// `fallbackFolder` (ending in '/') under a free name; without a fallback
// folder that is a failure. The path of the .wav, or empty on failure.
std::string ConvertToWav(const std::string& path, const std::string& fallbackFolder = std::string());

// The bare name the codec library is loaded by.
extern const char* const kCodecLibraryName;

// The same conversion through the library of the given name; for hosts that
// ship the codec under a name of their own.
std::string ConvertToWavWith(const std::string& path, const char* libraryName,
                             const std::string& fallbackFolder = std::string());
