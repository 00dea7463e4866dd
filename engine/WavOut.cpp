// The engine's state and the operations that change it: open, start,
// pause, resume, stop, device reset, and the host's settings.
#include "engine/WavOut.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "dsp/GainVolume.h"
#include "dsp/WordCounter.h"
#include "platform/Clock.h"
#include "platform/MessageBox.h"
#include "messages/MessageCatalogue.h"

namespace {

// A tenth of a second of the fastest stream a device takes: 768 kHz, eight
// channels of 16 bits.
constexpr uint32_t kLargestReadSize = 768000u * 8u * 2u / 10u;

void ShowDirectBox(const char* text)
{
    MessageBoxA(nullptr, text, "提示", MB_OK);
}

}  // namespace

CWavOut::CWavOut() = default;

CWavOut::~CWavOut()
{
    // A device left open by a failed stop must not call back into a freed
    // engine: take it down before anything is freed.
    ReleaseStaleDevice();
    FreeBuffers();
}

// ---------------------------------------------------------------- opening

void CWavOut::ClearFileState()
{
    m_format = WavFormatRecord{};
    m_dataChunk = WavChunkHead{};
    m_factExtra = 0;
    m_waveFormat = WAVEFORMATEX{};
    m_file.Abort();
}

bool CWavOut::OpenWaveFile(const char* path)
{
    if (path == nullptr) {
        ReportMessage(205, "音频文件路径为空，加载失败!");
        return false;
    }
    ClearFileState();
    if (IsRefined()) return OpenRefinedWaveFile(path);

    CFile stream;
    if (!stream.Open(path, CFile::modeRead | CFile::typeBinary)) return false;
    if (ReadWaveHeader(stream, m_format, m_dataChunk, m_factExtra) == 0 ||
        !ByteRateFitsFile(m_format, stream.GetLength())) {
        stream.Close();
        ReportMessage(206, "不支持的音频格式！对不起，不能播放！");
        return false;
    }
    m_waveFormat = ToWaveFormat(m_format);
    m_dataStart = m_format.length + m_factExtra + 28;
    stream.Close();

    m_filePath = path;
    if (!m_file.Open(path, CFile::modeRead | CFile::typeBinary | CFile::shareDenyNone)) {
        ReportMessage(207, "音频文件打开失败，请确认文件是否存在或正在被其他程序使用中！");
        return false;
    }
    m_bOpened = ScanPeakGain() ? 1 : 0;
    m_file.Seek(m_dataStart, CFile::begin);
    return m_bOpened != 0;
}

bool CWavOut::ScanPeakGain()
{
    m_gain = 1.0f;
    if (m_format.bitsPerSample == 8) return true;
    if (m_format.bitsPerSample != 16) return false;
    // The scan reads to the end of the file, not of the data chunk.
    m_file.Seek(m_dataStart, CFile::begin);
    m_gain = ScanPeakGainWith([this](int16_t* into, uint32_t capacity) { return m_file.Read(into, capacity); });
    return true;
}

void CWavOut::SetupBufferHeader(WAVEHDR& header, uint8_t* buffer, uint32_t byteCount)
{
    header.lpData = reinterpret_cast<char*>(buffer);
    header.dwBufferLength = byteCount;
    header.dwFlags = WHDR_BEGINLOOP | WHDR_ENDLOOP;
    header.dwLoops = 1;
    header.dwBytesRecorded = 0;
    header.dwUser = 0;
    header.lpNext = nullptr;
    header.reserved = 0;
}

void CWavOut::FreeBuffers()
{
    for (uint8_t*& buffer : m_buffers) {
        delete[] buffer;
        buffer = nullptr;
    }
}

// A start that failed after opening the device leaves it open, and a second
// start would lose its handle. Nothing of it is queued then (state 0 means
// no write succeeded), so it is closed before its buffers go away.
void CWavOut::ReleaseStaleDevice()
{
    if (m_hWaveOut == nullptr) return;
    m_bStopping = true;
    waveOutReset(m_hWaveOut);
    for (WAVEHDR& header : m_headers) waveOutUnprepareHeader(m_hWaveOut, &header, sizeof(WAVEHDR));
    waveOutClose(m_hWaveOut);
    m_hWaveOut = nullptr;
    m_state = 0;
}

// ---------------------------------------------------------------- playing

