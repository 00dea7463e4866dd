#pragma once
#include <string>

#include "platform/Gdi.h"
#include "platform/Window.h"

// The framework's window object: one C++ object per window, whose
// WindowProc takes the messages. The window ends with the object at the
// latest.

struct CRuntimeClass {
    const char* m_lpszClassName;
    class CObject* (*m_pfnCreateObject)();
};

// A class name for the given class style, registered at the first call;
// cursor, brush and icon are not kept (no background brush).
const char* AfxRegisterWndClass(UINT classStyle, const void* cursor = nullptr, const void* brush = nullptr,
                                const void* icon = nullptr);

class CObject {
public:
    virtual ~CObject() = default;
    virtual const CRuntimeClass* GetRuntimeClass() const = 0;
};

class CWnd : public CObject {
public:
    CWnd() = default;
    ~CWnd() override;
    CWnd(const CWnd&) = delete;
    CWnd& operator=(const CWnd&) = delete;

    HWND GetSafeHwnd() const { return m_hWnd; }
    BOOL CreateEx(DWORD exStyle, const char* className, const char* windowName, DWORD style, int x, int y,
                  int width, int height, HWND parent, UINT id, void* param = nullptr);
    virtual BOOL DestroyWindow();

protected:
    // Message handling; the default is the default processing.
    virtual LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam);
    // The default processing of the message now being handled.
    LRESULT Default();

    HWND m_hWnd = nullptr;

private:
    LRESULT Route(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    UINT m_currentMessage = 0;
    WPARAM m_currentWParam = 0;
    LPARAM m_currentLParam = 0;
};
