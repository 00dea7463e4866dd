#include "view/WaveViewCtrl.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

#include "platform/Caret.h"
#include "platform/Exceptions.h"
#include "platform/File.h"
#include "platform/FileApi.h"
#include "platform/HostUi.h"
#include "platform/MessageBox.h"
#include "platform/OwnedFiles.h"
#include "messages/MessageCatalogue.h"
#include "view/WaveViewParts.h"

using namespace waveview;

// ------------------------------------------------------------ saving

void CWaveViewCtrl::OnRButtonDown(UINT, POINT point)
{
    Default();
    if (m_bSelected != 1 || point.x <= m_selStart || point.x >= m_selEnd)
        return;
    HMENU menu = CreatePopupMenu();
    char slots[4][kMenuSlotBytes] = {};
    const char* label = "保存";
    if (LoadLanguageStrings(201, slots[0], slots[1], slots[2], slots[3], kMenuSlotBytes) == 1)
        label = slots[g_languageType >= 0 && g_languageType <= 3 ? g_languageType : 1];
    AppendMenuA(menu, MF_STRING, ID_WAVE_SAVE, label);
    POINT cursor;
    GetCursorPos(&cursor);
    TrackPopupMenu(menu, TPM_RIGHTBUTTON, cursor.x, cursor.y, 0, m_hWnd, nullptr);
    DestroyMenu(menu);
}

void CWaveViewCtrl::OnSaveCommand()
{
    if (m_bSelected == 1)
        SaveSelection();
}

void CWaveViewCtrl::SaveSelection()
{
    const CurrentFolderKept hostFolder;
    const BOOL hadCaret = m_bCaret;
    POINT caret;
    GetCaretPos(&caret);
    m_savedCaretX = caret.x;
    if (m_bCaret)
        ShowPlayCaret(0);
    const RECT band{m_selStart, kOverlayTop, m_selEnd, Height() - kRulerHeight};
    InvalidateRect(m_hWnd, &band, TRUE);
    const int startPx = m_selStart;
    const int endPx = m_selEnd;
    const uint32_t attachAtStart = m_attachCount;
    SetTimer(m_hWnd, kRepaintTimerId, kRepaintTimerMs, nullptr);

    std::string path;
    for (;;) {
        if (m_bSelected != 1) {
            KillTimer(m_hWnd, kRepaintTimerId);
            if (m_bSelected == 0)
                ReportMessage(218, "波形未选中,不能保存!");
            RestoreCaretAfterSave(hadCaret);
            return;
        }
        InvalidateRect(m_hWnd, &band, TRUE);
        // Each dialogue starts in the user's home folder.
        SetCurrentDirectoryA(platform::HomeFolder().c_str());
        CFileDialog dialog(FALSE, "wav", "AudioFile.wav", 0, "音频文件(*.wav)|*.wav||", nullptr, 0, TRUE);
        if (dialog.DoModal() != IDOK) {
            m_bRestoreCaret = 1;
            if (hadCaret) {
                ShowPlayCaret(1);
                SetCaretPos(m_savedCaretX, CaretTop());
                ShowCaret(m_hWnd);
            }
            KillTimer(m_hWnd, kRepaintTimerId);
            InvalidateRect(m_hWnd, nullptr, TRUE);
            return;
        }
        path = dialog.GetPathName();
        InvalidateRect(m_hWnd, &band, TRUE);
        if (platform::FileExists(path) &&
            MessageBoxA(m_hWnd, "该目录下存在重名文件,是否要替换原有文件?", "System", MB_OKCANCEL | MB_ICONQUESTION) ==
                IDCANCEL) {
            m_bRestoreCaret = 1;
            KillTimer(m_hWnd, kRepaintTimerId);
            InvalidateRect(m_hWnd, nullptr, TRUE);
            SetTimer(m_hWnd, kRepaintTimerId, kRepaintTimerMs, nullptr);
            continue;
        }
        break;
    }
    m_bRestoreCaret = 1;
    KillTimer(m_hWnd, kRepaintTimerId);
    InvalidateRect(m_hWnd, nullptr, TRUE);
    // An attach while the dialogue was up replaced the mapping the range
    // was taken on; that selection is gone as surely as a cleared one.
    if (m_attachCount != attachAtStart || !(m_bRefined ? HasRefinedWave() : HasWave())) {
        ReportMessage(218, "波形未选中,不能保存!");
        RestoreCaretAfterSave(hadCaret);
        return;
    }
    WriteSelection(path, startPx, endPx);
    RestoreCaretAfterSave(hadCaret);
}

void CWaveViewCtrl::RestoreCaretAfterSave(BOOL hadCaret)
{
    if (!hadCaret)
        return;
    ShowPlayCaret(1);
    SetCaretPos(m_savedCaretX, CaretTop());
    ShowCaret(m_hWnd);
}

int CWaveViewCtrl::CaretTop() const
{
    return m_bRefined ? kRulerHeight : kOverlayTop;
}

// Two columns in the refined drawing: an inverted line of one pixel is lost
// against the selection's tint and the trace.
int CWaveViewCtrl::CaretWidth() const
{
    return m_bRefined ? 2 : 0;
}

void CWaveViewCtrl::WriteSelection(const std::string& path, int startPx, int endPx)
{
    if (m_bRefined)
        return WriteRefinedSelection(path, startPx, endPx);
    const WaveNumbers numbers = Numbers();
    const float sampleCountF = static_cast<float>(numbers.sampleCount);
    const int width = Width();
    int64_t first = width > 0 ? static_cast<int64_t>(double(startPx) / width * double(sampleCountF)) : 0;
    int64_t last = width > 0 ? static_cast<int64_t>(double(endPx) / width * double(sampleCountF)) : 0;
    first = std::max<int64_t>(first, 1);
    last = std::min<int64_t>(last, numbers.sampleCount);
    const uint32_t bytesPerSample = numbers.bitsPerSample == 16 ? 2 : 1;
    // An empty data chunk leaves nothing to take; the file gets the head only.
    const uint32_t sampleBytes = last >= first ? static_cast<uint32_t>((last - first + 1) * bytesPerSample) : 0;
    const BYTE* source = m_pSamples + (first - 1) * bytesPerSample;

    std::vector<BYTE> samples(source, source + sampleBytes);
    std::vector<BYTE> header(m_pFileView, m_pFileView + m_headerBytes);
    riff::PutU32(header.data() + 4, sampleBytes + m_headerBytes - 8);
    riff::PutU32(header.data() + m_headerBytes - 4, sampleBytes);

    CFile out;
    if (!out.Open(path.c_str(), CFile::modeCreate | CFile::modeWrite))
        throw CFileException(path);
    const bool written = out.Write(header.data(), static_cast<uint32_t>(header.size())) == header.size() &&
                         out.Write(samples.data(), sampleBytes) == sampleBytes;
    out.Close();
    if (!written)
        throw CFileException(path);
}
