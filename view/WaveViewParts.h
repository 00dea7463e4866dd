#pragma once
// What the parts of the view (view/WaveView*.cpp) share: the sizes and
// colours of the classic picture and small helpers. Not for use outside the
// view.
#include <climits>
#include <cstring>
#include <string>

#include "platform/FileApi.h"
#include "platform/Window.h"
#include "riff/LittleEndian.h"

namespace waveview {

inline constexpr int kRulerHeight = 25;
inline constexpr int kOverlayTop = 26;
inline constexpr int kTickTop = 12;
inline constexpr UINT kViewControlId = 1000;
inline constexpr DWORD kViewExStyle = 0x20204;  // static edge, client edge, no parent notify
inline constexpr UINT kRepaintTimerId = 1;
inline constexpr UINT kRepaintTimerMs = 500;
inline constexpr COLORREF kTraceColor = RGB(0, 90, 180);
inline constexpr COLORREF kTintColor = RGB(61, 176, 79);
inline constexpr COLORREF kTintPenColor = RGB(0, 180, 237);
inline constexpr const char* kBadFileText = "Failing while reading wav file!";

inline bool TagIs(const BYTE* at, const char* tag)
{
    return std::memcmp(at, tag, 4) == 0;
}

// Float to int as a truncating cast would, held inside int's range so that
// an absurd ratio can't make the conversion undefined.
inline int TruncateToInt(double value)
{
    if (!(value > double(INT_MIN)))
        return value != value ? 0 : INT_MIN;
    if (value >= double(INT_MAX))
        return INT_MAX;
    return static_cast<int>(value);
}

// Two digits of a label field; of a larger number only its first two show.
inline std::string TwoDigits(uint64_t value)
{
    std::string digits = std::to_string(value);
    if (digits.size() < 2)
        digits.insert(0, "0");
    return digits.substr(0, 2);
}

inline POINT PointOf(LPARAM lParam)
{
    return POINT{GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
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

}  // namespace waveview
