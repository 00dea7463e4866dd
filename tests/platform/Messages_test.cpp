#include "platform/Messages.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/Clock.h"

namespace {

using namespace platform;

constexpr UINT WM_TEST = WM_USER + 1;

struct Delivery {
    HWND window;
    UINT message;
    WPARAM wParam;
    uint64_t atMs;  // the clock at delivery

    bool operator==(const Delivery&) const = default;
};

// A window that records what it is handed, with the clock's reading.
struct RecordingWindow {
    std::vector<Delivery> seen;
    std::function<void(HWND, UINT, WPARAM)> react;
    HWND handle = nullptr;

    RecordingWindow()
    {
        handle = CreateMessageWindow([this](HWND window, UINT message, WPARAM wParam, LPARAM) -> LRESULT {
            if (message == WM_CREATE || message == WM_DESTROY)
                return 0;
            seen.push_back({window, message, wParam, CurrentClock().NowMs()});
            if (react)
                react(window, message, wParam);
            return static_cast<LRESULT>(wParam * 2);
        });
    }
    ~RecordingWindow() { DestroyWindow(handle); }
};

class ManualClockTest : public ::testing::Test {
protected:
    void SetUp() override { SetClock(&m_clock); }
    void TearDown() override
    {
        PumpPendingMessages();
        SetClock(nullptr);
    }
    ManualClock m_clock{1000};
};

TEST_F(ManualClockTest, TimersFireExactlyWhenDueAndRestartWhenSetAgain)
{
    RecordingWindow window;
    struct Step {
        const char* what;
        std::function<void()> act;
        uint64_t advanceMs;
        std::vector<std::pair<WPARAM, uint64_t>> fired;  // timer id and the time it fired
    };
    const Step steps[] = {
        {"80 ms timer, just short of due", [&] { SetTimer(window.handle, 1, 80); }, 79, {}},
        {"reaches due", [] {}, 1, {{1, 1080}}},
        {"two periods at once fire each in turn", [] {}, 160, {{1, 1160}, {1, 1240}}},
        {"a second timer interleaves by due time",
         [&] { SetTimer(window.handle, 3, 30); },
         90,
         {{3, 1270}, {3, 1300}, {1, 1320}, {3, 1330}}},
        {"setting id 1 again restarts it", [&] { SetTimer(window.handle, 1, 80); }, 79,
         {{3, 1360}, {3, 1390}}},
        {"killed timers stay quiet",
         [&] {
             EXPECT_TRUE(KillTimer(window.handle, 1));
             EXPECT_TRUE(KillTimer(window.handle, 3));
             EXPECT_FALSE(KillTimer(window.handle, 3));
         },
         500,
         {}},
    };
    for (const Step& step : steps) {
        window.seen.clear();
        step.act();
        AdvanceClockAndPump(step.advanceMs);
        std::vector<std::pair<WPARAM, uint64_t>> fired;
        for (const Delivery& delivery : window.seen) {
            EXPECT_EQ(delivery.message, WM_TIMER) << step.what;
            fired.emplace_back(delivery.wParam, delivery.atMs);
        }
        EXPECT_EQ(fired, step.fired) << step.what;
    }
}

TEST_F(ManualClockTest, QueuedMessagesGoBeforeDueTimersAndHandlersMayPostMore)
{
    RecordingWindow window;
    window.react = [&](HWND self, UINT message, WPARAM wParam) {
        if (message == WM_TEST && wParam == 1)
            PostMessageA(self, WM_TEST, 2, 0);
    };
    SetTimer(window.handle, 9, 10);
    m_clock.Advance(10);
    PostMessageA(window.handle, WM_TEST, 1, 0);
    EXPECT_EQ(PumpPendingMessages(), 3);
    ASSERT_EQ(window.seen.size(), 3u);
    EXPECT_EQ(window.seen[0].wParam, 1u);
    EXPECT_EQ(window.seen[1].wParam, 2u);
    EXPECT_EQ(window.seen[2].message, WM_TIMER);
    EXPECT_EQ(PumpPendingMessages(), 0);
}

TEST(Messages, StaleHandlesAreRefusedWithoutHarm)
{
    HWND destroyed = CreateMessageWindow([](HWND, UINT, WPARAM, LPARAM) -> LRESULT { return 7; });
    EXPECT_EQ(SendMessageA(destroyed, WM_TEST, 0, 0), 7);
    EXPECT_TRUE(DestroyWindow(destroyed));
    const HWND stale[] = {nullptr, destroyed, reinterpret_cast<HWND>(uintptr_t{0xdeadbeef})};
    for (HWND handle : stale) {
        EXPECT_FALSE(IsWindow(handle));
        EXPECT_FALSE(PostMessageA(handle, WM_TEST, 0, 0));
        EXPECT_EQ(SendMessageA(handle, WM_TEST, 0, 0), 0);
        EXPECT_EQ(SetTimer(handle, 1, 10), 0u);
        EXPECT_FALSE(KillTimer(handle, 1));
        EXPECT_FALSE(DestroyWindow(handle));
    }
    EXPECT_EQ(PumpPendingMessages(), 0);
}

TEST(Messages, AHandlerMayDestroyItsOwnWindowAndItsQueueGoesWithIt)
{
    std::vector<UINT> seen;
    HWND survivor = CreateMessageWindow([&](HWND, UINT message, WPARAM, LPARAM) -> LRESULT {
        seen.push_back(message);
        return 0;
    });
    HWND doomed = nullptr;
    int doomedCalls = 0;
    doomed = CreateMessageWindow([&](HWND self, UINT message, WPARAM, LPARAM) -> LRESULT {
        if (message == WM_CREATE)
            return 0;
        ++doomedCalls;
        if (message == WM_CLOSE) {
            EXPECT_TRUE(DestroyWindow(self));
            EXPECT_FALSE(IsWindow(self));
            PostMessageA(survivor, WM_TEST, 0, 0);
        }
        return 0;
    });
    SetTimer(doomed, 1, 1);
    PostMessageA(doomed, WM_CLOSE, 0, 0);
    PostMessageA(doomed, WM_TEST, 0, 0);  // queued behind the close: dropped
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    PumpPendingMessages();
    EXPECT_EQ(doomedCalls, 2);  // WM_CLOSE, then the WM_DESTROY of its own destruction
    EXPECT_EQ(seen, (std::vector<UINT>{WM_CREATE, WM_TEST}));
    EXPECT_FALSE(IsWindow(doomed));
    DestroyWindow(survivor);
}

TEST(Messages, PostsFromOtherThreadsArriveInOrderAndSendsWaitForTheOwner)
{
    std::vector<std::pair<int, int>> posted;  // thread, sequence
    std::atomic<int> sendsAnswered{0};
    std::thread::id handlerThread;
    HWND window = CreateMessageWindow([&](HWND, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
        if (message == WM_TEST)
            posted.emplace_back(static_cast<int>(wParam), static_cast<int>(lParam));
        if (message == WM_TEST + 1) {
            handlerThread = std::this_thread::get_id();
            return static_cast<LRESULT>(wParam + 100);
        }
        return 0;
    });
    constexpr int kThreads = 3;
    constexpr int kPosts = 200;
    std::vector<std::thread> threads;
    std::vector<LRESULT> sendResults(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPosts; ++i)
                EXPECT_TRUE(PostMessageA(window, WM_TEST, static_cast<WPARAM>(t), i));
            sendResults[static_cast<size_t>(t)] = SendMessageA(window, WM_TEST + 1, static_cast<WPARAM>(t), 0);
            ++sendsAnswered;
            PostMessageA(window, WM_NULL, 0, 0);  // wakes the owner to see the count
        });
    }
    EXPECT_TRUE(PumpUntil([&] { return sendsAnswered.load() == kThreads; }, 10000));
    for (std::thread& thread : threads)
        thread.join();
    PumpPendingMessages();

    EXPECT_EQ(handlerThread, std::this_thread::get_id());
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(sendResults[static_cast<size_t>(t)], t + 100);
    ASSERT_EQ(posted.size(), static_cast<size_t>(kThreads * kPosts));
    std::vector<int> next(kThreads, 0);
    for (const auto& [thread, sequence] : posted)
        EXPECT_EQ(sequence, next[static_cast<size_t>(thread)]++);
    DestroyWindow(window);
}

