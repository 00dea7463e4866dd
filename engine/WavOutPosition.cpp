// Time and position: the file position turned into heard time and back,
// jumps, the loop section, the one-sentence span and the replay from the
// present position.
#include "engine/WavOut.h"

#include <atomic>

#include "dsp/GainVolume.h"

namespace {

// Four blocks of 4410 bytes: the lag of the heard sound behind the read
// position, fixed whatever the file's byte rate.
constexpr uint32_t kReadAheadAllowance = 17640;

// Bytes to milliseconds through a single-precision count of seconds; the
// float decides the last digits (3.3 s reads 3299 ms).
uint32_t BytesToMs(uint32_t bytes, uint32_t avgBytesPerSec)
{
    float seconds = static_cast<float>(static_cast<double>(bytes) / static_cast<double>(avgBytesPerSec));
    return static_cast<uint32_t>(static_cast<uint64_t>(static_cast<double>(seconds) * 1000.0));
}

}  // namespace

uint32_t CWavOut::DataLength() const
{
    return std::atomic_ref<const uint32_t>(m_dataChunk.length).load();
}

uint32_t CWavOut::EnsureDataLength()
{
    // Both threads may fill it in; they write the same value.
    std::atomic_ref<uint32_t> length(m_dataChunk.length);
    uint32_t value = length.load();
    if (value == 0) {
        value = static_cast<uint32_t>(m_file.GetLength() - m_format.length - m_factExtra - 20);
        length.store(value);
    }
    return value;
}

uint32_t CWavOut::GetTotalPlayTime()
{
    if (IsRefined()) return RefinedTotalPlayTime();
    if (!m_bOpened || m_format.avgBytesPerSec == 0) return 0;
    uint32_t dataLength = EnsureDataLength();
    return BytesToMs(dataLength, m_format.avgBytesPerSec);
}

uint32_t CWavOut::GetCurrentPlayTime()
{
    if (IsRefined()) return RefinedCurrentPlayTime();
    if (m_state.load() == 0 || !m_bOpened) return 0;
    uint32_t fileLength = static_cast<uint32_t>(m_file.GetLength());
    uint32_t position = static_cast<uint32_t>(m_file.GetPosition());
    if (position > kReadAheadAllowance) {
        if (m_dataStart + position < fileLength) {
            position -= kReadAheadAllowance;
        } else {
            position = m_positionHistory[3].load();
        }
    }
    uint32_t dataLength = EnsureDataLength();
    if (m_format.avgBytesPerSec == 0) return 0;
    // A position before time 0 (just past the allowance, within the head)
    // would wrap to a huge time; it reads as 0 instead.
    uint32_t timeZero = fileLength - dataLength;
    if (position < timeZero) return 0;
    uint32_t sinceTimeZero = dataLength - fileLength + position;
    return BytesToMs(sinceTimeZero, m_format.avgBytesPerSec);
}

void CWavOut::SetCurrentPlayTime(uint32_t curTime)
{
    if (IsRefined()) return RefinedSetCurrentPlayTime(curTime);
    if (m_state.load() == 0) return;
    if (curTime > GetTotalPlayTime()) return;
    if (!m_bOpened) return;
    uint32_t dataLength = EnsureDataLength();

    float exactOffset = static_cast<float>(static_cast<double>(m_format.avgBytesPerSec) *
                                           (static_cast<double>(curTime) / 1000.0));
    uint32_t offset = static_cast<uint32_t>(static_cast<uint64_t>(exactOffset));
    // A block alignment of 0 has no sample grid to keep to.
    uint32_t blockAlign = m_format.blockAlign;
    if (blockAlign != 0 && offset % blockAlign != 0) offset += blockAlign - offset % blockAlign;

    int32_t fromEnd = static_cast<int32_t>(offset - dataLength);
    if (fromEnd >= 0) fromEnd = 0;
    uint32_t magnitude = static_cast<uint32_t>(0) - static_cast<uint32_t>(fromEnd);
    if (magnitude >= dataLength) fromEnd = static_cast<int32_t>(static_cast<uint32_t>(0) - dataLength);
    m_file.Seek(static_cast<int64_t>(fromEnd), CFile::end);
}

void CWavOut::SpeedUp(uint32_t distance)
{
    if (m_state.load() == 0) return;
    uint32_t target = GetCurrentPlayTime() + distance;
    if (target >= GetTotalPlayTime()) {
        SetCurrentPlayTime(GetTotalPlayTime());
    } else {
        SetCurrentPlayTime(target);
    }
}

void CWavOut::SpeedBack(uint32_t distance)
{
    if (m_state.load() == 0) return;
    int32_t target = static_cast<int32_t>(GetCurrentPlayTime() - distance);
    if (target <= 0) target = 0;
    SetCurrentPlayTime(static_cast<uint32_t>(target));
}

void CWavOut::SetLoopPlaySection(BOOL bLoopPlay, uint32_t startPos, uint32_t endPos)
{
    m_sections.loop = bLoopPlay;
    m_sections.loopStartMs = startPos;
    m_sections.loopEndMs = endPos;
}

void CWavOut::SetOneSentenceTimeSpan(int32_t startTimePos, int32_t endTimePos)
{
    m_sections.sentenceStartMs = startTimePos;
    m_sections.sentenceEndMs = endTimePos;
}

void CWavOut::ResetToPlayFromCurPos()
{
    // Refined: play starts afresh at the place being heard, the stages with
    // it, as after a jump there.
    if (IsRefined()) {
        if (m_hWaveOut != nullptr && m_state.load() != 0) RefinedSetCurrentPlayTime(RefinedCurrentPlayTime());
        return;
    }
    for (uint8_t* buffer : m_buffers) {
        if (buffer == nullptr) return;
    }
    // Buffers are written in order, and the device refuses a header it
    // still holds: only those before the first held one can go out. The
    // held ones are the device's, and the file position moves for nothing
    // that will not play.
    int usable = 0;
    while (usable < kBufferCount && !HeldByDevice(usable)) ++usable;
    // Each header carries the count of its new read, as the other paths that
    // read four blocks do; a stale length would replay old bytes.
    for (int i = 0; i < usable; ++i) {
        m_headers[i].dwBufferLength = m_file.Read(m_buffers[i], m_readSize);
    }
    for (int i = 0; i < usable; ++i) {
        ApplyGain(m_headers[i]);
        if (!WriteToDevice(m_hWaveOut, m_headers[i])) return;
        if (i < kBufferCount - 1) {
            m_bStopping = false;
            m_bEnded = 0;
            m_state = 1;
        }
    }
}
