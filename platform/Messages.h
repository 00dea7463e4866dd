#pragma once
#include <cstdint>
#include <functional>

#include "platform/Types.h"

// Windows with a message queue each. A window belongs to the thread that
// created it; that thread pumps its messages and timers. PostMessageA is
// safe from any thread; SendMessageA from the owning thread calls the
// handler directly, from another thread it waits until the owner has run it.

constexpr UINT WM_NULL = 0x0000;
constexpr UINT WM_CREATE = 0x0001;
constexpr UINT WM_DESTROY = 0x0002;
constexpr UINT WM_SIZE = 0x0005;
constexpr UINT WM_PAINT = 0x000F;
constexpr UINT WM_CLOSE = 0x0010;
constexpr UINT WM_QUIT = 0x0012;
constexpr UINT WM_TIMER = 0x0113;
constexpr UINT WM_USER = 0x0400;

using WindowProc = std::function<LRESULT(HWND window, UINT message, WPARAM wParam, LPARAM lParam)>;

// A top-level message-only window on the calling thread.
HWND CreateMessageWindow(WindowProc handler);
BOOL DestroyWindow(HWND window);
BOOL IsWindow(HWND window);

BOOL PostMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// Default processing for messages a handler does not take: answers 0.
LRESULT DefWindowProcA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// Timers: WM_TIMER with wParam = id is delivered by the owning thread's pump
// once the current clock has passed the due time. Setting an existing id
// restarts it.
UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT elapseMs, void* unused = nullptr);
BOOL KillTimer(HWND window, UINT_PTR id);

namespace platform {

// Delivers every queued message of the calling thread's windows and every
// timer that is due, until none is left. Returns the number delivered.
int PumpPendingMessages();

// Runs the calling thread's message loop until `done` answers true or
// `timeoutMs` of real time has passed (a timeout of UINT32_MAX waits for
// ever). Wakes as soon as a message is posted. True when `done` became true.
bool PumpUntil(const std::function<bool()>& done, uint32_t timeoutMs);

// Runs the loop for `ms` of real time.
void PumpFor(uint32_t ms);

// Advances the installed manual clock by `ms` in steps to each due timer,
// delivering timers (and the messages they cause) in order. No effect
// without a manual clock.
void AdvanceClockAndPump(uint64_t ms);

}  // namespace platform
