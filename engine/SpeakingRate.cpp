#include "engine/SpeakingRate.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "platform/Exceptions.h"
#include "platform/File.h"
#include "riff/WaveLayout.h"

namespace {

constexpr uint32_t kPieceBytes = 64 * 1024;

// An open wave file and where its samples lie.
struct OpenWave {
    CFile file;
    riff::WaveLayout layout;
    uint64_t dataEnd = 0;  // the end of the last whole frame

    uint64_t ByteAt(int64_t ms) const
    {
        const uint64_t frame = uint64_t(std::max<int64_t>(ms, 0)) * layout.samplesPerSec / 1000;
        return std::min<uint64_t>(layout.dataOffset + frame * layout.blockAlign, dataEnd);
    }
    uint32_t Milliseconds() const
    {
        const uint64_t frames = (dataEnd - layout.dataOffset) / layout.blockAlign;
        return uint32_t(std::min<uint64_t>(frames * 1000 / layout.samplesPerSec, 0xFFFFFFFFu));
    }
};

void Open(const std::string& path, OpenWave& wave)
{
    if (path.empty() || !wave.file.Open(path.c_str(), CFile::modeRead | CFile::typeBinary | CFile::shareDenyNone))
        throw CFileException(path.empty() ? "(no file has been set)" : path);
    CFile& file = wave.file;
    const riff::LayoutError error = riff::FindWaveLayout(
        [&file](uint64_t offset, void* into, uint32_t count) -> uint32_t {
            if (file.Seek(int64_t(offset), CFile::begin) < 0) return 0;
            return file.Read(into, count);
        },
        file.GetLength(), wave.layout);
    if (error != riff::LayoutError::None || !riff::IsPlainPcm(wave.layout) ||
        wave.layout.samplesPerSec < CSyllableCounter::kMinRate ||
        wave.layout.samplesPerSec > CSyllableCounter::kMaxRate ||
        wave.layout.channels > CSyllableCounter::kMaxChannels)
        throw std::invalid_argument("not a PCM wave file of 8 or 16 bits that can be measured: " + path);
    const uint64_t length = wave.layout.dataLength;
    wave.dataEnd = wave.layout.dataOffset + length - length % wave.layout.blockAlign;
}

// Feeds the bytes [from, to) of the file to `counter`, a piece at a time,
// each piece whole frames.
template <typename OnPiece>
void FeedStretch(OpenWave& wave, uint64_t from, uint64_t to, CSyllableCounter& counter, uint32_t pieceBytes,
                 OnPiece onPiece)
{
    std::vector<uint8_t> piece(pieceBytes - pieceBytes % wave.layout.blockAlign);
    wave.file.Seek(int64_t(from), CFile::begin);
    for (uint64_t at = from; at < to;) {
        const uint32_t wanted = uint32_t(std::min<uint64_t>(piece.size(), to - at));
        const uint32_t got = wave.file.Read(piece.data(), wanted);
        if (got == 0) break;
        counter.FeedBytes(piece.data(), got, wave.layout.bitsPerSample);
        at += got;
        onPiece();
    }
}

}  // namespace

SpeakingRate MeasureFileSpeakingRate(const std::string& path, int64_t startMs, int64_t endMs)
{
    if (startMs < 0 || endMs < startMs)
        throw std::invalid_argument("the stretch must start at 0 ms or later and not end before it starts (" +
                                    std::to_string(startMs) + " to " + std::to_string(endMs) + " ms)");
    OpenWave wave;
    Open(path, wave);
    auto counter = std::make_unique<CSyllableCounter>();
    counter->Configure(wave.layout.samplesPerSec, wave.layout.channels);
    FeedStretch(wave, wave.ByteAt(startMs), wave.ByteAt(endMs), *counter, kPieceBytes, [] {});
    counter->Finish();
    SpeakingRate rate;
    rate.speechSeconds = counter->SpeechSeconds();
    rate.syllables = rate.speechSeconds > 0.0 ? counter->Nuclei() : 0;
    return rate;
}

uint32_t WaveFileMilliseconds(const std::string& path)
{
    OpenWave wave;
    Open(path, wave);
    return wave.Milliseconds();
}

