// The device's side of the engine: every buffer that comes back is checked
// for the sentence, loop and file ends, read into again, passed through the
// signal stages and queued again, all on the device's thread.
#include "engine/WavOut.h"

#include <cstring>

#include "dsp/GainVolume.h"
#include "dsp/SpeedChanger.h"
#include "dsp/WordCounter.h"
#include "platform/Clock.h"
#include "platform/Debug.h"
#include "platform/Messages.h"
#include "messages/MessageCatalogue.h"

namespace {

// 0 once a device has opened, 1 once the end of play has been told. One flag
// for the whole process, shared by every engine.
std::atomic<int32_t> s_playEndNotified{0};

}  // namespace

void CWavOut::WaveOutCallback(HWAVEOUT device, UINT message, DWORD_PTR instance, DWORD_PTR param1, DWORD_PTR)
{
    CWavOut* engine = reinterpret_cast<CWavOut*>(instance);
    switch (message) {
    case MM_WOM_OPEN:
        s_playEndNotified = 0;
        break;
    case MM_WOM_CLOSE:
        engine->OnDeviceClosed();
        break;
    case MM_WOM_DONE: {
        WAVEHDR* header = reinterpret_cast<WAVEHDR*>(param1);
        if (!engine->OnBufferDone(device, header)) engine->HandBack(header);
        break;
    }
    default:
        break;
    }
}

// One notice per opening of the device: the end of the file, or the device
// closing before it; the process-wide flag keeps the two exclusive.
void CWavOut::TellEndOfPlay(UINT message)
{
    m_bEnded = 1;
    OutputDebugStringA("音频播放完\n");
    HWND notify = m_hNotifyWnd.load();
    if (notify != nullptr) {
        OutputDebugStringA("发送播放完消息\n");
        PostMessageA(notify, message, 0, 0);
    }
    s_playEndNotified = 1;
}

void CWavOut::OnDeviceClosed()
{
    OutputDebugStringA("播放设备关闭!");
    if (s_playEndNotified == 0) TellEndOfPlay(WM_PLAYCLOSED);
    m_positionHistory[0] = 13230;
    m_positionHistory[1] = 8820;
    m_positionHistory[2] = 4410;
    m_positionHistory[3] = 4410;
}

bool CWavOut::AtEndOfFile() const
{
    if (IsRefined()) return m_file.GetPosition() >= m_dataEnd;
    return m_file.GetPosition() + m_dataStart >= m_file.GetLength();
}

bool CWavOut::WriteToDevice(HWAVEOUT device, WAVEHDR& header)
{
    const int index = static_cast<int>(&header - m_headers);
    m_heldByDevice[index].store(true, std::memory_order_release);
    if (waveOutWrite(device, &header, sizeof(WAVEHDR)) == MMSYSERR_NOERROR) return true;
    m_heldByDevice[index].store(false, std::memory_order_release);
    return false;
}

void CWavOut::HandBack(const WAVEHDR* header)
{
    const ptrdiff_t index = header - m_headers;
    if (index >= 0 && index < kBufferCount) m_heldByDevice[index].store(false, std::memory_order_release);
}

void CWavOut::CheckSentenceEnd()
{
    int32_t sentenceStart = m_sections.sentenceStartMs.load();
    int32_t sentenceEnd = m_sections.sentenceEndMs.load();
    if (sentenceStart < sentenceEnd && GetCurrentPlayTime() >= static_cast<uint32_t>(sentenceEnd)) {
        m_sections.sentenceStartMs = 0;
        m_sections.sentenceEndMs = 0;
        PostMessageA(m_hNotifyWnd.load(), WM_ONESENTENCEDONE, 0, 0);
    }
}

