// The device of tests: no thread, no clock. A buffer is finished only when
// the test steps the device, and its notice runs on the stepping thread.
#include <algorithm>
#include <map>
#include <mutex>

#include "platform/WaveDevice.h"

namespace platform::wave {
namespace {

class ManualDevice;

struct ManualRegistry {
    std::mutex mutex;
    std::vector<ManualDevice*> open;  // in opening order; the last is Current()
    struct Failure {
        int callsBefore = 0;
    };
    std::map<std::string, Failure> armed;
};

ManualRegistry& Registry()
{
    static ManualRegistry* registry = new ManualRegistry;
    return *registry;
}

class ManualDevice final : public WaveDevice, public ManualWaveOut {
public:
    ManualDevice(WaveOutProc callback, DWORD_PTR instance) : WaveDevice(callback, instance) {}

    MMRESULT Start() override
    {
        {
            ManualRegistry& registry = Registry();
            std::lock_guard lock(registry.mutex);
            registry.open.push_back(this);
        }
        Notify(MM_WOM_OPEN, 0);
        return MMSYSERR_NOERROR;
    }

    bool Step() override
    {
        // Held across the notice so that a reset or close on another thread
        // waits for a step that is running; recursive for calls from inside.
        std::lock_guard delivering(m_delivering);
        WAVEHDR* header = nullptr;
        {
            std::lock_guard lock(m_mutex);
            if (m_closed || m_paused || m_queue.empty())
                return false;
            const QueuedBuffer& front = m_queue.front();
            if (front.length != 0)
                m_played.append(front.header->lpData, front.length);
            header = PopDone();
        }
        Notify(MM_WOM_DONE, reinterpret_cast<DWORD_PTR>(header));
        return true;
    }

    size_t QueuedCount() const override
    {
        std::lock_guard lock(m_mutex);
        return m_queue.size();
    }

    bool IsPaused() const override
    {
        std::lock_guard lock(m_mutex);
        return m_paused;
    }

    const std::string& PlayedBytes() const override { return m_played; }

    MMRESULT Pause() override
    {
        if (FailsNow("pause"))
            return MMSYSERR_ERROR;
        std::lock_guard lock(m_mutex);
        m_paused = true;
        return MMSYSERR_NOERROR;
    }

    MMRESULT Restart() override
    {
        if (FailsNow("restart"))
            return MMSYSERR_ERROR;
        std::lock_guard lock(m_mutex);
        m_paused = false;
        return MMSYSERR_NOERROR;
    }

    MMRESULT Reset() override
    {
        if (FailsNow("reset"))
            return MMSYSERR_ERROR;
        std::lock_guard delivering(m_delivering);
        std::vector<WAVEHDR*> headers;
        {
            std::lock_guard lock(m_mutex);
            headers = TakeAllDone();
        }
        for (WAVEHDR* header : headers)
            Notify(MM_WOM_DONE, reinterpret_cast<DWORD_PTR>(header));
        return MMSYSERR_NOERROR;
    }

    MMRESULT Close() override
    {
        if (FailsNow("close"))
            return MMSYSERR_ERROR;
        std::lock_guard delivering(m_delivering);
        {
            std::lock_guard lock(m_mutex);
            if (m_closed)
                return MMSYSERR_INVALHANDLE;
            if (!m_queue.empty())
                return WAVERR_STILLPLAYING;
            m_closed = true;
        }
        {
            ManualRegistry& registry = Registry();
            std::lock_guard lock(registry.mutex);
            std::erase(registry.open, this);
        }
        Notify(MM_WOM_CLOSE, 0);
        return MMSYSERR_NOERROR;
    }

protected:
    bool FailsNow(const char* operation) override { return ConsumeManualFailure(operation); }

private:
    std::recursive_mutex m_delivering;
    std::string m_played;
};

}  // namespace

bool ConsumeManualFailure(const std::string& operation)
{
    ManualRegistry& registry = Registry();
    std::lock_guard lock(registry.mutex);
    auto it = registry.armed.find(operation);
    if (it == registry.armed.end())
        return false;
    if (it->second.callsBefore > 0) {
        --it->second.callsBefore;
        return false;
    }
    registry.armed.erase(it);
    return true;
}

std::shared_ptr<WaveDevice> MakeManualDevice(WaveOutProc callback, DWORD_PTR instance)
{
    return std::make_shared<ManualDevice>(callback, instance);
}

}  // namespace platform::wave

namespace platform {

ManualWaveOut* ManualWaveOut::Current()
{
    auto& registry = wave::Registry();
    std::lock_guard lock(registry.mutex);
    return registry.open.empty() ? nullptr : registry.open.back();
}

void ManualWaveOut::FailNext(const std::string& operation, int afterCalls)
{
    auto& registry = wave::Registry();
    std::lock_guard lock(registry.mutex);
    registry.armed[operation].callsBefore = std::max(afterCalls, 0);
}

void ManualWaveOut::ClearFailures()
{
    auto& registry = wave::Registry();
    std::lock_guard lock(registry.mutex);
    registry.armed.clear();
}

}  // namespace platform
