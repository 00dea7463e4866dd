#pragma once
#include <cstdint>
#include <functional>
#include <string>

#include "media/FfmpegDecoder.h"
#include "media/FfmpegEncoder.h"
#include "platform/Plugin.h"

// The table of the plugin that holds everything touching FFmpeg's
// libraries (media/plugins/). FfmpegDecoder and EncodeFile load it at
// their first use, so a run that only reads plain PCM .wav files never maps
// libavcodec and the codec libraries it pulls in.
namespace media {

inline constexpr const char* kFfmpegPluginFile = "tempvox-ffmpeg.so";
inline constexpr uint32_t kFfmpegPluginVersion = 1;

// One decoding, as FfmpegDecoder describes it; FfmpegDecoder forwards to it.
class DecoderBackend {
public:
    virtual ~DecoderBackend() = default;
    virtual bool Open(std::string& reason) = 0;
    virtual const DecodedStream& Stream() const = 0;
    virtual FfmpegDecoder::Step DecodeNext(const FfmpegDecoder::Sink& sink) = 0;
    virtual const std::string& Failure() const = 0;
    virtual uint64_t DamagedPackets() const = 0;
    virtual uint64_t FramesDecoded() const = 0;
};

struct FfmpegPluginTable {
    platform::PluginHeader header;
    // A decoder of `source`, which the caller keeps alive until it deletes
    // the decoder. Never null.
    DecoderBackend* (*createDecoder)(ByteSource* source);
    // EncodeFile's work, reading from `input`; `inputName` names it in errors.
    bool (*encode)(ByteSource& input, const std::string& inputName, const std::string& outputPath,
                   const EncodeSettings& settings, std::string& error, const std::function<bool()>& keepGoing);
};

// The loaded table, or null with `error` naming the missing plugin.
inline const FfmpegPluginTable* LoadFfmpegPlugin(std::string& error)
{
    return platform::LoadPluginTable<FfmpegPluginTable>(kFfmpegPluginFile, kFfmpegPluginVersion, error);
}

}  // namespace media
