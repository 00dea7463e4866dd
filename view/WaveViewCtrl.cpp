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

namespace {

constexpr int kRulerHeight = 25;
constexpr int kOverlayTop = 26;
constexpr int kTickTop = 12;
constexpr UINT kViewControlId = 1000;
constexpr DWORD kViewExStyle = 0x20204;  // static edge, client edge, no parent notify
constexpr UINT kRepaintTimerId = 1;
constexpr UINT kRepaintTimerMs = 500;
constexpr COLORREF kTraceColor = RGB(0, 90, 180);
constexpr COLORREF kTintColor = RGB(61, 176, 79);
constexpr COLORREF kTintPenColor = RGB(0, 180, 237);
constexpr const char* kBadFileText = "Failing while reading wav file!";

uint16_t ReadU16(const BYTE* at)
{
    return static_cast<uint16_t>(at[0] | (at[1] << 8));
}

uint32_t ReadU32(const BYTE* at)
{
    return static_cast<uint32_t>(at[0]) | (static_cast<uint32_t>(at[1]) << 8) | (static_cast<uint32_t>(at[2]) << 16) |
           (static_cast<uint32_t>(at[3]) << 24);
}

void WriteU32(BYTE* at, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        at[i] = static_cast<BYTE>(value >> (8 * i));
}

bool TagIs(const BYTE* at, const char* tag)
{
    return std::memcmp(at, tag, 4) == 0;
}

// Float to int as a truncating cast would, held inside int's range so that
// an absurd ratio can't make the conversion undefined.
int TruncateToInt(double value)
{
    if (!(value > double(INT_MIN)))
        return value != value ? 0 : INT_MIN;
    if (value >= double(INT_MAX))
        return INT_MAX;
    return static_cast<int>(value);
}

// Two digits of a label field; of a larger number only its first two show.
std::string TwoDigits(uint64_t value)
{
    std::string digits = std::to_string(value);
    if (digits.size() < 2)
        digits.insert(0, "0");
    return digits.substr(0, 2);
}

POINT PointOf(LPARAM lParam)
{
    return POINT{GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
}

CObject* CreateWaveView()
{
    return new CWaveViewCtrl;
}

// The path up to the extension of the file's own name, then "_copy.wav". A
// path without any dot gives "_copy.wav" alone, in the current folder; a dot
// in a folder's name is not an extension, so such a path keeps its folder.
std::string CopyPathFor(const std::string& path)
{
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos)
        return "_copy.wav";
    const size_t slash = path.rfind('/');
    if (slash != std::string::npos && dot < slash)
        return path + "_copy.wav";
    return path.substr(0, dot) + "_copy.wav";
}

// The save dialogue learns the folder it opens in from the process's current
// directory, so that is moved to the user's home for it. The host's own
// folder comes back when the save ends: relative paths that the host holds
// (the file it plays, the view's own copy) would otherwise point into the
// home folder from then on, and every later play of the file would fail.
class CurrentFolderKept {
public:
    CurrentFolderKept() : m_folder(platform::CurrentDirectory()) {}
    ~CurrentFolderKept()
    {
        if (!m_folder.empty())
            SetCurrentDirectoryA(m_folder.c_str());
    }
    CurrentFolderKept(const CurrentFolderKept&) = delete;
    CurrentFolderKept& operator=(const CurrentFolderKept&) = delete;

private:
    std::string m_folder;
};

}  // namespace

const CRuntimeClass CWaveViewCtrl::classCWaveViewCtrl = {"CWaveViewCtrl", &CreateWaveView};

const CRuntimeClass* CWaveViewCtrl::GetRuntimeClass() const
{
    return &classCWaveViewCtrl;
}

BOOL CWaveViewCtrl::DestroyWindow()
{
    return CWnd::DestroyWindow();
}

CWaveViewCtrl::~CWaveViewCtrl()
{
    if (m_bCaret)
        DestroyCaret();
    ReleaseMapping();
    if (!m_copyPath.empty() && !platform::DeleteOwnedFile(m_copyPath))
        ReportMessage(216, "删除新创建的音频文件失败!");
    ReleaseBitmap();
    CWaveViewCtrl::DestroyWindow();
}

// ------------------------------------------------------------ creation

BOOL CWaveViewCtrl::Create(const ViewRect& rect, HWND parent)
{
    return CreateChild(WS_CHILD | WS_VISIBLE, rect, parent, kViewControlId, nullptr);
}

