#include "platform/Window.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/Caret.h"
#include "platform/GdiInternal.h"

namespace platform {
namespace {

constexpr uint32_t kFreshPixel = 0x00FFFFFF;
constexpr int kLargestSide = 16384;

struct WindowClass {
    UINT style = 0;
    bool hasBackground = false;
    COLORREF background = 0;
};

struct WindowRecord {
    HWND handle = nullptr;
    HWND parent = nullptr;
    DWORD style = 0;
    DWORD exStyle = 0;
    UINT id = 0;
    WindowClass windowClass;
    RECT rect;  // parent's client coordinates; screen coordinates at the top
    std::shared_ptr<Framebuffer> surface;
    WindowProc handler;
    RECT invalid;
    bool erasePending = false;
    bool paintQueued = false;
    bool validatedByPaint = false;
    std::vector<HWND> children;
};

struct Registry {
    std::mutex mutex;
    std::unordered_map<HWND, std::shared_ptr<WindowRecord>> windows;
    std::unordered_map<std::string, WindowClass> classes;
    POINT cursor;
    IWindowObserver* observer = nullptr;
};

Registry& State()
{
    static Registry* registry = new Registry;
    return *registry;
}

thread_local HWND t_capture = nullptr;
thread_local HWND t_active = nullptr;

std::shared_ptr<WindowRecord> Find(HWND window)
{
    Registry& registry = State();
    std::lock_guard lock(registry.mutex);
    auto it = registry.windows.find(window);
    return it == registry.windows.end() ? nullptr : it->second;
}

// Windows stand within this distance of their parent's origin. A host may
// name any 32-bit position; held in here, a position plus a size, and the
// sum of the origins of nested windows, stay far inside int.
constexpr int kFarthestCoordinate = 1 << 24;

int HeldPosition(int value)
{
    return std::clamp(value, -kFarthestCoordinate, kFarthestCoordinate);
}

int WidthOf(const RECT& rect) { return rect.right - rect.left; }
int HeightOf(const RECT& rect) { return rect.bottom - rect.top; }

RECT ClientArea(const WindowRecord& record)
{
    return RECT{0, 0, WidthOf(record.rect), HeightOf(record.rect)};
}

RECT Union(const RECT& a, const RECT& b)
{
    if (IsEmpty(a))
        return b;
    if (IsEmpty(b))
        return a;
    return RECT{std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right),
                std::max(a.bottom, b.bottom)};
}

POINT ScreenOrigin(HWND window)
{
    POINT origin;
    for (std::shared_ptr<WindowRecord> record = Find(window); record; record = Find(record->parent)) {
        origin.x += record->rect.left;
        origin.y += record->rect.top;
    }
    return origin;
}

IWindowObserver* Observer()
{
    Registry& registry = State();
    std::lock_guard lock(registry.mutex);
    return registry.observer;
}

// Every message of a window passes here: paints are counted off the
// invalid area, and a window going away takes its children and its
// thread-wide state with it.
LRESULT Dispatch(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record)
        return 0;  // the creation message of the bare message window
    if (message == WM_PAINT) {
        record->paintQueued = false;
        if (IsEmpty(record->invalid))
            return 0;  // painted meanwhile through UpdateWindow
        record->validatedByPaint = false;
        LRESULT result = record->handler ? record->handler(window, message, wParam, lParam) : 0;
        // A handler that does not paint validates nothing; dropping the
        // area here keeps the queue from filling with paints.
        if (!record->validatedByPaint)
            ValidateRect(window, nullptr);
        return result;
    }
    if (message == WM_DESTROY) {
        LRESULT result = record->handler ? record->handler(window, message, wParam, lParam) : 0;
        for (HWND child : std::vector<HWND>(record->children))
            DestroyWindow(child);
        ForgetCaretOf(window);
        if (t_capture == window)
            t_capture = nullptr;
        if (t_active == window)
            t_active = nullptr;
        {
            Registry& registry = State();
            std::lock_guard lock(registry.mutex);
            registry.windows.erase(window);
            auto parent = registry.windows.find(record->parent);
            if (parent != registry.windows.end())
                std::erase(parent->second->children, window);
        }
        if (IWindowObserver* observer = Observer())
            observer->WindowDestroyed(window);
        return result;
    }
    return record->handler ? record->handler(window, message, wParam, lParam) : 0;
}

