#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "codec/VoxAdpcm.h"
#include "riff/LittleEndian.h"
#include "tools/CommandLine.h"
#include "tools/Commands.h"
#include "tools/ExitCodes.h"
#include "tools/Failures.h"

namespace {

struct PcmAudio {
    int16_t channels = 0;
    uint32_t sampleRate = 0;
    std::vector<int16_t> samples;
};

// Fields of the file read whole; the caller has checked that they lie in it.
uint32_t GetU32(const std::string& bytes, size_t at)
{
    return riff::GetU32(reinterpret_cast<const uint8_t*>(bytes.data()) + at);
}

uint16_t GetU16(const std::string& bytes, size_t at)
{
    return riff::GetU16(reinterpret_cast<const uint8_t*>(bytes.data()) + at);
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
    CLI::App app{"Encodes 16-bit PCM as wzq.", "tempvox encode"};
    SetUpCommand(app);
    std::string input;
    std::string output;
    std::string variant = "ZQ";
    std::string frameBytes;
    app.add_option("input", input, "16-bit PCM wave file")->required()->type_name("IN.wav");
    app.add_option("output", output, "the wzq file to write")->required()->type_name("OUT.wzq");
    app.add_option("--variant", variant, "ZQ (default) or ZR")->check(CLI::IsMember({"ZQ", "ZR"}));
    app.add_option("--frame-bytes", frameBytes, "bytes of each frame")->type_name("N");
    if (const std::optional<int> status = ParseCommandLine(app, args)) return *status;
    voxadpcm::StreamHeader header;
    header.variant = variant == "ZR" ? voxadpcm::Variant::ZR : voxadpcm::Variant::ZQ;
    if (!frameBytes.empty() && !ParseFrameBytes(frameBytes, header.frameBytes))
        return UsageError(app, "bad frame size '" + frameBytes + "'");
    const std::vector<std::string> files = {input, output};

    if (const std::optional<Failure> failure = CheckInputFile(input)) return ReportFailure("encode", input, *failure);
    if (const std::optional<Failure> failure = CheckOutputPath(output)) return ReportFailure("encode", output, *failure);
    PcmAudio audio;
    std::string error;
    if (!ReadPcmWav(files[0], audio, error))
        return ReportFailure("encode", input, Failure{kExitUnsupported, error + " (encode takes 16-bit PCM WAV)"});
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
    if (!out) return ReportFailure("encode", output, Failure{kExitCannotWrite, "cannot be written"});
    std::printf("%s: %zu samples, %d channel(s) at %u Hz, %u frames of %u bytes (%s)\n", files[1].c_str(),
                audio.samples.size(), int(header.channels), header.sampleRate, header.frameCount, header.frameBytes,
                header.variant == voxadpcm::Variant::ZR ? "ZR" : "ZQ");
    return 0;
}
