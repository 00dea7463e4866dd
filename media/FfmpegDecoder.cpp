#include "media/FfmpegDecoder.h"

#include "media/FfmpegPluginTable.h"
#include "platform/File.h"

namespace media {
namespace {

class FileSource final : public ByteSource {
public:
    bool Open(const std::string& path)
    {
        if (!m_file.Open(path.c_str(), CFile::modeRead | CFile::typeBinary)) return false;
        m_size = m_file.GetLength();
        return true;
    }
    int64_t Read(uint8_t* into, uint32_t count) override { return m_file.Read(into, count); }
    bool Seek(uint64_t offset) override { return m_file.Seek(static_cast<int64_t>(offset), CFile::begin) >= 0; }
    uint64_t Position() const override { return m_file.GetPosition(); }
    uint64_t Size() const override { return m_size; }

private:
    CFile m_file;
    uint64_t m_size = 0;
};

}  // namespace

std::unique_ptr<ByteSource> OpenFileSource(const std::string& path)
{
    auto source = std::make_unique<FileSource>();
    if (!source->Open(path)) return nullptr;
    return source;
}

bool FfmpegAvailable(std::string& why)
{
    return LoadFfmpegPlugin(why) != nullptr;
}

// The decoding itself is the FFmpeg plugin's; this side owns the source and
// answers for a decoder that never opened.
struct FfmpegDecoder::State {
    std::unique_ptr<ByteSource> source;
    std::unique_ptr<DecoderBackend> backend;  // reads `source`, so it goes first
    DecodedStream noStream;
    std::string failure;
};

FfmpegDecoder::FfmpegDecoder(std::unique_ptr<ByteSource> source) : m_state(std::make_unique<State>())
{
    m_state->source = std::move(source);
}

FfmpegDecoder::~FfmpegDecoder() = default;

bool FfmpegDecoder::Open(std::string& reason)
{
    State& s = *m_state;
    if (s.source == nullptr) {
        reason = "cannot open the file";
        return false;
    }
    if (s.backend == nullptr) {
        const FfmpegPluginTable* plugin = LoadFfmpegPlugin(reason);
        if (plugin == nullptr) return false;
        s.backend.reset(plugin->createDecoder(s.source.get()));
    }
    return s.backend->Open(reason);
}

const DecodedStream& FfmpegDecoder::Stream() const
{
    return m_state->backend != nullptr ? m_state->backend->Stream() : m_state->noStream;
}

FfmpegDecoder::Step FfmpegDecoder::DecodeNext(const Sink& sink)
{
    State& s = *m_state;
    if (s.backend == nullptr) {
        s.failure = "not open";
        return Step::Failed;
    }
    return s.backend->DecodeNext(sink);
}

const std::string& FfmpegDecoder::Failure() const
{
    return m_state->backend != nullptr ? m_state->backend->Failure() : m_state->failure;
}

uint64_t FfmpegDecoder::DamagedPackets() const
{
    return m_state->backend != nullptr ? m_state->backend->DamagedPackets() : 0;
}

uint64_t FfmpegDecoder::FramesDecoded() const
{
    return m_state->backend != nullptr ? m_state->backend->FramesDecoded() : 0;
}

}  // namespace media