HWND DeepestChildAt(HWND window, POINT point)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record)
        return window;
    for (auto it = record->children.rbegin(); it != record->children.rend(); ++it) {
        std::shared_ptr<WindowRecord> child = Find(*it);
        if (!child || (child->style & WS_VISIBLE) == 0)
            continue;
        const RECT& r = child->rect;
        if (point.x >= r.left && point.x < r.right && point.y >= r.top && point.y < r.bottom)
            return DeepestChildAt(*it, POINT{point.x - r.left, point.y - r.top});
    }
    return window;
}

void ComposeInto(Framebuffer& target, HWND window, int originX, int originY)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record)
        return;
    const Framebuffer& own = *record->surface;
    for (int y = 0; y < own.height; ++y)
        for (int x = 0; x < own.width; ++x)
            if (target.Contains(originX + x, originY + y))
                target.At(originX + x, originY + y) = own.At(x, y);
    for (HWND child : record->children) {
        std::shared_ptr<WindowRecord> childRecord = Find(child);
        if (childRecord && (childRecord->style & WS_VISIBLE) != 0)
            ComposeInto(target, child, originX + childRecord->rect.left, originY + childRecord->rect.top);
    }
}

}  // namespace

std::shared_ptr<Framebuffer> WindowSurface(HWND window)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    return record ? record->surface : nullptr;
}

Framebuffer ComposeWindow(HWND window)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record)
        return Framebuffer();
    Framebuffer composed(record->surface->width, record->surface->height, kFreshPixel);
    ComposeInto(composed, window, 0, 0);
    return composed;
}

HWND PostMouseInput(HWND window, UINT message, int x, int y, WPARAM keyFlags)
{
    if (!IsWindow(window))
        return nullptr;
    // A script may name any point; far outside every window is all the same.
    x = HeldPosition(x);
    y = HeldPosition(y);
    const POINT origin = ScreenOrigin(window);
    const POINT screen{origin.x + x, origin.y + y};
    SetCursorPos(screen.x, screen.y);
    if (message == WM_LBUTTONDOWN || message == WM_RBUTTONDOWN)
        SetActiveWindow(window);
    HWND target = IsWindow(t_capture) ? t_capture : DeepestChildAt(window, POINT{x, y});
    POINT client = screen;
    ScreenToClient(target, &client);
    PostMessageA(target, message, keyFlags, MAKELPARAM(client.x, client.y));
    return target;
}

void SetWindowObserver(IWindowObserver* observer)
{
    Registry& registry = State();
    std::lock_guard lock(registry.mutex);
    registry.observer = observer;
}

void NotifySurfaceChanged(HWND window)
{
    if (IWindowObserver* observer = Observer())
        observer->SurfaceChanged(window);
}

}  // namespace platform

using namespace platform;

BOOL RegisterWindowClass(const char* className, UINT classStyle, bool hasBackground, COLORREF background)
{
    if (className == nullptr)
        return FALSE;
    Registry& registry = State();
    std::lock_guard lock(registry.mutex);
    registry.classes.try_emplace(className, WindowClass{classStyle, hasBackground, background});
    return TRUE;
}

