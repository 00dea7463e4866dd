#include "engine/WaveReader.h"

#include <cstring>

#include "platform/File.h"

namespace {

// Reads one little-endian field. Bytes the file cannot supply leave the
// matching bytes of the field as they were, as a partial read would.
template <typename T>
void ReadLittleEndian(CFile& stream, T& field)
{
    uint8_t bytes[sizeof(T)] = {};
    uint32_t got = stream.Read(bytes, sizeof(T));
    T value = field;
    for (uint32_t i = 0; i < got; ++i) {
        value = static_cast<T>(value & ~(static_cast<T>(0xFF) << (8 * i)));
        value = static_cast<T>(value | (static_cast<T>(bytes[i]) << (8 * i)));
    }
    field = value;
}

void ReadTag(CFile& stream, char (&tag)[4])
{
    char bytes[4];
    uint32_t got = stream.Read(bytes, 4);
    std::memcpy(tag, bytes, got);
}

// Four bytes into a zeroed five-byte buffer, so it compares as a string.
void ReadTagString(CFile& stream, char (&buffer)[5])
{
    std::memset(buffer, 0, sizeof buffer);
    stream.Read(buffer, 4);
}

}  // namespace

int ReadWaveHeader(CFile& stream, WavFormatRecord& format, WavChunkHead& chunk, uint32_t& factExtra)
{
    char buffer[5];
    stream.Seek(0, CFile::begin);
    ReadTagString(stream, buffer);
    if (std::strcmp(buffer, "RIFF") != 0) return 0;

    stream.Seek(4, CFile::current);
    ReadTagString(stream, buffer);
    if (std::strcmp(buffer, "WAVE") != 0) return 0;

    stream.Seek(12, CFile::begin);
    ReadTag(stream, format.tag);
    ReadLittleEndian(stream, format.length);
    ReadLittleEndian(stream, format.formatTag);
    ReadLittleEndian(stream, format.channels);
    ReadLittleEndian(stream, format.samplesPerSec);
    ReadLittleEndian(stream, format.avgBytesPerSec);
    ReadLittleEndian(stream, format.blockAlign);
    ReadLittleEndian(stream, format.bitsPerSample);

    ReadTagString(stream, buffer);
    if (std::strcmp(buffer, "fact") == 0) {
        // The fact body is not skipped, so no data chunk head is ever read
        // behind it; the engine derives the data length instead.
        uint32_t factLength = 0;
        ReadLittleEndian(stream, factLength);
        factExtra = factLength + 8;
    }
    if (std::strcmp(buffer, "data") == 0) {
        std::memcpy(chunk.tag, buffer, 4);
        ReadLittleEndian(stream, chunk.length);
    } else {
        chunk.length = 0;
    }
    return 1;
}

bool ByteRateFitsFile(const WavFormatRecord& format, uint64_t fileLength)
{
    constexpr uint32_t kSlowestByteRate = 10;
    if (format.avgBytesPerSec < kSlowestByteRate) return false;
    const uint64_t stated = format.avgBytesPerSec;
    const uint64_t implied = static_cast<uint64_t>(format.samplesPerSec) * format.blockAlign;
    const uint64_t difference = stated > implied ? stated - implied : implied - stated;
    return difference <= fileLength;
}

WAVEFORMATEX ToWaveFormat(const WavFormatRecord& format)
{
    WAVEFORMATEX waveFormat{};
    waveFormat.wFormatTag = format.formatTag;
    waveFormat.nChannels = format.channels;
    waveFormat.nSamplesPerSec = format.samplesPerSec;
    waveFormat.nAvgBytesPerSec = format.avgBytesPerSec;
    waveFormat.nBlockAlign = format.blockAlign;
    waveFormat.wBitsPerSample = format.bitsPerSample;
    waveFormat.cbSize = 0;
    return waveFormat;
}
