// The refined drawing and selection of CWaveViewCtrl: everything here is
// reached only while SetRefined(true) holds; the classic rules stay in
// WaveViewCtrl.cpp untouched.
#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

#include "riff/LittleEndian.h"
#include "platform/Exceptions.h"
#include "platform/File.h"
#include "view/RulerScale.h"
#include "view/WaveViewCtrl.h"

namespace {

constexpr int kRulerHeight = 25;
constexpr int kLabelTop = 1;
constexpr int kMajorTickTop = 14;
constexpr int kMinorTickTop = 19;
constexpr int kMarkRows = 6;  // a sentence mark: a small triangle down to the band
constexpr COLORREF kPaper = RGB(255, 255, 255);
constexpr COLORREF kInk = RGB(0, 0, 0);
constexpr COLORREF kMinorInk = RGB(128, 128, 128);
constexpr COLORREF kMarkColor = RGB(230, 120, 0);

view::SampleLayout SampleLayoutOf(const riff::WaveLayout& layout)
{
    view::SampleLayout samples;
    samples.channels = layout.channels;
    samples.bitsPerSample = layout.bitsPerSample;
    samples.blockAlign = layout.blockAlign;
    samples.isFloat = layout.formatTag == riff::kFormatIeeeFloat;
    return samples;
}

void FillColumns(HDC dc, int left, int top, int right, int bottom, HBRUSH brush)
{
    RECT area{left, top, right, bottom};
    FillRect(dc, &area, brush);
}

}  // namespace

void CWaveViewCtrl::SetRefined(bool refined)
{
    if (m_bRefined == refined)
        return;
    m_bRefined = refined;
    m_peaks = view::PeakColumns{};
    m_picture.Release();
    if (m_hWnd != nullptr)
        InvalidateRect(m_hWnd, nullptr, TRUE);
}

void CWaveViewCtrl::SetSentenceMarks(std::vector<int32_t> startsMs)
{
    std::sort(startsMs.begin(), startsMs.end());
    m_sentenceMarks = std::move(startsMs);
    if (m_hWnd != nullptr && m_bRefined) {
        const RECT ruler{0, 0, Width(), kRulerHeight};
        InvalidateRect(m_hWnd, &ruler, TRUE);
    }
}

void CWaveViewCtrl::ReadRefinedLayout()
{
    m_bLayoutReadable = false;
    m_layout = riff::WaveLayout{};
    if (m_pFileView == nullptr || riff::FindWaveLayout(m_pFileView, m_mappingSize, m_layout) != riff::LayoutError::None)
        return;
    const bool samplesOfAKindWeRead =
        m_layout.formatTag == riff::kFormatPcm || m_layout.formatTag == riff::kFormatIeeeFloat;
    m_bLayoutReadable = samplesOfAKindWeRead && m_layout.samplesPerSec > 0 &&
                        view::CanReadSamples(SampleLayoutOf(m_layout));
}

view::TimeAxis CWaveViewCtrl::RefinedAxis() const
{
    view::TimeAxis axis;
    if (!HasRefinedWave())
        return axis;
    axis.frames = m_layout.dataLength / m_layout.blockAlign;
    axis.samplesPerSec = m_layout.samplesPerSec;
    axis.width = std::max(Width(), 0);
    return axis;
}

// ------------------------------------------------------------ drawing

void CWaveViewCtrl::PaintRefined(HDC dc)
{
    const int width = Width();
    const int band = Height() - kRulerHeight;
    const view::TimeAxis axis = RefinedAxis();
    DrawRefinedRuler(dc, axis);
    if (band <= 0)
        return;
    if (!HasRefinedWave() || axis.width <= 0) {
        HBRUSH black = CreateSolidBrush(CPeakPicture::kBackground);
        FillColumns(dc, 0, kRulerHeight, width, kRulerHeight + band, black);
        DeleteObject(black);
        return;
    }
    // The one pass over the samples happens for a new width only; a new
    // height draws the same columns again; any other paint only copies.
    if (m_peaks.width != width) {
        m_peaks = view::ReadPeakColumns(m_pFileView + m_layout.dataOffset, SampleLayoutOf(m_layout), axis);
        m_picture.Release();
    }
    if (!m_picture.Matches(width, band))
        m_picture.Build(m_peaks, band);
    m_picture.CopyColumns(dc, kRulerHeight, 0, width, false);
    int left = 0;
    int right = 0;
    if (RefinedTintSpan(left, right))
        m_picture.CopyColumns(dc, kRulerHeight, left, right, true);
}

