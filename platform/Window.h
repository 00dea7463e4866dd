#pragma once
#include <memory>

#include "platform/Gdi.h"
#include "platform/Messages.h"

// Windows with a client area of their own pixels, built on the message
// windows: each has a parent (none for a top-level window), a rectangle in
// its parent's client coordinates (screen coordinates at the top), a class
// style, and a framebuffer the size of its client area. There is no
// non-client area: the client rectangle is the whole window.

constexpr UINT WM_ERASEBKGND = 0x0014;
constexpr UINT WM_SHOWWINDOW = 0x0018;
constexpr UINT WM_COMMAND = 0x0111;
constexpr UINT WM_MOUSEMOVE = 0x0200;
constexpr UINT WM_LBUTTONDOWN = 0x0201;
constexpr UINT WM_LBUTTONUP = 0x0202;
constexpr UINT WM_LBUTTONDBLCLK = 0x0203;
constexpr UINT WM_RBUTTONDOWN = 0x0204;
constexpr UINT WM_RBUTTONUP = 0x0205;

constexpr WPARAM MK_LBUTTON = 0x0001;
constexpr WPARAM MK_RBUTTON = 0x0002;
constexpr WPARAM MK_SHIFT = 0x0004;
constexpr WPARAM MK_CONTROL = 0x0008;

constexpr DWORD WS_OVERLAPPED = 0x00000000;
constexpr DWORD WS_POPUP = 0x80000000;
constexpr DWORD WS_CHILD = 0x40000000;
constexpr DWORD WS_VISIBLE = 0x10000000;
constexpr DWORD WS_OVERLAPPEDWINDOW = 0x00CF0000;
constexpr DWORD WS_EX_NOPARENTNOTIFY = 0x00000004;
constexpr DWORD WS_EX_CLIENTEDGE = 0x00000200;
constexpr DWORD WS_EX_STATICEDGE = 0x00020000;

constexpr UINT CS_VREDRAW = 0x0001;
constexpr UINT CS_HREDRAW = 0x0002;
constexpr UINT CS_DBLCLKS = 0x0008;

constexpr WPARAM SIZE_RESTORED = 0;

constexpr LPARAM MAKELPARAM(int low, int high)
{
    return static_cast<LPARAM>(static_cast<uint32_t>((static_cast<uint32_t>(low) & 0xFFFF) |
                                                     ((static_cast<uint32_t>(high) & 0xFFFF) << 16)));
}
constexpr WORD LOWORD(uintptr_t value) { return static_cast<WORD>(value & 0xFFFF); }
constexpr WORD HIWORD(uintptr_t value) { return static_cast<WORD>((value >> 16) & 0xFFFF); }
// Signed: a captured mouse reports points left of or above the window.
constexpr int GET_X_LPARAM(LPARAM value) { return static_cast<int16_t>(LOWORD(static_cast<uintptr_t>(value))); }
constexpr int GET_Y_LPARAM(LPARAM value) { return static_cast<int16_t>(HIWORD(static_cast<uintptr_t>(value))); }

struct CREATESTRUCTA {
    void* lpCreateParams = nullptr;
    HWND hwndParent = nullptr;
    UINT id = 0;
    int cy = 0;
    int cx = 0;
    int y = 0;
    int x = 0;
    DWORD style = 0;
    const char* lpszName = nullptr;
    const char* lpszClass = nullptr;
    DWORD dwExStyle = 0;
};

// A class is a name with a style and, optionally, a background colour that
// BeginPaint erases with. Registering a name again changes nothing.
BOOL RegisterWindowClass(const char* className, UINT classStyle, bool hasBackground = false,
                         COLORREF background = RGB(255, 255, 255));

// WM_CREATE (lParam: CREATESTRUCTA*) comes first; -1 from it fails the
// creation. Then WM_SIZE, and a visible window is invalidated. A child
// needs a live parent; any window handle of the thread will do.
HWND CreateWindowExA(DWORD exStyle, const char* className, const char* windowName, DWORD style, int x, int y,
                     int width, int height, HWND parent, UINT id, WindowProc handler, void* createParams = nullptr);

BOOL GetClientRect(HWND window, RECT* rect);
// In screen coordinates.
BOOL GetWindowRect(HWND window, RECT* rect);
HWND GetParent(HWND window);
UINT GetDlgCtrlID(HWND window);
BOOL IsWindowVisible(HWND window);
// Position in the parent's client coordinates. A new size sends WM_SIZE
// and, for a class with CS_HREDRAW or CS_VREDRAW, invalidates everything.
BOOL MoveWindow(HWND window, int x, int y, int width, int height, BOOL repaint);

// Adds to the area that needs paint (null: all of it) and queues one
// WM_PAINT for the window, however many calls come before it arrives.
BOOL InvalidateRect(HWND window, const RECT* rect, BOOL erase);
BOOL ValidateRect(HWND window, const RECT* rect);
// Paints now when something is invalid.
BOOL UpdateWindow(HWND window);
BOOL GetUpdateRect(HWND window, RECT* rect, BOOL erase);

// The paint context is clipped to the invalid area, which it validates;
// the thread's caret is hidden from BeginPaint to EndPaint.
HDC BeginPaint(HWND window, PAINTSTRUCT* paint);
BOOL EndPaint(HWND window, const PAINTSTRUCT* paint);
// A context for the whole client area.
HDC GetDC(HWND window);
int ReleaseDC(HWND window, HDC dc);

// Per thread: the window that takes all mouse input, and the active window.
HWND SetCapture(HWND window);
BOOL ReleaseCapture();
HWND GetCapture();
HWND GetActiveWindow();
HWND SetActiveWindow(HWND window);

BOOL GetCursorPos(POINT* point);
BOOL SetCursorPos(int x, int y);
BOOL ClientToScreen(HWND window, POINT* point);
BOOL ScreenToClient(HWND window, POINT* point);

// The framework's paint context object.
class CPaintDC : public CDC {
public:
    explicit CPaintDC(HWND window);
    ~CPaintDC() override;
    PAINTSTRUCT m_ps;

private:
    HWND m_hWnd;
};

namespace platform {

// The window's own pixels (its client area), shared with its contexts.
std::shared_ptr<Framebuffer> WindowSurface(HWND window);
// The window's pixels with its visible children drawn over them at their
// places, later children over earlier ones.
Framebuffer ComposeWindow(HWND window);

// Input from a presenter: a mouse message at (x, y) in the client area of
// `window`, which goes to the capturing window if there is one, else to the
// deepest visible child under the point, with client coordinates of that
// window. A button going down activates `window`. Posted; returns the
// window it went to.
HWND PostMouseInput(HWND window, UINT message, int x, int y, WPARAM keyFlags);

// A presenter learns of changed pixels here: after EndPaint, ReleaseDC and
// each change of the caret. Calls come on the window's thread.
class IWindowObserver {
public:
    virtual ~IWindowObserver() = default;
    virtual void WindowCreated(HWND) {}
    virtual void WindowDestroyed(HWND) {}
    virtual void SurfaceChanged(HWND window) = 0;
};
void SetWindowObserver(IWindowObserver* observer);  // null: none
void NotifySurfaceChanged(HWND window);

}  // namespace platform
