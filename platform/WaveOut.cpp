#include "platform/WaveOut.h"

#include <atomic>
#include <mutex>
#include <unordered_map>

#include "platform/WaveDevice.h"

namespace platform::wave {

WaveDevice::WaveDevice(WaveOutProc callback, DWORD_PTR instance) : m_callback(callback), m_instance(instance) {}

void WaveDevice::Notify(UINT message, DWORD_PTR param1)
{
    if (m_callback)
        m_callback(m_handle, message, m_instance, param1, 0);
}

MMRESULT WaveDevice::Prepare(WAVEHDR* header)
{
    if (FailsNow("prepare"))
        return MMSYSERR_ERROR;
    std::lock_guard lock(m_mutex);
    if (header->dwFlags & WHDR_INQUEUE)
        return WAVERR_STILLPLAYING;
    header->dwFlags |= WHDR_PREPARED;
    return MMSYSERR_NOERROR;
}

MMRESULT WaveDevice::Unprepare(WAVEHDR* header)
{
    std::lock_guard lock(m_mutex);
    if (header->dwFlags & WHDR_INQUEUE)
        return WAVERR_STILLPLAYING;
    header->dwFlags &= ~WHDR_PREPARED;
    return MMSYSERR_NOERROR;
}

MMRESULT WaveDevice::Write(WAVEHDR* header)
{
    if (FailsNow("write"))
        return MMSYSERR_ERROR;
    std::lock_guard lock(m_mutex);
    if (m_closed)
        return MMSYSERR_INVALHANDLE;
    if (!(header->dwFlags & WHDR_PREPARED))
        return WAVERR_UNPREPARED;
    if (header->dwFlags & WHDR_INQUEUE)
        return WAVERR_STILLPLAYING;
    if (header->lpData == nullptr && header->dwBufferLength != 0)
        return MMSYSERR_INVALPARAM;
    header->dwFlags = (header->dwFlags & ~WHDR_DONE) | WHDR_INQUEUE;
    // The queue emptied while playing and only now gets more: a gap was heard.
    if (m_ranDry) {
        ++m_underruns;
        m_ranDry = false;
    }
    QueuedBuffer entry;
    entry.header = header;
    entry.length = header->dwBufferLength;
    m_queue.push_back(entry);
    OnQueued();
    return MMSYSERR_NOERROR;
}

uint64_t WaveDevice::Underruns()
{
    std::lock_guard lock(m_mutex);
    return m_underruns;
}

uint64_t WaveDevice::PassedBytes()
{
    std::lock_guard lock(m_mutex);
    return m_passed + FrontHeardBytes();
}

WAVEHDR* WaveDevice::PopDone()
{
    WAVEHDR* header = m_queue.front().header;
    m_passed += m_queue.front().length;
    m_queue.pop_front();
    header->dwFlags = (header->dwFlags & ~WHDR_INQUEUE) | WHDR_DONE;
    if (m_queue.empty() && !m_paused)
        m_ranDry = true;
    return header;
}

std::vector<WAVEHDR*> WaveDevice::TakeAllDone()
{
    std::vector<WAVEHDR*> headers;
    headers.reserve(m_queue.size());
    for (QueuedBuffer& entry : m_queue) {
        entry.header->dwFlags = (entry.header->dwFlags & ~WHDR_INQUEUE) | WHDR_DONE;
        m_passed += entry.length;
        headers.push_back(entry.header);
    }
    m_queue.clear();
    // Emptied on purpose: what is written next starts a new stream.
    m_ranDry = false;
    return headers;
}

namespace {

// Handles are numbers that are never reused, so a closed device's handle
// is recognised as stale instead of reaching a newer device.
struct DeviceTable {
    std::mutex mutex;
    std::unordered_map<uintptr_t, std::shared_ptr<WaveDevice>> devices;
    uintptr_t nextId = 0x1000;
};

DeviceTable& Table()
{
    static DeviceTable* table = new DeviceTable;  // outlives every static destructor
    return *table;
}

std::shared_ptr<WaveDevice> Find(HWAVEOUT handle)
{
    DeviceTable& table = Table();
    std::lock_guard lock(table.mutex);
    auto it = table.devices.find(reinterpret_cast<uintptr_t>(handle));
    return it == table.devices.end() ? nullptr : it->second;
}

HWAVEOUT Register(const std::shared_ptr<WaveDevice>& device)
{
    DeviceTable& table = Table();
    std::lock_guard lock(table.mutex);
    uintptr_t id = table.nextId++;
    table.devices.emplace(id, device);
    return reinterpret_cast<HWAVEOUT>(id);
}

void Unregister(HWAVEOUT handle)
{
    DeviceTable& table = Table();
    std::shared_ptr<WaveDevice> last;
    std::lock_guard lock(table.mutex);
    auto it = table.devices.find(reinterpret_cast<uintptr_t>(handle));
    if (it != table.devices.end()) {
        last = std::move(it->second);
        table.devices.erase(it);
    }
}

struct BackendState {
    std::mutex mutex;
    AudioBackendConfig config;
};

BackendState& Backend()
{
    static BackendState* state = new BackendState;
    return *state;
}

std::atomic<uint64_t> g_capturedBytes{0};

bool FormatPlayable(const WAVEFORMATEX* format)
{
    if (format == nullptr || format->wFormatTag != WAVE_FORMAT_PCM)
        return false;
    if (format->nChannels == 0 || format->nChannels > 8)
        return false;
    if (format->wBitsPerSample != 8 && format->wBitsPerSample != 16)
        return false;
    if (format->nSamplesPerSec == 0 || format->nSamplesPerSec > 768000)
        return false;
    if (format->nBlockAlign != format->nChannels * format->wBitsPerSample / 8)
        return false;
    return format->nAvgBytesPerSec != 0;
}

bool HeaderUsable(const WAVEHDR* header, UINT headerSize)
{
    return header != nullptr && headerSize >= sizeof(WAVEHDR);
}

}  // namespace

void RecordCapturedBytes(uint64_t bytes)
{
    g_capturedBytes.store(bytes);
}

}  // namespace platform::wave

