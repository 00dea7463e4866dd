#include "platform/Clock.h"

#include <chrono>
#include <thread>

namespace platform {
namespace {

class SteadyClock final : public IClock {
public:
    uint64_t NowMs() const override
    {
        auto sinceEpoch = std::chrono::steady_clock::now().time_since_epoch();
        return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count());
    }
};

SteadyClock g_steadyClock;
std::atomic<IClock*> g_installed{nullptr};

}  // namespace

ManualClock::ManualClock(uint64_t startMs) : m_nowMs(startMs) {}

uint64_t ManualClock::NowMs() const
{
    return m_nowMs.load();
}

void ManualClock::Advance(uint64_t ms)
{
    m_nowMs.fetch_add(ms);
}

void ManualClock::Set(uint64_t ms)
{
    m_nowMs.store(ms);
}

void SetClock(IClock* clock)
{
    g_installed.store(clock);
}

IClock& CurrentClock()
{
    IClock* installed = g_installed.load();
    return installed ? *installed : g_steadyClock;
}

ManualClock* CurrentManualClock()
{
    return dynamic_cast<ManualClock*>(g_installed.load());
}

}  // namespace platform

uint32_t GetTickCount()
{
    return static_cast<uint32_t>(platform::CurrentClock().NowMs());
}

void Sleep(uint32_t ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}
