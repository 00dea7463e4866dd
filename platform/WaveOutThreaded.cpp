// A device with a thread of its own that feeds a sink: the sound card, a
// clock that only pretends to play, or a file.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <thread>

#include "platform/File.h"
#include "platform/WaveDevice.h"
#include "riff/LittleEndian.h"
#include "riff/WavHead.h"

namespace platform::wave {
namespace {

enum class RequestKind { Pause, Restart, Reset, Close };

struct Request {
    RequestKind kind;
    MMRESULT result = MMSYSERR_NOERROR;
    bool finished = false;
};

constexpr int64_t kShortestWaitNs = 200'000;
constexpr int64_t kLongestWaitNs = 50'000'000;

// A stream starts like a sound card's: once it is primed with as many
// buffers as a player keeps in flight, or once writes have stopped coming
// (a stream shorter than that). It is primed again whenever its queue ran
// empty. Without this a device that completes at once (the capture file)
// would hand the first buffer back before the owner had queued the others.
constexpr size_t kStartThresholdBuffers = 4;
constexpr auto kStartWhenIdle = std::chrono::milliseconds(50);

class ThreadedDevice final : public WaveDevice {
public:
    ThreadedDevice(std::unique_ptr<WaveSink> sink, WaveOutProc callback, DWORD_PTR instance)
        : WaveDevice(callback, instance), m_sink(std::move(sink))
    {
    }

    ~ThreadedDevice() override
    {
        if (m_thread.joinable()) {
            {
                std::lock_guard lock(m_mutex);
                m_abandoned = true;
                m_wake.notify_all();
            }
            m_thread.join();
        }
        m_sink->Close();
    }

    MMRESULT Start() override
    {
        m_thread = std::thread([this] { Run(); });
        std::unique_lock lock(m_mutex);
        m_answered.wait(lock, [this] { return m_openDelivered; });
        return MMSYSERR_NOERROR;
    }

    MMRESULT Pause() override { return Submit(RequestKind::Pause); }
    MMRESULT Restart() override { return Submit(RequestKind::Restart); }
    MMRESULT Reset() override { return Submit(RequestKind::Reset); }

    MMRESULT Close() override
    {
        MMRESULT result = Submit(RequestKind::Close);
        if (result == MMSYSERR_NOERROR) {
            m_thread.join();
            m_sink->Close();
        }
        return result;
    }

protected:
    void OnQueued() override
    {
        m_lastQueuedAt = std::chrono::steady_clock::now();
        m_wake.notify_one();
    }

private:
    MMRESULT Submit(RequestKind kind)
    {
        std::unique_lock lock(m_mutex);
        if (m_finished)
            return MMSYSERR_INVALHANDLE;
        if (std::this_thread::get_id() == m_threadId) {
            // From inside a callback: waiting for the thread would wait for
            // ourselves, so the request is served right here. A close can't
            // be, since nobody would be left to end the thread.
            if (kind == RequestKind::Close)
                return MMSYSERR_ERROR;
            Request request{kind};
            Serve(request, lock);
            return request.result;
        }
        Request request{kind};
        m_requests.push_back(&request);
        m_wake.notify_one();
        m_answered.wait(lock, [&request] { return request.finished; });
        return request.result;
    }

    void Run()
    {
        {
            std::lock_guard lock(m_mutex);
            m_threadId = std::this_thread::get_id();
        }
        Notify(MM_WOM_OPEN, 0);
        std::unique_lock lock(m_mutex);
        m_openDelivered = true;
        m_answered.notify_all();
        while (!m_abandoned) {
            if (!m_requests.empty()) {
                Request* request = m_requests.front();
                m_requests.pop_front();
                const bool leave = Serve(*request, lock);
                request->finished = true;  // the requester may free it from here on
                m_answered.notify_all();
                if (leave)
                    break;
                continue;
            }
            if (!m_paused && Primed()) {
                Feed();
                if (FrontHeard()) {
                    WAVEHDR* header = PopDone();
                    lock.unlock();
                    Notify(MM_WOM_DONE, reinterpret_cast<DWORD_PTR>(header));
                    lock.lock();
                    continue;
                }
            }
            WaitForWork(lock);
        }
        m_finished = true;
        for (Request* request : m_requests) {
            request->result = MMSYSERR_INVALHANDLE;
            request->finished = true;
        }
        m_requests.clear();
        m_answered.notify_all();
    }

