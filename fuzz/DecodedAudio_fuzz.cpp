// Decoding any bytes through FFmpeg into the control's .wav: recognition by
// content, the stream set-up, the conversion to 16 bits and the writer. A
// .wav written must be canonical and state exactly the bytes after its head;
// a refusal must leave no file behind.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <unistd.h>

#include "fuzz/FuzzSupport.h"
#include "media/DecodedAudio.h"
#include "platform/OwnedFiles.h"

namespace {

class MemorySource final : public media::ByteSource {
public:
    MemorySource(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    int64_t Read(uint8_t* into, uint32_t count) override
    {
        const size_t got = m_position < m_size ? std::min<size_t>(count, m_size - m_position) : 0;
        if (got > 0) std::memcpy(into, m_data + m_position, got);
        m_position += got;
        return int64_t(got);
    }
    bool Seek(uint64_t offset) override
    {
        m_position = offset;
        return true;
    }
    uint64_t Position() const override { return m_position; }
    uint64_t Size() const override { return m_size; }

private:
    const uint8_t* m_data;
    size_t m_size;
    uint64_t m_position = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const fuzzsupport::Scratch scratch("decoded");
    const std::string wavPath = scratch.Write("lesson.wav", nullptr, 0);
    ::unlink(wavPath.c_str());
    const media::DecodeReport report =
        media::DecodeSourceToWav(std::make_unique<MemorySource>(data, size), wavPath, std::string());
    if (report.wavPath.empty()) {
        if (::access(wavPath.c_str(), F_OK) == 0) std::abort();
        return 0;
    }
    CFile wav;
    if (!wav.Open(report.wavPath.c_str(), CFile::modeRead)) std::abort();
    uint8_t head[44] = {};
    if (wav.Read(head, sizeof head) != sizeof head) std::abort();
    uint32_t dataBytes = 0;
    uint16_t channels = 0;
    std::memcpy(&dataBytes, head + 40, 4);
    std::memcpy(&channels, head + 22, 2);
    if (std::memcmp(head, "RIFF", 4) != 0 || std::memcmp(head + 36, "data", 4) != 0) std::abort();
    if (channels < 1 || channels > 2 || dataBytes == 0 || dataBytes % (2u * channels) != 0) std::abort();
    if (wav.GetLength() != 44u + dataBytes) std::abort();
    wav.Close();
    platform::DeleteOwnedFile(report.wavPath);
    return 0;
}
