#include "platform/Messages.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/Clock.h"
#include "platform/Termination.h"

namespace platform {
namespace {

struct PendingSend {
    LRESULT result = 0;
    bool finished = false;
    std::condition_variable answered;
};

struct QueuedMessage {
    uintptr_t window = 0;
    UINT message = 0;
    WPARAM wParam = 0;
    LPARAM lParam = 0;
    std::shared_ptr<PendingSend> send;  // set for a send from another thread
};

struct Timer {
    uintptr_t window = 0;
    UINT_PTR id = 0;
    uint64_t dueMs = 0;
    uint32_t intervalMs = 0;
    uint64_t sequence = 0;  // breaks ties between timers due at the same time
};

// The message loop of one thread: the queues of every window it owns.
struct ThreadLoop {
    std::deque<QueuedMessage> sent;  // served before posted ones
    std::deque<QueuedMessage> posted;
    std::vector<Timer> timers;
    std::condition_variable wake;
};

struct Window {
    uintptr_t id = 0;
    WindowProc handler;
    std::shared_ptr<ThreadLoop> owner;
    std::thread::id ownerThread;
};

// One lock guards every window and loop; it is never held while a handler
// runs, so handlers may call anything here.
struct Registry {
    std::mutex mutex;
    std::unordered_map<uintptr_t, std::shared_ptr<Window>> windows;
    uintptr_t nextId = 0x10000;  // never reused, so a stale handle stays stale
    uint64_t nextTimerSequence = 0;
};

Registry& Windows()
{
    static Registry* registry = new Registry;  // outlives thread-local loops
    return *registry;
}

uintptr_t IdOf(HWND window)
{
    return reinterpret_cast<uintptr_t>(window);
}

HWND HandleOf(uintptr_t id)
{
    return reinterpret_cast<HWND>(id);
}

std::shared_ptr<Window> FindLocked(Registry& registry, HWND window)
{
    auto it = registry.windows.find(IdOf(window));
    return it == registry.windows.end() ? nullptr : it->second;
}

void FinishSend(PendingSend& send, LRESULT result)
{
    send.result = result;
    send.finished = true;
    send.answered.notify_all();
}

// Drops what is queued for a window that is going away; senders waiting on
// it get 0. Registry lock held.
void ForgetWindowLocked(ThreadLoop& loop, uintptr_t id)
{
    auto forget = [id](std::deque<QueuedMessage>& queue) {
        for (auto it = queue.begin(); it != queue.end();) {
            if (it->window != id) {
                ++it;
                continue;
            }
            if (it->send)
                FinishSend(*it->send, 0);
            it = queue.erase(it);
        }
    };
    forget(loop.sent);
    forget(loop.posted);
    std::erase_if(loop.timers, [id](const Timer& timer) { return timer.window == id; });
}

// When a thread ends, its windows end with it.
struct LoopOfThisThread {
    std::shared_ptr<ThreadLoop> loop;

