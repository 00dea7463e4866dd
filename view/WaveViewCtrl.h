#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "platform/FileMapping.h"
#include "platform/Gdi.h"
#include "platform/Wnd.h"
#include "riff/WaveLayout.h"
#include "view/PeakColumns.h"
#include "view/PeakPicture.h"
#include "view/TimeAxis.h"

using ViewRect = RECT;

// Sent by a host to the view's window to bring up the play caret.
constexpr UINT WM_SHOWCARET = 2258;
// The popup's one entry.
constexpr UINT ID_WAVE_SAVE = 32768;

// The waveform view: a child window showing a private copy of the play
// file as a time ruler over a cached picture of the samples, with a mouse
// selection that can be saved as a new .wav file and a caret for play.
//
// Two ways of drawing, chosen by the host with SetRefined (the control
// follows its playback profile). The classic one keeps the original rules to
// the pixel. The refined one puts the picture, the ruler, the caret and the
// selection on one time axis (view/TimeAxis.h) for files of every length;
// draws each column's lowest and highest sample, one lane a channel, into a
// picture that fills the band below the ruler and is rebuilt for a new
// size; labels the ruler at a step that leaves room (view/RulerScale.h);
// selects in whole frames; and leaves selecting to the host's play calls
// (the control keeps it open while playing).
class CWaveViewCtrl : public CWnd {
public:
    static const CRuntimeClass classCWaveViewCtrl;

    CWaveViewCtrl() = default;
    ~CWaveViewCtrl() override;

    const CRuntimeClass* GetRuntimeClass() const override;
    BOOL DestroyWindow() override;
    virtual BOOL CreateChild(DWORD style, const RECT& rect, HWND parent, UINT id, void* context);

    // Nonzero when the window was made.
    BOOL Create(const ViewRect& rect, HWND parent);
    // Throws CFileException when the copy can't be opened and
    // CArchiveException when it is not a RIFF WAVE file.
    void AttachFile(std::string path);
    // Where the private copy goes (ending in '/') when the place beside the
    // file is taken by a file of the user's or can't be written.
    void SetTemporaryFolder(std::string folder) { m_temporaryFolder = std::move(folder); }
    const std::string& CopyPath() const { return m_copyPath; }

    void ShowPlayCaret(BOOL show);
    void MoveCaretToTime(uint32_t ms);
    BOOL IsSelected() const;
    void GetSelectionTimes(int32_t& startMs, int32_t& endMs) const;
    int32_t GetSelectionSerial() const { return m_selectionSerial; }
    void SetSelectable(BOOL on) { m_bSelectable = on; }
    void ClearSelection();
    // Off (classic) until the host says otherwise; a change redraws.
    void SetRefined(bool refined);
    bool IsRefined() const { return m_bRefined; }
    // Where sentences start, in milliseconds of the file, drawn as small
    // marks in the ruler by the refined drawing; an empty list clears them.
    void SetSentenceMarks(std::vector<int32_t> startsMs);
    // The refined time axis of the attached file at the present width.
    view::TimeAxis RefinedAxis() const;
    // The selection's ends in client pixels, -1 when a short drag was dropped.
    void GetSelectionPixels(int32_t& start, int32_t& end) const
    {
        start = m_selStart;
        end = m_selEnd;
    }

protected:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override;

    int OnCreate(CREATESTRUCTA* create);
    void OnPaint();
    void OnSize(UINT type, int width, int height);
    void OnTimer(UINT_PTR id);
    void OnLButtonDown(UINT flags, POINT point);
    void OnMouseMove(UINT flags, POINT point);
    void OnLButtonUp(UINT flags, POINT point);
    void OnRButtonDown(UINT flags, POINT point);
    void OnSaveCommand();
    LRESULT OnShowCaret(WPARAM wParam, LPARAM lParam);

    void MapWaveFile(CMappableFile& file);
    void DrawRuler(CDC& dc);
    void DrawWave();
    void SaveSelection();

private:
    struct WaveNumbers {
        uint16_t bitsPerSample = 0;
        uint32_t samplesPerSec = 0;
        uint32_t avgBytesPerSec = 0;
        uint32_t dataLength = 0;
        uint32_t sampleCount = 0;  // N
        float totalMs = 0.0f;      // T
        float rulerSeconds = 0.0f; // S
        uint32_t wholeSeconds = 0; // s
    };

    bool HasWave() const { return m_pSamples != nullptr && m_pFormat != nullptr && m_pDataChunk != nullptr; }
    WaveNumbers Numbers() const;
    int Width() const { return m_clientRect.right - m_clientRect.left; }
    int Height() const { return m_clientRect.bottom - m_clientRect.top; }
    void ReleaseMapping();
    void ReleaseBitmap();
    void RejectWaveFile();
    void DrawEmptyWaveBand();
    void DrawSelectionTint(HDC dc, int left, int right);
    void RestoreCaretAfterSave(BOOL hadCaret);
    void WriteSelection(const std::string& path, int startPx, int endPx);
    int CaretTop() const;
    int CaretWidth() const;

    // The refined drawing and selection (view/WaveViewRefined.cpp).
    void ReadRefinedLayout();
    bool HasRefinedWave() const { return m_bLayoutReadable && m_pFileView != nullptr; }
    void PaintRefined(HDC dc);
    void DrawRefinedRuler(HDC dc, const view::TimeAxis& axis);
    void DrawSentenceMarks(HDC dc, const view::TimeAxis& axis);
    bool RefinedTintSpan(int& left, int& right) const;
    void OnRefinedDrag(POINT point);
    void WriteRefinedSelection(const std::string& path, int startPx, int endPx);

    const BYTE* m_pSamples = nullptr;
    const BYTE* m_pFileView = nullptr;
    HFILEMAPPING m_hMapping = nullptr;
    uint32_t m_headerBytes = 0;
    CDC m_memDC;
    RECT m_bitmapRect;
    const BYTE* m_pFormat = nullptr;
    const BYTE* m_pDataChunk = nullptr;
    int32_t m_lastDragX = 0;
    int32_t m_moveCount = 0;
    BOOL m_bDragged = 0;
    int32_t m_selectionSerial = 0;
    RECT m_clientRect;
    BOOL m_bSelected = 0;
    BOOL m_bCaret = 0;
    BOOL m_bLoading = 0;
    int32_t m_savedCaretX = -1;
    std::string m_copyPath;
    std::string m_temporaryFolder;
    BOOL m_bRestoreCaret = 0;
    BOOL m_bSelectable = 1;
    BOOL m_bButtonDown = 0;
    int32_t m_selStart = -1;
    int32_t m_selEnd = -1;

    // Kept beside the fields above: the bounds every read of the mapping is
    // checked against, the bitmap to free with the cached picture, and a
    // count of attaches that tells a save its mapping was replaced.
    uint64_t m_mappingSize = 0;
    HBITMAP m_hBitmap = nullptr;
    HGDIOBJ m_hOldBitmap = nullptr;
    uint32_t m_attachCount = 0;

    // The refined profile: its reading of the mapping, the per-width
    // columns and the pictures made from them, and the sentence marks.
    bool m_bRefined = false;
    riff::WaveLayout m_layout;
    bool m_bLayoutReadable = false;
    view::PeakColumns m_peaks;
    CPeakPicture m_picture;
    std::vector<int32_t> m_sentenceMarks;
};