HWND CreateWindowExA(DWORD exStyle, const char* className, const char* windowName, DWORD style, int x, int y,
                     int width, int height, HWND parent, UINT id, WindowProc handler, void* createParams)
{
    auto record = std::make_shared<WindowRecord>();
    {
        Registry& registry = State();
        std::lock_guard lock(registry.mutex);
        auto found = registry.classes.find(className != nullptr ? className : "");
        if (found == registry.classes.end())
            return nullptr;
        record->windowClass = found->second;
    }
    if ((style & WS_CHILD) != 0 && !IsWindow(parent))
        return nullptr;
    if (width < 0 || height < 0 || width > kLargestSide || height > kLargestSide)
        return nullptr;
    record->parent = (style & WS_CHILD) != 0 ? parent : nullptr;
    record->style = style;
    record->exStyle = exStyle;
    record->id = id;
    x = HeldPosition(x);
    y = HeldPosition(y);
    record->rect = RECT{x, y, x + width, y + height};
    record->surface = std::make_shared<Framebuffer>(width, height, kFreshPixel);
    record->handler = std::move(handler);

    HWND window = CreateMessageWindow(Dispatch);
    record->handle = window;
    {
        Registry& registry = State();
        std::lock_guard lock(registry.mutex);
        registry.windows.emplace(window, record);
        auto parentRecord = registry.windows.find(record->parent);
        if (parentRecord != registry.windows.end())
            parentRecord->second->children.push_back(window);
    }
    CREATESTRUCTA create;
    create.lpCreateParams = createParams;
    create.hwndParent = record->parent;
    create.id = id;
    create.cx = width;
    create.cy = height;
    create.x = x;
    create.y = y;
    create.style = style;
    create.lpszName = windowName;
    create.lpszClass = className;
    create.dwExStyle = exStyle;
    if (SendMessageA(window, WM_CREATE, 0, reinterpret_cast<LPARAM>(&create)) == -1) {
        DestroyWindow(window);
        return nullptr;
    }
    if (IWindowObserver* observer = Observer())
        observer->WindowCreated(window);
    SendMessageA(window, WM_SIZE, SIZE_RESTORED, MAKELPARAM(width, height));
    if ((style & WS_VISIBLE) != 0)
        InvalidateRect(window, nullptr, TRUE);
    return window;
}

BOOL GetClientRect(HWND window, RECT* rect)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record || rect == nullptr)
        return FALSE;
    *rect = ClientArea(*record);
    return TRUE;
}

BOOL GetWindowRect(HWND window, RECT* rect)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record || rect == nullptr)
        return FALSE;
    const POINT origin = ScreenOrigin(window);
    *rect = RECT{origin.x, origin.y, origin.x + WidthOf(record->rect), origin.y + HeightOf(record->rect)};
    return TRUE;
}

HWND GetParent(HWND window)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    return record ? record->parent : nullptr;
}

UINT GetDlgCtrlID(HWND window)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    return record ? record->id : 0;
}

BOOL IsWindowVisible(HWND window)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    return record && (record->style & WS_VISIBLE) != 0 ? TRUE : FALSE;
}

BOOL MoveWindow(HWND window, int x, int y, int width, int height, BOOL repaint)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record || width < 0 || height < 0 || width > kLargestSide || height > kLargestSide)
        return FALSE;
    const bool resized = width != WidthOf(record->rect) || height != HeightOf(record->rect);
    x = HeldPosition(x);
    y = HeldPosition(y);
    record->rect = RECT{x, y, x + width, y + height};
    if (resized) {
        // The caret's inversion must not be cut in two by the new size.
        const BOOL hidden = HideCaret(window);
        record->surface->Resize(width, height, kFreshPixel);
        record->invalid = Intersect(record->invalid, ClientArea(*record));
        if (hidden)
            ShowCaret(window);
        SendMessageA(window, WM_SIZE, SIZE_RESTORED, MAKELPARAM(width, height));
        if ((record->windowClass.style & (CS_HREDRAW | CS_VREDRAW)) != 0 || repaint)
            InvalidateRect(window, nullptr, TRUE);
    } else if (repaint) {
        InvalidateRect(window, nullptr, TRUE);
    }
    return TRUE;
}

BOOL InvalidateRect(HWND window, const RECT* rect, BOOL erase)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record)
        return FALSE;
    RECT area = Intersect(rect != nullptr ? *rect : ClientArea(*record), ClientArea(*record));
    if (rect != nullptr && rect->left > rect->right) {
        // A rectangle given right to left still names the same columns.
        area = Intersect(RECT{rect->right, rect->top, rect->left, rect->bottom}, ClientArea(*record));
    }
    if (IsEmpty(area))
        return TRUE;
    record->invalid = Union(record->invalid, area);
    record->erasePending = record->erasePending || erase != 0;
    if (!record->paintQueued) {
        record->paintQueued = true;
        PostMessageA(window, WM_PAINT, 0, 0);
    }
    return TRUE;
}

