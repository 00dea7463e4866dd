// The entry of tempvox-ffmpeg.so, the one object that links FFmpeg's
// libraries (and, through them, the codec libraries).
#include "media/FfmpegPluginTable.h"

namespace media {

DecoderBackend* CreateLibavDecoder(ByteSource* source);
bool EncodeFromSource(ByteSource& input, const std::string& inputPath, const std::string& outputPath,
                      const EncodeSettings& settings, std::string& error, const std::function<bool()>& keepGoing);

}  // namespace media

extern "C" __attribute__((visibility("default"))) const platform::PluginHeader* tempvox_plugin_table()
{
    static const media::FfmpegPluginTable table = {
        {media::kFfmpegPluginVersion, sizeof(media::FfmpegPluginTable), platform::kPluginBuild},
        media::CreateLibavDecoder,
        media::EncodeFromSource,
    };
    return &table.header;
}
