// Decoding through FFmpeg into the control's .wav, and encoding back out.
// The expected samples come from the formats' definitions (a 24-bit sample
// whose low byte is zero is its top 16 bits; a float of v/32768 is v), the
// downmix from what a stereo fold of 5.1 must do with one channel alone,
// and the places from the rules for files the control makes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <unistd.h>

#include "media/DecodedAudio.h"
#include "media/FfmpegDecoder.h"
#include "media/FfmpegEncoder.h"
#include "media/MediaTestSupport.h"
#include "media/WavWriter.h"
#include "platform/FileFind.h"
#include "platform/OwnedFiles.h"
#include "support/SpeechLikeSignal.h"
#include "support/WavFiles.h"

using namespace mediatest;

namespace {

constexpr uint8_t kPcmGuidTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

enum class Coding { Unsigned8, Int16, Int24, Int32, Float32, Float64 };

struct WaveShape {
    Coding coding = Coding::Int16;
    uint16_t channels = 1;
    uint32_t rate = 22050;
    bool extensible = false;
    uint32_t channelMask = 0;
};

uint16_t BitsOf(Coding coding)
{
    switch (coding) {
    case Coding::Unsigned8: return 8;
    case Coding::Int16: return 16;
    case Coding::Int24: return 24;
    case Coding::Int32: case Coding::Float32: return 32;
    case Coding::Float64: return 64;
    }
    return 16;
}

bool IsFloat(Coding coding) { return coding == Coding::Float32 || coding == Coding::Float64; }

// One 16-bit value as the coding stores it.
void PutSample(std::string& bytes, Coding coding, int16_t v)
{
    switch (coding) {
    case Coding::Unsigned8: bytes.push_back(char(uint8_t((v >> 8) + 128))); break;
    case Coding::Int16: testwav::PutU16(bytes, uint16_t(v)); break;
    case Coding::Int24: {
        const uint32_t value = uint32_t(int32_t(v) * 256);
        for (int i = 0; i < 3; ++i) bytes.push_back(char((value >> (8 * i)) & 0xFF));
        break;
    }
    case Coding::Int32: testwav::PutU32(bytes, uint32_t(int32_t(v) * 65536)); break;
    case Coding::Float32: {
        const float f = float(v) / 32768.0f;
        uint32_t raw;
        std::memcpy(&raw, &f, 4);
        testwav::PutU32(bytes, raw);
        break;
    }
    case Coding::Float64: {
        const double d = double(v) / 32768.0;
        uint64_t raw;
        std::memcpy(&raw, &d, 8);
        testwav::PutU32(bytes, uint32_t(raw));
        testwav::PutU32(bytes, uint32_t(raw >> 32));
        break;
    }
    }
}

// What a 16-bit value becomes after a trip through the coding.
int16_t AfterCoding(Coding coding, int16_t v)
{
    return coding == Coding::Unsigned8 ? int16_t((v >> 8) * 256) : v;
}

std::string WaveBytes(const WaveShape& shape, const std::vector<int16_t>& samples)
{
    const uint16_t bits = BitsOf(shape.coding);
    const uint16_t blockAlign = uint16_t(shape.channels * bits / 8);
    const uint16_t tag = IsFloat(shape.coding) ? 3 : 1;
    std::string fmt;
    testwav::PutU16(fmt, shape.extensible ? 0xFFFE : tag);
    testwav::PutU16(fmt, shape.channels);
    testwav::PutU32(fmt, shape.rate);
    testwav::PutU32(fmt, shape.rate * blockAlign);
    testwav::PutU16(fmt, blockAlign);
    testwav::PutU16(fmt, bits);
    if (shape.extensible) {
        testwav::PutU16(fmt, 22);
        testwav::PutU16(fmt, bits);
        testwav::PutU32(fmt, shape.channelMask);
        testwav::PutU16(fmt, tag);
        fmt.append(reinterpret_cast<const char*>(kPcmGuidTail), sizeof kPcmGuidTail);
    } else if (IsFloat(shape.coding)) {
        testwav::PutU16(fmt, 0);
    }
    std::string data;
    for (int16_t v : samples) PutSample(data, shape.coding, v);
    std::string bytes = "RIFF";
    testwav::PutU32(bytes, uint32_t(4 + 8 + fmt.size() + 8 + data.size()));
    bytes += "WAVEfmt ";
    testwav::PutU32(bytes, uint32_t(fmt.size()));
    bytes += fmt;
    bytes += "data";
    testwav::PutU32(bytes, uint32_t(data.size()));
    return bytes + data;
}

// The samples of a canonical 16-bit .wav, with its channels and rate.
struct Canonical {
    uint16_t channels = 0;
    uint32_t rate = 0;
    std::vector<int16_t> samples;
};

Canonical ReadCanonical(const std::string& path)
{
    const std::string bytes = ReadAll(path);
    Canonical wav;
    if (bytes.size() < 44 || bytes.compare(0, 4, "RIFF") != 0 || bytes.compare(36, 4, "data") != 0) return wav;
    uint32_t dataLength;
    std::memcpy(&dataLength, bytes.data() + 40, 4);
    EXPECT_EQ(dataLength, bytes.size() - 44) << "the head's data length";
    std::memcpy(&wav.channels, bytes.data() + 22, 2);
    std::memcpy(&wav.rate, bytes.data() + 24, 4);
    wav.samples = testwav::ToSamples16(bytes.substr(44));
    return wav;
}

std::vector<std::string> FilesIn(const std::string& folder)
{
    std::vector<std::string> names = platform::FindFiles(folder, "*");
    std::sort(names.begin(), names.end());
    return names;
}

double Correlation(const std::vector<int16_t>& x, const std::vector<int16_t>& y)
{
    double xy = 0, xx = 0, yy = 0;
    for (size_t i = 0; i < x.size() && i < y.size(); ++i) {
        xy += double(x[i]) * y[i];
        xx += double(x[i]) * x[i];
        yy += double(y[i]) * y[i];
    }
    return xx > 0 && yy > 0 ? xy / std::sqrt(xx * yy) : 0.0;
}

// Bytes in memory read through the decoder's source interface, failing
// with a read error from `failAt` on.
class FailingSource final : public media::ByteSource {
public:
    FailingSource(std::string bytes, uint64_t failAt) : m_bytes(std::move(bytes)), m_failAt(failAt) {}
    int64_t Read(uint8_t* into, uint32_t count) override
    {
        if (m_position >= m_failAt) return -1;
        const uint64_t end = std::min<uint64_t>({m_position + count, m_bytes.size(), m_failAt});
        const uint64_t got = end > m_position ? end - m_position : 0;
        std::memcpy(into, m_bytes.data() + m_position, got);
        m_position += got;
        return int64_t(got);
    }
    bool Seek(uint64_t offset) override
    {
        m_position = offset;
        return true;
    }
    uint64_t Position() const override { return m_position; }
    uint64_t Size() const override { return m_bytes.size(); }

private:
    std::string m_bytes;
    uint64_t m_failAt;
    uint64_t m_position = 0;
};

class FfmpegDecodeTest : public ::testing::Test {
protected:
    ScratchFolder folder{"decode"};
    ScratchFolder fallback{"decode-fallback"};
};

}  // namespace

