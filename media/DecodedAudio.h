#pragma once
#include <functional>
#include <memory>
#include <string>

#include "media/FfmpegDecoder.h"

// Turning a file the engine can't play as it stands (MP3, M4A, Ogg, Opus,
// FLAC, WAV of 24 or 32 bits or float, extensible or many-channel WAV) into
// the control's own 16-bit PCM .wav, through FfmpegDecoder.
//
// The .wav is made where the converted wzq goes: beside the source under
// its stem when nothing stands there and the folder can be written, else in
// `fallbackFolder` (ending in '/') under a free name. It is recorded as the
// process's own (platform/OwnedFiles.h), never put over a file that stood
// before, and a conversion that yields nothing leaves nothing behind.
// Runs on the caller's thread and blocks it until done.
namespace media {

// True for what the engine plays as it stands: a RIFF WAVE file whose
// format is plain PCM (not extensible) of 8 or 16 bits.
bool IsPlainPcmWave(const std::string& path);

// True for a regular file that is not such a wave file: one to offer to
// the decoder. Missing files, folders, FIFOs and devices are never offered.
bool IsWorthDecoding(const std::string& path);

// Told now and then: seconds decoded, and the seconds the file announces
// (0 when it announces none). Answering false stops the conversion; its
// .wav is then deleted.
using DecodeProgress = std::function<bool(double doneSeconds, double totalSeconds)>;

struct DecodeReport {
    // The control's .wav; empty when none was made.
    std::string wavPath;
    // Why there is no .wav ("not an audio file FFmpeg can decode (...)"),
    // or why it holds less than the file (the error that ended decoding).
    std::string reason;
    // The decoding ended early on an error; the .wav holds what came before.
    bool stoppedEarly = false;
    // The .wav reached the 4 GiB a wave file can count; the rest is left out.
    bool truncatedToWavLimit = false;
    // The progress callback asked to stop.
    bool cancelled = false;
    uint64_t damagedPackets = 0;
    double decodedSeconds = 0;
    DecodedStream stream;
};

// Decodes the file at `path` into the control's .wav.
DecodeReport DecodeToWav(const std::string& path, const std::string& fallbackFolder,
                         const DecodeProgress& progress = DecodeProgress());

// The same from any byte source, with the .wav preferably at
// `preferredWav`; for tests that make a source fail midway.
DecodeReport DecodeSourceToWav(std::unique_ptr<ByteSource> source, const std::string& preferredWav,
                               const std::string& fallbackFolder, const DecodeProgress& progress = DecodeProgress());

// The .wav path beside `path`: its extension (of the file's own name, not a
// folder's) replaced by ".wav".
std::string WavPathBeside(const std::string& path);

}  // namespace media
