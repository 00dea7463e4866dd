#pragma once
#include <atomic>
#include <cstdint>
#include <string>

#include "dsp/NoiseMix.h"
#include "dsp/SpeedChanger.h"
#include "dsp/WordCounter.h"
#include "dsp/SyllableRate.h"
#include "engine/HeardPosition.h"
#include "engine/TempoStage.h"
#include "engine/WaveReader.h"
#include "platform/File.h"
#include "platform/Sync.h"
#include "platform/Types.h"
#include "platform/WaveOut.h"

// Messages the engine posts to the window of its control.
constexpr UINT WM_PLAYCOMPLETE = 1753;
constexpr UINT WM_PLAYCLOSED = 1754;
constexpr UINT WM_ONESENTENCEDONE = 1841;
constexpr UINT WM_WORDCOUNT = 1856;
constexpr UINT WM_WORDSPEEDDONE = 1352;

constexpr int kBufferCount = 4;

// How the engine plays: classic keeps the original behaviour to the byte;
// refined reads the file by its chunks, changes the tempo exactly and with
// the channels apart, and tells the time of what is heard.
constexpr int16_t kProfileClassic = 0;
constexpr int16_t kProfileRefined = 1;

// The live word count's cadence: the span a report covers, how far into it
// play is, in blocks and in ticks, with time spent paused kept apart.
// Written by the device's thread while playing, by the host's when stopped
// or paused.
struct WordCountCadence {
    std::atomic<BOOL> justPlay{0};  // counting is off
    int32_t wordCount = 0;
    std::atomic<uint32_t> pauseTick{0};
    std::atomic<uint32_t> resumeTick{0};
    uint32_t spanStartTick = 0;
    int32_t buffersInSpan = 0;
    int32_t buffersPerSpan = 0;
    int32_t spanMs = 1000;
};

// The stretches play treats apart, in milliseconds of the file: the loop
// section and the one-sentence span. Set by the host, read by the device's
// thread.
struct PlaySections {
    std::atomic<uint32_t> loopEndMs{0};
    std::atomic<uint32_t> loopStartMs{0};
    std::atomic<BOOL> loop{0};
    std::atomic<int32_t> sentenceEndMs{0};
    std::atomic<int32_t> sentenceStartMs{0};
};

// The playback engine: one open file, the output device, four buffers that
// rotate through it, and the playing state. Called on the host's thread; the
// device calls back on its own thread, where every returned buffer is read
// into, passed through the signal stages and queued again.
class CWavOut {
public:
    CWavOut();
    virtual ~CWavOut();
    CWavOut(const CWavOut&) = delete;
    CWavOut& operator=(const CWavOut&) = delete;

    // Playing state, for the control.
    BOOL StartPlay(const char* path);
    BOOL PausePlay();
    BOOL ResumePlay();
    BOOL StopPlay();
    uint16_t GetPlayerState() const { return m_state.load(); }

    // Settings, for the control.
    void SetChangeSpeedLevel(int16_t levelValue);
    int16_t GetChangeSpeedLevel() const { return m_speedLevel.load(); }
    BOOL SetVolume(int32_t volume);
    int32_t GetVolume() const;
    void LoadMixSound(const char* path);
    void SetMixerFlag(BOOL bOpen) { m_bMixOn = bOpen; }
    BOOL GetMixerFlag() const { return m_bMixOn.load(); }
    void SetJustPlay(BOOL flag) { m_cadence.justPlay = flag; }
    // The profile for the next start; a play under way keeps its own.
    void SetPlaybackProfile(int16_t profile) { m_requestedProfile = profile; }
    int16_t GetPlaybackProfile() const { return m_requestedProfile.load(); }
    // The profile of the play under way (or the last one).
    bool IsRefined() const { return m_profile == kProfileRefined; }
    // Starts an estimate of the speaking rate on a worker thread, which
    // posts WM_WORDSPEEDDONE; answers the minute of play the stretch was
    // taken for. Throws CFileException when the file can't be opened again.
    // In the refined profile the estimate is the words per minute of the
    // stretch by its syllables (fEpWordNum is not used).
    int32_t GetWordSpeedByAsyn(float fEpWordNum, int32_t timeSpan);
    // Syllables per word for the refined profile's word counts: the live
    // count takes it at the next StartPlay, GetWordSpeedByAsyn at once.
    // The caller checks it with IsSyllablesPerWordValid.
    void SetSyllablesPerWord(double ratio) { m_syllablesPerWord = ratio; }
    double GetSyllablesPerWord() const { return m_syllablesPerWord.load(); }
    void SetCountWordTimeSpan(int32_t ms) { m_cadence.spanMs = ms; }
    int32_t GetCountWordTimeSpan() const { return m_cadence.spanMs; }

