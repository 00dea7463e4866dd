// The sound card, through ALSA's PCM interface.
#include "platform/WaveDevice.h"

#if TEMPVOX_HAVE_ALSA

#include <alsa/asoundlib.h>

#include <algorithm>
#include <cstring>
#include <mutex>

namespace platform::wave {
namespace {

void DiscardAlsaError(const char*, int, const char*, int, const char*, ...) {}

// ALSA reports every failed open on standard error by itself; a missing
// card is an answer here, not something to print.
void SilenceAlsa()
{
    static std::once_flag once;
    std::call_once(once, [] { snd_lib_error_set_handler(DiscardAlsaError); });
}

constexpr unsigned kBufferMicroseconds = 200'000;
constexpr unsigned kPeriodMicroseconds = 25'000;
constexpr int64_t kPollNs = 5'000'000;

class AlsaSink final : public WaveSink {
public:
    explicit AlsaSink(std::string device) : m_device(std::move(device)) {}
    ~AlsaSink() override { Close(); }

    MMRESULT Open(const WAVEFORMATEX& format) override
    {
        SilenceAlsa();
        if (snd_pcm_open(&m_pcm, m_device.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK) < 0) {
            m_pcm = nullptr;
            return MMSYSERR_NODRIVER;
        }
        if (!Configure(format)) {
            Close();
            return WAVERR_BADFORMAT;
        }
        m_frameBytes = format.nBlockAlign;
        m_bytesPerSecond = format.nAvgBytesPerSec;
        return MMSYSERR_NOERROR;
    }

    void Close() override
    {
        if (m_pcm != nullptr) {
            snd_pcm_close(m_pcm);
            m_pcm = nullptr;
        }
    }

    size_t Write(const char* data, size_t bytes) override
    {
        size_t took = 0;
        if (m_partialLength > 0) {
            // A header that ended inside a frame: complete that frame first.
            const size_t fill = std::min(bytes, m_frameBytes - m_partialLength);
            std::memcpy(m_partial + m_partialLength, data, fill);
            if (m_partialLength + fill < m_frameBytes) {
                m_partialLength += fill;
                m_accepted += fill;
                return fill;
            }
            if (WriteFrames(m_partial, 1) == 0)
                return 0;
            m_partialLength = 0;
            took = fill;
            m_accepted += fill;
        }
        const size_t frames = (bytes - took) / m_frameBytes;
        const size_t written = WriteFrames(data + took, frames);
        took += written * m_frameBytes;
        if (written == frames) {
            const size_t rest = bytes - took;
            std::memcpy(m_partial, data + took, rest);
            m_partialLength = rest;
            took += rest;
            m_accepted += written * m_frameBytes + rest;
        } else {
            m_accepted += written * m_frameBytes;
        }
        return took;
    }

    uint64_t Played() override
    {
        const uint64_t played = m_accepted - std::min(Unheard(), m_accepted);
        m_lastPlayed = std::clamp(played, m_lastPlayed, m_accepted);
        return m_lastPlayed;
    }

    uint64_t Pause() override
    {
        if (snd_pcm_state(m_pcm) == SND_PCM_STATE_RUNNING && m_canPause && snd_pcm_pause(m_pcm, 1) == 0) {
            m_hardwarePaused = true;
            return 0;
        }
        // No pause in the hardware: stop, and give back what was not heard
        // so that it is played again after the restart.
        const uint64_t unheard = m_accepted - Played();
        Drop();
        m_accepted -= unheard;
        m_lastPlayed = m_accepted;
        return unheard;
    }

    void Resume() override
    {
        if (!m_hardwarePaused)
            return;
        m_hardwarePaused = false;
        if (snd_pcm_pause(m_pcm, 0) != 0)
            Drop();
    }

    void Drop() override
    {
        snd_pcm_drop(m_pcm);
        snd_pcm_prepare(m_pcm);
        m_partialLength = 0;
        m_hardwarePaused = false;
        m_lastPlayed = m_accepted;
    }

