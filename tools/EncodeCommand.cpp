#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "codec/VoxAdpcm.h"
#include "tools/Commands.h"

namespace {

const char kEncodeUsage[] = "usage: tempvox encode IN.wav OUT.wzq [--variant ZQ|ZR] [--frame-bytes N]\n";

struct PcmAudio {
    int16_t channels = 0;
    uint32_t sampleRate = 0;
    std::vector<int16_t> samples;
};

uint32_t GetU32(const std::string& bytes, size_t at)
{
    return uint32_t(uint8_t(bytes[at])) | uint32_t(uint8_t(bytes[at + 1])) << 8 |
           uint32_t(uint8_t(bytes[at + 2])) << 16 | uint32_t(uint8_t(bytes[at + 3])) << 24;
}

uint16_t GetU16(const std::string& bytes, size_t at)
{
    return uint16_t(uint8_t(bytes[at]) | uint8_t(bytes[at + 1]) << 8);
}

// Walks the chunks of a RIFF WAVE file for its format and its samples;
// only 16-bit PCM is taken.
bool ReadPcmWav(const std::string& path, PcmAudio& audio, std::string& error)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot open '" + path + "'";
        return false;
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.size() < 12 || bytes.compare(0, 4, "RIFF") != 0 || bytes.compare(8, 4, "WAVE") != 0) {
        error = "'" + path + "' is not a RIFF WAVE file";
        return false;
    }
    bool haveFormat = false;
    size_t at = 12;
    while (at + 8 <= bytes.size()) {
        const std::string tag = bytes.substr(at, 4);
        const uint64_t length = GetU32(bytes, at + 4);
        const size_t body = at + 8;
        const size_t available = size_t(std::min<uint64_t>(length, bytes.size() - body));
        if (tag == "fmt " && available >= 16) {
            const uint16_t formatTag = GetU16(bytes, body);
            const uint16_t channels = GetU16(bytes, body + 2);
            const uint16_t bits = GetU16(bytes, body + 14);
            if (formatTag != 1 || bits != 16 || channels == 0 || channels > 32767) {
                error = "only 16-bit PCM can be encoded";
                return false;
            }
            audio.channels = int16_t(channels);
            audio.sampleRate = GetU32(bytes, body + 4);
            haveFormat = true;
        } else if (tag == "data") {
            if (!haveFormat) break;
            // A data length beyond the file's end is taken as far as it goes.
            const size_t frameBytes = size_t(audio.channels) * 2;
            const size_t usable = available / frameBytes * frameBytes;
            audio.samples.resize(usable / 2);
            for (size_t i = 0; i < audio.samples.size(); ++i) audio.samples[i] = int16_t(GetU16(bytes, body + 2 * i));
            return true;
        }
        at = body + length + (length & 1);
    }
    error = "'" + path + "' has no " + std::string(haveFormat ? "data" : "format") + " chunk";
    return false;
}

bool ParseFrameBytes(const std::string& text, uint32_t& frameBytes)
{
    char* end = nullptr;
    const unsigned long value = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || text[0] == '-' || value > voxadpcm::kLargestFrameBytes) return false;
    frameBytes = uint32_t(value);
    return true;
}

}  // namespace

int RunEncodeCommand(const std::vector<std::string>& args)
{
    std::vector<std::string> files;
    voxadpcm::StreamHeader header;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--variant" && i + 1 < args.size()) {
            const std::string& name = args[++i];
            if (name != "ZQ" && name != "ZR") {
                std::fprintf(stderr, "tempvox encode: the variant is ZQ or ZR, not '%s'\n", name.c_str());
                return 2;
            }
            header.variant = name == "ZR" ? voxadpcm::Variant::ZR : voxadpcm::Variant::ZQ;
        } else if (args[i] == "--frame-bytes" && i + 1 < args.size()) {
            if (!ParseFrameBytes(args[++i], header.frameBytes)) {
                std::fprintf(stderr, "tempvox encode: bad frame size '%s'\n", args[i].c_str());
                return 2;
            }
        } else if (args[i].rfind("--", 0) == 0) {
            std::fprintf(stderr, "tempvox encode: unknown option '%s'\n%s", args[i].c_str(), kEncodeUsage);
            return 2;
        } else {
            files.push_back(args[i]);
        }
    }
    if (files.size() != 2) {
        std::fputs(kEncodeUsage, stderr);
        return 2;
    }

    PcmAudio audio;
    std::string error;
    if (!ReadPcmWav(files[0], audio, error)) {
        std::fprintf(stderr, "tempvox encode: %s\n", error.c_str());
        return 1;
    }
    header.channels = audio.channels;
    header.sampleRate = audio.sampleRate;
    const std::vector<uint8_t> stream = voxadpcm::EncodeStream(header, audio.samples, &error);
    if (stream.empty()) {
        std::fprintf(stderr, "tempvox encode: %s\n", error.c_str());
        return 1;
    }
    std::ofstream out(files[1], std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(stream.data()), std::streamsize(stream.size()));
    out.close();
    if (!out) {
        std::fprintf(stderr, "tempvox encode: cannot write '%s'\n", files[1].c_str());
        return 1;
    }
    std::printf("%s: %zu samples, %d channel(s) at %u Hz, %u frames of %u bytes (%s)\n", files[1].c_str(),
                audio.samples.size(), int(header.channels), header.sampleRate, header.frameCount, header.frameBytes,
                header.variant == voxadpcm::Variant::ZR ? "ZR" : "ZQ");
    return 0;
}
