#include "engine/WavOut.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>
#include <new>

#include "dsp/GainVolume.h"
#include "dsp/SpeedChanger.h"
#include "dsp/WordCounter.h"
#include "dsp/WordSpeed.h"
#include "platform/Clock.h"
#include "platform/Debug.h"
#include "platform/MessageBox.h"
#include "platform/Exceptions.h"
#include "platform/Messages.h"
#include "platform/Thread.h"
#include "shell/MessageCatalogue.h"

namespace {

// 0 once a device has opened, 1 once the end of play has been told. One flag
// for the whole process, shared by every engine.
std::atomic<int32_t> s_playEndNotified{0};

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

    CFile stream;
    if (!stream.Open(path, CFile::modeRead | CFile::typeBinary)) return false;
    if (ReadWaveHeader(stream, m_format, m_dataChunk, m_factExtra) == 0) {
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

    if (!OpenWaveFile(path)) {
        ReportMessage(208, "装载音频文件失败!");
        return FALSE;
    }

    m_readSize = static_cast<uint32_t>(static_cast<double>(m_format.avgBytesPerSec) * 0.1);
    m_bufferCapacity = 10 * m_readSize;
    m_buffersPerSpan = static_cast<int32_t>(m_spanMs / 100.0);

    ReleaseStaleDevice();
    FreeBuffers();
    for (uint8_t*& buffer : m_buffers) {
        // A read size of 0 still gets a buffer, so a tiny byte rate plays
        // empty blocks instead of failing as "missing".
        buffer = new (std::nothrow) uint8_t[m_bufferCapacity > 0 ? m_bufferCapacity : 1];
    }

    uint32_t counts[kBufferCount] = {};
    for (int i = 0; i < kBufferCount; ++i) {
        if (m_buffers[i] != nullptr) counts[i] = m_file.Read(m_buffers[i], m_readSize);
    }

    if (!m_bJustPlay) {
        m_buffersInSpan = 0;
        m_wordCount = 0;
        m_resumeTick = 0;
        m_pauseTick = 0;
        m_spanStartTick = GetTickCount();
        for (int i = 0; i < kBufferCount; ++i) {
            if (m_buffers[i] != nullptr) {
                m_wordCount += CountVoicedFrames(m_buffers[i], counts[i], m_format.samplesPerSec,
                                                 m_format.bitsPerSample);
            }
            m_buffersInSpan += 1;
        }
        CountFirstTenSeconds();
    }

    for (uint8_t* buffer : m_buffers) {
        if (buffer == nullptr) return FALSE;
    }

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
        if (waveOutWrite(m_hWaveOut, &m_headers[i], sizeof(WAVEHDR)) != MMSYSERR_NOERROR) {
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
    m_pauseTick = GetTickCount();
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
    m_resumeTick = GetTickCount();
    m_state = 1;
    if (static_cast<uint32_t>(m_file.GetPosition()) == m_pausePosition) return TRUE;

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

// ---------------------------------------------------------------- pipeline

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
    case MM_WOM_DONE:
        engine->OnBufferDone(device, reinterpret_cast<WAVEHDR*>(param1));
        break;
    default:
        break;
    }
}

void CWavOut::OnDeviceClosed()
{
    OutputDebugStringA("播放设备关闭!");
    if (s_playEndNotified == 0) {
        m_bEnded = 1;
        OutputDebugStringA("音频播放完\n");
        HWND notify = m_hNotifyWnd.load();
        if (notify != nullptr) {
            OutputDebugStringA("发送播放完消息\n");
            PostMessageA(notify, WM_PLAYCLOSED, 0, 0);
        }
        s_playEndNotified = 1;
    }
    m_positionHistory[0] = 13230;
    m_positionHistory[1] = 8820;
    m_positionHistory[2] = 4410;
    m_positionHistory[3] = 4410;
}

bool CWavOut::AtEndOfFile() const
{
    return m_file.GetPosition() + m_dataStart >= m_file.GetLength();
}

void CWavOut::OnBufferDone(HWAVEOUT device, WAVEHDR* header)
{
    if (m_bStopping) return;
    m_buffersPlayed += 1;

    int32_t sentenceStart = m_sentenceStartMs.load();
    int32_t sentenceEnd = m_sentenceEndMs.load();
    if (sentenceStart < sentenceEnd && GetCurrentPlayTime() >= static_cast<uint32_t>(sentenceEnd)) {
        m_sentenceStartMs = 0;
        m_sentenceEndMs = 0;
        PostMessageA(m_hNotifyWnd.load(), WM_ONESENTENCEDONE, 0, 0);
    }

    if (m_bLoop) {
        uint32_t loopStart = m_loopStartMs.load();
        uint32_t loopEnd = m_loopEndMs.load();
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
            if (s_playEndNotified != 0) return;
            m_buffersPlayedAtEnd = m_buffersPlayed.load();
            m_bEnded = 1;
            OutputDebugStringA("音频播放完\n");
            HWND notify = m_hNotifyWnd.load();
            if (notify != nullptr) {
                OutputDebugStringA("发送播放完消息\n");
                PostMessageA(notify, WM_PLAYCOMPLETE, 0, 0);
            }
            s_playEndNotified = 1;
            return;
        }
    }

