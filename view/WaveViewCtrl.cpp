#include "view/WaveViewCtrl.h"

BOOL CWaveViewCtrl::Create(const ViewRect&, HWND) { return FALSE; }
BOOL CWaveViewCtrl::AttachFile(const char*) { return FALSE; }
void CWaveViewCtrl::ShowPlayCaret(BOOL) {}
void CWaveViewCtrl::MoveCaretToTime(uint32_t) {}
BOOL CWaveViewCtrl::IsSelected() const { return FALSE; }

void CWaveViewCtrl::GetSelectionTimes(int32_t& startMs, int32_t& endMs) const
{
    startMs = 0;
    endMs = 0;
}

int32_t CWaveViewCtrl::GetSelectionSerial() const { return 0; }
void CWaveViewCtrl::SetSelectable(BOOL) {}
