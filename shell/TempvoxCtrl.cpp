#include "shell/TempvoxCtrl.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "engine/SpeakingRate.h"
#include "media/AudioLocator.h"
#include "media/EncodedAudio.h"
#include "platform/Debug.h"
#include "platform/Exceptions.h"
#include "platform/File.h"
#include "platform/Messages.h"
#include "platform/OwnedFiles.h"
#include "messages/MessageCatalogue.h"

namespace {

// 32-bit two's complement addition, without the undefined overflow of int.
int32_t WrappingSum(int32_t a, int32_t b)
{
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

constexpr UINT kSectionTimerMs = 80;

}  // namespace

CTempvoxCtrl::CTempvoxCtrl()
{
    m_hWnd = CreateMessageWindow([this](HWND, UINT message, WPARAM wParam, LPARAM lParam) {
        return WindowProc(message, wParam, lParam);
    });
    m_playFilePath.clear();
    m_encodedPath.clear();
    m_bDownloaded = 0;
    m_bViewCreated = 0;
    m_bAttached = 0;
    m_selSerial = 0;
    m_tempDir = MakeTempFolder();
    m_fSquare = 0.0f;
    g_languageType = 1;
}

CTempvoxCtrl::~CTempvoxCtrl()
{
    m_wavOut.StopPlay();
    // A .wav this control converted from a local file is its temporary
    // too: it goes with the control rather than stay beside the user's.
    if (!m_bDownloaded && !m_encodedPath.empty() && platform::IsOwnedFile(m_playFilePath))
        platform::DeleteOwnedFile(m_playFilePath);
    if (m_bDownloaded) DeleteAllDownedFile();
    // Later messages to this window (a worker's estimate, a device closing)
    // find a stale handle and are dropped.
    DestroyWindow(m_hWnd);
    m_hWnd = nullptr;
}

// ---------------------------------------------------------------- events

void CTempvoxCtrl::FireEvent(DISPID id, std::vector<Variant> args)
{
    if (m_eventSink) m_eventSink(id, args);
}

LRESULT CTempvoxCtrl::WindowProc(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_PLAYCOMPLETE:
        OutputDebugStringA(" 播放完结束消息\n");
        FireEvent(1);
        return 1;
    case WM_WORDCOUNT: {
        char line[64];
        std::snprintf(line, sizeof line, "时间间隔：%d\n", static_cast<int>(lParam));
        OutputDebugStringA(line);
        FireEvent(2, {Variant::I4(static_cast<int32_t>(wParam)), Variant::I4(static_cast<int32_t>(lParam))});
        return 1;
    }
    case WM_ONESENTENCEDONE:
        OnSentenceDone();
        return 1;
    case WM_WORDSPEEDDONE:
        FireEvent(5, {Variant::I4(static_cast<int32_t>(wParam))});
        return 1;
    case WM_COMPUTESNR: {
        // The sender allocates the float with new and hands it over.
        float* value = reinterpret_cast<float*>(wParam);
        float snr = value != nullptr ? *value : 0.0f;
        delete value;
        FireEvent(3, {Variant::R4(snr)});
        return 1;
    }
    case WM_TIMER:
        OnTimer(static_cast<UINT_PTR>(wParam));
        return 0;
    default:
        return DefWindowProcA(m_hWnd, message, wParam, lParam);
    }
}

void CTempvoxCtrl::OnTimer(UINT_PTR id)
{
    if (id == TIMER_CARET) {
        if (m_bViewCreated) m_waveView.MoveCaretToTime(m_wavOut.GetCurrentPlayTime());
    } else if (id == TIMER_SECTION) {
        int32_t now = static_cast<int32_t>(m_wavOut.GetCurrentPlayTime());
        // Up to 400 ms ahead of the section's start is left alone: that much
        // may still be queued from before the jump.
        if (now + 400 < m_selStartMs) m_wavOut.SetCurrentPlayTime(static_cast<uint32_t>(m_selStartMs));
        if (now >= m_selEndMs) {
            StopPlay();
            FireEvent(1);
            m_waveView.SetSelectable(TRUE);
            KillTimer(m_hWnd, TIMER_SECTION);
        }
    }
}

