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

// ------------------------------------------------------------ selection

BOOL CWaveViewCtrl::IsSelected() const
{
    return m_bSelected != 0 && m_selStart != m_selEnd ? TRUE : FALSE;
}

void CWaveViewCtrl::GetSelectionTimes(int32_t& startMs, int32_t& endMs) const
{
    if (!IsSelected()) {
        ReportMessage(220, "波形未选中,调用失败!");
        return;
    }
    if (m_bRefined) {
        const view::TimeAxis axis = RefinedAxis();
        startMs = static_cast<int32_t>(std::min<uint64_t>(axis.MsOfColumn(m_selStart), INT32_MAX));
        endMs = static_cast<int32_t>(std::min<uint64_t>(axis.MsOfColumn(m_selEnd), INT32_MAX));
        return;
    }
    const double total = Numbers().totalMs;
    const int width = Width();
    // A view of no width has no time scale; both ends are then 0.
    endMs = width > 0 ? TruncateToInt(double(m_selEnd) / width * total) : 0;
    startMs = width > 0 ? TruncateToInt(double(m_selStart) / width * total) : 0;
}

void CWaveViewCtrl::ClearSelection()
{
    m_selStart = 0;
    m_selEnd = 0;
    InvalidateRect(m_hWnd, nullptr, TRUE);
    m_bSelected = 0;
}

void CWaveViewCtrl::OnLButtonDown(UINT, POINT point)
{
    Default();
    SetCapture(m_hWnd);
    m_moveCount = 0;
    m_bButtonDown = 1;
    if (m_bSelectable != 0) {
        m_selStart = point.x;
        m_bSelected = 0;
        InvalidateRect(m_hWnd, nullptr, TRUE);
    }
}

void CWaveViewCtrl::OnMouseMove(UINT flags, POINT point)
{
    Default();
    if (m_bRefined && flags == MK_LBUTTON && m_bSelectable != 0 && m_bButtonDown != 0) {
        OnRefinedDrag(point);
    } else if (flags == MK_LBUTTON && m_bSelectable != 0 && m_bButtonDown != 0) {
        m_bSelected = 1;
        m_bDragged = 1;
        HDC dc = GetDC(m_hWnd);
        HBRUSH brush = CreateSolidBrush(kTintColor);
        HPEN pen = CreatePen(PS_NULL, 0, kTintPenColor);
        HGDIOBJ oldBrush = SelectObject(dc, brush);
        HGDIOBJ oldPen = SelectObject(dc, pen);
        SetROP2(dc, R2_XORPEN);
        if (m_moveCount == 0)
            m_lastDragX = m_selStart;
        // Only the strip between the band's old end and the new one flips.
        if (point.x < m_lastDragX) {
            HideCaret(m_hWnd);
            Rectangle(dc, point.x - 1, kOverlayTop, m_lastDragX, Height());
            ShowCaret(m_hWnd);
        } else if (point.x > m_lastDragX) {
            HideCaret(m_hWnd);
            Rectangle(dc, m_lastDragX - 1, kOverlayTop, point.x, Height());
            ShowCaret(m_hWnd);
        }
        m_lastDragX = point.x;
        SelectObject(dc, oldBrush);
        SelectObject(dc, oldPen);
        DeleteObject(brush);
        DeleteObject(pen);
        ReleaseDC(m_hWnd, dc);
    }
    ++m_moveCount;
}

void CWaveViewCtrl::OnLButtonUp(UINT, POINT point)
{
    Default();
    const int x = std::clamp<int>(point.x, 0, Width());
    m_bButtonDown = 0;
    m_moveCount = 0;
    if (m_bSelected != 0 && m_bSelectable != 0) {
        const int anchor = m_selStart;
        if (anchor < x) {
            m_selEnd = x;
        } else if (anchor > x) {
            m_selStart = x;
            m_selEnd = anchor;
        } else {
            m_selEnd = anchor;
        }
    }
    const int64_t span = int64_t(m_selEnd) - m_selStart;
    if (span >= -2 && span <= 2) {
        m_selStart = -1;
        m_selEnd = -1;
    }
    if (m_bDragged == 1) {
        ++m_selectionSerial;
        m_bDragged = 0;
    }
    InvalidateRect(m_hWnd, nullptr, TRUE);
    ReleaseCapture();
}

void CWaveViewCtrl::OnSize(UINT, int, int)
{
    RECT client;
    GetClientRect(m_hWnd, &client);
    const int newWidth = client.right - client.left;
    const int newHeight = client.bottom - client.top;
    const int oldWidth = Width();
    // Before the first stored size there is nothing to scale from.
    auto rescale = [&](int x) {
        if (oldWidth <= 0)
            return x;
        const float share = static_cast<float>(double(x) / oldWidth);
        return TruncateToInt(share * static_cast<float>(newWidth));
    };
    m_selStart = rescale(m_selStart);
    m_selEnd = rescale(m_selEnd);
    if (m_bCaret != 0) {
        POINT caret;
        GetCaretPos(&caret);
        const int x = rescale(caret.x);
        DestroyCaret();
        CreateCaret(m_hWnd, nullptr, CaretWidth(), newHeight - kRulerHeight);
        SetCaretPos(x, CaretTop());
        ShowCaret(m_hWnd);
    }
    m_clientRect = client;
    Default();
}

// ------------------------------------------------------------ caret

void CWaveViewCtrl::ShowPlayCaret(BOOL show)
{
    if (show == 1) {
        CreateCaret(m_hWnd, nullptr, CaretWidth(), Height() - kRulerHeight);
        m_bCaret = 1;
        MoveCaretToTime(0);
        ShowCaret(m_hWnd);
    } else {
        DestroyCaret();
        m_bCaret = 0;
    }
}

LRESULT CWaveViewCtrl::OnShowCaret(WPARAM, LPARAM)
{
    ShowPlayCaret(1);
    return 1;
}

void CWaveViewCtrl::MoveCaretToTime(uint32_t ms)
{
    if (GetActiveWindow() == nullptr) {
        InvalidateRect(m_hWnd, nullptr, TRUE);
        ShowPlayCaret(0);
        CreateCaret(m_hWnd, nullptr, CaretWidth(), Height() - kRulerHeight);
        m_bCaret = 1;
        ShowCaret(m_hWnd);
        SetActiveWindow(GetParent(m_hWnd));
    }
    if (m_bCaret == 0)
        return;
    if (m_bRefined) {
        // The caret stands on the column of the time heard, wholly inside
        // the view at the end.
        const int x = std::min(RefinedAxis().ColumnOfMs(ms), Width() - CaretWidth());
        SetCaretPos(std::max(x, 0), CaretTop());
        return;
    }
    const double total = Numbers().totalMs;
    // No file, or one with no samples, has no time scale: the caret stays left.
    const double share = total > 0.0 ? double(ms) / total : 0.0;
    SetCaretPos(TruncateToInt(share * Width()), kOverlayTop);
}
