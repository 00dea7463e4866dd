#pragma once
#include "platform/GtkPresenter.h"
#include "platform/HostUi.h"
#include "platform/MessageBox.h"
#include "platform/Plugin.h"
#include "platform/Window.h"

// The table of tempvox-gtk.so, the one object that links GTK. Only a tool
// run with a window (--view) loads it. The plugin holds no copy of the
// platform's windows: it reaches them through the calls it is given here,
// which are this side's own functions.
namespace platform {

inline constexpr const char* kGtkPluginFile = "tempvox-gtk.so";
inline constexpr uint32_t kGtkPluginVersion = 2;

struct GtkHostCalls {
    HWND (*getParent)(HWND window);
    BOOL (*getClientRect)(HWND window, RECT* rect);
    BOOL (*getWindowRect)(HWND window, RECT* rect);
    BOOL (*moveWindow)(HWND window, int x, int y, int width, int height, BOOL repaint);
    BOOL (*isWindow)(HWND window);
    Framebuffer (*composeWindow)(HWND window);
    HWND (*postMouseInput)(HWND window, UINT message, int x, int y, WPARAM keyFlags);
    int (*pumpPendingMessages)();
    void (*setWindowObserver)(IWindowObserver* observer);
    void (*setHostUi)(IHostUi* ui);
    void (*setMessageBoxHandler)(MessageBoxHandler handler);
    // The first termination signal taken, or 0 (platform/Termination.h).
    int (*terminationSignal)();
};

struct GtkPluginTable {
    PluginHeader header;
    // GtkPresenter::Create's work: null when there is no display. `host`
    // must outlive the presenter.
    GtkPresenter* (*create)(const GtkHostCalls& host);
};

}  // namespace platform