// ---------------------------------------------------------------- playing

BOOL CTempvoxCtrl::StartPlay()
{
    // First, because the engine reports its first ten seconds while it starts.
    m_wavOut.m_hNotifyWnd = m_hWnd;
    if (!m_bViewCreated || !m_bAttached) return m_wavOut.StartPlay(m_playFilePath.c_str());

    BOOL result;
    if (m_waveView.IsSelected()) {
        result = m_wavOut.StartPlay(m_playFilePath.c_str());
        SetTimer(m_hWnd, TIMER_SECTION, kSectionTimerMs);
        m_waveView.GetSelectionTimes(m_selStartMs, m_selEndMs);
        m_selSerial = m_waveView.GetSelectionSerial();
        m_wavOut.SetCurrentPlayTime(static_cast<uint32_t>(m_selStartMs));
    } else {
        result = m_wavOut.StartPlay(m_playFilePath.c_str());
    }
    m_waveView.SetSelectable(SelectableWhilePlaying());
    m_waveView.ShowPlayCaret(TRUE);
    SetTimer(m_hWnd, TIMER_CARET, kSectionTimerMs);
    return result;
}

// The refined profile lets a section be dragged while it plays: play goes
// on, and the new section is taken up by the next pass (StartPlay after the
// section ends, or ResumePlay), as a drag during a pause always was.
BOOL CTempvoxCtrl::SelectableWhilePlaying() const
{
    return m_wavOut.IsRefined() ? TRUE : FALSE;
}

void CTempvoxCtrl::PausePlay()
{
    m_wavOut.PausePlay();
    m_waveView.SetSelectable(TRUE);
    KillTimer(m_hWnd, TIMER_SECTION);
}

BOOL CTempvoxCtrl::ResumePlay()
{
    if (m_waveView.IsSelected()) {
        int32_t start = 0;
        int32_t end = 0;
        m_waveView.GetSelectionTimes(start, end);
        int32_t now = static_cast<int32_t>(m_wavOut.GetCurrentPlayTime());
        if (m_waveView.GetSelectionSerial() == m_selSerial) {
            if (now < m_selStartMs || now > m_selEndMs) m_wavOut.SetCurrentPlayTime(static_cast<uint32_t>(m_selStartMs));
        } else {
            m_selStartMs = start;
            m_selEndMs = end;
            m_wavOut.SetCurrentPlayTime(static_cast<uint32_t>(start));
            m_selSerial = m_waveView.GetSelectionSerial();
        }
        SetTimer(m_hWnd, TIMER_SECTION, kSectionTimerMs);
    }
    m_waveView.SetSelectable(SelectableWhilePlaying());
    return m_wavOut.ResumePlay();
}

void CTempvoxCtrl::StopPlay()
{
    CancelSentencePause();
    m_wavOut.StopPlay();
    if (m_bViewCreated && m_bAttached) {
        m_waveView.SetSelectable(TRUE);
        KillTimer(m_hWnd, TIMER_SECTION);
        KillTimer(m_hWnd, TIMER_CARET);
        m_waveView.ShowPlayCaret(FALSE);
    }
}

// ---------------------------------------------------------------- audio

void CTempvoxCtrl::StopAndDeleteTemporaries()
{
    // The engine's own stop: a paused engine is left alone, and the timers
    // and the caret of the control go on.
    if (m_wavOut.GetPlayerState() == 1) m_wavOut.StopPlay();
    if (m_playFilePath.empty()) return;
    // Only files that the controls made go: a path that names a user's file
    // (a local encoded file left in m_encodedPath by a failed download, say)
    // is passed over.
    if (m_bDownloaded) {
        DeleteControlFile(m_playFilePath, m_tempDir);
        if (!m_encodedPath.empty()) DeleteControlFile(m_encodedPath, m_tempDir);
    } else if (!m_encodedPath.empty()) {
        DeleteControlFile(m_playFilePath, m_tempDir);
    }
}