BOOL CWaveViewCtrl::CreateChild(DWORD style, const RECT& rect, HWND parent, UINT id, void*)
{
    static const char* s_className = nullptr;
    if (s_className == nullptr)
        s_className = AfxRegisterWndClass(CS_VREDRAW | CS_HREDRAW, nullptr, nullptr, nullptr);
    // A far edge that wrapped around gives the size back by wrapping again.
    const auto span = [](LONG from, LONG to) {
        return static_cast<int>(static_cast<uint32_t>(to) - static_cast<uint32_t>(from));
    };
    return CreateEx(kViewExStyle, s_className, "", style, rect.left, rect.top, span(rect.left, rect.right),
                    span(rect.top, rect.bottom), parent, id, nullptr);
}

int CWaveViewCtrl::OnCreate(CREATESTRUCTA*)
{
    if (Default() == -1)
        return -1;
    GetClientRect(m_hWnd, &m_clientRect);
    return 0;
}

LRESULT CWaveViewCtrl::WindowProc(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_LBUTTONDOWN: OnLButtonDown(static_cast<UINT>(wParam), PointOf(lParam)); return 0;
    case WM_RBUTTONDOWN: OnRButtonDown(static_cast<UINT>(wParam), PointOf(lParam)); return 0;
    case WM_LBUTTONUP: OnLButtonUp(static_cast<UINT>(wParam), PointOf(lParam)); return 0;
    case WM_MOUSEMOVE: OnMouseMove(static_cast<UINT>(wParam), PointOf(lParam)); return 0;
    case WM_CREATE: return OnCreate(reinterpret_cast<CREATESTRUCTA*>(lParam));
    case WM_PAINT: OnPaint(); return 0;
    case WM_SIZE: OnSize(static_cast<UINT>(wParam), LOWORD(lParam), HIWORD(lParam)); return 0;
    case WM_TIMER: OnTimer(wParam); return 0;
    case WM_COMMAND:
        if (LOWORD(wParam) == ID_WAVE_SAVE) {
            OnSaveCommand();
            return 0;
        }
        break;
    case WM_SHOWCARET: return OnShowCaret(wParam, lParam);
    default: break;
    }
    return CWnd::WindowProc(message, wParam, lParam);
}

// ------------------------------------------------------------ the file

void CWaveViewCtrl::AttachFile(std::string path)
{
    m_bLoading = 1;
    ClearSelection();
    ReleaseMapping();
    if (m_bCaret == 1)
        DestroyCaret();
    ReleaseBitmap();
    if (!m_copyPath.empty()) {
        if (!platform::DeleteOwnedFile(m_copyPath))
            ReportMessage(216, "删除新创建的音频文件失败!");
        m_copyPath.clear();
    }
    m_bLoading = 0;
    ++m_attachCount;

    // The copy takes the name "_copy.wav" beside the file only where no
    // file of the user's stands and the folder can be written; otherwise it
    // goes to the temporary folder under a free name. Only a copy made here
    // is ever deleted.
    m_copyPath = platform::CreateOwnedFileNear(CopyPathFor(path), m_temporaryFolder);
    if (m_copyPath.empty() || !CopyFileA(path.c_str(), m_copyPath.c_str(), FALSE)) {
        // No copy is left behind: the empty file made for it goes again, and
        // the open below fails as for a copy that was never made.
        platform::DeleteOwnedFile(m_copyPath);
        ReportMessage(217, "拷贝音频文件失败!");
    }

    CMappableFile file;
    if (!file.Open(m_copyPath))
        throw CFileException(m_copyPath);
    MapWaveFile(file);
    file.Close();
    InvalidateRect(m_hWnd, nullptr, TRUE);
}