    // Answers true when the thread is to end.
    bool Serve(Request& request, std::unique_lock<std::mutex>& lock)
    {
        switch (request.kind) {
        case RequestKind::Pause:
            if (!m_paused) {
                uint64_t givenBack = m_sink->Pause();
                if (givenBack != 0)
                    Rewind(givenBack);
                m_paused = true;
            }
            return false;
        case RequestKind::Restart:
            if (m_paused) {
                m_sink->Resume();
                m_paused = false;
            }
            return false;
        case RequestKind::Reset: {
            m_sink->Drop();
            std::vector<WAVEHDR*> headers = TakeAllDone();
            lock.unlock();
            for (WAVEHDR* header : headers)
                Notify(MM_WOM_DONE, reinterpret_cast<DWORD_PTR>(header));
            lock.lock();
            return false;
        }
        case RequestKind::Close:
            if (!m_queue.empty()) {
                request.result = WAVERR_STILLPLAYING;
                return false;
            }
            m_closed = true;
            lock.unlock();
            Notify(MM_WOM_CLOSE, 0);
            lock.lock();
            return true;
        }
        return false;
    }

    bool Primed()
    {
        if (m_queue.empty()) {
            m_primed = false;
            return false;
        }
        if (!m_primed) {
            m_primed = m_queue.size() >= kStartThresholdBuffers ||
                       std::chrono::steady_clock::now() - m_lastQueuedAt >= kStartWhenIdle;
        }
        return m_primed;
    }

    // Hands the sink as much as it takes, and stamps each header whose last
    // byte went over with the total at which that byte will have been heard.
    void Feed()
    {
        for (QueuedBuffer& entry : m_queue) {
            if (entry.stamped)
                continue;
            if (entry.copied == 0)
                entry.startAt = m_written;
            if (entry.copied < entry.length) {
                size_t took = m_sink->Write(entry.header->lpData + entry.copied, entry.length - entry.copied);
                entry.copied += static_cast<uint32_t>(took);
                m_written += took;
                if (entry.copied < entry.length)
                    return;
            }
            entry.heardAt = m_written;
            entry.stamped = true;
        }
    }

    uint64_t FrontHeardBytes() override
    {
        if (m_queue.empty())
            return 0;
        const QueuedBuffer& front = m_queue.front();
        if (front.copied == 0 && !front.stamped)
            return 0;
        const uint64_t played = m_sink->Played();
        return played <= front.startAt ? 0 : std::min<uint64_t>(played - front.startAt, front.copied);
    }

    bool FrontHeard()
    {
        if (m_queue.empty() || !m_queue.front().stamped)
            return false;
        return m_queue.front().heardAt <= m_sink->Played();
    }

    // The sink gave back its unheard tail: those bytes are fed again later.
    void Rewind(uint64_t givenBack)
    {
        const uint64_t kept = m_written - std::min(givenBack, m_written);
        for (QueuedBuffer& entry : m_queue) {
            if (!entry.stamped && entry.copied == 0)
                continue;
            const bool pastKept = entry.startAt + entry.copied > kept || (entry.stamped && entry.heardAt > kept);
            if (!pastKept)
                continue;
            entry.copied = entry.startAt >= kept ? 0 : static_cast<uint32_t>(kept - entry.startAt);
            entry.stamped = false;
        }
        m_written = kept;
    }

    void WaitForWork(std::unique_lock<std::mutex>& lock)
    {
        if (m_paused || m_queue.empty()) {
            m_wake.wait(lock);
            return;
        }
        if (!m_primed) {
            m_wake.wait_until(lock, m_lastQueuedAt + kStartWhenIdle);
            return;
        }
        const QueuedBuffer& front = m_queue.front();
        int64_t waitNs = m_sink->WaitHintNs(front.stamped ? front.heardAt : UINT64_MAX);
        waitNs = std::clamp(waitNs, kShortestWaitNs, kLongestWaitNs);
        m_wake.wait_for(lock, std::chrono::nanoseconds(waitNs));
    }

    std::unique_ptr<WaveSink> m_sink;
    std::thread m_thread;
    std::thread::id m_threadId;
    std::condition_variable m_wake;      // the device thread sleeps on it
    std::condition_variable m_answered;  // requesters sleep on it
    std::deque<Request*> m_requests;
    uint64_t m_written = 0;
    std::chrono::steady_clock::time_point m_lastQueuedAt;
    bool m_primed = false;
    bool m_openDelivered = false;
    bool m_finished = false;
    bool m_abandoned = false;
};

using SteadyClock = std::chrono::steady_clock;

// Plays nothing, but takes as long as the format's byte rate says. Runs on
// the steady clock itself: a test's manual clock must not stall the device.
class NullSink final : public WaveSink {
public:
    MMRESULT Open(const WAVEFORMATEX& format) override
    {
        m_bytesPerSecond = format.nAvgBytesPerSec;
        m_clockStart = SteadyClock::now();
        return MMSYSERR_NOERROR;
    }

    void Close() override {}

    size_t Write(const char*, size_t bytes) override
    {
        // An idle stretch earns no credit: pacing restarts with new data.
        if (Played() >= m_accepted)
            Rebase(m_accepted);
        m_accepted += bytes;
        return bytes;
    }