// The steps after a path was found: an encoded file is converted beside it,
// and any other file the engine can't play as it stands is decoded.
BOOL CTempvoxCtrl::TakeLocatedPath()
{
    if (m_playFilePath.empty()) return FALSE;
    if (IsEncodedPath(m_playFilePath)) {
        m_encodedPath = m_playFilePath;
        m_playFilePath = ConvertToWav(m_playFilePath, m_tempDir);
    } else if (!TakeDecodedCopy()) {
        m_encodedPath.clear();
    }
    return m_playFilePath.empty() ? FALSE : TRUE;
}

// A decoded file stands as a converted wzq does: the source in
// m_encodedPath, the control's .wav in m_playFilePath, both going by the
// same rules. What FFmpeg can't decode either keeps its path, and the engine
// refuses it at StartPlay as it always did.
bool CTempvoxCtrl::TakeDecodedCopy()
{
    if (!media::IsWorthDecoding(m_playFilePath)) return false;
    m_lastDecode = media::DecodeToWav(m_playFilePath, m_tempDir, m_decodeProgress);
    if (m_lastDecode.wavPath.empty()) return false;
    OutputDebugStringA(("decoded " + m_playFilePath + " into " + m_lastDecode.wavPath + "\n").c_str());
    m_encodedPath = m_playFilePath;
    m_playFilePath = m_lastDecode.wavPath;
    return true;
}

BOOL CTempvoxCtrl::SetPlayFilePath(const char* strHttpAddress, int16_t httpPort_id, const char* strFilePath)
{
    m_sentences.clear();
    StopAndDeleteTemporaries();
    m_lastDecode = media::DecodeReport{};
    if (strFilePath == nullptr || httpPort_id == -1) {
        m_bDownloaded = 0;
        m_playFilePath = strFilePath != nullptr ? strFilePath : "";
    } else {
        m_bDownloaded = 1;
        m_playFilePath = FetchToTemp(strHttpAddress, httpPort_id, strFilePath, nullptr, m_tempDir,
                                     m_wavOut.GetPlaybackProfile() == kProfileRefined);
        OutputDebugStringA(("下载到本地的音频路径：" + m_playFilePath + "\n").c_str());
    }
    if (m_playFilePath.empty()) return FALSE;
    BOOL located = TakeLocatedPath();
    if (!m_encodedPath.empty()) OutputDebugStringA(("转换成wav后的路径" + m_playFilePath + "\n").c_str());
    return located;
}

BOOL CTempvoxCtrl::SetPlayFilePath2(const char* strHttpAddress, int16_t httpPort_id, const char* strFilePath,
                                    const char* localSaveName)
{
    m_lastDecode = media::DecodeReport{};
    m_sentences.clear();
    if (localSaveName != nullptr) {
        std::string cached = FindCachedCopy(m_tempDir, localSaveName);
        if (!cached.empty()) {
            m_playFilePath = cached;
            // A copy the engine can't play as it stands (a download of
            // 24-bit samples kept under its own name) is decoded like any
            // other file; a playable one is taken untouched.
            TakeDecodedCopy();
            return TRUE;
        }
    }
    if (strFilePath == nullptr || httpPort_id == -1) {
        m_bDownloaded = 0;
        m_playFilePath = strFilePath != nullptr ? strFilePath : "";
    } else {
        m_bDownloaded = 1;
        m_playFilePath = FetchToTemp(strHttpAddress, httpPort_id, strFilePath, localSaveName, m_tempDir,
                                     m_wavOut.GetPlaybackProfile() == kProfileRefined);
    }
    return TakeLocatedPath();
}

BOOL CTempvoxCtrl::DeleteAllDownedFile()
{
    return DeleteFolderAndFiles(m_tempDir) ? TRUE : FALSE;
}