TEST_F(FfmpegDecodeTest, EveryWaveCodingDecodesToItsSixteenBitValues)
{
    struct Case {
        const char* name;
        WaveShape shape;
    };
    const Case cases[] = {
        {"24-bit", {Coding::Int24, 1}},
        {"32-bit integer", {Coding::Int32, 2}},
        {"32-bit float", {Coding::Float32, 2}},
        {"64-bit float", {Coding::Float64, 1}},
        {"8-bit", {Coding::Unsigned8, 1}},
        {"extensible 16-bit stereo", {Coding::Int16, 2, 44100, true, 0x3}},
        {"extensible 24-bit", {Coding::Int24, 1, 48000, true, 0x4}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<int16_t> source = test_signals::SpeechLike(int32_t(c.shape.rate), 6000, c.shape.channels, 5);
        const std::string path = folder.Path() + "coded.w" + std::to_string(&c - cases);
        WriteAll(path, WaveBytes(c.shape, source));

        const media::DecodeReport report = media::DecodeToWav(path, fallback.Path());
        ASSERT_FALSE(report.wavPath.empty()) << report.reason;
        EXPECT_EQ(report.wavPath, media::WavPathBeside(path));
        EXPECT_TRUE(platform::IsOwnedFile(report.wavPath));
        const Canonical wav = ReadCanonical(report.wavPath);
        EXPECT_EQ(wav.channels, c.shape.channels);
        EXPECT_EQ(wav.rate, c.shape.rate);
        ASSERT_EQ(wav.samples.size(), source.size());
        size_t differing = 0;
        for (size_t i = 0; i < source.size(); ++i) differing += wav.samples[i] != AfterCoding(c.shape.coding, source[i]);
        EXPECT_EQ(differing, 0u);
        EXPECT_FALSE(report.stoppedEarly);
        EXPECT_EQ(report.damagedPackets, 0u);
        platform::DeleteOwnedFile(report.wavPath);
    }
}

TEST_F(FfmpegDecodeTest, SurroundFoldsIntoTwoChannelsBySide)
{
    // 5.1 in WAVE order: FL FR FC LFE BL BR. A left channel alone stays on
    // the left, a right one on the right, the centre goes to both alike,
    // and the low-frequency channel is left out of a fold to two.
    struct Case {
        const char* name;
        int channel;
        bool left, right, equal;
    };
    const Case cases[] = {
        {"front left", 0, true, false, false}, {"front right", 1, false, true, false},
        {"centre", 2, true, true, true},       {"low frequency", 3, false, false, true},
        {"back left", 4, true, false, false},  {"back right", 5, false, true, false},
    };
    const std::vector<int16_t> mono = test_signals::SpeechLike(22050, 4000, 1, 9);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<int16_t> six(mono.size() * 6, 0);
        for (size_t i = 0; i < mono.size(); ++i) six[i * 6 + size_t(c.channel)] = mono[i];
        const std::string path = folder.Path() + "surround" + std::to_string(c.channel) + ".wav";
        WriteAll(path, WaveBytes({Coding::Int16, 6, 22050, true, 0x3F}, six));
        EXPECT_FALSE(media::IsPlainPcmWave(path));

        const media::DecodeReport report = media::DecodeToWav(path, fallback.Path());
        ASSERT_FALSE(report.wavPath.empty()) << report.reason;
        EXPECT_EQ(report.stream.sourceChannels, 6);
        const Canonical wav = ReadCanonical(report.wavPath);
        ASSERT_EQ(wav.channels, 2);
        ASSERT_EQ(wav.samples.size(), mono.size() * 2);
        std::vector<int16_t> left, right;
        for (size_t i = 0; i < mono.size(); ++i) {
            left.push_back(wav.samples[2 * i]);
            right.push_back(wav.samples[2 * i + 1]);
        }
        const auto silent = [](const std::vector<int16_t>& s) {
            return std::all_of(s.begin(), s.end(), [](int16_t v) { return v == 0; });
        };
        EXPECT_EQ(!silent(left), c.left);
        EXPECT_EQ(!silent(right), c.right);
        EXPECT_EQ(left == right, c.equal);
        if (c.left) {
            EXPECT_GT(Correlation(left, mono), 0.999);
        }
        if (c.right) {
            EXPECT_GT(Correlation(right, mono), 0.999);
        }
        platform::DeleteOwnedFile(report.wavPath);
    }
}