// The live word count's cadence: every span's worth of blocks the count so
// far goes to the control, with the time the span took.
void CWavOut::CountWordsInSpan()
{
    if (m_cadence.justPlay) return;
    m_cadence.buffersInSpan += 1;
    // A span below 100 ms would hold no whole block; it reports with
    // every block instead of dividing by zero.
    int32_t buffersPerSpan = m_cadence.buffersPerSpan > 0 ? m_cadence.buffersPerSpan : 1;
    if (m_cadence.buffersInSpan % buffersPerSpan == 0) {
        uint32_t now = GetTickCount();
        uint32_t spanMs = now + m_cadence.pauseTick.load() - m_cadence.spanStartTick - m_cadence.resumeTick.load();
        PostMessageA(m_hNotifyWnd.load(), WM_WORDCOUNT, static_cast<WPARAM>(m_cadence.wordCount),
                     static_cast<LPARAM>(spanMs));
        m_cadence.buffersInSpan = 0;
        m_cadence.wordCount = 0;
        m_cadence.spanStartTick = now;
        m_cadence.resumeTick = 0;
        m_cadence.pauseTick = 0;
    }
}

bool CWavOut::OnRefinedBufferDone(HWAVEOUT device, WAVEHDR* header)
{
    m_buffersPlayed += 1;
    CheckSentenceEnd();
    if (m_bInputDone) {
        if (s_playEndNotified != 0) return false;
        m_buffersPlayedAtEnd = m_buffersPlayed.load();
        TellEndOfPlay(WM_PLAYCOMPLETE);
        return false;
    }
    CountWordsInSpan();
    header->dwBufferLength = FillRefinedBlock(reinterpret_cast<uint8_t*>(header->lpData));
    ApplyGain(*header);
    return !m_bSuspended && waveOutWrite(device, header, sizeof(WAVEHDR)) == MMSYSERR_NOERROR;
}

bool CWavOut::OnBufferDone(HWAVEOUT device, WAVEHDR* header)
{
    if (m_bStopping) return false;
    if (IsRefined()) return OnRefinedBufferDone(device, header);
    m_buffersPlayed += 1;

    CheckSentenceEnd();

    if (m_sections.loop) {
        uint32_t loopStart = m_sections.loopStartMs.load();
        uint32_t loopEnd = m_sections.loopEndMs.load();
        // A loop end at or past the end of the file could never be reached,
        // because the time stands still there; the end of the file then
        // wraps the loop, so empty buffers never circle through the device.
        if (loopEnd > loopStart && (GetCurrentPlayTime() >= loopEnd || AtEndOfFile())) {
            SetCurrentPlayTime(loopStart);
        }
    } else {
        m_positionHistory[3] = m_positionHistory[2].load();
        m_positionHistory[2] = m_positionHistory[1].load();
        m_positionHistory[1] = m_positionHistory[0].load();
        uint64_t position = m_file.GetPosition();
        if (position <= m_file.GetLength()) m_positionHistory[0] = static_cast<uint32_t>(position);

        if (AtEndOfFile() && !m_bStopping) {
            if (s_playEndNotified != 0) return false;
            m_buffersPlayedAtEnd = m_buffersPlayed.load();
            TellEndOfPlay(WM_PLAYCOMPLETE);
            return false;
        }
    }

    header->dwBufferLength = m_file.Read(header->lpData, m_readSize);

    if (!m_cadence.justPlay) {
        CountWordsInSpan();
        m_cadence.wordCount += m_wordStage.Count(reinterpret_cast<const uint8_t*>(header->lpData), header->dwBufferLength);
    }

    ApplySpeedChange(*header);
    MixNoise(reinterpret_cast<uint8_t*>(header->lpData), header->dwBufferLength);
    ApplyGain(*header);

    // Still held from the write that queued it, so the write goes straight
    // to the device; a refused one is handed back by the caller.
    return !m_bSuspended && waveOutWrite(device, header, sizeof(WAVEHDR)) == MMSYSERR_NOERROR;
}