void CWaveViewCtrl::MapWaveFile(CMappableFile& file)
{
    m_hMapping = CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    m_pFileView = m_hMapping != nullptr ? MapViewOfFile(m_hMapping, FILE_MAP_READ, 0, 0, 0) : nullptr;
    m_mappingSize = m_pFileView != nullptr ? platform::MappingSize(m_hMapping) : 0;
    // An empty or unmappable copy is no RIFF WAVE file either.
    if (m_mappingSize < 12 || !TagIs(m_pFileView, "RIFF") || !TagIs(m_pFileView + 8, "WAVE"))
        throw CArchiveException("archive exception, cause 5: not a RIFF WAVE file");
    // Both readings are kept, so that a change of profile finds the file
    // read; only the reading of the present profile speaks of a bad file.
    ReadRefinedLayout();
    if (m_bRefined && !HasRefinedWave())
        AfxMessageBox(kBadFileText, 0, 0);

    // Every offset is checked against the mapping: a chunk that points
    // past the end makes the file one the view can't read.
    uint64_t cursor = 12;
    for (;;) {
        if (cursor + 8 > m_mappingSize)
            return RejectWaveFile();
        if (TagIs(m_pFileView + cursor, "fmt "))
            break;
        cursor += 8 + uint64_t(ReadU32(m_pFileView + cursor + 4));
    }
    const uint64_t format = cursor + 8;
    if (format + 16 > m_mappingSize)
        return RejectWaveFile();
    m_pFormat = m_pFileView + format;
    const uint64_t next = format + (ReadU32(m_pFileView + cursor + 4) == 18 ? 18 : 16);
    if (next + 8 > m_mappingSize)
        return RejectWaveFile();
    uint64_t dataHead = 0;
    if (TagIs(m_pFileView + next, "data"))
        dataHead = next;
    else if (TagIs(m_pFileView + next, "fact"))
        dataHead = next + 12;
    else
        return RejectWaveFile();
    if (dataHead + 8 > m_mappingSize || dataHead + 8 + ReadU32(m_pFileView + dataHead + 4) > m_mappingSize)
        return RejectWaveFile();
    // Rates of 0 leave no time scale to draw or select on.
    if (ReadU32(m_pFormat + 4) == 0 || ReadU32(m_pFormat + 8) == 0)
        return RejectWaveFile();
    m_pDataChunk = m_pFileView + dataHead;
    m_headerBytes = static_cast<uint32_t>(dataHead + 8);
    m_pSamples = m_pFileView + m_headerBytes;
}

void CWaveViewCtrl::RejectWaveFile()
{
    if (!m_bRefined)
        AfxMessageBox(kBadFileText, 0, 0);
}

void CWaveViewCtrl::ReleaseMapping()
{
    if (m_pFileView != nullptr)
        UnmapViewOfFile(m_pFileView);
    if (m_hMapping != nullptr)
        CloseHandle(m_hMapping);
    // Nothing may point into a mapping that is gone, even where a failed
    // read of the next file would leave the old pointers "as they were".
    m_hMapping = nullptr;
    m_pFileView = nullptr;
    m_pFormat = nullptr;
    m_pDataChunk = nullptr;
    m_pSamples = nullptr;
    m_headerBytes = 0;
    m_mappingSize = 0;
    m_layout = riff::WaveLayout{};
    m_bLayoutReadable = false;
    m_peaks = view::PeakColumns{};
    m_picture.Release();
}

void CWaveViewCtrl::ReleaseBitmap()
{
    if (m_memDC.GetSafeHdc() != nullptr) {
        if (m_hOldBitmap != nullptr)
            m_memDC.SelectObject(m_hOldBitmap);
        m_memDC.DeleteDC();
    }
    if (m_hBitmap != nullptr)
        DeleteObject(m_hBitmap);
    m_hBitmap = nullptr;
    m_hOldBitmap = nullptr;
}

CWaveViewCtrl::WaveNumbers CWaveViewCtrl::Numbers() const
{
    WaveNumbers numbers;
    if (!HasWave())
        return numbers;
    numbers.samplesPerSec = ReadU32(m_pFormat + 4);
    numbers.avgBytesPerSec = ReadU32(m_pFormat + 8);
    numbers.bitsPerSample = ReadU16(m_pFormat + 14);
    numbers.dataLength = ReadU32(m_pDataChunk + 4);
    numbers.sampleCount = numbers.bitsPerSample == 16 ? numbers.dataLength / 2 : numbers.dataLength;
    numbers.totalMs = static_cast<float>(double(numbers.sampleCount) / numbers.samplesPerSec * 1000.0);
    numbers.rulerSeconds = static_cast<float>(double(numbers.dataLength) / numbers.avgBytesPerSec);
    numbers.wholeSeconds = numbers.dataLength / numbers.avgBytesPerSec;
    return numbers;
}

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
                value = int(static_cast<int16_t>(ReadU16(m_pSamples + 2 * i))) * mid / 32767;
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
    WriteU32(header.data() + 4, sampleBytes + m_headerBytes - 8);
    WriteU32(header.data() + m_headerBytes - 4, sampleBytes);

    CFile out;
    if (!out.Open(path.c_str(), CFile::modeCreate | CFile::modeWrite))
        throw CFileException(path);
    const bool written = out.Write(header.data(), static_cast<uint32_t>(header.size())) == header.size() &&
                         out.Write(samples.data(), sampleBytes) == sampleBytes;
    out.Close();
    if (!written)
        throw CFileException(path);
}