TEST_F(FfmpegDecodeTest, AReadErrorMidwayKeepsWhatCameBeforeAndSaysSo)
{
    const std::vector<int16_t> source = test_signals::SpeechLike(22050, 220500, 1, 3);
    const std::string bytes = WaveBytes({Coding::Int24}, source);
    const uint64_t failAt = 300000;
    const std::string preferred = folder.Path() + "broken.wav";

    const media::DecodeReport report =
        media::DecodeSourceToWav(std::make_unique<FailingSource>(bytes, failAt), preferred, fallback.Path());
    ASSERT_EQ(report.wavPath, preferred) << report.reason;
    EXPECT_TRUE(report.stoppedEarly);
    EXPECT_NE(report.reason.find("Input/output error"), std::string::npos) << report.reason;
    const Canonical wav = ReadCanonical(report.wavPath);
    // No more than the bytes before the failure hold, and no less than what
    // lies a read-ahead (64 KiB) and a packet before it.
    const size_t held = size_t(failAt - 44) / 3;
    EXPECT_LE(wav.samples.size(), held);
    EXPECT_GE(wav.samples.size(), held - 65536 / 3 - 8192);
    EXPECT_TRUE(std::equal(wav.samples.begin(), wav.samples.end(), source.begin())) << "not the start of the source";
    EXPECT_NEAR(report.decodedSeconds, double(wav.samples.size()) / 22050, 1e-9);
    platform::DeleteOwnedFile(report.wavPath);
}