void CWaveViewCtrl::DrawRefinedRuler(HDC dc, const view::TimeAxis& axis)
{
    HBRUSH paper = CreateSolidBrush(kPaper);
    FillColumns(dc, 0, 0, Width(), kRulerHeight, paper);
    DeleteObject(paper);
    if (axis.IsEmpty())
        return;

    HFONT font = CreateFontA(12, 0, 0, 0, FW_NORMAL, 0, 0, 0, 0, 0, 0, 0, FF_SWISS, nullptr);
    HGDIOBJ oldFont = SelectObject(dc, font);
    const view::RulerLayout ruler = view::LayOutRuler(axis, [dc](const std::string& text) {
        SIZE size;
        return GetTextExtentPoint32A(dc, text.c_str(), static_cast<int>(text.size()), &size) ? int(size.cx) : 0;
    });
    HBRUSH ink = CreateSolidBrush(kInk);
    HBRUSH minorInk = CreateSolidBrush(kMinorInk);
    for (int x : ruler.minorTicks)
        FillColumns(dc, x, kMinorTickTop, x + 1, kRulerHeight, minorInk);
    for (int x : ruler.majorTicks)
        FillColumns(dc, x, kMajorTickTop, x + 1, kRulerHeight, ink);
    SetTextColor(dc, kInk);
    SetBkColor(dc, kPaper);
    for (const view::RulerLabel& label : ruler.labels)
        TextOutA(dc, label.left, kLabelTop, label.text.c_str(), static_cast<int>(label.text.size()));
    DeleteObject(ink);
    DeleteObject(minorInk);
    SelectObject(dc, oldFont);
    DeleteObject(font);
    DrawSentenceMarks(dc, axis);
}

void CWaveViewCtrl::DrawSentenceMarks(HDC dc, const view::TimeAxis& axis)
{
    HBRUSH brush = CreateSolidBrush(kMarkColor);
    for (int32_t ms : m_sentenceMarks) {
        if (ms < 0)
            continue;
        const int x = std::min(axis.ColumnOfMs(static_cast<uint64_t>(ms)), axis.width - 1);
        // Rows narrowing to one pixel at the band: the point stands on the time.
        for (int row = 0; row < kMarkRows; ++row) {
            const int reach = kMarkRows - 1 - row;
            const int y = kRulerHeight - kMarkRows + row;
            FillColumns(dc, x - reach, y, x + reach + 1, y + 1, brush);
        }
    }
    DeleteObject(brush);
}

// ------------------------------------------------------------ selection

bool CWaveViewCtrl::RefinedTintSpan(int& left, int& right) const
{
    if (m_bButtonDown != 0 && m_bDragged != 0) {
        left = std::min(m_selStart, m_lastDragX);
        right = std::max(m_selStart, m_lastDragX);
    } else if (m_bSelected != 0) {
        left = std::min(m_selStart, m_selEnd);
        right = std::max(m_selStart, m_selEnd);
    } else {
        return false;
    }
    return right > left;
}

// The band follows the mouse by a repaint of the strip that changed: the
// selected picture is copied over the plain one, so the trace stays in view
// and no inversion has to be undone.
void CWaveViewCtrl::OnRefinedDrag(POINT point)
{
    m_bSelected = 1;
    m_bDragged = 1;
    const int previous = m_moveCount == 0 ? m_selStart : m_lastDragX;
    m_lastDragX = point.x;
    const RECT strip{std::min<LONG>(previous, point.x) - 1, kRulerHeight, std::max<LONG>(previous, point.x) + 1,
                     Height()};
    InvalidateRect(m_hWnd, &strip, TRUE);
}

// ------------------------------------------------------------ saving

// Whole frames from the first of the start column up to the first of the
// end column, so a stereo file never begins on its right channel; the head
// is the source's up to its samples, with both lengths rewritten.
void CWaveViewCtrl::WriteRefinedSelection(const std::string& path, int startPx, int endPx)
{
    const view::TimeAxis axis = RefinedAxis();
    const uint64_t first = axis.FirstFrameOfColumn(std::min(startPx, endPx));
    const uint64_t end = axis.FirstFrameOfColumn(std::max(startPx, endPx));
    const uint64_t sampleBytes64 = (end - first) * m_layout.blockAlign;
    const uint32_t headBytes = static_cast<uint32_t>(m_layout.dataOffset);
    // A chunk body of odd length is followed by a pad byte.
    const uint32_t pad = static_cast<uint32_t>(sampleBytes64 & 1);
    if (sampleBytes64 + headBytes + pad > UINT32_MAX)
        throw CFileException(path);
    const uint32_t sampleBytes = static_cast<uint32_t>(sampleBytes64);

    std::vector<BYTE> head(m_pFileView, m_pFileView + headBytes);
    riff::PutU32(head.data() + 4, headBytes - 8 + sampleBytes + pad);
    riff::PutU32(head.data() + headBytes - 4, sampleBytes);
    const BYTE* samples = m_pFileView + m_layout.dataOffset + first * m_layout.blockAlign;
    const BYTE padByte = 0;

    CFile out;
    if (!out.Open(path.c_str(), CFile::modeCreate | CFile::modeWrite))
        throw CFileException(path);
    const bool written = out.Write(head.data(), headBytes) == headBytes &&
                         out.Write(samples, sampleBytes) == sampleBytes && out.Write(&padByte, pad) == pad;
    out.Close();
    if (!written)
        throw CFileException(path);
}
