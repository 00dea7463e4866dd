#include "platform/Wnd.h"

#include <mutex>
#include <set>

#include "platform/Exceptions.h"
#include "platform/MessageBox.h"

const char* AfxRegisterWndClass(UINT classStyle, const void*, const void*, const void*)
{
    // The names live as long as the process, as registered classes do.
    static std::mutex lock;
    static std::set<std::string>* names = new std::set<std::string>;
    const std::string name = "Afx:" + std::to_string(classStyle);
    std::lock_guard guard(lock);
    const std::string& kept = *names->insert(name).first;
    RegisterWindowClass(kept.c_str(), classStyle);
    return kept.c_str();
}

CWnd::~CWnd()
{
    CWnd::DestroyWindow();
}

BOOL CWnd::CreateEx(DWORD exStyle, const char* className, const char* windowName, DWORD style, int x, int y,
                    int width, int height, HWND parent, UINT id, void* param)
{
    if (m_hWnd != nullptr)
        return FALSE;
    // The handle is known from WM_CREATE on, so handlers can use it at once.
    HWND made = CreateWindowExA(
        exStyle, className, windowName, style, x, y, width, height, parent, id,
        [this](HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
            if (m_hWnd == nullptr && message == WM_CREATE)
                m_hWnd = window;
            return window == m_hWnd ? Route(window, message, wParam, lParam) : 0;
        },
        param);
    m_hWnd = made;
    return made != nullptr ? TRUE : FALSE;
}

BOOL CWnd::DestroyWindow()
{
    if (m_hWnd == nullptr)
        return FALSE;
    HWND window = m_hWnd;
    m_hWnd = nullptr;
    return ::DestroyWindow(window);
}

LRESULT CWnd::WindowProc(UINT message, WPARAM wParam, LPARAM lParam)
{
    return DefWindowProcA(m_hWnd, message, wParam, lParam);
}

LRESULT CWnd::Default()
{
    return DefWindowProcA(m_hWnd, m_currentMessage, m_currentWParam, m_currentLParam);
}

LRESULT CWnd::Route(HWND, UINT message, WPARAM wParam, LPARAM lParam)
{
    const UINT outerMessage = m_currentMessage;
    const WPARAM outerWParam = m_currentWParam;
    const LPARAM outerLParam = m_currentLParam;
    m_currentMessage = message;
    m_currentWParam = wParam;
    m_currentLParam = lParam;
    LRESULT result = 0;
    // As the framework does for every message: a file or archive failure
    // inside a handler is shown to the user and ends that handler only.
    try {
        result = WindowProc(message, wParam, lParam);
    } catch (const CFileException& failure) {
        AfxMessageBox(failure.what(), MB_ICONEXCLAMATION);
        result = message == WM_CREATE ? -1 : 0;
    } catch (const CArchiveException& failure) {
        AfxMessageBox(failure.what(), MB_ICONEXCLAMATION);
        result = message == WM_CREATE ? -1 : 0;
    }
    m_currentMessage = outerMessage;
    m_currentWParam = outerWParam;
    m_currentLParam = outerLParam;
    return result;
}
