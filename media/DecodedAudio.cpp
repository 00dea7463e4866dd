#include "media/DecodedAudio.h"

#include "media/WavWriter.h"
#include "platform/File.h"
#include "platform/OwnedFiles.h"
#include "riff/WaveLayout.h"

namespace media {
namespace {

// Progress is told about four times a second of decoded audio at most, so
// that a caller's terminal line costs nothing next to the decoding.
constexpr double kProgressStepSeconds = 0.25;

std::string NotDecodable(const std::string& why)
{
    return "not an audio file FFmpeg can decode (" + why + ")";
}

}  // namespace

bool IsPlainPcmWave(const std::string& path)
{
    CFile stream;
    if (!stream.Open(path.c_str(), CFile::modeRead | CFile::typeBinary)) return false;
    riff::WaveLayout layout;
    const riff::LayoutError error = riff::FindWaveLayout(
        [&stream](uint64_t offset, void* into, uint32_t count) -> uint32_t {
            if (stream.Seek(static_cast<int64_t>(offset), CFile::begin) < 0) return 0;
            return stream.Read(into, count);
        },
        stream.GetLength(), layout);
    // Whatever the head states besides (rates that disagree, a missing data
    // chunk), a plain 8- or 16-bit PCM file is the engine's to play or to
    // refuse, as it always was.
    return error != riff::LayoutError::NotRiffWave && error != riff::LayoutError::NoFormat && !layout.extensible &&
           layout.formatTag == riff::kFormatPcm && (layout.bitsPerSample == 8 || layout.bitsPerSample == 16);
}

bool IsWorthDecoding(const std::string& path)
{
    CFile probe;
    if (!probe.Open(path.c_str(), CFile::modeRead | CFile::typeBinary)) return false;
    probe.Close();
    return !IsPlainPcmWave(path);
}

std::string WavPathBeside(const std::string& path)
{
    size_t dot = path.rfind('.');
    const size_t slash = path.rfind('/');
    if (dot != std::string::npos && slash != std::string::npos && dot < slash) dot = std::string::npos;
    return (dot == std::string::npos ? path : path.substr(0, dot)) + ".wav";
}

DecodeReport DecodeToWav(const std::string& path, const std::string& fallbackFolder, const DecodeProgress& progress)
{
    std::unique_ptr<ByteSource> source = OpenFileSource(path);
    if (source == nullptr) {
        DecodeReport report;
        report.reason = "cannot open '" + path + "'";
        return report;
    }
    // The source is never the place, even a .wav this process made: emptying
    // it for the output would lose what is to be decoded.
    std::string preferred = WavPathBeside(path);
    if (preferred == path && platform::IsOwnedFile(path)) {
        if (fallbackFolder.empty()) {
            DecodeReport report;
            report.reason = "no place for a .wav beside '" + path + "'";
            return report;
        }
        preferred = fallbackFolder + preferred.substr(preferred.rfind('/') + 1);
    }
    return DecodeSourceToWav(std::move(source), preferred, fallbackFolder, progress);
}

DecodeReport DecodeSourceToWav(std::unique_ptr<ByteSource> source, const std::string& preferredWav,
                               const std::string& fallbackFolder, const DecodeProgress& progress)
{
    DecodeReport report;
    FfmpegDecoder decoder(std::move(source));
    std::string why;
    if (!decoder.Open(why)) {
        report.reason = NotDecodable(why);
        return report;
    }
    report.stream = decoder.Stream();
    const uint32_t rate = report.stream.sampleRate;

    const std::string wavPath = platform::CreateOwnedFileNear(preferredWav, fallbackFolder);
    WavWriter writer;
    if (wavPath.empty() || !writer.Open(wavPath, report.stream.channels, rate)) {
        if (!wavPath.empty()) platform::DeleteOwnedFile(wavPath);
        report.reason = "cannot write a .wav beside it or in '" + fallbackFolder + "'";
        return report;
    }

    uint64_t nextProgressFrame = 0;
    const auto sink = [&](const int16_t* samples, size_t frames) {
        if (!writer.Append(samples, frames)) return false;
        if (progress && writer.FramesWritten() >= nextProgressFrame) {
            nextProgressFrame = writer.FramesWritten() + uint64_t(kProgressStepSeconds * rate);
            if (!progress(double(writer.FramesWritten()) / rate, report.stream.announcedSeconds)) {
                report.cancelled = true;
                return false;
            }
        }
        return true;
    };
    FfmpegDecoder::Step step;
    do {
        step = decoder.DecodeNext(sink);
    } while (step == FfmpegDecoder::Step::More);

    const bool written = writer.Finish();
    report.damagedPackets = decoder.DamagedPackets();
    report.decodedSeconds = double(writer.FramesWritten()) / rate;
    report.truncatedToWavLimit = writer.Full();
    if (step == FfmpegDecoder::Step::Failed) {
        report.stoppedEarly = true;
        report.reason = decoder.Failure();
    }
    if (!written || report.cancelled || writer.FramesWritten() == 0) {
        platform::DeleteOwnedFile(wavPath);
        if (!written) report.reason = "cannot write '" + wavPath + "'";
        else if (report.cancelled) report.reason = "stopped";
        else report.reason = NotDecodable(report.reason.empty() ? "no audio in it" : report.reason);
        report.stoppedEarly = false;
        return report;
    }
    report.wavPath = wavPath;
    return report;
}

}  // namespace media
