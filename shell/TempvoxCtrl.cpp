#include "shell/TempvoxCtrl.h"

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
#include "shell/MessageCatalogue.h"

namespace {

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
        FireEvent(4);
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
    m_waveView.SetSelectable(FALSE);
    m_waveView.ShowPlayCaret(TRUE);
    SetTimer(m_hWnd, TIMER_CARET, kSectionTimerMs);
    return result;
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
    m_waveView.SetSelectable(FALSE);
    return m_wavOut.ResumePlay();
}

void CTempvoxCtrl::StopPlay()
{
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

// The steps after a path was found: an encoded file is converted beside it.
BOOL CTempvoxCtrl::TakeLocatedPath()
{
    if (m_playFilePath.empty()) return FALSE;
    if (IsEncodedPath(m_playFilePath)) {
        m_encodedPath = m_playFilePath;
        m_playFilePath = ConvertToWav(m_playFilePath, m_tempDir);
    } else {
        m_encodedPath.clear();
    }
    return m_playFilePath.empty() ? FALSE : TRUE;
}

BOOL CTempvoxCtrl::SetPlayFilePath(const char* strHttpAddress, int16_t httpPort_id, const char* strFilePath)
{
    StopAndDeleteTemporaries();
    if (strFilePath == nullptr || httpPort_id == -1) {
        m_bDownloaded = 0;
        m_playFilePath = strFilePath != nullptr ? strFilePath : "";
    } else {
        m_bDownloaded = 1;
        m_playFilePath = FetchToTemp(strHttpAddress, httpPort_id, strFilePath, nullptr, m_tempDir);
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
    if (localSaveName != nullptr) {
        std::string cached = FindCachedCopy(m_tempDir, localSaveName);
        if (!cached.empty()) {
            m_playFilePath = cached;
            return TRUE;
        }
    }
    if (strFilePath == nullptr || httpPort_id == -1) {
        m_bDownloaded = 0;
        m_playFilePath = strFilePath != nullptr ? strFilePath : "";
    } else {
        m_bDownloaded = 1;
        m_playFilePath = FetchToTemp(strHttpAddress, httpPort_id, strFilePath, localSaveName, m_tempDir);
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
    ViewRect rect{xPos, yPos, xPos + cX, yPos + cY};
    HWND parent = reinterpret_cast<HWND>(static_cast<uintptr_t>(static_cast<uint32_t>(parentHwnd)));
    m_waveView.SetTemporaryFolder(m_tempDir);
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
        value = RunMember(id, kind, args);
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

Variant CTempvoxCtrl::RunMember(DISPID id, InvokeKind kind, const std::vector<Variant>& a)
{
    auto u32 = [&](size_t i) { return static_cast<uint32_t>(a[i].intValue); };
    switch (id) {
    case 1: return Variant::Bool(StartPlay());
    case 2: PausePlay(); return {};
    case 3: return Variant::Bool(ResumePlay());
    case 4: return Variant::Bool(m_wavOut.SetVolume(a[0].intValue));
    case 5: return Variant::I4(m_wavOut.GetVolume());
    case 6: m_wavOut.SetChangeSpeedLevel(static_cast<int16_t>(a[0].intValue)); return {};
    case 7: return Variant::I2(m_wavOut.GetChangeSpeedLevel());
    case 8: return Variant::I2(static_cast<int16_t>(m_wavOut.GetPlayerState()));
    case 9: return Variant::I4(static_cast<int32_t>(m_wavOut.GetTotalPlayTime()));
    case 10: m_wavOut.SetCurrentPlayTime(u32(0)); return {};
    case 11: return Variant::I4(static_cast<int32_t>(m_wavOut.GetCurrentPlayTime()));
    case 12: m_wavOut.SpeedUp(u32(0)); return {};
    case 13: m_wavOut.SpeedBack(u32(0)); return {};
    case 14: StopPlay(); return {};
    case 15: return Variant::Bool(SetPlayFilePath(a[0].CStr(), static_cast<int16_t>(a[1].intValue), a[2].CStr()));
    case 16: return Variant::Str(GetPlayFilePath());
    case 17: m_wavOut.LoadMixSound(a[0].CStr()); return {};
    case 18: m_wavOut.SetMixerFlag(a[0].intValue); return {};
    case 19: return Variant::Bool(m_wavOut.GetMixerFlag());
    case 20:
        return Variant::Bool(CreateWavViewWnd(a[0].intValue, a[1].intValue, a[2].intValue, a[3].intValue, a[4].intValue));
    case 21: return Variant::I4(GetWavViewCtrlHwnd());
    case 22: return Variant::Bool(AttachWavViewToFile(a[0].intValue));
    case 23: CreateCaretForWavView(a[0].intValue); return {};
    case 24: return Variant::Bool(m_waveView.IsSelected());
    case 25: m_wavOut.SetLoopPlaySection(a[0].intValue, u32(1), u32(2)); return {};
    case 26: m_wavOut.ResetToPlayFromCurPos(); return {};
    case 27:
        return Variant::Bool(
            SetPlayFilePath2(a[0].CStr(), static_cast<int16_t>(a[1].intValue), a[2].CStr(), a[3].CStr()));
    case 28: return Variant::Bool(DeleteAllDownedFile());
    case 29: m_wavOut.SetCountWordTimeSpan(a[0].intValue); return {};
    case 30: SetCountWordSquare(a[0].floatValue); return {};
    case 31: m_wavOut.SetJustPlay(a[0].intValue); return {};
    case 32: m_wavOut.SetOneSentenceTimeSpan(a[0].intValue, a[1].intValue); return {};
    case 33: return Variant::I4(m_wavOut.GetWordSpeedByAsyn(a[0].floatValue, a[1].intValue));
    case 34:
        if (kind == InvokeKind::PropertyPut) {
            SetLanguageType(static_cast<int16_t>(a[0].intValue));
            return {};
        }
        return Variant::I2(GetLanguageType());
    case 35:
        if (a[0].intValue != kProfileClassic && a[0].intValue != kProfileRefined)
            throw std::invalid_argument("profile must be 0 (classic) or 1 (refined), got " +
                                        std::to_string(a[0].intValue));
        m_wavOut.SetPlaybackProfile(static_cast<int16_t>(a[0].intValue));
        return {};
    case 36: return Variant::I2(m_wavOut.GetPlaybackProfile());
    case 42: {
        const SpeakingRate rate = MeasureFileSpeakingRate(m_playFilePath, a[0].intValue, a[1].intValue);
        return Variant::R4(static_cast<float>(rate.SyllablesPerSecond()));
    }
    case 43:
        if (!IsSyllablesPerWordValid(a[0].floatValue)) {
            char why[128];
            std::snprintf(why, sizeof why, "syllables per word must be from %g to %g, got %g", kMinSyllablesPerWord,
                          kMaxSyllablesPerWord, double(a[0].floatValue));
            throw std::invalid_argument(why);
        }
        m_wavOut.SetSyllablesPerWord(a[0].floatValue);
        return {};
    default:
        return {};
    }
}