using platform::wave::Find;
using platform::wave::WaveDevice;

MMRESULT waveOutOpen(HWAVEOUT* device, UINT deviceId, const WAVEFORMATEX* format, DWORD_PTR callback,
                     DWORD_PTR instance, DWORD flags)
{
    using namespace platform;
    if (device != nullptr)
        *device = nullptr;
    if (device == nullptr)
        return MMSYSERR_INVALPARAM;
    if (deviceId != WAVE_MAPPER && deviceId != 0)
        return MMSYSERR_BADDEVICEID;
    const DWORD callbackKind = flags & 0x00070000u;
    if (callbackKind != CALLBACK_FUNCTION && callbackKind != 0)
        return MMSYSERR_INVALFLAG;
    if (!wave::FormatPlayable(format))
        return WAVERR_BADFORMAT;
    WaveOutProc proc = callbackKind == CALLBACK_FUNCTION ? reinterpret_cast<WaveOutProc>(callback) : nullptr;

    const AudioBackendConfig config = GetAudioBackend();
    std::shared_ptr<WaveDevice> created;
    if (config.backend == AudioBackend::Manual) {
        if (wave::ConsumeManualFailure("open"))
            return MMSYSERR_ERROR;
        created = wave::MakeManualDevice(proc, instance);
    } else {
        std::unique_ptr<wave::WaveSink> sink;
        switch (config.backend) {
        case AudioBackend::Alsa: sink = wave::MakeAlsaSink(config.alsaDevice); break;
        case AudioBackend::Capture: sink = wave::MakeCaptureSink(config.capturePath); break;
        default: sink = wave::MakeNullSink(); break;
        }
        if (!sink)
            return MMSYSERR_NODRIVER;
        MMRESULT opened = sink->Open(*format);
        if (opened != MMSYSERR_NOERROR)
            return opened;
        created = wave::MakeThreadedDevice(std::move(sink), *format, proc, instance);
    }

    HWAVEOUT handle = wave::Register(created);
    created->SetHandle(handle);
    MMRESULT started = created->Start();
    if (started != MMSYSERR_NOERROR) {
        wave::Unregister(handle);
        return started;
    }
    *device = handle;
    return MMSYSERR_NOERROR;
}

MMRESULT waveOutPrepareHeader(HWAVEOUT device, WAVEHDR* header, UINT headerSize)
{
    auto found = Find(device);
    if (!found)
        return MMSYSERR_INVALHANDLE;
    if (!platform::wave::HeaderUsable(header, headerSize))
        return MMSYSERR_INVALPARAM;
    return found->Prepare(header);
}

MMRESULT waveOutUnprepareHeader(HWAVEOUT device, WAVEHDR* header, UINT headerSize)
{
    auto found = Find(device);
    if (!found)
        return MMSYSERR_INVALHANDLE;
    if (!platform::wave::HeaderUsable(header, headerSize))
        return MMSYSERR_INVALPARAM;
    return found->Unprepare(header);
}

MMRESULT waveOutWrite(HWAVEOUT device, WAVEHDR* header, UINT headerSize)
{
    auto found = Find(device);
    if (!found)
        return MMSYSERR_INVALHANDLE;
    if (!platform::wave::HeaderUsable(header, headerSize))
        return MMSYSERR_INVALPARAM;
    return found->Write(header);
}

MMRESULT waveOutPause(HWAVEOUT device)
{
    auto found = Find(device);
    return found ? found->Pause() : MMSYSERR_INVALHANDLE;
}

MMRESULT waveOutRestart(HWAVEOUT device)
{
    auto found = Find(device);
    return found ? found->Restart() : MMSYSERR_INVALHANDLE;
}

MMRESULT waveOutReset(HWAVEOUT device)
{
    auto found = Find(device);
    return found ? found->Reset() : MMSYSERR_INVALHANDLE;
}

MMRESULT waveOutClose(HWAVEOUT device)
{
    auto found = Find(device);
    if (!found)
        return MMSYSERR_INVALHANDLE;
    MMRESULT closed = found->Close();
    if (closed == MMSYSERR_NOERROR)
        platform::wave::Unregister(device);
    return closed;
}

uint64_t waveOutGetUnderruns(HWAVEOUT device)
{
    auto found = Find(device);
    return found ? found->Underruns() : 0;
}

MMRESULT waveOutGetPosition(HWAVEOUT device, uint64_t* bytes)
{
    auto found = Find(device);
    if (!found)
        return MMSYSERR_INVALHANDLE;
    if (bytes == nullptr)
        return MMSYSERR_INVALPARAM;
    *bytes = found->PassedBytes();
    return MMSYSERR_NOERROR;
}

namespace platform {

void SetAudioBackend(const AudioBackendConfig& config)
{
    auto& state = wave::Backend();
    std::lock_guard lock(state.mutex);
    state.config = config;
}

AudioBackendConfig GetAudioBackend()
{
    auto& state = wave::Backend();
    std::lock_guard lock(state.mutex);
    return state.config;
}

uint64_t CapturedByteCount()
{
    return wave::g_capturedBytes.load();
}

}  // namespace platform
