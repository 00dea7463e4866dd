#pragma once
#include <cstdint>

#include "platform/Types.h"

struct ViewRect {
    int32_t left, top, right, bottom;
};

// The waveform view as the control drives it. Drawing, selection and the
// caret are still to come: until then the view has no window, Create
// fails, and a view without a window has no selection.
class CWaveViewCtrl {
public:
    BOOL Create(const ViewRect& rect, HWND parent);
    BOOL AttachFile(const char* path);
    void ShowPlayCaret(BOOL show);
    void MoveCaretToTime(uint32_t ms);
    BOOL IsSelected() const;
    void GetSelectionTimes(int32_t& startMs, int32_t& endMs) const;
    int32_t GetSelectionSerial() const;
    void SetSelectable(BOOL on);
    HWND GetSafeHwnd() const { return m_hWnd; }

private:
    HWND m_hWnd = nullptr;
};
