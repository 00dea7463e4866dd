#include "media/EncodedAudio.h"

#include "platform/Debug.h"

std::string ConvertToWav(const std::string& path)
{
    // The conversion comes with the codec library; until then an encoded
    // source is refused rather than played as noise.
    OutputDebugStringA(("encoded audio is not supported yet: " + path + "\n").c_str());
    return std::string();
}
