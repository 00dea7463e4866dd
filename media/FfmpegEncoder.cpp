#include "media/FfmpegEncoder.h"

#include <cctype>

#include "media/FfmpegPluginTable.h"

namespace media {
namespace {

// What the tools need to know of a kind before anything is encoded; the
// muxers and encoders behind each are the FFmpeg plugin's.
struct KindName {
    EncodedKind kind;
    const char* extension;
    bool lossy;
};

constexpr KindName kKindNames[] = {
    {EncodedKind::Mp3, "mp3", true}, {EncodedKind::M4a, "m4a", true}, {EncodedKind::Ogg, "ogg", true},
    {EncodedKind::Opus, "opus", true}, {EncodedKind::Flac, "flac", false},
};

}  // namespace

bool EncodedKindForPath(const std::string& path, EncodedKind& kind)
{
    const size_t dot = path.rfind('.');
    const size_t slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return false;
    std::string extension = path.substr(dot + 1);
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const KindName& name : kKindNames) {
        if (extension == name.extension) {
            kind = name.kind;
            return true;
        }
    }
    return false;
}

bool IsLossy(EncodedKind kind)
{
    for (const KindName& name : kKindNames)
        if (name.kind == kind) return name.lossy;
    return false;
}

bool EncodeFile(const std::string& inputPath, const std::string& outputPath, const EncodeSettings& settings,
                std::string& error, const std::function<bool()>& keepGoing)
{
    std::unique_ptr<ByteSource> input = OpenFileSource(inputPath);
    if (input == nullptr) {
        error = "cannot read '" + inputPath + "': cannot open the file";
        return false;
    }
    const FfmpegPluginTable* plugin = LoadFfmpegPlugin(error);
    if (plugin == nullptr) return false;
    return plugin->encode(*input, inputPath, outputPath, settings, error, keepGoing);
}

}  // namespace media