// ---------------------------------------------------------------- view

BOOL CTempvoxCtrl::CreateWavViewWnd(int32_t xPos, int32_t yPos, int32_t cX, int32_t cY, int32_t parentHwnd)
{
    OutputDebugStringA("CreateWavViewWnd!");
    // The corner and size travel as a rectangle whose far edge may wrap
    // around; the view takes the size back from it, as the host gave it.
    ViewRect rect{xPos, yPos, WrappingSum(xPos, cX), WrappingSum(yPos, cY)};
    HWND parent = reinterpret_cast<HWND>(static_cast<uintptr_t>(static_cast<uint32_t>(parentHwnd)));
    m_waveView.SetTemporaryFolder(m_tempDir);
    m_waveView.SetRefined(m_wavOut.GetPlaybackProfile() == kProfileRefined);
    if (m_waveView.Create(rect, parent)) {
        OutputDebugStringA("CreateWavViewWnd!-success");
        m_bViewCreated = 1;
        return TRUE;
    }
    OutputDebugStringA("CreateWavViewWnd!-failure");
    ReportMessage(203, "创建显示wav波形窗口失败，请确认参数是否有误！");
    m_bViewCreated = 0;
    return FALSE;
}

int32_t CTempvoxCtrl::GetWavViewCtrlHwnd() const
{
    if (!m_bViewCreated) return 0;
    return static_cast<int32_t>(reinterpret_cast<uintptr_t>(m_waveView.GetSafeHwnd()));
}

BOOL CTempvoxCtrl::AttachWavViewToFile(BOOL isAttach)
{
    m_bAttached = isAttach;
    if (!isAttach) return FALSE;
    if (!m_bViewCreated) {
        m_bAttached = 0;
        return FALSE;
    }
    if (m_playFilePath.empty()) {
        ReportMessage(204, "需要绘制波形的wav文件不存在！");
        m_bAttached = 0;
        return FALSE;
    }
    m_waveView.SetRefined(m_wavOut.GetPlaybackProfile() == kProfileRefined);
    m_waveView.AttachFile(m_playFilePath.c_str());
    m_waveView.ShowPlayCaret(FALSE);
    m_bAttached = 1;
    return TRUE;
}

void CTempvoxCtrl::CreateCaretForWavView(BOOL bCreate)
{
    if (m_bViewCreated) m_waveView.ShowPlayCaret(bCreate);
}

// ---------------------------------------------------------------- language

int16_t CTempvoxCtrl::GetLanguageType() const
{
    return g_languageType;
}

void CTempvoxCtrl::SetLanguageType(int16_t value)
{
    if (static_cast<uint16_t>(value) > 3) return;
    g_languageType = value;
    m_bModified = true;
}

// ---------------------------------------------------------------- sentences

int32_t CTempvoxCtrl::FindSentences(int32_t minPauseMs)
{
    m_sentences.clear();
    SentenceFinderSettings settings;
    if (minPauseMs != 0) settings.minPauseMs = minPauseMs;
    if (settings.minPauseMs < 50 || settings.minPauseMs > 60000) return kSentencesBadPause;
    if (m_playFilePath.empty()) return kSentencesNoFile;
    SentenceScan scan = ScanSentences(m_playFilePath, settings);
    switch (scan.error) {
    case SentenceScanError::None: break;
    case SentenceScanError::CannotOpen:
    case SentenceScanError::NotWave: return kSentencesCannotRead;
    case SentenceScanError::NotPcm: return kSentencesNotPcm;
    case SentenceScanError::BadSettings: return kSentencesBadPause;
    }
    m_sentences = std::move(scan.sentences);
    return static_cast<int32_t>(m_sentences.size());
}

int32_t CTempvoxCtrl::GetSentenceStart(int32_t index) const
{
    if (index < 0 || static_cast<size_t>(index) >= m_sentences.size()) return -1;
    return m_sentences[static_cast<size_t>(index)].startMs;
}