    ~LoopOfThisThread()
    {
        if (!loop)
            return;
        Registry& registry = Windows();
        std::lock_guard lock(registry.mutex);
        for (auto it = registry.windows.begin(); it != registry.windows.end();) {
            if (it->second->owner != loop) {
                ++it;
                continue;
            }
            ForgetWindowLocked(*loop, it->first);
            it = registry.windows.erase(it);
        }
    }
};

thread_local LoopOfThisThread t_loop;

std::shared_ptr<ThreadLoop> MyLoop()
{
    if (!t_loop.loop)
        t_loop.loop = std::make_shared<ThreadLoop>();
    return t_loop.loop;
}

LRESULT Call(const Window& window, UINT message, WPARAM wParam, LPARAM lParam)
{
    return window.handler ? window.handler(HandleOf(window.id), message, wParam, lParam) : 0;
}

std::optional<uint64_t> EarliestDueLocked(const ThreadLoop& loop)
{
    std::optional<uint64_t> earliest;
    for (const Timer& timer : loop.timers)
        if (!earliest || timer.dueMs < *earliest)
            earliest = timer.dueMs;
    return earliest;
}

// Delivers one message or one timer due at `nowMs`. False when none is left.
bool DeliverOne(ThreadLoop& loop, uint64_t nowMs)
{
    Registry& registry = Windows();
    std::unique_lock lock(registry.mutex);
    if (!loop.sent.empty()) {
        QueuedMessage message = std::move(loop.sent.front());
        loop.sent.pop_front();
        std::shared_ptr<Window> window = FindLocked(registry, HandleOf(message.window));
        lock.unlock();
        LRESULT result = window ? Call(*window, message.message, message.wParam, message.lParam) : 0;
        lock.lock();
        FinishSend(*message.send, result);
        return true;
    }
    if (!loop.posted.empty()) {
        QueuedMessage message = std::move(loop.posted.front());
        loop.posted.pop_front();
        std::shared_ptr<Window> window = FindLocked(registry, HandleOf(message.window));
        lock.unlock();
        if (window)
            Call(*window, message.message, message.wParam, message.lParam);
        return true;
    }
    auto due = loop.timers.end();
    for (auto it = loop.timers.begin(); it != loop.timers.end(); ++it) {
        if (it->dueMs > nowMs)
            continue;
        if (due == loop.timers.end() || it->dueMs < due->dueMs ||
            (it->dueMs == due->dueMs && it->sequence < due->sequence))
            due = it;
    }
    if (due == loop.timers.end())
        return false;
    // Re-armed before the handler runs, so that the handler's own SetTimer
    // or KillTimer for this id has the last word.
    const uintptr_t windowId = due->window;
    const UINT_PTR timerId = due->id;
    due->dueMs = CurrentClock().NowMs() + due->intervalMs;
    std::shared_ptr<Window> window = FindLocked(registry, HandleOf(windowId));
    lock.unlock();
    if (window)
        Call(*window, WM_TIMER, timerId, 0);
    return true;
}

}  // namespace
}  // namespace platform

using namespace platform;

HWND CreateMessageWindow(WindowProc handler)
{
    auto window = std::make_shared<Window>();
    window->handler = std::move(handler);
    window->owner = MyLoop();
    window->ownerThread = std::this_thread::get_id();
    {
        Registry& registry = Windows();
        std::lock_guard lock(registry.mutex);
        window->id = registry.nextId++;
        registry.windows.emplace(window->id, window);
    }
    Call(*window, WM_CREATE, 0, 0);
    return HandleOf(window->id);
}

BOOL DestroyWindow(HWND handle)
{
    std::shared_ptr<Window> window;
    {
        Registry& registry = Windows();
        std::lock_guard lock(registry.mutex);
        window = FindLocked(registry, handle);
        // Only the owner may destroy a window, as its loop may be running it.
        if (!window || window->ownerThread != std::this_thread::get_id())
            return FALSE;
        registry.windows.erase(window->id);
        ForgetWindowLocked(*window->owner, window->id);
    }
    // Told after the removal: the handle is already stale inside, so the
    // handler can't queue anything that would outlive it.
    Call(*window, WM_DESTROY, 0, 0);
    return TRUE;
}

BOOL IsWindow(HWND handle)
{
    Registry& registry = Windows();
    std::lock_guard lock(registry.mutex);
    return FindLocked(registry, handle) ? TRUE : FALSE;
}

BOOL PostMessageA(HWND handle, UINT message, WPARAM wParam, LPARAM lParam)
{
    Registry& registry = Windows();
    std::lock_guard lock(registry.mutex);
    std::shared_ptr<Window> window = FindLocked(registry, handle);
    if (!window)
        return FALSE;
    window->owner->posted.push_back(QueuedMessage{window->id, message, wParam, lParam, nullptr});
    window->owner->wake.notify_all();
    return TRUE;
}

LRESULT SendMessageA(HWND handle, UINT message, WPARAM wParam, LPARAM lParam)
{
    Registry& registry = Windows();
    std::unique_lock lock(registry.mutex);
    std::shared_ptr<Window> window = FindLocked(registry, handle);
    if (!window)
        return 0;
    if (window->ownerThread == std::this_thread::get_id()) {
        lock.unlock();
        return Call(*window, message, wParam, lParam);
    }
    auto send = std::make_shared<PendingSend>();
    window->owner->sent.push_back(QueuedMessage{window->id, message, wParam, lParam, send});
    window->owner->wake.notify_all();
    send->answered.wait(lock, [&send] { return send->finished; });
    return send->result;
}

LRESULT DefWindowProcA(HWND, UINT, WPARAM, LPARAM)
{
    return 0;
}