    header->dwBufferLength = m_file.Read(header->lpData, m_readSize);

    if (!m_bJustPlay) {
        m_buffersInSpan += 1;
        // A span below 100 ms would hold no whole block; it reports with
        // every block instead of dividing by zero.
        int32_t buffersPerSpan = m_buffersPerSpan > 0 ? m_buffersPerSpan : 1;
        if (m_buffersInSpan % buffersPerSpan == 0) {
            uint32_t now = GetTickCount();
            uint32_t spanMs = now + m_pauseTick.load() - m_spanStartTick - m_resumeTick.load();
            PostMessageA(m_hNotifyWnd.load(), WM_WORDCOUNT, static_cast<WPARAM>(m_wordCount),
                         static_cast<LPARAM>(spanMs));
            m_buffersInSpan = 0;
            m_wordCount = 0;
            m_spanStartTick = now;
            m_resumeTick = 0;
            m_pauseTick = 0;
        }
        m_wordCount += CountVoicedFrames(reinterpret_cast<const uint8_t*>(header->lpData), header->dwBufferLength,
                                         m_format.samplesPerSec, m_format.bitsPerSample);
    }

    ApplySpeedChange(*header);
    MixNoise(reinterpret_cast<uint8_t*>(header->lpData), header->dwBufferLength);
    ApplyGain(*header);

    if (!m_bSuspended) waveOutWrite(device, header, sizeof(WAVEHDR));
}

bool CWavOut::RefillAfterReset()
{
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
    for (WAVEHDR& header : m_headers) {
        ApplySpeedChange(header);
        ApplyGain(header);
        if (!m_bSuspended) waveOutWrite(m_hWaveOut, &header, sizeof(WAVEHDR));
    }
    return true;
}

void CWavOut::ApplySpeedChange(WAVEHDR& header)
{
    int16_t level = m_speedLevel.load();
    if (level == 0 || header.lpData == nullptr || header.dwBufferLength == 0) return;

    CSpeedChanger changer;
    changer.Load(reinterpret_cast<const int16_t*>(header.lpData), static_cast<int32_t>(header.dwBufferLength / 2),
                 level);
    changer.Run();
    int16_t* output = nullptr;
    int32_t outputCount = 0;
    changer.TakeOutput(&output, &outputCount);
    // The changer's output never exceeds three times its input, and the
    // buffer holds ten blocks; the bound is kept here all the same.
    uint32_t outputBytes = static_cast<uint32_t>(outputCount) * 2;
    if (outputBytes > m_bufferCapacity) outputBytes = m_bufferCapacity & ~1u;
    std::memcpy(header.lpData, output, outputBytes);
    header.dwBufferLength = outputBytes;
    delete[] output;
}

bool CWavOut::MixNoise(uint8_t* data, uint32_t byteCount)
{
    return m_noiseSlot.Mix(data, byteCount, m_format.channels, m_format.bitsPerSample, m_format.samplesPerSec,
                           m_bMixOn != 0);
}

void CWavOut::ApplyGain(WAVEHDR& header)
{
    float gain = m_gain.load();
    ApplyGainAndVolume(reinterpret_cast<uint8_t*>(header.lpData), static_cast<int32_t>(header.dwBufferLength),
                       m_format.bitsPerSample, m_volume.load(), &gain);
    m_gain = gain;
}