    uint64_t Played() override
    {
        if (m_paused)
            return m_playedBase;
        const auto elapsedNs = std::chrono::duration_cast<std::chrono::nanoseconds>(SteadyClock::now() - m_clockStart).count();
        const unsigned __int128 progressed =
            static_cast<unsigned __int128>(std::max<int64_t>(elapsedNs, 0)) * m_bytesPerSecond / 1'000'000'000u;
        const unsigned __int128 played = m_playedBase + progressed;
        return played >= m_accepted ? m_accepted : static_cast<uint64_t>(played);
    }

    uint64_t Pause() override
    {
        m_playedBase = Played();
        m_paused = true;
        return 0;
    }

    void Resume() override
    {
        m_paused = false;
        m_clockStart = SteadyClock::now();
    }

    void Drop() override
    {
        const bool paused = m_paused;
        m_paused = false;
        Rebase(m_accepted);
        m_paused = paused;
    }

    int64_t WaitHintNs(uint64_t target) override
    {
        const uint64_t played = Played();
        if (target <= played)
            return 0;
        const uint64_t missing = std::min<uint64_t>(target - played, m_bytesPerSecond);
        return static_cast<int64_t>((static_cast<unsigned __int128>(missing) * 1'000'000'000u + m_bytesPerSecond - 1) /
                                    m_bytesPerSecond);
    }

private:
    void Rebase(uint64_t played)
    {
        m_playedBase = played;
        m_clockStart = SteadyClock::now();
    }

    uint64_t m_bytesPerSecond = 1;
    uint64_t m_accepted = 0;
    uint64_t m_playedBase = 0;
    SteadyClock::time_point m_clockStart;
    bool m_paused = false;
};

// Writes what the device plays to a .wav file, as fast as it comes.
class CaptureSink final : public WaveSink {
public:
    explicit CaptureSink(std::string path) : m_path(std::move(path)) {}

    MMRESULT Open(const WAVEFORMATEX& format) override
    {
        if (m_path.empty() || !m_file.Open(m_path.c_str(), CFile::modeCreate | CFile::modeWrite))
            return MMSYSERR_ERROR;
        // The format as the device was given it; both lengths are written
        // when the device closes.
        riff::WavHeadFormat fields;
        fields.formatTag = format.wFormatTag;
        fields.channels = format.nChannels;
        fields.sampleRate = format.nSamplesPerSec;
        fields.byteRate = format.nAvgBytesPerSec;
        fields.blockAlign = format.nBlockAlign;
        fields.bitsPerSample = format.wBitsPerSample;
        uint8_t head[riff::kCanonicalHeadBytes];
        riff::PutCanonicalWavHead(head, fields, 0);
        if (m_file.Write(head, sizeof head) != sizeof head) {
            m_file.Close();
            return MMSYSERR_ERROR;
        }
        return MMSYSERR_NOERROR;
    }

    void Close() override
    {
        if (!m_file.IsOpen())
            return;
        // The RIFF lengths are 32 bits; a longer capture keeps its bytes
        // but its head says the most it can.
        const uint32_t dataLength = static_cast<uint32_t>(std::min<uint64_t>(m_accepted, UINT32_MAX - 36));
        uint8_t length[4];
        riff::PutU32(length, dataLength + 36);
        if (m_file.Seek(4, CFile::begin) == 4)
            m_file.Write(length, 4);
        riff::PutU32(length, dataLength);
        if (m_file.Seek(40, CFile::begin) == 40)
            m_file.Write(length, 4);
        m_file.Close();
        RecordCapturedBytes(m_accepted);
    }

    size_t Write(const char* data, size_t bytes) override
    {
        // A failing disk must not stall play; the bytes count as written.
        m_file.Write(data, static_cast<uint32_t>(bytes));
        m_accepted += bytes;
        return bytes;
    }

    uint64_t Played() override { return m_accepted; }
    uint64_t Pause() override { return 0; }
    void Resume() override {}
    void Drop() override {}
    int64_t WaitHintNs(uint64_t) override { return 0; }

private:
    std::string m_path;
    CFile m_file;
    uint64_t m_accepted = 0;
};

}  // namespace

std::unique_ptr<WaveSink> MakeNullSink()
{
    return std::make_unique<NullSink>();
}

std::unique_ptr<WaveSink> MakeCaptureSink(const std::string& path)
{
    return std::make_unique<CaptureSink>(path);
}

std::shared_ptr<WaveDevice> MakeThreadedDevice(std::unique_ptr<WaveSink> sink, const WAVEFORMATEX&,
                                               WaveOutProc callback, DWORD_PTR instance)
{
    return std::make_shared<ThreadedDevice>(std::move(sink), callback, instance);
}

}  // namespace platform::wave