TEST(Messages, ASendToAWindowDestroyedBeforeItsTurnAnswersZero)
{
    HWND window = CreateMessageWindow([](HWND, UINT, WPARAM, LPARAM) -> LRESULT { return 5; });
    std::atomic<bool> sending{false};
    LRESULT answer = -1;
    std::thread sender([&] {
        sending = true;
        answer = SendMessageA(window, WM_TEST, 0, 0);
    });
    while (!sending.load())
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    DestroyWindow(window);
    sender.join();
    EXPECT_EQ(answer, 0);
}

TEST(Messages, PumpUntilWakesForARealTimerAndTimesOut)
{
    int fired = 0;
    HWND window = CreateMessageWindow([&](HWND, UINT message, WPARAM, LPARAM) -> LRESULT {
        fired += message == WM_TIMER;
        return 0;
    });
    SetTimer(window, 4, 15);
    EXPECT_TRUE(PumpUntil([&] { return fired >= 2; }, 5000));
    KillTimer(window, 4);
    EXPECT_FALSE(PumpUntil([] { return false; }, 20));
    DestroyWindow(window);
}

TEST(Messages, WindowsOfAFinishedThreadAreGone)
{
    HWND orphan = nullptr;
    std::thread([&] { orphan = CreateMessageWindow(nullptr); }).join();
    EXPECT_FALSE(IsWindow(orphan));
    EXPECT_FALSE(PostMessageA(orphan, WM_TEST, 0, 0));
}

TEST(Clock, ManualClockDrivesTheTickCountAndRealTimeComesBack)
{
    ManualClock clock((uint64_t{7} << 32) + 41);
    SetClock(&clock);
    EXPECT_EQ(CurrentManualClock(), &clock);
    EXPECT_EQ(GetTickCount(), 41u);
    clock.Advance(uint64_t{0xFFFFFFFF} - 40);
    EXPECT_EQ(GetTickCount(), 0u);  // wraps like a 32-bit tick count
    clock.Set(5);
    EXPECT_EQ(GetTickCount(), 5u);
    SetClock(nullptr);
    EXPECT_EQ(CurrentManualClock(), nullptr);
    const uint64_t before = CurrentClock().NowMs();
    Sleep(15);
    EXPECT_GE(CurrentClock().NowMs() - before, 15u);
}

}  // namespace
