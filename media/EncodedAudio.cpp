#include "media/EncodedAudio.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "platform/Debug.h"
#include "platform/File.h"
#include "platform/Library.h"
#include "platform/OwnedFiles.h"
#include "messages/MessageCatalogue.h"
#include "riff/LittleEndian.h"
#include "riff/WavHead.h"

const char* const kCodecLibraryName = "libvoxcodec.so";

namespace {

constexpr uint32_t kEncodedHeaderBytes = 16;
constexpr uint32_t kWavHeaderBytes = 44;
constexpr uint32_t kFrameHeadBytes = 8;
// Refused like a wrong magic: a frame larger than this could not be held
// one at a time in memory, and no encoder writes one.
constexpr uint32_t kLargestFrameBytes = 1u << 20;

using DecodeFunction = int (*)(const void* header, void* pcmOut, const void* frameIn);

struct EncodedHeader {
    int16_t channels = 0;
    uint32_t sampleRate = 0;
    uint32_t frameBytes = 0;
    uint32_t frameCount = 0;
};

using riff::GetU32;

bool HasKnownMagic(const uint8_t* record)
{
    return record[0] == 'Z' && (record[1] == 'Q' || record[1] == 'R');
}

EncodedHeader ParseRecord(const uint8_t* record)
{
    EncodedHeader header;
    header.channels = int16_t(uint16_t(record[2] | record[3] << 8));
    header.sampleRate = GetU32(record + 4);
    header.frameBytes = GetU32(record + 8);
    header.frameCount = GetU32(record + 12);
    return header;
}

// Below 8 bytes a frame's decoded size wraps around, a frame of its head
// alone decodes to nothing (four billion of them would only keep the loop
// busy), and without a channel there is no sample to write: such headers are
// as unusable as a foreign one.
bool IsUsable(const EncodedHeader& header)
{
    return header.channels > 0 && header.frameBytes > kFrameHeadBytes && header.frameBytes <= kLargestFrameBytes;
}

// The whole frames behind the header, never more than it promises. A frame
// cut short is not decoded: its missing bytes would only be invented.
uint32_t FramesHeld(const EncodedHeader& header, uint64_t fileLength)
{
    const uint64_t payload = fileLength > kEncodedHeaderBytes ? fileLength - kEncodedHeaderBytes : 0;
    const uint64_t whole = payload / header.frameBytes;
    return whole < header.frameCount ? static_cast<uint32_t>(whole) : header.frameCount;
}

// Reads and checks the header at the start of an open file.
bool ReadUsableHeader(CFile& encoded, uint8_t (&record)[kEncodedHeaderBytes], EncodedHeader& header)
{
    encoded.Seek(0, CFile::begin);
    // A file shorter than a header leaves the rest of the record zero.
    encoded.Read(record, kEncodedHeaderBytes);
    header = ParseRecord(record);
    return HasKnownMagic(record) && IsUsable(header);
}

void BuildWavHeader(const EncodedHeader& header, uint32_t dataBytes, uint8_t* out)
{
    riff::PutCanonicalWavHead(out, riff::Pcm16Format(uint16_t(header.channels), header.sampleRate), dataBytes);
}

// The extension is that of the file's own name: a dot in a folder's name
// never cuts the path.
std::string WavPathFor(const std::string& path)
{
    size_t dot = path.rfind('.');
    size_t slash = path.rfind('/');
    if (dot != std::string::npos && slash != std::string::npos && dot < slash) dot = std::string::npos;
    return (dot == std::string::npos ? path : path.substr(0, dot)) + ".wav";
}

}  // namespace

std::string ConvertToWav(const std::string& path, const std::string& fallbackFolder)
{
    return ConvertToWavWith(path, kCodecLibraryName, fallbackFolder);
}