int32_t CTempvoxCtrl::GetSentenceEnd(int32_t index) const
{
    if (index < 0 || static_cast<size_t>(index) >= m_sentences.size()) return -1;
    return m_sentences[static_cast<size_t>(index)].endMs;
}

int32_t CTempvoxCtrl::GetSentenceAt(int32_t timeMs) const
{
    return SentenceAt(m_sentences, timeMs);
}

namespace {

// Classic play tells the time by the read position less a fixed 17640
// bytes, and judges the span when a block comes back with three more of
// 0.1 s still waiting at the device: above 58800 bytes a second its time
// runs ahead of the sound by the difference, which would cut the end of
// every sentence (by 200 ms at 44.1 kHz stereo). The span is armed that much
// later instead. Refined play tells the time heard and needs none.
int32_t ClassicLeadMs(const CWavOut& engine)
{
    const uint32_t byteRate = engine.Format().avgBytesPerSec;
    if (engine.IsRefined() || byteRate == 0) return 0;
    const int64_t leadBytes = 3 * int64_t(engine.ReadSize()) - 17640;
    return leadBytes > 0 ? static_cast<int32_t>(leadBytes * 1000 / byteRate) : 0;
}

}  // namespace

BOOL CTempvoxCtrl::PlaySentence(int32_t index)
{
    if (index < 0 || static_cast<size_t>(index) >= m_sentences.size()) return FALSE;
    const SentenceTimes sentence = m_sentences[static_cast<size_t>(index)];
    CancelSentencePause();
    if (m_wavOut.GetPlayerState() == 0 && !StartPlay()) return FALSE;
    // A section selected in the view gives way to the sentence.
    KillTimer(m_hWnd, TIMER_SECTION);
    // The sentence is heard from its start at once: paused, moved and
    // resumed, the engine drops what it had queued from elsewhere. It does
    // so only when the position moved; one already at the start is moved a
    // millisecond earlier.
    if (m_wavOut.GetPlayerState() == 1 && !m_wavOut.PausePlay()) return FALSE;
    const uint64_t pausedAt = m_wavOut.FilePosition();
    m_wavOut.SetCurrentPlayTime(static_cast<uint32_t>(sentence.startMs));
    if (m_wavOut.FilePosition() == pausedAt && sentence.startMs > 0)
        m_wavOut.SetCurrentPlayTime(static_cast<uint32_t>(sentence.startMs - 1));
    ArmSentencePause(sentence);
    if (m_wavOut.ResumePlay()) return TRUE;
    CancelSentencePause();
    return FALSE;
}

BOOL CTempvoxCtrl::PauseAtEndOfSentence(int32_t index)
{
    if (index < 0 || static_cast<size_t>(index) >= m_sentences.size()) return FALSE;
    if (m_wavOut.GetPlayerState() == 0) return FALSE;
    CancelSentencePause();
    ArmSentencePause(m_sentences[static_cast<size_t>(index)]);
    return TRUE;
}

void CTempvoxCtrl::ArmSentencePause(const SentenceTimes& sentence)
{
    m_sentencePauseEndMs = sentence.endMs + ClassicLeadMs(m_wavOut);
    m_sentencePauseArmed = true;
    m_wavOut.SetOneSentenceTimeSpan(sentence.startMs, m_sentencePauseEndMs);
}

void CTempvoxCtrl::OnSentenceDone()
{
    // Only a span of PlaySentence pauses, and only when play has reached its
    // end: a notice that was still on its way when PlaySentence moved on
    // finds play short of the new end.
    if (m_sentencePauseArmed &&
        m_wavOut.GetCurrentPlayTime() >= static_cast<uint32_t>(std::max(m_sentencePauseEndMs, 0))) {
        m_sentencePauseArmed = false;
        if (m_wavOut.GetPlayerState() == 1) PausePlay();
    }
    FireEvent(4);
}

