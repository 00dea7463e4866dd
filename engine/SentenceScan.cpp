#include "engine/SentenceScan.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "platform/File.h"
#include "riff/WaveLayout.h"

namespace {

// Blocks of about 64 KB; any size gives the same sentences.
constexpr uint32_t kBlockFrames = 16384;

SentenceScan Failure(SentenceScanError error, std::string message)
{
    SentenceScan scan;
    scan.error = error;
    scan.message = std::move(message);
    return scan;
}

int32_t FramesToMs(int64_t frames, uint32_t rate)
{
    const int64_t ms = (frames * 1000 + rate / 2) / rate;
    return static_cast<int32_t>(std::min<int64_t>(ms, INT32_MAX));
}

}  // namespace

SentenceScan ScanSentences(const std::string& path, const SentenceFinderSettings& settings)
{
    CFile file;
    if (!file.Open(path.c_str(), CFile::modeRead | CFile::typeBinary | CFile::shareDenyNone))
        return Failure(SentenceScanError::CannotOpen, "cannot open '" + path + "'");
    riff::WaveLayout layout;
    const riff::LayoutError layoutError = riff::FindWaveLayout(
        [&file](uint64_t offset, void* into, uint32_t count) -> uint32_t {
            if (file.Seek(static_cast<int64_t>(offset), CFile::begin) < 0) return 0;
            return file.Read(into, count);
        },
        file.GetLength(), layout);
    if (layoutError != riff::LayoutError::None)
        return Failure(SentenceScanError::NotWave, "'" + path + "' is not a wave file");
    if (!riff::IsPlainPcm(layout))
        return Failure(SentenceScanError::NotPcm, "'" + path + "' holds samples other than 8- or 16-bit PCM");

    SentenceScan scan;
    scan.samplesPerSec = layout.samplesPerSec;
    scan.channels = layout.channels;
    std::unique_ptr<CSentenceFinder> finder;
    try {
        finder = std::make_unique<CSentenceFinder>(layout.samplesPerSec, layout.channels, settings);
    } catch (const std::invalid_argument& failure) {
        const bool rateTooLow = layout.samplesPerSec < CSentenceFinder::kLowestRate;
        return Failure(rateTooLow ? SentenceScanError::NotPcm : SentenceScanError::BadSettings, failure.what());
    }

    const uint32_t frameBytes = layout.blockAlign;
    uint64_t left = layout.dataLength - layout.dataLength % frameBytes;
    std::vector<uint8_t> bytes(size_t(kBlockFrames) * frameBytes);
    std::vector<int16_t> samples(size_t(kBlockFrames) * layout.channels);
    file.Seek(static_cast<int64_t>(layout.dataOffset), CFile::begin);
    while (left > 0) {
        const uint32_t want = static_cast<uint32_t>(std::min<uint64_t>(left, bytes.size()));
        const uint32_t got = file.Read(bytes.data(), want);
        const uint32_t frames = got / frameBytes;
        if (frames == 0) break;  // the file is shorter than its head says
        const size_t count = size_t(frames) * layout.channels;
        if (layout.bitsPerSample == 16) {
            for (size_t i = 0; i < count; ++i)
                samples[i] = static_cast<int16_t>(uint16_t(bytes[2 * i]) | uint16_t(bytes[2 * i + 1]) << 8);
        } else {
            // 8-bit samples are unsigned, centred on 128.
            for (size_t i = 0; i < count; ++i) samples[i] = static_cast<int16_t>((int(bytes[i]) - 128) * 256);
        }
        finder->Feed(samples.data(), frames);
        left -= uint64_t(frames) * frameBytes;
        if (got < want) break;
    }
    scan.totalFrames = finder->FramesFed();
    for (const SentenceSpan& span : finder->Finish())
        scan.sentences.push_back({FramesToMs(span.startFrame, scan.samplesPerSec), FramesToMs(span.endFrame, scan.samplesPerSec)});
    return scan;
}

int32_t SentenceAt(const std::vector<SentenceTimes>& sentences, int32_t timeMs)
{
    // The first sentence that ends after the time; it holds the time when it
    // has started by then.
    auto it = std::upper_bound(sentences.begin(), sentences.end(), timeMs,
                               [](int32_t t, const SentenceTimes& s) { return t < s.endMs; });
    if (it == sentences.end() || it->startMs > timeMs) return -1;
    return static_cast<int32_t>(it - sentences.begin());
}