    // Time and position.
    uint32_t GetTotalPlayTime();
    uint32_t GetCurrentPlayTime();
    void SetCurrentPlayTime(uint32_t curTime);
    void SpeedUp(uint32_t distance);
    void SpeedBack(uint32_t distance);
    void SetLoopPlaySection(BOOL bLoopPlay, uint32_t startPos, uint32_t endPos);
    void SetOneSentenceTimeSpan(int32_t startTimePos, int32_t endTimePos);
    void ResetToPlayFromCurPos();

    // The window that receives the engine's messages; the control writes it
    // before every start.
    std::atomic<HWND> m_hNotifyWnd{nullptr};

    // Read-only views for the control and the tools.
    const WavFormatRecord& Format() const { return m_format; }
    uint32_t DataLength() const;
    uint64_t FilePosition() const { return m_file.GetPosition(); }
    uint32_t ReadSize() const { return m_readSize; }
    uint32_t BuffersPlayed() const { return m_buffersPlayed.load(); }
    // BuffersPlayed() when the end of play was told; the three buffers still
    // queued then come back after it.
    uint32_t BuffersPlayedAtEnd() const { return m_buffersPlayedAtEnd.load(); }

private:
    // Tests and benchmarks read the inner state through this peer
    // (tests/support/WavOutProbe.h); nothing else needs it.
    friend class CWavOutProbe;

    static void WaveOutCallback(HWAVEOUT device, UINT message, DWORD_PTR instance, DWORD_PTR param1,
                                DWORD_PTR param2);
    void OnDeviceClosed();
    void TellEndOfPlay(UINT message);
    // Answers whether the header went back to the device.
    bool OnBufferDone(HWAVEOUT device, WAVEHDR* header);

    // Which buffers are the device's: from the write that queued one until
    // the done callback that returned it has finished with it. The host's
    // thread touches only buffers that are its own.
    bool WriteToDevice(HWAVEOUT device, WAVEHDR& header);
    void HandBack(const WAVEHDR* header);
    bool HeldByDevice(int index) const { return m_heldByDevice[index].load(std::memory_order_acquire); }
    void CheckSentenceEnd();
    void CountWordsInSpan();

    // The refined profile (WavOutRefined.cpp).
    bool OpenRefinedWaveFile(const char* path);
    uint32_t RefinedReadSize() const;
    void StartRefinedPipeline();
    int64_t ReadFrame() const;
    uint64_t MsToDataByte(uint32_t ms) const;
    uint32_t ReadRefinedBlock(uint8_t* into, bool& last);
    uint32_t FillRefinedBlock(uint8_t* data);
    void RecordHeardMarks(int64_t stageStart, uint32_t bytes);
    bool OnRefinedBufferDone(HWAVEOUT device, WAVEHDR* header);
    bool RefillRefined();
    uint32_t RefinedCurrentPlayTime() const;
    uint32_t RefinedTotalPlayTime() const;
    void RefinedSetCurrentPlayTime(uint32_t curTime);
    void CountRefinedFirstTenSeconds();