BOOL ValidateRect(HWND window, const RECT* rect)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record)
        return FALSE;
    // The invalid area is one rectangle, so only a cover of all of it
    // validates anything.
    const RECT& invalid = record->invalid;
    if (rect == nullptr || (rect->left <= invalid.left && rect->top <= invalid.top && rect->right >= invalid.right &&
                            rect->bottom >= invalid.bottom)) {
        record->invalid = RECT{};
        record->erasePending = false;
    }
    return TRUE;
}

BOOL UpdateWindow(HWND window)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record)
        return FALSE;
    if (!IsEmpty(record->invalid))
        Dispatch(window, WM_PAINT, 0, 0);
    return TRUE;
}

BOOL GetUpdateRect(HWND window, RECT* rect, BOOL)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record)
        return FALSE;
    if (rect != nullptr)
        *rect = record->invalid;
    return IsEmpty(record->invalid) ? FALSE : TRUE;
}

HDC BeginPaint(HWND window, PAINTSTRUCT* paint)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record || paint == nullptr)
        return nullptr;
    const RECT area = record->invalid;
    const bool erase = record->erasePending;
    record->invalid = RECT{};
    record->erasePending = false;
    record->validatedByPaint = true;
    HideCaret(window);
    HDC dc = CreateSurfaceDC(record->surface, area);
    if (erase && record->windowClass.hasBackground) {
        HBRUSH background = CreateSolidBrush(record->windowClass.background);
        FillRect(dc, &area, background);
        DeleteObject(background);
    }
    paint->hdc = dc;
    paint->rcPaint = area;
    paint->fErase = erase && !record->windowClass.hasBackground ? TRUE : FALSE;
    return dc;
}

BOOL EndPaint(HWND window, const PAINTSTRUCT* paint)
{
    if (paint == nullptr)
        return FALSE;
    DeleteDC(paint->hdc);
    ShowCaret(window);
    NotifySurfaceChanged(window);
    return TRUE;
}

HDC GetDC(HWND window)
{
    std::shared_ptr<WindowRecord> record = Find(window);
    if (!record)
        return nullptr;
    return CreateSurfaceDC(record->surface, ClientArea(*record));
}

int ReleaseDC(HWND window, HDC dc)
{
    if (!DeleteDC(dc))
        return 0;
    NotifySurfaceChanged(window);
    return 1;
}

HWND SetCapture(HWND window)
{
    HWND previous = GetCapture();
    if (IsWindow(window))
        t_capture = window;
    return previous;
}

BOOL ReleaseCapture()
{
    t_capture = nullptr;
    return TRUE;
}

HWND GetCapture()
{
    return IsWindow(t_capture) ? t_capture : nullptr;
}

HWND GetActiveWindow()
{
    return IsWindow(t_active) ? t_active : nullptr;
}

HWND SetActiveWindow(HWND window)
{
    HWND previous = GetActiveWindow();
    if (!IsWindow(window))
        return nullptr;
    t_active = window;
    return previous;
}

BOOL GetCursorPos(POINT* point)
{
    if (point == nullptr)
        return FALSE;
    Registry& registry = State();
    std::lock_guard lock(registry.mutex);
    *point = registry.cursor;
    return TRUE;
}

BOOL SetCursorPos(int x, int y)
{
    Registry& registry = State();
    std::lock_guard lock(registry.mutex);
    registry.cursor = POINT{x, y};
    return TRUE;
}

BOOL ClientToScreen(HWND window, POINT* point)
{
    if (point == nullptr || !IsWindow(window))
        return FALSE;
    const POINT origin = ScreenOrigin(window);
    point->x += origin.x;
    point->y += origin.y;
    return TRUE;
}

BOOL ScreenToClient(HWND window, POINT* point)
{
    if (point == nullptr || !IsWindow(window))
        return FALSE;
    const POINT origin = ScreenOrigin(window);
    point->x -= origin.x;
    point->y -= origin.y;
    return TRUE;
}

CPaintDC::CPaintDC(HWND window) : m_hWnd(window)
{
    m_hDC = BeginPaint(window, &m_ps);
}

CPaintDC::~CPaintDC()
{
    if (m_hDC != nullptr) {
        m_ps.hdc = Detach();
        EndPaint(m_hWnd, &m_ps);
    }
}