TEST_F(FfmpegDecodeTest, WhatIsNoAudioIsRefusedWithAReasonAndLeavesNothing)
{
    std::mt19937 random(14);
    const auto randomBytes = [&](size_t count) {
        std::string bytes(count, '\0');
        for (char& b : bytes) b = char(random() & 0xFF);
        return bytes;
    };
    std::string text;
    for (int i = 0; i < 200; ++i) text += "Lesson " + std::to_string(i) + ": read the dialogue aloud, then listen.\n";
    // One MPEG-1 layer III frame head (128 kbit/s, 44.1 kHz) in zeros: it
    // looks like an MP3 to a weak guess, and decoding it would turn zeros
    // into a blink of "audio".
    std::string loneFrameHead(4096, '\0');
    loneFrameHead.replace(1000, 4, "\xFF\xFB\x90\x64");
    struct Case {
        const char* name;
        std::string bytes;
        const char* why;
    };
    const Case cases[] = {
        {"lone-frame-head.mp3", loneFrameHead, "Invalid data found when processing input"},
        {"random.mp3", randomBytes(65536), "Invalid data found when processing input"},
        {"random2.mp3", randomBytes(3000), "Invalid data found when processing input"},
        {"random3.ogg", randomBytes(1 << 20), "Invalid data found when processing input"},
        {"notes.wav", text, "Invalid data found when processing input"},
        {"zeros.mp3", std::string(8192, '\0'), "Invalid data found when processing input"},
        {"empty.flac", std::string(), "Invalid data found when processing input"},
        {"big-endian.wav", "RIFX" + std::string(60, '\0'), "Invalid data found when processing input"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = folder.Path() + c.name;
        WriteAll(path, c.bytes);
        EXPECT_TRUE(media::IsWorthDecoding(path));
        const media::DecodeReport report = media::DecodeToWav(path, fallback.Path());
        EXPECT_EQ(report.wavPath, "");
        EXPECT_EQ(report.reason, std::string("not an audio file FFmpeg can decode (") + c.why + ")");
        EXPECT_EQ(FilesIn(folder.Path()), std::vector<std::string>{c.name});
        EXPECT_EQ(FilesIn(fallback.Path()), std::vector<std::string>{});
        ::unlink(path.c_str());
    }
}

TEST_F(FfmpegDecodeTest, OnlyWhatTheEngineCannotPlayIsOfferedToTheDecoder)
{
    const std::vector<int16_t> samples = test_signals::SpeechLike(22050, 2000, 2, 1);
    std::string inconsistent = WaveBytes({Coding::Int16, 2}, samples);
    inconsistent[28] = 1;  // a byte rate that disagrees: the engine's to refuse, as ever
    struct Case {
        const char* name;
        std::string bytes;
        bool plain;
        bool offered;
    };
    const Case cases[] = {
        {"plain 16-bit", WaveBytes({Coding::Int16, 2}, samples), true, false},
        {"plain 8-bit", WaveBytes({Coding::Unsigned8, 1}, samples), true, false},
        {"six channels of plain 16-bit", WaveBytes({Coding::Int16, 6}, samples), true, false},
        {"16-bit with a rate that disagrees", inconsistent, true, false},
        {"extensible 16-bit", WaveBytes({Coding::Int16, 2, 22050, true, 3}, samples), false, true},
        {"24-bit", WaveBytes({Coding::Int24, 1}, samples), false, true},
        {"float", WaveBytes({Coding::Float32, 1}, samples), false, true},
        {"not a wave file", "ID3 and more", false, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = folder.Path() + "offered.wav";
        WriteAll(path, c.bytes);
        EXPECT_EQ(media::IsPlainPcmWave(path), c.plain);
        EXPECT_EQ(media::IsWorthDecoding(path), c.offered);
    }
    EXPECT_FALSE(media::IsWorthDecoding(folder.Path() + "missing.mp3"));
    EXPECT_FALSE(media::IsWorthDecoding(folder.Path()));
    const std::string fifo = folder.Path() + "fifo.mp3";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_FALSE(media::IsWorthDecoding(fifo));
}

TEST_F(FfmpegDecodeTest, TheDecodedWavGoesWhereNoFileOfTheUsersStands)
{
    const std::string deep = WaveBytes({Coding::Int24}, test_signals::SpeechLike(22050, 3000, 1, 2));
    const std::string usersOwn = "the user's own recording";
    struct Case {
        const char* source;
        const char* usersFile;  // beside the source, or null
        bool withFallback;
        const char* expected;   // "beside:NAME", "fallback:NAME" or "" for no .wav
    };
    const Case cases[] = {
        {"lesson.w24", nullptr, true, "beside:lesson.wav"},
        {"deep.wav", nullptr, true, "fallback:deep-1.wav"},  // the source's own name is taken by the source
        {"talk.w24", "talk.wav", true, "fallback:talk-1.wav"},
        {"quiz.w24", "quiz.wav", false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.source);
        const std::string path = folder.Path() + c.source;
        WriteAll(path, deep);
        if (c.usersFile != nullptr) WriteAll(folder.Path() + c.usersFile, usersOwn);
        const media::DecodeReport report = media::DecodeToWav(path, c.withFallback ? fallback.Path() : "");
        const std::string expected = c.expected;
        if (expected.empty()) {
            EXPECT_EQ(report.wavPath, "");
            EXPECT_NE(report.reason.find("cannot write"), std::string::npos) << report.reason;
        } else {
            const bool beside = expected.rfind("beside:", 0) == 0;
            const std::string name = expected.substr(expected.find(':') + 1);
            EXPECT_EQ(report.wavPath, (beside ? folder.Path() : fallback.Path()) + name);
        }
        EXPECT_EQ(ReadAll(path), deep) << "the source changed";
        if (c.usersFile != nullptr) {
            EXPECT_EQ(ReadAll(folder.Path() + c.usersFile), usersOwn);
        }
        if (!report.wavPath.empty()) {
            EXPECT_TRUE(platform::DeleteOwnedFile(report.wavPath));
        }
    }
}

TEST_F(FfmpegDecodeTest, ProgressIsToldAndCanStopTheDecoding)
{
    const std::string path = folder.Path() + "long.w24";
    WriteAll(path, WaveBytes({Coding::Int24}, test_signals::SpeechLike(22050, 22050 * 3, 1, 4)));
    std::vector<double> told;
    media::DecodeReport report = media::DecodeToWav(path, fallback.Path(), [&](double done, double total) {
        told.push_back(done);
        EXPECT_NEAR(total, 3.0, 0.01);
        return true;
    });
    ASSERT_FALSE(report.wavPath.empty());
    EXPECT_GE(told.size(), 4u) << "about four times a second";
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_LE(told.back(), 3.0);
    platform::DeleteOwnedFile(report.wavPath);

    report = media::DecodeToWav(path, fallback.Path(), [](double done, double) { return done < 1.0; });
    EXPECT_TRUE(report.cancelled);
    EXPECT_EQ(report.wavPath, "");
    EXPECT_EQ(FilesIn(folder.Path()), std::vector<std::string>{"long.w24"});
}

TEST_F(FfmpegDecodeTest, RenderedAudioIsEncodedInEveryCarriedForm)
{
    const uint32_t rate = 22050;
    const std::vector<int16_t> source = test_signals::SpeechLike(int32_t(rate), int32_t(rate) * 2, 2, 6);
    const std::string wav = folder.Path() + "rendered.wav";
    WriteAll(wav, testwav::CanonicalWav(testwav::Format{1, 2, rate, 16}, testwav::Samples16(source)));
    struct Case {
        const char* output;
        const char* container;
        uint32_t rate;  // as decoded: Opus always decodes at 48 kHz
        bool lossless;
    };
    const Case cases[] = {
        {"out.mp3", "mp3", 22050, false}, {"out.M4A", "mov,mp4,m4a,3gp,3g2,mj2", 22050, false},
        {"out.ogg", "ogg", 22050, false}, {"out.opus", "ogg", 48000, false},
        {"out.flac", "flac", 22050, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.output);
        media::EncodeSettings settings;
        ASSERT_TRUE(media::EncodedKindForPath(c.output, settings.kind));
        EXPECT_EQ(media::IsLossy(settings.kind), !c.lossless);
        const std::string out = folder.Path() + c.output;
        std::string error;
        ASSERT_TRUE(media::EncodeFile(wav, out, settings, error)) << error;

        media::FfmpegDecoder decoder(media::OpenFileSource(out));
        ASSERT_TRUE(decoder.Open(error)) << error;
        EXPECT_EQ(decoder.Stream().container, c.container);
        EXPECT_EQ(decoder.Stream().channels, 2);
        EXPECT_EQ(decoder.Stream().sampleRate, c.rate);
        std::vector<int16_t> decoded;
        media::FfmpegDecoder::Step step;
        do {
            step = decoder.DecodeNext([&](const int16_t* samples, size_t frames) {
                decoded.insert(decoded.end(), samples, samples + frames * 2);
                return true;
            });
        } while (step == media::FfmpegDecoder::Step::More);
        ASSERT_EQ(step, media::FfmpegDecoder::Step::Finished) << decoder.Failure();
        if (c.lossless) {
            EXPECT_EQ(decoded, source);
        } else {
            // The encoders' delays are undone on decoding, so a same-rate copy
            // follows the source sample for sample; the length is the
            // source's, or up to one codec frame (1152 samples) more where
            // the container keeps no count of the padding at the end.
            const double seconds = double(decoded.size() / 2) / c.rate;
            EXPECT_GE(seconds, 2.0 - 0.001);
            EXPECT_LE(seconds, 2.0 + 1152.0 / rate);
            if (c.rate == rate) {
                EXPECT_GT(Correlation(decoded, source), 0.9);
            }
        }
    }
    media::EncodedKind kind;
    EXPECT_FALSE(media::EncodedKindForPath("out.wav", kind));
    EXPECT_FALSE(media::EncodedKindForPath("out.mp3/lesson", kind));
    std::string error;
    EXPECT_FALSE(media::EncodeFile(folder.Path() + "missing.wav", folder.Path() + "x.mp3", {}, error));
    EXPECT_NE(error.find("cannot read"), std::string::npos) << error;
}