    bool OpenWaveFile(const char* path);
    void ClearFileState();
    void SetupBufferHeader(WAVEHDR& header, uint8_t* buffer, uint32_t byteCount);
    bool ResetDevice();
    bool RefillAfterReset();
    void ReleaseStaleDevice();
    void FreeBuffers();
    // StartPlay's steps after the file is open: the four buffers and the
    // stages' memory; the first four blocks (and the first word count); the
    // device opened with those blocks queued.
    bool AllocateBuffers();
    bool FillFirstBlocks(uint32_t (&counts)[kBufferCount]);
    BOOL QueueFirstBlocks(const uint32_t (&counts)[kBufferCount]);

    // Signal stages, at their places in the pipeline.
    bool ScanPeakGain();
    void CountFirstTenSeconds();
    void ApplySpeedChange(WAVEHDR& header);
    bool MixNoise(uint8_t* data, uint32_t byteCount);
    void ApplyGain(WAVEHDR& header);

    // The data length for time arithmetic: the stated one, or derived from
    // the file length on first use when the head stated none.
    uint32_t EnsureDataLength();
    bool AtEndOfFile() const;

    std::atomic<BOOL> m_bMixOn{0};
    std::atomic<int16_t> m_requestedProfile{kProfileClassic};
    int16_t m_profile = kProfileClassic;
    // Refined play: where the samples end, the tempo stage, the marks that
    // tell what is heard, the bytes written to the device since it opened,
    // whether the last block was read, and the time a paused seek set.
    uint64_t m_dataEnd = 0;
    CTempoStage m_tempo;
    // The classic tempo change and the live word count of both profiles,
    // their working memory reserved by StartPlay for the largest block, so
    // that no refill on the device's thread allocates.
    CSpeedChangeStage m_speedStage;
    CWordCountStage m_wordStage;
    CHeardPosition m_heard;
    uint64_t m_outputWritten = 0;
    std::atomic<bool> m_bInputDone{false};
    std::atomic<int64_t> m_timeOverrideMs{-1};
    // The refined live word count: syllables of the blocks as read, turned
    // into whole words. Used where the blocks are filled.
    CSyllableCounter m_syllables;
    CWordTally m_wordTally;
    std::atomic<double> m_syllablesPerWord{kDefaultSyllablesPerWord};
    WavChunkHead m_dataChunk{};
    uint32_t m_factExtra = 0;
    std::atomic<uint16_t> m_state{0};
    // The peak scan keeps its carried window and divisor in its own record
    // (PeakScanState), which lives only while the scan runs.
    uint32_t m_bufferCapacity = 0;
    std::atomic<int16_t> m_speedLevel{0};
    uint8_t* m_buffers[kBufferCount] = {};
    HWAVEOUT m_hWaveOut = nullptr;
    WAVEFORMATEX m_waveFormat{};
    CCriticalSection m_lock;
    // Written by the device's thread, read by GetCurrentPlayTime anywhere.
    std::atomic<uint32_t> m_positionHistory[4] = {13230, 8820, 4410, 4410};
    uint32_t m_dataStart = 0;
    std::string m_filePath;
    std::atomic<BOOL> m_bOpened{0};
    WordCountCadence m_cadence;
    PlaySections m_sections;
    uint32_t m_pausePosition = 0;
    std::atomic<BOOL> m_bSuspended{0};
    // The noise samples and their read position, handed from the host's
    // thread to the device's so that a block is mixed wholly with one sound.
    CNoiseSlot m_noiseSlot;
    std::atomic<float> m_volume{1.0f};
    std::atomic<float> m_gain{1.0f};
    std::atomic<BOOL> m_bEnded{0};
    std::atomic<bool> m_bStopping{false};
    WAVEHDR m_headers[kBufferCount] = {};
    std::atomic<bool> m_heldByDevice[kBufferCount] = {};
    CFile m_file;
    uint32_t m_readSize = 0;
    std::atomic<uint32_t> m_buffersPlayed{0};
    std::atomic<uint32_t> m_buffersPlayedAtEnd{0};
    WavFormatRecord m_format{};
    WavFormatRecord m_noiseFormat{};
    WavChunkHead m_noiseChunk{};
};