BOOL CWavOut::StartPlay(const char* path)
{
    uint16_t state = m_state.load();
    if (state == 1 || state == 2) return FALSE;
    m_profile = m_requestedProfile.load();

    if (!OpenWaveFile(path)) {
        ReportMessage(208, "装载音频文件失败!");
        return FALSE;
    }

    m_readSize = static_cast<uint32_t>(static_cast<double>(m_format.avgBytesPerSec) * 0.1);
    // The head passed its checks, but a consistent head may still state a
    // rate no device plays; the buffers never grow past what one would.
    m_readSize = std::min(m_readSize, kLargestReadSize);
    if (IsRefined()) m_readSize = std::min(RefinedReadSize(), kLargestReadSize - kLargestReadSize % m_format.blockAlign);
    m_bufferCapacity = 10 * m_readSize;
    m_cadence.buffersPerSpan = static_cast<int32_t>(m_cadence.spanMs / 100.0);

    if (!AllocateBuffers()) return FALSE;
    uint32_t counts[kBufferCount] = {};
    if (!FillFirstBlocks(counts)) return FALSE;
    for (uint8_t* buffer : m_buffers) {
        if (buffer == nullptr) return FALSE;
    }
    return QueueFirstBlocks(counts);
}

bool CWavOut::AllocateBuffers()
{
    ReleaseStaleDevice();
    FreeBuffers();
    // No device is open from here on, so no buffer can be held by one.
    for (std::atomic<bool>& held : m_heldByDevice) held.store(false, std::memory_order_release);
    for (uint8_t*& buffer : m_buffers) {
        // A read size of 0 still gets a buffer, so a tiny byte rate plays
        // empty blocks instead of failing as "missing".
        buffer = new (std::nothrow) uint8_t[m_bufferCapacity > 0 ? m_bufferCapacity : 1];
    }
    try {
        m_speedStage.Reserve(static_cast<int32_t>(m_readSize / 2));
        m_wordStage.Reserve(m_readSize, m_format.samplesPerSec, m_format.bitsPerSample);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool CWavOut::FillFirstBlocks(uint32_t (&counts)[kBufferCount])
{
    if (IsRefined()) {
        // Every block goes through the stages from the first one on, so
        // the tempo asked for is heard from the start.
        for (uint8_t* buffer : m_buffers) {
            if (buffer == nullptr) return false;
        }
        StartRefinedPipeline();
        const BOOL justPlay = m_cadence.justPlay;
        m_cadence.wordCount = 0;
        for (int i = 0; i < kBufferCount; ++i) counts[i] = m_bInputDone ? 0 : FillRefinedBlock(m_buffers[i]);
        if (!justPlay) {
            m_cadence.buffersInSpan = kBufferCount;
            m_cadence.resumeTick = 0;
            m_cadence.pauseTick = 0;
            m_cadence.spanStartTick = GetTickCount();
            CountRefinedFirstTenSeconds();
        }
        return true;
    }
    for (int i = 0; i < kBufferCount; ++i) {
        if (m_buffers[i] != nullptr) counts[i] = m_file.Read(m_buffers[i], m_readSize);
    }
    if (!m_cadence.justPlay) {
        m_cadence.buffersInSpan = 0;
        m_cadence.wordCount = 0;
        m_cadence.resumeTick = 0;
        m_cadence.pauseTick = 0;
        m_cadence.spanStartTick = GetTickCount();
        for (int i = 0; i < kBufferCount; ++i) {
            if (m_buffers[i] != nullptr) {
                m_cadence.wordCount += CountVoicedFrames(m_buffers[i], counts[i], m_format.samplesPerSec,
                                                 m_format.bitsPerSample);
            }
            m_cadence.buffersInSpan += 1;
        }
        CountFirstTenSeconds();
    }
    return true;
}

BOOL CWavOut::QueueFirstBlocks(const uint32_t (&counts)[kBufferCount])
{
    if (waveOutOpen(&m_hWaveOut, WAVE_MAPPER, &m_waveFormat, reinterpret_cast<DWORD_PTR>(&WaveOutCallback),
                    reinterpret_cast<DWORD_PTR>(this), CALLBACK_FUNCTION) != MMSYSERR_NOERROR) {
        ReportMessage(209, "打开音频设备失败！");
        return FALSE;
    }

    for (int i = 0; i < kBufferCount; ++i) SetupBufferHeader(m_headers[i], m_buffers[i], counts[i]);
    for (WAVEHDR& header : m_headers) {
        if (waveOutPrepareHeader(m_hWaveOut, &header, sizeof(WAVEHDR)) != MMSYSERR_NOERROR) {
            ReportMessage(210, "准备缓冲区失败！");
            return FALSE;
        }
    }

    for (int i = 0; i < kBufferCount; ++i) {
        ApplyGain(m_headers[i]);
        if (!WriteToDevice(m_hWaveOut, m_headers[i])) {
            ReportMessage(211, "不支持该音频格式！");
            return FALSE;
        }
        if (i < kBufferCount - 1) {
            m_state = 1;
            m_bStopping = false;
            m_bEnded = 0;
        }
    }
    return TRUE;
}

BOOL CWavOut::PausePlay()
{
    if (m_hWaveOut == nullptr) return FALSE;
    if (waveOutPause(m_hWaveOut) != MMSYSERR_NOERROR) {
        ShowDirectBox("音频暂停播放失败!");
        return FALSE;
    }
    m_cadence.pauseTick = GetTickCount();
    m_state = 2;
    m_pausePosition = static_cast<uint32_t>(m_file.GetPosition());
    return TRUE;
}

BOOL CWavOut::ResumePlay()
{
    if (m_hWaveOut == nullptr || m_state.load() != 2) return FALSE;
    if (waveOutRestart(m_hWaveOut) != MMSYSERR_NOERROR) {
        ShowDirectBox("音频重新播放失败!");
        return FALSE;
    }
    m_cadence.resumeTick = GetTickCount();
    m_state = 1;
    // A refined jump made while paused may land where reading stood; it
    // still starts the stages afresh there.
    const bool jumpedWhilePaused = IsRefined() && m_timeOverrideMs.load() >= 0;
    if (static_cast<uint32_t>(m_file.GetPosition()) == m_pausePosition && !jumpedWhilePaused) return TRUE;

    // The position moved while paused: what is queued belongs to the old
    // place, so it is thrown away and the new place is heard at once.
    m_bStopping = true;
    if (!ResetDevice()) return FALSE;
    return RefillAfterReset() ? TRUE : FALSE;
}

bool CWavOut::ResetDevice()
{
    CSingleLock lock(m_lock);
    m_bSuspended = 1;
    if (waveOutReset(m_hWaveOut) != MMSYSERR_NOERROR) {
        ShowDirectBox("停止音频播放失败!");
        m_bSuspended = 0;
        return false;
    }
    m_bSuspended = 0;
    return true;
}

BOOL CWavOut::StopPlay()
{
    if (m_hWaveOut == nullptr) return FALSE;
    if (!m_bOpened) return TRUE;
    m_bStopping = true;
    // The reset returns only when every queued buffer has come back and no
    // callback runs, so nothing is inside the pipeline from here on.
    if (!ResetDevice()) return FALSE;
    for (WAVEHDR& header : m_headers) waveOutUnprepareHeader(m_hWaveOut, &header, sizeof(WAVEHDR));
    if (waveOutClose(m_hWaveOut) != MMSYSERR_NOERROR) {
        ShowDirectBox("停止音频播放失败!");
        return FALSE;
    }
    m_state = 0;
    FreeBuffers();
    m_file.Close();
    m_bOpened = 0;
    m_hWaveOut = nullptr;
    return TRUE;
}

// ---------------------------------------------------------------- settings

void CWavOut::SetChangeSpeedLevel(int16_t levelValue)
{
    if (levelValue > 50) levelValue = 50;
    if (levelValue < -60) levelValue = -60;
    m_speedLevel = levelValue;
}

BOOL CWavOut::SetVolume(int32_t volume)
{
    float factor = 0.0f;
    if (!VolumeFromPercent(volume, &factor)) return FALSE;
    m_volume = factor;
    return TRUE;
}

int32_t CWavOut::GetVolume() const
{
    return static_cast<int32_t>(PercentFromVolume(m_volume.load()));
}

void CWavOut::LoadMixSound(const char* path)
{
    if (path == nullptr) {
        m_noiseSlot.Publish(nullptr);
        return;
    }
    CFile stream;
    if (!stream.Open(path, CFile::modeRead | CFile::typeBinary)) return;
    uint32_t factExtra = 0;
    if (ReadWaveHeader(stream, m_noiseFormat, m_noiseChunk, factExtra) == 0 ||
        !ByteRateFitsFile(m_noiseFormat, stream.GetLength())) {
        stream.Close();
        ReportMessage(215, "不支持的音频格式！对不起，不能打开干扰音文件！");
        return;
    }
    auto sound = std::make_shared<NoiseSound>();
    sound->channels = m_noiseFormat.channels;
    sound->bitsPerSample = m_noiseFormat.bitsPerSample;
    sound->samplesPerSec = m_noiseFormat.samplesPerSec;
    // A head may state more than the file holds; the sound is what was read.
    uint64_t samplesStart = static_cast<uint64_t>(m_noiseFormat.length) + factExtra + 28;
    uint64_t available = stream.GetLength() > samplesStart ? stream.GetLength() - samplesStart : 0;
    uint32_t wanted = static_cast<uint32_t>(std::min<uint64_t>(m_noiseChunk.length, available));
    sound->data.resize(wanted);
    stream.Seek(static_cast<int64_t>(samplesStart), CFile::begin);
    sound->data.resize(stream.Read(sound->data.data(), wanted));
    stream.Close();
    m_noiseSlot.Publish(std::move(sound));
}