UINT_PTR SetTimer(HWND handle, UINT_PTR id, UINT elapseMs, void*)
{
    Registry& registry = Windows();
    std::lock_guard lock(registry.mutex);
    std::shared_ptr<Window> window = FindLocked(registry, handle);
    if (!window)
        return 0;
    // A zero period would fire on every pass of the pump and never let it end.
    const uint32_t interval = std::max<UINT>(elapseMs, 1);
    const uint64_t due = CurrentClock().NowMs() + interval;
    std::vector<Timer>& timers = window->owner->timers;
    auto it = std::find_if(timers.begin(), timers.end(),
                           [&](const Timer& timer) { return timer.window == window->id && timer.id == id; });
    if (it == timers.end())
        it = timers.insert(timers.end(), Timer{window->id, id, 0, 0, 0});
    it->dueMs = due;
    it->intervalMs = interval;
    it->sequence = registry.nextTimerSequence++;
    window->owner->wake.notify_all();
    return id != 0 ? id : 1;
}

BOOL KillTimer(HWND handle, UINT_PTR id)
{
    Registry& registry = Windows();
    std::lock_guard lock(registry.mutex);
    std::shared_ptr<Window> window = FindLocked(registry, handle);
    if (!window)
        return FALSE;
    const size_t removed = std::erase_if(
        window->owner->timers, [&](const Timer& timer) { return timer.window == window->id && timer.id == id; });
    return removed != 0 ? TRUE : FALSE;
}

namespace platform {

int PumpPendingMessages()
{
    std::shared_ptr<ThreadLoop> loop = MyLoop();
    // Timers count as due against the time at the start, so that each fires
    // at most once per call however long the handlers take.
    const uint64_t nowMs = CurrentClock().NowMs();
    int delivered = 0;
    while (DeliverOne(*loop, nowMs))
        ++delivered;
    return delivered;
}

bool PumpUntil(const std::function<bool()>& done, uint32_t timeoutMs)
{
    using Steady = std::chrono::steady_clock;
    const bool forever = timeoutMs == UINT32_MAX;
    const Steady::time_point deadline = Steady::now() + std::chrono::milliseconds(forever ? 0 : timeoutMs);
    std::shared_ptr<ThreadLoop> loop = MyLoop();
    Registry& registry = Windows();
    for (;;) {
        PumpPendingMessages();
        if (done && done())
            return true;
        // A program asked to end stops waiting, so it can clean up at once.
        if ((!forever && Steady::now() >= deadline) || TerminationSignal() != 0)
            return false;
        std::unique_lock lock(registry.mutex);
        if (!loop->sent.empty() || !loop->posted.empty())
            continue;
        // `done` may turn true without a message (another thread's flag), so
        // it is looked at again now and then even when nothing arrives.
        Steady::time_point wakeAt = std::min(forever ? Steady::time_point::max() : deadline,
                                             Steady::now() + std::chrono::milliseconds(10));
        if (std::optional<uint64_t> dueMs = EarliestDueLocked(*loop)) {
            if (CurrentManualClock() != nullptr) {
                // Someone else moves a manual clock; look again now and then.
                wakeAt = std::min(wakeAt, Steady::now() + std::chrono::milliseconds(5));
            } else {
                if (*dueMs <= CurrentClock().NowMs())
                    continue;
                wakeAt = std::min(wakeAt, Steady::time_point(std::chrono::milliseconds(*dueMs)));
            }
        }
        loop->wake.wait_until(lock, wakeAt);
    }
}

void PumpFor(uint32_t ms)
{
    PumpUntil(nullptr, ms);
}

void AdvanceClockAndPump(uint64_t ms)
{
    ManualClock* clock = CurrentManualClock();
    if (clock == nullptr)
        return;
    const uint64_t target = clock->NowMs() + ms;
    std::shared_ptr<ThreadLoop> loop = MyLoop();
    for (;;) {
        PumpPendingMessages();
        std::optional<uint64_t> nextDue;
        {
            Registry& registry = Windows();
            std::lock_guard lock(registry.mutex);
            nextDue = EarliestDueLocked(*loop);
        }
        const uint64_t now = clock->NowMs();
        if (nextDue && *nextDue <= target) {
            if (*nextDue > now)
                clock->Set(*nextDue);
            continue;
        }
        if (now < target)
            clock->Set(target);
        PumpPendingMessages();
        return;
    }
}

}  // namespace platform