void CWavOut::CountFirstTenSeconds()
{
    uint64_t notedPosition = m_file.GetPosition();
    uint32_t samplesStart = m_format.length + m_factExtra + 28;
    m_file.Seek(samplesStart, CFile::begin);

    // Ten seconds of the byte rate, but never more than the file holds, so a
    // corrupt rate can't ask for gigabytes.
    uint64_t wanted = 10ull * m_format.avgBytesPerSec;
    uint64_t fileLength = m_file.GetLength();
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
    if (ReadWaveHeader(stream, m_noiseFormat, m_noiseChunk, factExtra) == 0) {
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

// ---------------------------------------------------------------- word speed

namespace {

// What the worker thread owns: the stretch as stored in the file and the
// numbers the estimate needs.
struct WordSpeedJob {
    std::vector<uint8_t> samples;
    uint16_t channels = 0;
    uint16_t bitsPerSample = 0;
    float wordsPerSegment = 0.0f;
    int32_t timeSpan = 0;
    HWND notifyWnd = nullptr;
};

void WordSpeedWorker(std::unique_ptr<WordSpeedJob> job)
{
    int32_t estimate = EstimateWordSpeed(job->samples.data(), static_cast<uint32_t>(job->samples.size()),
                                         job->channels, job->bitsPerSample, job->wordsPerSegment, job->timeSpan);
    // A window destroyed in the meantime is a stale handle: the post fails.
    if (job->notifyWnd != nullptr) PostMessageA(job->notifyWnd, WM_WORDSPEEDDONE, static_cast<WPARAM>(estimate), 0);
}

}  // namespace

int32_t CWavOut::GetWordSpeedByAsyn(float fEpWordNum, int32_t timeSpan)
{
    CFile stretchFile;
    if (!stretchFile.Open(m_filePath.c_str(), CFile::modeRead | CFile::typeBinary | CFile::shareDenyNone)) {
        throw CFileException(m_filePath.empty() ? "(no file has been played yet)" : m_filePath);
    }
    // The engine's own file may be closed after a stop; the second file
    // object is the same file and gives the length for both uses.
    WordSpeedStretchRequest request;
    request.playTimeMs = GetCurrentPlayTime();
    request.avgBytesPerSec = m_format.avgBytesPerSec;
    request.blockAlign = m_format.blockAlign;
    request.dataChunkLength = DataLength();
    request.formatLength = m_format.length;
    request.factExtra = m_factExtra;
    request.fileLength = static_cast<int64_t>(stretchFile.GetLength());
    request.timeSpan = timeSpan;
    WordSpeedStretch stretch = PlanWordSpeedStretch(request);
    std::atomic_ref<uint32_t>(m_dataChunk.length).store(stretch.dataChunkLength);

    std::vector<uint8_t> samples;
    try {
        samples.resize(stretch.size);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    stretchFile.Seek(stretch.seekFromEnd, CFile::end);
    samples.resize(stretchFile.Read(samples.data(), stretch.size));
    stretchFile.Close();

    // A job that can't be made, or a thread that can't start, still
    // answers the host, with an estimate of 0.
    HWND notify = m_hNotifyWnd.load();
    std::unique_ptr<WordSpeedJob> job(new (std::nothrow) WordSpeedJob);
    if (job == nullptr) {
        if (notify != nullptr) PostMessageA(notify, WM_WORDSPEEDDONE, 0, 0);
        return static_cast<int32_t>(stretch.n);
    }
    job->samples = std::move(samples);
    job->channels = m_format.channels;
    job->bitsPerSample = m_format.bitsPerSample;
    job->wordsPerSegment = fEpWordNum;
    job->timeSpan = timeSpan;
    job->notifyWnd = notify;
    auto shared = std::make_shared<std::unique_ptr<WordSpeedJob>>(std::move(job));
    if (!platform::StartDetachedThread([shared] { WordSpeedWorker(std::move(*shared)); })) {
        if (notify != nullptr) PostMessageA(notify, WM_WORDSPEEDDONE, 0, 0);
    }
    return static_cast<int32_t>(stretch.n);
}

// ---------------------------------------------------------------- time

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
    if (!m_bOpened || m_format.avgBytesPerSec == 0) return 0;
    uint32_t dataLength = EnsureDataLength();
    return BytesToMs(dataLength, m_format.avgBytesPerSec);
}

uint32_t CWavOut::GetCurrentPlayTime()
{
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
    m_bLoop = bLoopPlay;
    m_loopStartMs = startPos;
    m_loopEndMs = endPos;
}

void CWavOut::SetOneSentenceTimeSpan(int32_t startTimePos, int32_t endTimePos)
{
    m_sentenceStartMs = startTimePos;
    m_sentenceEndMs = endTimePos;
}

void CWavOut::ResetToPlayFromCurPos()
{
    for (uint8_t* buffer : m_buffers) {
        if (buffer == nullptr) return;
    }
    // Each header carries the count of its new read, as the other paths that
    // read four blocks do; a stale length would replay old bytes.
    for (int i = 0; i < kBufferCount; ++i) {
        m_headers[i].dwBufferLength = m_file.Read(m_buffers[i], m_readSize);
    }
    for (int i = 0; i < kBufferCount; ++i) {
        ApplyGain(m_headers[i]);
        if (waveOutWrite(m_hWaveOut, &m_headers[i], sizeof(WAVEHDR)) != MMSYSERR_NOERROR) return;
        if (i < kBufferCount - 1) {
            m_bStopping = false;
            m_bEnded = 0;
            m_state = 1;
        }
    }
}
