#pragma once
#include <functional>
#include <string>
#include <vector>

#include "engine/SentenceScan.h"
#include "engine/WavOut.h"
#include "media/DecodedAudio.h"
#include "shell/DispatchTable.h"
#include "view/WaveViewCtrl.h"

// Messages of the control's window beyond the engine's own.
constexpr UINT WM_COMPUTESNR = 1913;

constexpr UINT_PTR TIMER_CARET = 1;
constexpr UINT_PTR TIMER_SECTION = 3;

// What FindSentences answers when it fails; host.h names them for C hosts.
constexpr int32_t kSentencesNoFile = -1;
constexpr int32_t kSentencesCannotRead = -2;
constexpr int32_t kSentencesNotPcm = -3;
constexpr int32_t kSentencesBadPause = -4;

// The one object a host sees: the automation members and events, the
// window that turns the engine's messages into events on the host's
// thread, and the timers that keep the view in step with play.
class CTempvoxCtrl {
public:
    using EventSink = std::function<void(DISPID id, const std::vector<Variant>& args)>;

    CTempvoxCtrl();
    ~CTempvoxCtrl();
    CTempvoxCtrl(const CTempvoxCtrl&) = delete;
    CTempvoxCtrl& operator=(const CTempvoxCtrl&) = delete;

    void SetEventSink(EventSink sink) { m_eventSink = std::move(sink); }

    // The dispatch layer: checks the member, the kind of call and every
    // argument against the member table, then runs the member. On a failure
    // of the call itself (not of the member) `error` tells why.
    HRESULT Invoke(DISPID id, InvokeKind kind, const std::vector<Variant>& args, Variant* result,
                   std::string* error = nullptr);

    // Members that do more than forward to the engine.
    BOOL StartPlay();
    void PausePlay();
    BOOL ResumePlay();
    void StopPlay();
    BOOL SetPlayFilePath(const char* strHttpAddress, int16_t httpPort_id, const char* strFilePath);
    BOOL SetPlayFilePath2(const char* strHttpAddress, int16_t httpPort_id, const char* strFilePath,
                          const char* localSaveName);
    std::string GetPlayFilePath() const { return m_playFilePath; }
    BOOL DeleteAllDownedFile();
    BOOL CreateWavViewWnd(int32_t xPos, int32_t yPos, int32_t cX, int32_t cY, int32_t parentHwnd);
    int32_t GetWavViewCtrlHwnd() const;
    BOOL AttachWavViewToFile(BOOL isAttach);
    void CreateCaretForWavView(BOOL bCreate);
    void SetCountWordSquare(float fSquare) { m_fSquare = fSquare; }
    int16_t GetLanguageType() const;
    void SetLanguageType(int16_t value);
    BOOL GetIsSelectedWav() const;
    // A span that the host arms itself keeps the engine's rule: play goes on.
    void SetOneSentenceTimeSpan(int32_t startTimePos, int32_t endTimePos);
    // 0 classic or 1 refined, for the engine and the view; anything else
    // throws std::invalid_argument, which reaches the host as an exception.
    void SetPlaybackProfile(int16_t profile);
    // Syllables per second of a stretch of the current file.
    float GetSpeakingRate(int32_t startMs, int32_t endMs) const;
    // Throws std::invalid_argument outside the valid ratios.
    void SetSyllablesPerWord(float ratio);

    // The sentences of the current file (ids 37 to 41), in milliseconds of
    // the file, numbered from 0. FindSentences reads the whole file once on
    // the calling thread and answers the count, or a negative code; naming
    // another file forgets them. GetSentenceStart and GetSentenceEnd answer
    // -1 for an index out of range, GetSentenceAt -1 for a time in no
    // sentence.
    int32_t FindSentences(int32_t minPauseMs);
    int32_t GetSentenceStart(int32_t index) const;
    int32_t GetSentenceEnd(int32_t index) const;
    int32_t GetSentenceAt(int32_t timeMs) const;
    const std::vector<SentenceTimes>& Sentences() const { return m_sentences; }
    // Plays one sentence from its start (starting or resuming play) and
    // pauses at its end, where PlayOneSentenceCompleted fires. FALSE for an
    // index out of range or when play cannot start.
    BOOL PlaySentence(int32_t index);
    // For hosts in C++ (our tools): the play under way pauses at the end of
    // sentence `index` as after PlaySentence, without moving; FALSE when
    // stopped or out of range. CancelSentencePause takes that back.
    BOOL PauseAtEndOfSentence(int32_t index);
    void CancelSentencePause();

    HWND GetSafeHwnd() const { return m_hWnd; }
    bool IsModified() const { return m_bModified; }
    const std::string& TempDir() const { return m_tempDir; }
    CWavOut& Engine() { return m_wavOut; }

    // For the tools, not the host: what decoding made of the file named last
    // (empty when it needed none), and a callback told while a file is
    // decoded, so that a terminal can show progress and a signal can stop it.
    const media::DecodeReport& LastDecode() const { return m_lastDecode; }
    void SetDecodeProgress(media::DecodeProgress progress) { m_decodeProgress = std::move(progress); }

private:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam);
    void OnTimer(UINT_PTR id);
    BOOL SelectableWhilePlaying() const;
    void FireEvent(DISPID id, std::vector<Variant> args = {});
    void StopAndDeleteTemporaries();
    BOOL TakeLocatedPath();
    bool TakeDecodedCopy();
    void OnSentenceDone();
    void ArmSentencePause(const SentenceTimes& sentence);

    float m_fSquare = 0.0f;
    std::string m_tempDir;
    int32_t m_selSerial = 0;
    int32_t m_selEndMs = 0;
    int32_t m_selStartMs = 0;
    BOOL m_bAttached = 0;
    BOOL m_bViewCreated = 0;
    std::string m_encodedPath;
    BOOL m_bDownloaded = 0;
    std::string m_playFilePath;
    CWavOut m_wavOut;
    CWaveViewCtrl m_waveView;

    HWND m_hWnd = nullptr;
    bool m_bModified = false;
    EventSink m_eventSink;
    media::DecodeReport m_lastDecode;
    media::DecodeProgress m_decodeProgress;
    std::vector<SentenceTimes> m_sentences;
    // The one-sentence span under way was armed by PlaySentence: its end
    // pauses play. A span the host armed itself keeps the original rule.
    bool m_sentencePauseArmed = false;
    int32_t m_sentencePauseEndMs = 0;
};
