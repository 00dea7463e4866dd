#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "platform/Types.h"

// Wave output: a queue of buffers played in order by one device, with a
// done notice per buffer delivered to a callback on the device's thread.

using MMRESULT = uint32_t;
struct WaveOutDevice;
using HWAVEOUT = WaveOutDevice*;

constexpr MMRESULT MMSYSERR_NOERROR = 0;
constexpr MMRESULT MMSYSERR_ERROR = 1;
constexpr MMRESULT MMSYSERR_BADDEVICEID = 2;
constexpr MMRESULT MMSYSERR_ALLOCATED = 4;
constexpr MMRESULT MMSYSERR_INVALHANDLE = 5;
constexpr MMRESULT MMSYSERR_NODRIVER = 6;
constexpr MMRESULT MMSYSERR_NOMEM = 7;
constexpr MMRESULT MMSYSERR_INVALFLAG = 10;
constexpr MMRESULT MMSYSERR_INVALPARAM = 11;
constexpr MMRESULT WAVERR_BADFORMAT = 32;
constexpr MMRESULT WAVERR_STILLPLAYING = 33;
constexpr MMRESULT WAVERR_UNPREPARED = 34;

constexpr UINT WAVE_MAPPER = 0xFFFFFFFFu;
constexpr DWORD CALLBACK_FUNCTION = 0x00030000u;

constexpr UINT MM_WOM_OPEN = 955;
constexpr UINT MM_WOM_CLOSE = 956;
constexpr UINT MM_WOM_DONE = 957;

constexpr DWORD WHDR_DONE = 0x01;
constexpr DWORD WHDR_PREPARED = 0x02;
constexpr DWORD WHDR_BEGINLOOP = 0x04;
constexpr DWORD WHDR_ENDLOOP = 0x08;
constexpr DWORD WHDR_INQUEUE = 0x10;

constexpr WORD WAVE_FORMAT_PCM = 1;

struct WAVEFORMATEX {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
    WORD wBitsPerSample;
    WORD cbSize;
};

struct WAVEHDR {
    char* lpData;
    DWORD dwBufferLength;
    DWORD dwBytesRecorded;
    DWORD_PTR dwUser;
    DWORD dwFlags;
    DWORD dwLoops;
    WAVEHDR* lpNext;
    DWORD_PTR reserved;
};

using WaveOutProc = void (*)(HWAVEOUT device, UINT message, DWORD_PTR instance, DWORD_PTR param1, DWORD_PTR param2);

// All calls answer MMSYSERR_NOERROR (0) on success and an error code otherwise.
// `callback` is a WaveOutProc cast to DWORD_PTR, with CALLBACK_FUNCTION in flags.
MMRESULT waveOutOpen(HWAVEOUT* device, UINT deviceId, const WAVEFORMATEX* format, DWORD_PTR callback,
                     DWORD_PTR instance, DWORD flags);
// A prepared header stays prepared across writes, and each write may carry
// a different dwBufferLength: the pipeline's stages change a block's length
// in place, within the buffer the owner allocated.
MMRESULT waveOutPrepareHeader(HWAVEOUT device, WAVEHDR* header, UINT headerSize);
MMRESULT waveOutUnprepareHeader(HWAVEOUT device, WAVEHDR* header, UINT headerSize);
// Only appends to the queue; safe from inside the callback.
MMRESULT waveOutWrite(HWAVEOUT device, WAVEHDR* header, UINT headerSize);
MMRESULT waveOutPause(HWAVEOUT device);
MMRESULT waveOutRestart(HWAVEOUT device);
// Returns every queued header with a done notice; returns only after all
// those notices have been delivered and no callback is running.
MMRESULT waveOutReset(HWAVEOUT device);
// Fails with WAVERR_STILLPLAYING while headers are queued; after it returns
// no callback of this device runs any more.
MMRESULT waveOutClose(HWAVEOUT device);

// Times the queue ran empty while playing (not paused, not reset).
uint64_t waveOutGetUnderruns(HWAVEOUT device);

// Where the device stands in what was written to it: bytes of the written
// headers, counted in write order, that have been heard (or, for a reset,
// thrown away) since the open. Lets the owner tell which of its samples is
// being heard now.
MMRESULT waveOutGetPosition(HWAVEOUT device, uint64_t* bytes);

namespace platform {

// Which kind of device waveOutOpen makes. Chosen by the host program for
// the whole process; the engine never knows.
enum class AudioBackend {
    Alsa,     // the real sound card
    Null,     // paced by the real clock at the format's byte rate, no sound
    Capture,  // writes every byte to a .wav file, completes buffers at once
    Manual,   // buffers complete only when a test steps the device
};

struct AudioBackendConfig {
    AudioBackend backend = AudioBackend::Null;
    std::string capturePath;   // for Capture: the .wav file written
    std::string alsaDevice = "default";
};

void SetAudioBackend(const AudioBackendConfig& config);
AudioBackendConfig GetAudioBackend();

// True when an ALSA playback device can be opened at all on this machine.
bool AlsaOutputAvailable(const std::string& device = "default");

// A device as the tools, the container and the module all name it:
// "default" (the sound card when one answers, else the null device),
// "alsa", "alsa:DEVICE" (an ALSA device name), "null", "manual" or
// "capture:FILE". False for anything else, with `config` left as it was.
bool ParseAudioDevice(const std::string& text, AudioBackendConfig& config);

// The manual device that was opened last and is not yet closed, or nothing.
// Tests and the container drive it from their own thread.
class ManualWaveOut {
public:
    static ManualWaveOut* Current();
    // Completes the oldest queued header and runs its done callback on the
    // calling thread. False when nothing is queued.
    virtual bool Step() = 0;
    virtual size_t QueuedCount() const = 0;
    virtual bool IsPaused() const = 0;
    // Every byte handed to the device by a completed header, in order.
    virtual const std::string& PlayedBytes() const = 0;
    // Test hook: make the next call of the named operation fail once
    // ("open", "prepare", "write", "pause", "restart", "reset", "close");
    // for "write" and "prepare", `afterCalls` successful calls come first.
    static void FailNext(const std::string& operation, int afterCalls = 0);
    static void ClearFailures();
protected:
    virtual ~ManualWaveOut() = default;
};

// Statistics of the last capture device closed (bytes written, for tools).
uint64_t CapturedByteCount();

}  // namespace platform
