#pragma once
#include <cstdint>
#include <functional>
#include <string>

// Writing audio in the forms people carry (MP3, AAC in M4A, Ogg Vorbis,
// Opus, FLAC) through FFmpeg's libraries, from anything FfmpegDecoder reads
// (in practice the .wav a render made). Streaming, with constant memory;
// runs on the caller's thread.
namespace media {

enum class EncodedKind { Mp3, M4a, Ogg, Opus, Flac };

// The kind an output path's extension asks for (any case): .mp3, .m4a,
// .ogg, .opus, .flac. False for any other extension, .wav included.
bool EncodedKindForPath(const std::string& path, EncodedKind& kind);

// True for the kinds that take a bit rate.
bool IsLossy(EncodedKind kind);

struct EncodeSettings {
    EncodedKind kind = EncodedKind::Mp3;
    // Bits per second for a lossy kind; 0 takes the kind's default for
    // speech (64 kbit/s a channel, Opus 32).
    int64_t bitRate = 0;
};

// Encodes the audio of `inputPath` into `outputPath`, which FFmpeg creates
// or empties (the caller names a file of its own). The sample rate is kept
// where the encoder takes it, else the nearest higher rate it takes (Opus
// knows only 8, 12, 16, 24 and 48 kHz). `keepGoing`, when given, is asked
// now and then; false stops with "stopped". False with `error` set on any
// failure; what was written then is the caller's to delete.
bool EncodeFile(const std::string& inputPath, const std::string& outputPath, const EncodeSettings& settings,
                std::string& error, const std::function<bool()>& keepGoing = std::function<bool()>());

}  // namespace media
