#include "engine/TempoStage.h"

#include <algorithm>
#include <cstring>

namespace {

// The stretcher decides its first splice from what came before; about
// 60 ms of the passed sound gives it a full search window to match.
constexpr double kHistorySeconds = 0.06;

}  // namespace

double CTempoStage::FactorForLevel(int16_t level)
{
    // The level table of the speed control: -60 is half speed, 50 double.
    if (level > 0) return std::min(1.0 + level / 50.0, 2.0);
    return std::max(1.0 + level / 120.0, 0.5);
}

bool CTempoStage::Configure(uint16_t channels, uint32_t samplesPerSec, uint16_t bitsPerSample,
                            uint32_t maxBlockBytes, uint32_t capacityBytes)
{
    m_usable = false;
    m_channels = channels;
    m_bytesPerSample = bitsPerSample == 8 ? 1 : 2;
    m_frameBytes = uint32_t(channels) * m_bytesPerSample;
    if ((bitsPerSample != 8 && bitsPerSample != 16) || channels == 0 || channels > CTempoStretcher::kMaxChannels ||
        samplesPerSec < uint32_t(CTempoStretcher::kMinRate) || samplesPerSec > uint32_t(CTempoStretcher::kMaxRate))
        return false;

    const uint32_t maxBlockFrames = maxBlockBytes / m_frameBytes + 1;
    m_historyCapacity = std::min<uint32_t>(uint32_t(samplesPerSec * kHistorySeconds), maxBlockFrames);
    const uint32_t maxInputFrames = maxBlockFrames + m_historyCapacity;
    if (!m_stretcher.Configure(int(samplesPerSec), channels, int(maxInputFrames))) return false;
    const uint32_t capacityFrames = capacityBytes / m_frameBytes;
    const uint32_t outFrames = std::max<uint32_t>(capacityFrames, uint32_t(m_stretcher.MaxOutputFrames(int(maxInputFrames))));
    m_in.assign(size_t(maxInputFrames) * channels, 0);
    m_out.assign(size_t(outFrames) * channels, 0);
    m_history.assign(size_t(m_historyCapacity) * channels, 0);
    m_usable = true;
    Restart(0);
    return true;
}

void CTempoStage::Restart(int64_t fileFrame)
{
    if (m_usable) m_stretcher.Reset();
    m_fileFrameAtRestart = fileFrame;
    m_inputFrames = 0;
    m_outputFrames = 0;
    m_historyFrames = 0;
    m_stretching = false;
    m_dropping = false;
    m_switchOutput = 0;
    m_switchInputBase = 0;
    m_primedFrames = 0;
    m_droppedFrames = 0;
}

uint32_t CTempoStage::Run(uint8_t* data, uint32_t bytes, uint32_t capacity, int16_t level, bool last)
{
    const uint32_t frames = m_frameBytes != 0 ? bytes / m_frameBytes : 0;
    if (!m_usable || (!m_stretching && level == 0)) return PassThrough(data, frames) * m_frameBytes;
    if (!m_stretching) StartStretching();
    m_stretcher.SetFactor(FactorForLevel(level));
    return Stretch(data, frames, capacity / m_frameBytes, last) * m_frameBytes;
}

uint32_t CTempoStage::PassThrough(uint8_t* data, uint32_t frames)
{
    if (m_usable) KeepHistory(data, frames);
    m_inputFrames += frames;
    m_outputFrames += frames;
    return frames;
}

void CTempoStage::KeepHistory(const uint8_t* data, uint32_t frames)
{
    // Only the newest frames matter: the tail of this block, after the
    // tail of the ones before when this block is shorter.
    const uint32_t taken = std::min(frames, m_historyCapacity);
    const uint32_t kept = std::min(m_historyFrames, m_historyCapacity - taken);
    const size_t channels = m_channels;
    std::memmove(m_history.data(), m_history.data() + (m_historyFrames - kept) * channels, kept * channels * 2);
    ToSamples16(data + size_t(frames - taken) * m_frameBytes, taken, m_history.data() + kept * channels);
    m_historyFrames = kept + taken;
}

void CTempoStage::StartStretching()
{
    // The stretcher starts at the passed history: its output is dropped
    // until it reaches the first frame not yet heard, so play goes on
    // seamlessly from where the untouched blocks stopped.
    m_stretcher.Reset();
    m_stretching = true;
    m_switchOutput = m_outputFrames;
    m_primedFrames = m_historyFrames;
    m_switchInputBase = m_inputFrames - m_historyFrames;
    m_droppedFrames = 0;
    m_dropping = m_historyFrames > 0;
}

uint32_t CTempoStage::Stretch(uint8_t* data, uint32_t frames, uint32_t capacityFrames, bool last)
{
    const size_t channels = m_channels;
    uint32_t inputFrames = 0;
    if (m_historyFrames > 0) {
        std::memcpy(m_in.data(), m_history.data(), size_t(m_historyFrames) * channels * 2);
        inputFrames = m_historyFrames;
        m_historyFrames = 0;
    }
    ToSamples16(data, frames, m_in.data() + size_t(inputFrames) * channels);
    inputFrames += frames;

    const uint32_t room = uint32_t(m_out.size() / channels);
    uint32_t produced = uint32_t(m_stretcher.Process(m_in.data(), int(inputFrames), m_out.data(), int(room)));
    if (last) {
        for (int more = 1; more > 0 && produced < room;) {
            more = m_stretcher.Drain(m_out.data() + size_t(produced) * channels, int(room - produced));
            produced += uint32_t(more);
        }
    }
    if (m_dropping) produced = DropPrimedOutput(m_out.data(), produced);
    // The block's buffer holds ten blocks; more never comes out of one.
    produced = std::min(produced, capacityFrames);
    FromSamples16(m_out.data(), produced, data);
    m_inputFrames += frames;
    m_outputFrames += produced;
    return produced;
}

uint32_t CTempoStage::DropPrimedOutput(int16_t* out, uint32_t frames)
{
    // Frames of the stretcher counted since it took over; the first of
    // this call follows the ones dropped and none given out yet, because
    // dropping stops at the first frame kept.
    const int64_t firstIndex = m_droppedFrames;
    uint32_t drop = 0;
    while (drop < frames && m_stretcher.InputPositionAt(firstIndex + drop) < double(m_primedFrames) - 0.5) ++drop;
    m_droppedFrames += drop;
    if (drop < frames) m_dropping = false;
    std::memmove(out, out + size_t(drop) * m_channels, size_t(frames - drop) * m_channels * 2);
    return frames - drop;
}

double CTempoStage::FileFrameAt(int64_t outputFrame) const
{
    if (!m_stretching || outputFrame < m_switchOutput) return double(m_fileFrameAtRestart + outputFrame);
    const int64_t stretcherFrame = outputFrame - m_switchOutput + m_droppedFrames;
    return double(m_fileFrameAtRestart + m_switchInputBase) + m_stretcher.InputPositionAt(stretcherFrame);
}

void CTempoStage::ToSamples16(const uint8_t* data, uint32_t frames, int16_t* into) const
{
    const size_t count = size_t(frames) * m_channels;
    if (m_bytesPerSample == 1) {
        WidenU8ToS16(data, into, count);
    } else {
        std::memcpy(into, data, count * 2);
    }
}

void CTempoStage::FromSamples16(const int16_t* samples, uint32_t frames, uint8_t* into) const
{
    const size_t count = size_t(frames) * m_channels;
    if (m_bytesPerSample == 1) {
        NarrowS16ToU8(samples, into, count);
    } else {
        std::memcpy(into, samples, count * 2);
    }
}
