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

// ------------------------------------------------------------ drawing

void CWaveViewCtrl::OnPaint()
{
    CPaintDC dc(m_hWnd);
    if (m_bLoading == 1)
        return;
    if (m_bRestoreCaret == 1 && m_bCaret == 1)
        SetCaretPos(m_savedCaretX, CaretTop());
    if (m_bRefined) {
        PaintRefined(dc.GetSafeHdc());
        m_bRestoreCaret = 0;
        return;
    }
    DrawRuler(dc);
    DrawWave();
    if (m_bSelected == 1)
        DrawSelectionTint(dc.GetSafeHdc(), m_selStart, m_selEnd);
    if (m_bRestoreCaret == 1)
        m_bRestoreCaret = 0;
}

void CWaveViewCtrl::DrawRuler(CDC& dc)
{
    const int width = Width();
    HBRUSH white = CreateSolidBrush(RGB(255, 255, 255));
    RECT band{0, 0, width, kRulerHeight};
    dc.FillRect(&band, white);
    HFONT font = CreateFontA(12, 6, 0, 0, 700, 1, 0, 0, 0, 1, 0, 2, 16, nullptr);
    HGDIOBJ oldFont = dc.SelectObject(font);

    // Without a readable file the band stays plain white.
    const WaveNumbers numbers = Numbers();
    if (HasWave()) {
        const float seconds = numbers.rulerSeconds;
        int64_t step = static_cast<int64_t>(seconds / 10.0);
        if (step == 0)
            step = 1;
        const int64_t last = static_cast<int64_t>(seconds / static_cast<float>(step));
        for (int64_t i = 0; i <= last; ++i) {
            const int64_t t = i * step;
            // An empty data chunk has no length to divide by: its one tick
            // stands at 0.
            const float ratio = seconds > 0.0f ? static_cast<float>(t) / seconds : 0.0f;
            const int x = TruncateToInt(static_cast<float>(width) * ratio);
            if (i == last)
                dc.Rectangle(x - 1, kRulerHeight, x, kTickTop);
            else
                dc.Rectangle(x, kRulerHeight, x + 1, kTickTop);
            const std::string label = TwoDigits(uint64_t(t) / 60) + ":" + TwoDigits(uint64_t(t) % 60);
            int left = x;
            if (i == last && i != 0)
                left = x - 32;
            else if (i != 0)
                left = TruncateToInt(x - (width / 10) / 4.0);
            dc.TextOut(left, 0, label.c_str(), static_cast<int>(label.size()));
        }
    }
    dc.SelectObject(oldFont);
    DeleteObject(font);
    DeleteObject(white);
}

void CWaveViewCtrl::DrawWave()
{
    if (!HasWave())
        return DrawEmptyWaveBand();
    if (m_memDC.GetSafeHdc() == nullptr) {
        if (!m_memDC.Attach(CreateCompatibleDC(nullptr)))
            return;
        GetClientRect(m_hWnd, &m_bitmapRect);
        const int bitmapWidth = m_bitmapRect.right - m_bitmapRect.left;
        const int bitmapHeight = m_bitmapRect.bottom - m_bitmapRect.top;
        HDC windowDC = GetDC(m_hWnd);
        m_hBitmap = CreateCompatibleBitmap(windowDC, bitmapWidth, bitmapHeight);
        ReleaseDC(m_hWnd, windowDC);
        if (m_hBitmap == nullptr) {
            // A window of no size: try again at a later paint.
            ReleaseBitmap();
            return DrawEmptyWaveBand();
        }
        m_hOldBitmap = m_memDC.SelectObject(m_hBitmap);
        m_memDC.FillSolidRect(0, 0, bitmapWidth, bitmapHeight, RGB(0, 0, 0));
        HPEN pen = CreatePen(PS_SOLID, 0, kTraceColor);
        HGDIOBJ oldPen = m_memDC.SelectObject(pen);

        const WaveNumbers numbers = Numbers();
        // Files under a second, longer than 15 seconds a pixel, or of a rate
        // below 15 points a pixel would give a step of 0; each bound is 1.
        const uint32_t seconds = std::max<uint32_t>(numbers.wholeSeconds, 1);
        const int margin = seconds < 10 ? bitmapWidth - (bitmapWidth / 10) * static_cast<int>(seconds) : 0;
        const int64_t points = std::max<int64_t>((15 * int64_t(bitmapWidth)) / seconds, 1);
        const uint64_t step = std::max<uint64_t>(numbers.samplesPerSec / points, 1);
        const int mid = bitmapHeight / 2;
        m_memDC.MoveTo(0, mid);
        const float sampleCountF = static_cast<float>(numbers.sampleCount);
        // Depths other than 8 and 16 are read as 16-bit samples, and only
        // as far as whole ones lie inside the data chunk.
        const uint64_t readable = numbers.bitsPerSample == 8 ? numbers.sampleCount : numbers.dataLength / 2;
        for (uint64_t i = 0; i < numbers.sampleCount && i < readable; i += step) {
            int value = 0;
            if (numbers.bitsPerSample == 8)
                value = (int(m_pSamples[i]) - 128) * mid / 128;
            else
                value = int(static_cast<int16_t>(riff::GetU16(m_pSamples + 2 * i))) * mid / 32767;
            const int y = mid - value;
            const int x = TruncateToInt(static_cast<float>(i) / sampleCountF * static_cast<float>(bitmapWidth - margin));
            m_memDC.LineTo(x, y);
        }
        m_memDC.SelectObject(oldPen);
        DeleteObject(pen);
    }
    RECT client;
    GetClientRect(m_hWnd, &client);
    HDC windowDC = GetDC(m_hWnd);
    ::StretchBlt(windowDC, 0, kRulerHeight, client.right, client.bottom, m_memDC.GetSafeHdc(), 0, 0,
                 m_bitmapRect.right - m_bitmapRect.left, m_bitmapRect.bottom - m_bitmapRect.top, SRCCOPY);
    ReleaseDC(m_hWnd, windowDC);
}

void CWaveViewCtrl::DrawEmptyWaveBand()
{
    RECT client;
    GetClientRect(m_hWnd, &client);
    CDC windowDC;
    windowDC.Attach(GetDC(m_hWnd));
    windowDC.FillSolidRect(0, kRulerHeight, client.right, client.bottom - kRulerHeight, RGB(0, 0, 0));
    ReleaseDC(m_hWnd, windowDC.Detach());
}

void CWaveViewCtrl::DrawSelectionTint(HDC dc, int left, int right)
{
    HBRUSH brush = CreateSolidBrush(kTintColor);
    HPEN pen = CreatePen(PS_NULL, 0, kTintPenColor);
    HGDIOBJ oldBrush = SelectObject(dc, brush);
    HGDIOBJ oldPen = SelectObject(dc, pen);
    const int oldMode = SetROP2(dc, R2_XORPEN);
    Rectangle(dc, left, kOverlayTop, right, Height());
    SetROP2(dc, oldMode);
    SelectObject(dc, oldBrush);
    SelectObject(dc, oldPen);
    DeleteObject(brush);
    DeleteObject(pen);
}

void CWaveViewCtrl::OnTimer(UINT_PTR)
{
    InvalidateRect(m_hWnd, nullptr, TRUE);
}
