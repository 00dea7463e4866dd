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

namespace {

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
        cursor += 8 + uint64_t(riff::GetU32(m_pFileView + cursor + 4));
    }
    const uint64_t format = cursor + 8;
    if (format + 16 > m_mappingSize)
        return RejectWaveFile();
    m_pFormat = m_pFileView + format;
    const uint64_t next = format + (riff::GetU32(m_pFileView + cursor + 4) == 18 ? 18 : 16);
    if (next + 8 > m_mappingSize)
        return RejectWaveFile();
    uint64_t dataHead = 0;
    if (TagIs(m_pFileView + next, "data"))
        dataHead = next;
    else if (TagIs(m_pFileView + next, "fact"))
        dataHead = next + 12;
    else
        return RejectWaveFile();
    if (dataHead + 8 > m_mappingSize || dataHead + 8 + riff::GetU32(m_pFileView + dataHead + 4) > m_mappingSize)
        return RejectWaveFile();
    // Rates of 0 leave no time scale to draw or select on.
    if (riff::GetU32(m_pFormat + 4) == 0 || riff::GetU32(m_pFormat + 8) == 0)
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
    numbers.samplesPerSec = riff::GetU32(m_pFormat + 4);
    numbers.avgBytesPerSec = riff::GetU32(m_pFormat + 8);
    numbers.bitsPerSample = riff::GetU16(m_pFormat + 14);
    numbers.dataLength = riff::GetU32(m_pDataChunk + 4);
    numbers.sampleCount = numbers.bitsPerSample == 16 ? numbers.dataLength / 2 : numbers.dataLength;
    numbers.totalMs = static_cast<float>(double(numbers.sampleCount) / numbers.samplesPerSec * 1000.0);
    numbers.rulerSeconds = static_cast<float>(double(numbers.dataLength) / numbers.avgBytesPerSec);
    numbers.wholeSeconds = numbers.dataLength / numbers.avgBytesPerSec;
    return numbers;
}
