#pragma once
#include <string>

// Turns an encoded wzq file into a 16-bit PCM .wav beside it, through the
// codec library. The path of the .wav, or empty on failure.
std::string ConvertToWav(const std::string& path);
