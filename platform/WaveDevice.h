#pragma once
// The object behind an HWAVEOUT. Only the platform layer includes this.
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/WaveOut.h"

namespace platform::wave {

// One written header as the device sees it. The length is taken at the
// write, because the owner may change dwBufferLength before the next one.
struct QueuedBuffer {
    WAVEHDR* header = nullptr;
    uint32_t length = 0;
    uint32_t copied = 0;      // bytes handed to the sink so far
    uint64_t startAt = 0;     // running byte total before its first byte
    uint64_t heardAt = 0;     // running byte total once its last byte is heard
    bool stamped = false;     // heardAt is valid: every byte was handed over
};

class WaveDevice {
public:
    WaveDevice(WaveOutProc callback, DWORD_PTR instance);
    virtual ~WaveDevice() = default;
    WaveDevice(const WaveDevice&) = delete;
    WaveDevice& operator=(const WaveDevice&) = delete;

    void SetHandle(HWAVEOUT handle) { m_handle = handle; }
    HWAVEOUT Handle() const { return m_handle; }

    // Brings the device up and delivers MM_WOM_OPEN before returning.
    virtual MMRESULT Start() = 0;

    MMRESULT Prepare(WAVEHDR* header);
    MMRESULT Unprepare(WAVEHDR* header);
    MMRESULT Write(WAVEHDR* header);
    virtual MMRESULT Pause() = 0;
    virtual MMRESULT Restart() = 0;
    virtual MMRESULT Reset() = 0;
    // On success the device is finished: no callback runs any more.
    virtual MMRESULT Close() = 0;
    uint64_t Underruns();
    // Bytes of the written headers, in write order, that have been heard
    // or thrown away by a reset since the open.
    uint64_t PassedBytes();

protected:
    // Test hook of the manual device; real devices never fail on purpose.
    virtual bool FailsNow(const char* /*operation*/) { return false; }
    // Called with m_mutex held after a header joined the queue.
    virtual void OnQueued() {}
    // How much of the front header has been heard so far; m_mutex held.
    virtual uint64_t FrontHeardBytes() { return 0; }

    void Notify(UINT message, DWORD_PTR param1);
    // Takes the front header off the queue as done. m_mutex must be held.
    WAVEHDR* PopDone();
    // Takes every header off the queue as done, in order. m_mutex held.
    std::vector<WAVEHDR*> TakeAllDone();

    mutable std::mutex m_mutex;
    std::deque<QueuedBuffer> m_queue;
    bool m_paused = false;
    bool m_ranDry = false;
    bool m_closed = false;  // set under m_mutex once the close has gone through
    uint64_t m_underruns = 0;
    uint64_t m_passed = 0;  // bytes of headers taken off the queue

private:
    WaveOutProc m_callback;
    DWORD_PTR m_instance;
    HWAVEOUT m_handle = nullptr;
};

// Where a threaded device sends its bytes. All calls come from the device
// thread with the device lock held, so a sink needs no lock of its own.
// Counts are running byte totals since the open: what the sink accepted and
// what has been heard of it (bytes thrown away by Drop count as heard).
class WaveSink {
public:
    virtual ~WaveSink() = default;
    // Called on the opening thread, before the device thread exists.
    virtual MMRESULT Open(const WAVEFORMATEX& format) = 0;
    // Called after the device thread has ended.
    virtual void Close() = 0;
    // Takes up to `bytes`, answers how many it took.
    virtual size_t Write(const char* data, size_t bytes) = 0;
    virtual uint64_t Played() = 0;
    // Holds the stream. Answers how many accepted but unheard bytes it gave
    // back (they are no longer counted as accepted), 0 when it held in place.
    virtual uint64_t Pause() = 0;
    virtual void Resume() = 0;
    // Throws away everything accepted but not yet heard.
    virtual void Drop() = 0;
    // How long the device thread may sleep before Played reaches `target`
    // or room frees up; it is woken early by any request or write.
    virtual int64_t WaitHintNs(uint64_t target) = 0;
};

std::unique_ptr<WaveSink> MakeNullSink();
std::unique_ptr<WaveSink> MakeCaptureSink(const std::string& path);
std::unique_ptr<WaveSink> MakeAlsaSink(const std::string& device);

std::shared_ptr<WaveDevice> MakeThreadedDevice(std::unique_ptr<WaveSink> sink, const WAVEFORMATEX& format,
                                               WaveOutProc callback, DWORD_PTR instance);
std::shared_ptr<WaveDevice> MakeManualDevice(WaveOutProc callback, DWORD_PTR instance);

// Consumes an armed failure of the manual device's test hook.
bool ConsumeManualFailure(const std::string& operation);

void RecordCapturedBytes(uint64_t bytes);

}  // namespace platform::wave
