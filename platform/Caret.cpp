#include "platform/Caret.h"

#include <algorithm>

#include "platform/GdiInternal.h"

namespace platform {
namespace {

// The width and height a caret takes when asked for 0, as a one-pixel
// window border would give.
constexpr int kDefaultCaretSide = 1;

struct ThreadCaret {
    HWND owner = nullptr;
    int width = 0;
    int height = 0;
    POINT position;
    int hideCount = 0;
    bool drawn = false;
};

thread_local ThreadCaret t_caret;

RECT CaretRect(const ThreadCaret& caret)
{
    return RECT{caret.position.x, caret.position.y, caret.position.x + caret.width, caret.position.y + caret.height};
}

// Drawing and undrawing are the same inversion.
void Toggle(ThreadCaret& caret)
{
    if (std::shared_ptr<Framebuffer> surface = WindowSurface(caret.owner))
        InvertRect(*surface, CaretRect(caret));
    caret.drawn = !caret.drawn;
    NotifySurfaceChanged(caret.owner);
}

void Undraw(ThreadCaret& caret)
{
    if (caret.drawn)
        Toggle(caret);
}

void DrawIfShown(ThreadCaret& caret)
{
    if (caret.owner != nullptr && caret.hideCount == 0 && !caret.drawn)
        Toggle(caret);
}

bool Owns(const ThreadCaret& caret, HWND window)
{
    return caret.owner != nullptr && (window == nullptr || window == caret.owner);
}

}  // namespace

CaretState CurrentCaret()
{
    return CaretState{t_caret.owner, CaretRect(t_caret), t_caret.drawn};
}

void ForgetCaretOf(HWND window)
{
    if (window != nullptr && t_caret.owner == window) {
        // The pixels go with the window; nothing to undraw.
        t_caret.drawn = false;
        t_caret.owner = nullptr;
    }
}

}  // namespace platform

using namespace platform;

BOOL CreateCaret(HWND window, HBITMAP, int width, int height)
{
    if (!IsWindow(window))
        return FALSE;
    DestroyCaret();
    t_caret.owner = window;
    t_caret.width = width > 0 ? width : kDefaultCaretSide;
    t_caret.height = height > 0 ? height : (height == 0 ? kDefaultCaretSide : 0);
    t_caret.hideCount = 1;
    t_caret.drawn = false;
    return TRUE;
}

BOOL DestroyCaret()
{
    if (t_caret.owner == nullptr)
        return FALSE;
    Undraw(t_caret);
    t_caret.owner = nullptr;
    return TRUE;
}

BOOL ShowCaret(HWND window)
{
    if (!Owns(t_caret, window))
        return FALSE;
    if (t_caret.hideCount > 0)
        --t_caret.hideCount;
    DrawIfShown(t_caret);
    return TRUE;
}

BOOL HideCaret(HWND window)
{
    if (!Owns(t_caret, window))
        return FALSE;
    ++t_caret.hideCount;
    Undraw(t_caret);
    return TRUE;
}

BOOL SetCaretPos(int x, int y)
{
    if (t_caret.owner == nullptr)
        return FALSE;
    Undraw(t_caret);
    t_caret.position = POINT{x, y};
    DrawIfShown(t_caret);
    return TRUE;
}

BOOL GetCaretPos(POINT* point)
{
    if (point == nullptr)
        return FALSE;
    *point = t_caret.position;
    return TRUE;
}