    int64_t WaitHintNs(uint64_t target) override
    {
        if (target == UINT64_MAX || m_bytesPerSecond == 0)
            return kPollNs;
        const uint64_t played = Played();
        if (target <= played)
            return 0;
        const int64_t untilHeard = static_cast<int64_t>((target - played) * 1'000'000'000ull / m_bytesPerSecond);
        return std::min(untilHeard, kPollNs);
    }

private:
    bool Configure(const WAVEFORMATEX& format)
    {
        snd_pcm_hw_params_t* hw;
        snd_pcm_hw_params_alloca(&hw);
        unsigned rate = format.nSamplesPerSec;
        unsigned bufferTime = kBufferMicroseconds;
        unsigned periodTime = kPeriodMicroseconds;
        const snd_pcm_format_t sampleFormat = format.wBitsPerSample == 8 ? SND_PCM_FORMAT_U8 : SND_PCM_FORMAT_S16_LE;
        if (snd_pcm_hw_params_any(m_pcm, hw) < 0 || snd_pcm_hw_params_set_rate_resample(m_pcm, hw, 1) < 0 ||
            snd_pcm_hw_params_set_access(m_pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED) < 0 ||
            snd_pcm_hw_params_set_format(m_pcm, hw, sampleFormat) < 0 ||
            snd_pcm_hw_params_set_channels(m_pcm, hw, format.nChannels) < 0 ||
            snd_pcm_hw_params_set_rate_near(m_pcm, hw, &rate, nullptr) < 0 ||
            snd_pcm_hw_params_set_buffer_time_near(m_pcm, hw, &bufferTime, nullptr) < 0 ||
            snd_pcm_hw_params_set_period_time_near(m_pcm, hw, &periodTime, nullptr) < 0 ||
            snd_pcm_hw_params(m_pcm, hw) < 0)
            return false;
        m_canPause = snd_pcm_hw_params_can_pause(hw) != 0;

        // Start with the first frame: a stream shorter than the buffer must
        // still be heard, and the thread writes all it can at once anyway.
        snd_pcm_sw_params_t* sw;
        snd_pcm_sw_params_alloca(&sw);
        if (snd_pcm_sw_params_current(m_pcm, sw) < 0 || snd_pcm_sw_params_set_start_threshold(m_pcm, sw, 1) < 0 ||
            snd_pcm_sw_params(m_pcm, sw) < 0)
            return false;
        return snd_pcm_prepare(m_pcm) == 0;
    }

    // Frames the card took; 0 when it is full.
    size_t WriteFrames(const char* data, size_t frames)
    {
        size_t done = 0;
        int failures = 0;
        while (done < frames) {
            snd_pcm_sframes_t n = snd_pcm_writei(m_pcm, data + done * m_frameBytes, frames - done);
            if (n == -EAGAIN)
                break;
            if (n < 0) {
                // An underrun or a suspend; after repeated failures the
                // frames are let go, so that the queue never stalls.
                if (snd_pcm_recover(m_pcm, static_cast<int>(n), 1) < 0 || ++failures > 3)
                    return frames;
                continue;
            }
            done += static_cast<size_t>(n);
        }
        return done;
    }

    // Accepted bytes not yet heard: those in the card, and a staged part
    // of a frame until everything before it has been heard.
    uint64_t Unheard()
    {
        snd_pcm_sframes_t delay = 0;
        const snd_pcm_state_t state = snd_pcm_state(m_pcm);
        if (state != SND_PCM_STATE_RUNNING && state != SND_PCM_STATE_PAUSED && state != SND_PCM_STATE_DRAINING)
            return 0;
        if (snd_pcm_delay(m_pcm, &delay) < 0 || delay <= 0)
            return 0;
        return static_cast<uint64_t>(delay) * m_frameBytes + m_partialLength;
    }

    std::string m_device;
    snd_pcm_t* m_pcm = nullptr;
    size_t m_frameBytes = 1;
    uint64_t m_bytesPerSecond = 0;
    uint64_t m_accepted = 0;
    uint64_t m_lastPlayed = 0;
    char m_partial[64] = {};
    size_t m_partialLength = 0;
    bool m_canPause = false;
    bool m_hardwarePaused = false;
};

}  // namespace

std::unique_ptr<WaveSink> MakeAlsaSink(const std::string& device)
{
    return std::make_unique<AlsaSink>(device);
}

}  // namespace platform::wave

namespace platform {

bool AlsaOutputAvailable(const std::string& device)
{
    wave::SilenceAlsa();
    snd_pcm_t* pcm = nullptr;
    if (snd_pcm_open(&pcm, device.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK) < 0)
        return false;
    snd_pcm_close(pcm);
    return true;
}

}  // namespace platform

#else  // no ALSA at build time: the real device is simply absent

namespace platform::wave {
std::unique_ptr<WaveSink> MakeAlsaSink(const std::string&)
{
    return nullptr;
}
}  // namespace platform::wave

namespace platform {
bool AlsaOutputAvailable(const std::string&)
{
    return false;
}
}  // namespace platform

#endif