bool ReadEncodedFrameCounts(const std::string& path, EncodedFrameCounts& counts)
{
    CFile encoded;
    if (!encoded.Open(path.c_str(), CFile::modeRead | CFile::typeBinary)) return false;
    uint8_t record[kEncodedHeaderBytes] = {};
    EncodedHeader header;
    if (!ReadUsableHeader(encoded, record, header)) return false;
    counts.declared = header.frameCount;
    counts.held = FramesHeld(header, encoded.GetLength());
    return true;
}

std::string ConvertToWavWith(const std::string& path, const char* libraryName, const std::string& fallbackFolder,
                             EncodedFrameCounts* counts)
{
    OutputDebugStringA(("changewzqtowav-wav name:" + WavPathFor(path) + "\n").c_str());

    CFile encoded;
    if (!encoded.Open(path.c_str(), CFile::modeRead | CFile::typeBinary)) {
        ReportMessage(213, "指定的音频文件不存在，不能播放!");
        return std::string();
    }
    uint8_t record[kEncodedHeaderBytes] = {};
    EncodedHeader header;
    if (!ReadUsableHeader(encoded, record, header)) {
        encoded.Close();
        OutputDebugStringA("changewzqtowav-格式不准确\n");
        return std::string();
    }

    // Only the frames the file holds are decoded, and the head promises
    // exactly those: a header's count alone once asked for terabytes.
    const uint32_t framesHeld = FramesHeld(header, encoded.GetLength());
    if (counts != nullptr) *counts = EncodedFrameCounts{header.frameCount, framesHeld};
    const uint32_t pcmFrameBytes = 4 * header.frameBytes - 32;
    // A .wav's lengths are 32-bit: never promise more frames than they can count.
    const uint32_t framesWritten =
        static_cast<uint32_t>(std::min<uint64_t>(framesHeld, (0xFFFFFFFFull - 36) / pcmFrameBytes));
    const uint32_t dataBytes = framesWritten * pcmFrameBytes;
    uint8_t wavHeader[kWavHeaderBytes];
    BuildWavHeader(header, dataBytes, wavHeader);

    // The .wav goes beside the encoded file only where no file of the user's
    // stands and the folder can be written; otherwise into the temporary
    // folder under a free name. A file that was there before is never
    // replaced, and the one made here is recorded as the control's own.
    const std::string wavPath = platform::CreateOwnedFileNear(WavPathFor(path), fallbackFolder);
    CFile wav;
    if (wavPath.empty() || !wav.Open(wavPath.c_str(), CFile::modeCreate | CFile::modeWrite | CFile::typeBinary)) {
        ReportMessage(214, "创建wav文件失败!");
        return std::string();
    }
    wav.Seek(0, CFile::begin);
    wav.Write(wavHeader, kWavHeaderBytes);

    HMODULE library = LoadLibraryA(libraryName);
    auto decode = reinterpret_cast<DecodeFunction>(GetProcAddress(library, "wzq_decode"));
    if (decode == nullptr) {
        OutputDebugStringA("changewzqtowav-加载voxcodec失败\n");
        if (library != nullptr) FreeLibrary(library);
        return std::string();
    }

    // Sized only for frames the file holds: a header alone never makes the
    // conversion allocate its largest frames.
    std::unique_ptr<uint8_t[]> pcmBuffer;
    std::unique_ptr<uint8_t[]> frameBuffer;
    if (framesWritten > 0) {
        pcmBuffer = std::make_unique<uint8_t[]>(pcmFrameBytes);
        frameBuffer = std::make_unique<uint8_t[]>(header.frameBytes);
    }
    for (uint32_t frame = 0; frame < framesWritten; ++frame) {
        const uint32_t got = encoded.Read(frameBuffer.get(), header.frameBytes);
        // Should the file shrink under us, the rest reads as zeros, which
        // decode to silence, so the data still matches the head.
        std::memset(frameBuffer.get() + got, 0, header.frameBytes - got);
        decode(record, pcmBuffer.get(), frameBuffer.get());
        wav.Write(pcmBuffer.get(), pcmFrameBytes);
    }

    encoded.Close();
    wav.Close();
    FreeLibrary(library);
    return wavPath;
}
