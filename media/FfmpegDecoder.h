#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// Decoding any audio file FFmpeg's libraries read (MP3, AAC in MP4/M4A, Ogg
// Vorbis, Opus, FLAC, WAV of any depth...) into interleaved 16-bit samples,
// one packet at a time, so that memory stays the same whatever the length.
//
// The container is told by its content alone, never by the file's name: a
// ".mp3" that holds Ogg is read as Ogg, and random bytes named ".mp3" are
// refused rather than decoded into noise. The samples keep the source's
// rate; one or two channels stay as they are, more are mixed down to two.
//
// FFmpeg's own types stay inside the implementation. One decoder is used by
// one thread at a time; separate decoders may run on separate threads.

namespace media {

// The bytes a decoder reads. Files come through OpenFileSource; tests give
// sources that fail on cue.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Up to `count` bytes from the current position: the count read, 0 at
    // the end, or -1 for a read error.
    virtual int64_t Read(uint8_t* into, uint32_t count) = 0;
    // Moves to `offset` from the start; false when that fails.
    virtual bool Seek(uint64_t offset) = 0;
    virtual uint64_t Position() const = 0;
    virtual uint64_t Size() const = 0;
};

// A regular file opened for reading without waiting (a FIFO or a device is
// refused), or null.
std::unique_ptr<ByteSource> OpenFileSource(const std::string& path);

// True when the FFmpeg plugin (tempvox-ffmpeg.so) is loaded or loads now;
// false with `why` naming it when it is missing or refused.
bool FfmpegAvailable(std::string& why);

// What the samples are and where they came from.
struct DecodedStream {
    uint16_t channels = 0;        // of the samples handed out: 1 or 2
    uint16_t sourceChannels = 0;  // of the stream in the file
    uint32_t sampleRate = 0;      // Hz, the stream's own
    double announcedSeconds = 0;  // the duration the file states; 0 when it states none
    bool announcedByBitrate = false;  // guessed from the size and the bit rate, not stated
    std::string container;        // FFmpeg's short name of the container, e.g. "mp3", "ogg"
    std::string codec;            // and of the codec, e.g. "mp3float", "vorbis"
};

class FfmpegDecoder {
public:
    // Takes `frames` frames of `channels` interleaved samples; answers false
    // to stop the decoding there.
    using Sink = std::function<bool(const int16_t* samples, size_t frames)>;

    enum class Step {
        More,      // a packet was taken; call again
        Finished,  // the end of the stream, every sample handed out
        Stopped,   // the sink asked to stop
        Failed,    // a read error, or too many damaged packets in a row: see Failure()
    };

    explicit FfmpegDecoder(std::unique_ptr<ByteSource> source);
    ~FfmpegDecoder();
    FfmpegDecoder(const FfmpegDecoder&) = delete;
    FfmpegDecoder& operator=(const FfmpegDecoder&) = delete;

    // Recognises the container by content and opens its first audio stream
    // for decoding. False with `reason` set (FFmpeg's own text where it gave
    // one, e.g. "Invalid data found when processing input") otherwise.
    bool Open(std::string& reason);
    const DecodedStream& Stream() const;

    // Reads one packet and hands what it decodes to `sink`. A packet the
    // codec refuses is counted and passed over, as players do; a read error
    // ends the decoding, and what was handed out before it stands.
    Step DecodeNext(const Sink& sink);

    // Why the last step Failed.
    const std::string& Failure() const;
    // Packets the codec refused so far.
    uint64_t DamagedPackets() const;
    // Frames handed out so far.
    uint64_t FramesDecoded() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace media
