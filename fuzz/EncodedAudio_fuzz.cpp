// The conversion of an encoded file to a .wav: the header checks, the count
// of frames the file holds and the decoding through the codec library. The
// .wav written must state exactly the bytes that follow its head.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzz/FuzzSupport.h"
#include "media/EncodedAudio.h"
#include "platform/OwnedFiles.h"
#include "platform/Library.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const fuzzsupport::Scratch scratch("encoded");
    // Held for the whole run, so that each conversion's own load and free
    // only count references.
    static const HMODULE library = [] {
        fuzzsupport::AnswerBoxesQuietly();
        return LoadLibraryA(kCodecLibraryName);
    }();
    if (library == nullptr) std::abort();

    const std::string path = scratch.Write("lesson.wzq", data, size);
    EncodedFrameCounts counts;
    const std::string wavPath = ConvertToWavWith(path, kCodecLibraryName, std::string(), &counts);
    if (wavPath.empty()) return 0;
    if (counts.held > counts.declared) std::abort();
    CFile wav;
    if (!wav.Open(wavPath.c_str(), CFile::modeRead)) std::abort();
    uint8_t head[44] = {};
    if (wav.Read(head, sizeof head) != sizeof head) std::abort();
    uint32_t dataBytes = 0;
    std::memcpy(&dataBytes, head + 40, 4);
    if (wav.GetLength() != 44u + dataBytes) std::abort();
    wav.Close();
    // Through the registry of the files the control made, which holds each
    // one open until it is deleted so.
    if (!platform::DeleteOwnedFile(wavPath)) std::abort();
    return 0;
}
