// The one function the codec library exports. Callers hand it the stream
// header, a buffer for one frame's samples and one encoded frame; it keeps
// nothing between calls, so every frame decodes on its own.
#include <cstring>

#include "codec/VoxAdpcm.h"

extern "C" __attribute__((visibility("default"))) int wzq_decode(const void* header, void* pcmOut, const void* frameIn)
{
    if (header == nullptr || pcmOut == nullptr || frameIn == nullptr) return -1;
    voxadpcm::StreamHeader stream;
    if (!voxadpcm::ReadHeader(static_cast<const unsigned char*>(header), stream)) {
        // The size of the caller's buffer follows from a frame size we
        // refuse, so not a byte of it is safe to touch.
        return -2;
    }
    voxadpcm::DecodeFrame(stream, static_cast<const unsigned char*>(frameIn), static_cast<unsigned char*>(pcmOut));
    return 0;
}