bool CWavOut::RefillAfterReset()
{
    if (IsRefined()) return RefillRefined();
    for (WAVEHDR& header : m_headers) waveOutUnprepareHeader(m_hWaveOut, &header, sizeof(WAVEHDR));
    m_bStopping = false;
    uint32_t counts[kBufferCount] = {};
    for (int i = 0; i < kBufferCount; ++i) counts[i] = m_file.Read(m_buffers[i], m_readSize);
    for (int i = 0; i < kBufferCount; ++i) SetupBufferHeader(m_headers[i], m_buffers[i], counts[i]);
    for (WAVEHDR& header : m_headers) {
        if (waveOutPrepareHeader(m_hWaveOut, &header, sizeof(WAVEHDR)) != MMSYSERR_NOERROR) {
            ReportMessage(210, "准备缓冲区失败！");
            return false;
        }
    }
    // The speed stage is the device's once a buffer is written, since a
    // returned one goes through it on the device's thread: every block
    // passes it before the first write.
    for (WAVEHDR& header : m_headers) ApplySpeedChange(header);
    for (WAVEHDR& header : m_headers) {
        ApplyGain(header);
        if (!m_bSuspended) WriteToDevice(m_hWaveOut, header);
    }
    return true;
}

void CWavOut::ApplySpeedChange(WAVEHDR& header)
{
    int16_t level = m_speedLevel.load();
    if (level == 0 || header.lpData == nullptr || header.dwBufferLength == 0) return;

    // In place: the stage reads the whole block before it writes. Its
    // output never exceeds three times its input, and the buffer holds ten
    // blocks; the bound is kept all the same.
    int16_t* samples = reinterpret_cast<int16_t*>(header.lpData);
    const int32_t written = m_speedStage.RunInto(samples, static_cast<int32_t>(header.dwBufferLength / 2), level,
                                                 samples, static_cast<int32_t>(m_bufferCapacity / 2));
    if (written >= 0) header.dwBufferLength = static_cast<uint32_t>(written) * 2;
}

bool CWavOut::MixNoise(uint8_t* data, uint32_t byteCount)
{
    return m_noiseSlot.Mix(data, byteCount, m_format.channels, m_format.bitsPerSample, m_format.samplesPerSec,
                           m_bMixOn != 0);
}

void CWavOut::ApplyGain(WAVEHDR& header)
{
    float gain = m_gain.load();
    if (IsRefined()) {
        // Channels apart: a clipped sample is held, never rebuilt from the
        // other channel's samples beside it.
        ApplyGainAndVolumeFrames(reinterpret_cast<uint8_t*>(header.lpData), header.dwBufferLength,
                                 m_format.bitsPerSample, m_format.channels, m_volume.load(), &gain);
        m_gain = gain;
        return;
    }
    ApplyGainAndVolume(reinterpret_cast<uint8_t*>(header.lpData), static_cast<int32_t>(header.dwBufferLength),
                       m_format.bitsPerSample, m_volume.load(), &gain);
    m_gain = gain;
}

void CWavOut::CountFirstTenSeconds()
{
    uint64_t notedPosition = m_file.GetPosition();
    uint32_t samplesStart = IsRefined() ? m_dataStart : m_format.length + m_factExtra + 28;
    m_file.Seek(samplesStart, CFile::begin);

    // Ten seconds of the byte rate, but never more than the file holds, so a
    // corrupt rate can't ask for gigabytes.
    uint64_t wanted = 10ull * m_format.avgBytesPerSec;
    uint64_t fileLength = m_file.GetLength();
    if (IsRefined()) fileLength = m_dataEnd;
    uint64_t available = fileLength > samplesStart ? fileLength - samplesStart : 0;
    uint32_t size = static_cast<uint32_t>(wanted < available ? wanted : available);
    uint8_t* samples = new uint8_t[size > 0 ? size : 1];
    uint32_t got = m_file.Read(samples, size);
    int32_t count = CountVoicedFrames(samples, got, m_format.samplesPerSec, m_format.bitsPerSample);
    SendMessageA(m_hNotifyWnd.load(), WM_WORDCOUNT, static_cast<WPARAM>(count), 10000);
    OutputDebugStringA("ten sec count word\n");
    delete[] samples;
    m_file.Seek(static_cast<int64_t>(notedPosition), CFile::begin);
}