void CTempvoxCtrl::CancelSentencePause()
{
    if (!m_sentencePauseArmed) return;
    m_sentencePauseArmed = false;
    m_wavOut.SetOneSentenceTimeSpan(0, 0);
}

// ---------------------------------------------------------------- dispatch

HRESULT CTempvoxCtrl::Invoke(DISPID id, InvokeKind kind, const std::vector<Variant>& args, Variant* result,
                             std::string* error)
{
    auto fail = [&](HRESULT code, const std::string& why) {
        if (error != nullptr) *error = why;
        return code;
    };
    const MemberInfo* member = FindMember(id);
    if (member == nullptr) return fail(DISP_E_MEMBERNOTFOUND, "unknown member #" + std::to_string(id));

    std::vector<ParamInfo> expected = member->params;
    if (member->isProperty) {
        if (kind == InvokeKind::Method) {
            return fail(DISP_E_MEMBERNOTFOUND, std::string(member->name) + " is a property, not a method");
        }
        if (kind == InvokeKind::PropertyPut) expected = {{"value", member->result}};
    } else if (kind != InvokeKind::Method) {
        return fail(DISP_E_MEMBERNOTFOUND, std::string(member->name) + " is a method, not a property");
    }

    if (args.size() != expected.size()) {
        return fail(DISP_E_BADPARAMCOUNT, std::string(member->name) + " takes " + std::to_string(expected.size()) +
                                              " argument(s), got " + std::to_string(args.size()));
    }
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i].type != expected[i].type) {
            return fail(DISP_E_TYPEMISMATCH, std::string(member->name) + ": argument " + std::to_string(i + 1) + " (" +
                                                 expected[i].name + ") must be " + VarTypeName(expected[i].type) +
                                                 ", got " + VarTypeName(args[i].type));
        }
    }

    Variant value;
    try {
        value = member->run(*this, kind, args);
    } catch (const CFileException& failure) {
        // A file the member could not open, or could not read as a wave
        // file, reaches the host as the automation layer's exception.
        return fail(DISP_E_EXCEPTION, std::string(member->name) + ": " + failure.what());
    } catch (const CArchiveException& failure) {
        return fail(DISP_E_EXCEPTION, std::string(member->name) + ": " + failure.what());
    } catch (const std::invalid_argument& failure) {
        return fail(DISP_E_EXCEPTION, std::string(member->name) + ": " + failure.what());
    }
    if (result != nullptr) *result = value;
    return S_OK;
}

BOOL CTempvoxCtrl::GetIsSelectedWav() const { return m_waveView.IsSelected(); }

void CTempvoxCtrl::SetOneSentenceTimeSpan(int32_t startTimePos, int32_t endTimePos)
{
    m_sentencePauseArmed = false;
    m_wavOut.SetOneSentenceTimeSpan(startTimePos, endTimePos);
}

void CTempvoxCtrl::SetPlaybackProfile(int16_t profile)
{
    if (profile != kProfileClassic && profile != kProfileRefined)
        throw std::invalid_argument("profile must be 0 (classic) or 1 (refined), got " + std::to_string(profile));
    m_wavOut.SetPlaybackProfile(profile);
    m_waveView.SetRefined(profile == kProfileRefined);
}

float CTempvoxCtrl::GetSpeakingRate(int32_t startMs, int32_t endMs) const
{
    const SpeakingRate rate = MeasureFileSpeakingRate(m_playFilePath, startMs, endMs);
    return static_cast<float>(rate.SyllablesPerSecond());
}

void CTempvoxCtrl::SetSyllablesPerWord(float ratio)
{
    if (!IsSyllablesPerWordValid(ratio)) {
        char why[128];
        std::snprintf(why, sizeof why, "syllables per word must be from %g to %g, got %g", kMinSyllablesPerWord,
                      kMaxSyllablesPerWord, double(ratio));
        throw std::invalid_argument(why);
    }
    m_wavOut.SetSyllablesPerWord(ratio);
}
