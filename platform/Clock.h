#pragma once
#include <atomic>
#include <cstdint>

namespace platform {

// Milliseconds since an arbitrary start. Tests install a manual clock.
class IClock {
public:
    virtual ~IClock() = default;
    virtual uint64_t NowMs() const = 0;
};

class ManualClock : public IClock {
public:
    explicit ManualClock(uint64_t startMs = 0);
    uint64_t NowMs() const override;
    void Advance(uint64_t ms);
    void Set(uint64_t ms);
private:
    std::atomic<uint64_t> m_nowMs;
};

// nullptr restores the real monotonic clock. The clock must outlive its use.
void SetClock(IClock* clock);
IClock& CurrentClock();
// Plain ManualClock* when a manual clock is installed, else nullptr.
ManualClock* CurrentManualClock();

}  // namespace platform

// Low 32 bits of the current clock's milliseconds.
uint32_t GetTickCount();
void Sleep(uint32_t ms);
