#include <gtest/gtest.h>

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <random>

#include "media/EncodedAudio.h"
#include "media/MediaTestSupport.h"
#include "platform/Library.h"
#include "support/HostHarness.h"
#include "support/SpeechLikeSignal.h"
#include "support/WavFiles.h"

using namespace mediatest;

namespace {

uint32_t U32At(const std::string& bytes, size_t at)
{
    uint32_t value = 0;
    if (bytes.size() >= at + 4) std::memcpy(&value, bytes.data() + at, 4);
    return value;
}

// The 44-byte head of 16-bit PCM that promises `dataLength` bytes.
std::string PcmHead(uint16_t channels, uint32_t rate, uint32_t dataLength)
{
    std::string head = testwav::RiffAndFormat(testwav::Format{1, channels, rate, 16}) + "data";
    testwav::PutU32(head, dataLength);
    for (int i = 0; i < 4; ++i) head[4 + size_t(i)] = char(((36 + dataLength) >> (8 * i)) & 0xFF);
    return head;
}

std::string EncodedHeaderBytes(const char* magic, int16_t channels, uint32_t rate, uint32_t frameBytes, uint32_t frames)
{
    std::string bytes(magic, 2);
    testwav::PutU16(bytes, uint16_t(channels));
    testwav::PutU32(bytes, rate);
    testwav::PutU32(bytes, frameBytes);
    testwav::PutU32(bytes, frames);
    return bytes;
}

class EncodedAudioTest : public ::testing::Test {
protected:
    HostHarness host;
    ScratchFolder scratch{"wzq"};
};

}  // namespace

TEST_F(EncodedAudioTest, SpeechSurvivesTheRoundTripWithinAdpcmError)
{
    struct Case {
        int16_t channels;
        voxadpcm::Variant variant;
        uint32_t frameBytes;
    };
    const Case cases[] = {
        {1, voxadpcm::Variant::ZQ, 264},
        {1, voxadpcm::Variant::ZR, 264},
        {2, voxadpcm::Variant::ZQ, 264},
        {2, voxadpcm::Variant::ZR, 72},
    };
    for (const Case& c : cases) {
        const char* variantName = c.variant == voxadpcm::Variant::ZR ? "ZR" : "ZQ";
        SCOPED_TRACE(std::string(variantName) + " channels " + std::to_string(c.channels));
        const std::vector<int16_t> source = test_signals::SpeechLike(16000, 20000, c.channels, 3);
        voxadpcm::StreamHeader header;
        header.variant = c.variant;
        header.channels = c.channels;
        header.frameBytes = c.frameBytes;
        const std::string encodedPath = scratch.Path() + "speech" + variantName + std::to_string(c.channels) + ".wzq";
        WriteAll(encodedPath, EncodeSamples(header, source));

        const std::string wavPath = ConvertToWav(encodedPath);
        ASSERT_EQ(wavPath, encodedPath.substr(0, encodedPath.size() - 4) + ".wav");
        const std::string wav = ReadAll(wavPath);
        const uint32_t dataBytes = header.frameCount * (4 * c.frameBytes - 32);
        ASSERT_EQ(wav.size(), 44u + dataBytes);
        EXPECT_EQ(wav.substr(0, 44), PcmHead(uint16_t(c.channels), 16000, dataBytes));

        const std::vector<int16_t> decoded = testwav::ToSamples16(wav.substr(44));
        // The last frame is filled up with silence, which must come back too.
        std::vector<int16_t> padded = source;
        padded.resize(decoded.size(), 0);
        const double snr = SnrDb(padded, decoded);
        std::printf("  %s, %d channel(s), %u-byte frames: SNR %.1f dB\n", variantName, c.channels, c.frameBytes, snr);
        EXPECT_GT(snr, 20.0);
    }
}

TEST_F(EncodedAudioTest, WavHeadFollowsTheEncodedHeader)
{
    struct Case {
        const char* name;
        std::string file;
        const char* fileName;
        const char* wavName;
        uint16_t channels;
        uint32_t rate, dataLength;
    };
    const Case cases[] = {
        {"mono", EncodedHeaderBytes("ZQ", 1, 16000, 264, 100) + std::string(100 * 264, '\0'), "mono.wzq",
         "mono.wav", 1, 16000, 102400},
        {"stereo ZR", EncodedHeaderBytes("ZR", 2, 16000, 264, 100) + std::string(100 * 264, '\0'), "st.WZQ",
         "st.wav", 2, 16000, 102400},
        {"no frames, several dots", EncodedHeaderBytes("ZQ", 1, 8000, 40, 0), "a.b.c.Wzq", "a.b.c.wav", 1, 8000, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = scratch.Path() + c.fileName;
        WriteAll(path, c.file);
        ASSERT_EQ(ConvertToWav(path), scratch.Path() + c.wavName);
        const std::string wav = ReadAll(scratch.Path() + c.wavName);
        ASSERT_EQ(wav.size(), 44u + c.dataLength);
        EXPECT_EQ(wav.substr(0, 44), PcmHead(c.channels, c.rate, c.dataLength));
        EXPECT_EQ(wav.substr(44), std::string(wav.size() - 44, '\0')) << "zero frames decode to silence";
    }
    EXPECT_TRUE(host.BoxIds().empty());
}

TEST_F(EncodedAudioTest, TheWavGoesBesideOnlyWhereNoUsersFileStands)
{
    const std::string bytes = EncodedHeaderBytes("ZQ", 1, 8000, 40, 2) + std::string(80, '\0');
    const std::string fallback = scratch.Path() + "fallback/";
    ASSERT_TRUE(platform::CreateDirectory(fallback));
    const std::string usersWav = "the user's own recording";
    struct Case {
        const char* name;
        bool usersWavBeside;
        bool readOnlyFolder;
        bool withFallback;
        const char* expected;  // relative to the scratch folder; "" for a failure
        std::vector<int> boxes;
    };
    const Case cases[] = {
        {"free name beside", false, false, true, "a/lesson.wav", {}},
        {"user's .wav beside", true, false, true, "fallback/lesson-1.wav", {}},
        {"second user's file, next free name", true, false, true, "fallback/lesson-2.wav", {}},
        {"read-only folder", false, true, true, "fallback/lesson-3.wav", {}},
        {"taken, and nowhere else to go", true, false, false, "", {214}},
    };
    // Root may write anywhere, so the read-only case is skipped for root.
    const bool root = geteuid() == 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.readOnlyFolder && root) continue;
        host.Boxes().clear();
        const std::string folder = scratch.Path() + "a/";
        platform::CreateDirectory(folder);
        chmod(folder.c_str(), 0755);
        WriteAll(folder + "lesson.wzq", bytes);
        platform::DeleteFile(folder + "lesson.wav");
        if (c.usersWavBeside) {
            WriteAll(folder + "lesson.wav", usersWav);
        }
        if (c.readOnlyFolder) chmod(folder.c_str(), 0555);

        const std::string result = ConvertToWav(folder + "lesson.wzq", c.withFallback ? fallback : "");
        chmod(folder.c_str(), 0755);
        EXPECT_EQ(result, *c.expected ? scratch.Path() + c.expected : "");
        EXPECT_EQ(host.BoxIds(), c.boxes);
        if (c.usersWavBeside) {
            EXPECT_EQ(ReadAll(folder + "lesson.wav"), usersWav);
        }
        if (!result.empty()) {
            EXPECT_EQ(ReadAll(result).size(), 44u + 2 * 128);
        }
    }
}

TEST_F(EncodedAudioTest, TruncatedFileGivesTheFramesItHolds)
{
    // Ten frames of 512 samples (264 bytes, 1024 decoded bytes each).
    const std::vector<int16_t> source = test_signals::SpeechLike(16000, 10 * 512, 1, 5);
    voxadpcm::StreamHeader header;
    const std::string encoded = EncodeSamples(header, source);
    ASSERT_EQ(header.frameCount, 10u);
    std::string promisesAll = encoded.substr(0, 16);
    for (int i = 12; i < 16; ++i) promisesAll[size_t(i)] = '\xFF';
    struct Case {
        const char* name;
        std::string bytes;
        uint32_t declared, held;
        uint32_t rate;
    };
    const Case cases[] = {
        {"whole", encoded, 10, 10, 16000},
        {"four whole frames of ten", encoded.substr(0, 16 + 4 * 264), 10, 4, 16000},
        {"cut inside the fifth frame", encoded.substr(0, 16 + 4 * 264 + 100), 10, 4, 16000},
        {"header alone", encoded.substr(0, 16), 10, 0, 16000},
        {"more frames promised than could exist", promisesAll + encoded.substr(16, 3 * 264), 0xFFFFFFFFu, 3, 16000},
        // 16 bytes that promised four billion frames of a mebibyte each.
        {"largest frames, none there", EncodedHeaderBytes("ZQ", 1, 8000, 1u << 20, 0xFFFFFFFFu), 0xFFFFFFFFu, 0, 8000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = scratch.Path() + "cut.wzq";
        WriteAll(path, c.bytes);
        EncodedFrameCounts counts;
        ASSERT_TRUE(ReadEncodedFrameCounts(path, counts));
        EXPECT_EQ(counts.declared, c.declared);
        EXPECT_EQ(counts.held, c.held);
        EncodedFrameCounts converted;
        ASSERT_EQ(ConvertToWavWith(path, kCodecLibraryName, "", &converted), scratch.Path() + "cut.wav");
        EXPECT_EQ(converted.declared, c.declared);
        EXPECT_EQ(converted.held, c.held);
        const std::string wav = ReadAll(scratch.Path() + "cut.wav");
        // Each frame held is decoded to 512 samples; nothing stands for the rest.
        const uint32_t dataBytes = c.held * 1024;
        ASSERT_EQ(wav.size(), 44u + dataBytes);
        EXPECT_EQ(wav.substr(0, 44), PcmHead(1, c.rate, dataBytes)) << "the head tells what was written";
        if (c.held > 0) {
            const std::vector<int16_t> decoded = testwav::ToSamples16(wav.substr(44));
            EXPECT_GT(SnrDb(std::vector<int16_t>(source.begin(), source.begin() + c.held * 512), decoded), 20.0);
        }
    }
    EXPECT_TRUE(host.BoxIds().empty());
}

TEST_F(EncodedAudioTest, FailuresAnswerEmptyAndLeaveWhatTheyShould)
{
    struct Case {
        const char* name;
        const char* file;  // nullptr: no such file
        std::string bytes;
        std::vector<int> boxes;
        bool wavLeft;
    };
    const std::string frames(64, '\0');
    const Case cases[] = {
        {"missing file", nullptr, "", {213}, false},
        {"empty file", "empty.wzq", "", {}, false},
        {"foreign magic", "foreign.wzq", EncodedHeaderBytes("ZX", 1, 8000, 40, 1) + frames, {}, false},
        {"lower-case magic", "lower.wzq", EncodedHeaderBytes("zq", 1, 8000, 40, 1) + frames, {}, false},
        {"one byte", "short.wzq", "Z", {}, false},
        {"magic alone has no channel", "magic.wzq", "ZQ", {}, false},
        {"frame below its head", "seven.wzq", EncodedHeaderBytes("ZQ", 1, 8000, 7, 1) + frames, {}, false},
        // A frame of its head alone decodes to nothing, however many there are.
        {"frame of its head alone", "eight.wzq", EncodedHeaderBytes("ZQ", 1, 8000, 8, 5) + std::string(40, '\0'), {},
         false},
        {"four billion empty frames", "empty4g.wzq", EncodedHeaderBytes("ZR", 1, 8000, 8, 0xFFFFFFFFu), {}, false},
        {"no channels", "zero.wzq", EncodedHeaderBytes("ZR", 0, 8000, 40, 1) + frames, {}, false},
        {"negative channels", "neg.wzq", EncodedHeaderBytes("ZQ", -2, 8000, 40, 1) + frames, {}, false},
        {"frame too large to hold", "huge.wzq", EncodedHeaderBytes("ZQ", 1, 8000, 0x40000008u, 1) + frames, {},
         false},
        {"wav can't be made", "blocked.wzq", EncodedHeaderBytes("ZQ", 1, 8000, 40, 1) + frames, {214}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        host.Boxes().clear();
        const std::string name = c.file != nullptr ? c.file : "absent.wzq";
        const std::string stem = scratch.Path() + name.substr(0, name.size() - 4);
        if (c.file != nullptr) WriteAll(stem + ".wzq", c.bytes);
        // A folder in the way of the .wav makes it impossible to create.
        if (c.wavLeft) {
            ASSERT_TRUE(platform::CreateDirectory(stem + ".wav"));
        }
        EXPECT_EQ(ConvertToWav(stem + ".wzq"), "");
        EXPECT_EQ(host.BoxIds(), c.boxes);
        EncodedFrameCounts counts;
        EXPECT_EQ(ReadEncodedFrameCounts(stem + ".wzq", counts), c.wavLeft) << "only a usable header has counts";
        EXPECT_EQ(platform::FileExists(stem + ".wav"), c.wavLeft);
        if (c.file != nullptr) {
            EXPECT_EQ(ReadAll(stem + ".wzq"), c.bytes) << "the source is never changed";
        }
    }
}

TEST_F(EncodedAudioTest, WithoutTheLibraryOnlyTheHeadIsWritten)
{
    const std::string bytes = EncodedHeaderBytes("ZQ", 1, 16000, 264, 100) + std::string(100 * 264, '\0');
    // A library that is not there, and one that is there without the function.
    for (const char* library : {"libvoxcodec-absent.so", "libm.so.6"}) {
        SCOPED_TRACE(library);
        WriteAll(scratch.Path() + "nolib.wzq", bytes);
        EXPECT_EQ(ConvertToWavWith(scratch.Path() + "nolib.wzq", library), "");
        const std::string wav = ReadAll(scratch.Path() + "nolib.wav");
        EXPECT_EQ(wav, PcmHead(1, 16000, 102400)) << "the head still promises the samples";
    }
    EXPECT_TRUE(host.BoxIds().empty());
}

TEST_F(EncodedAudioTest, MutatedFilesNeverUpsetTheConversion)
{
    const std::vector<int16_t> source = test_signals::SpeechLike(8000, 600, 2, 9);
    voxadpcm::StreamHeader header;
    header.channels = 2;
    header.frameBytes = 40;
    const std::string original = EncodeSamples(header, source);
    std::mt19937 random(20240611);
    const std::string path = scratch.Path() + "fuzz.wzq";
    int converted = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string bytes = original;
        const int flips = 1 + int(random() % 8);
        for (int i = 0; i < flips; ++i) {
            // Half the flips land in the 16-byte header, where they matter most.
            const size_t at = random() % 2 ? random() % 16 : random() % bytes.size();
            bytes[at] = char(random() % 3 == 0 ? random() : bytes[at] ^ (1u << (random() % 8)));
        }
        if (random() % 4 == 0) bytes.resize(random() % bytes.size());
        // Keeps each round short: a larger frame count only makes the file longer.
        if (bytes.size() >= 16) {
            uint32_t frameBytes, frameCount;
            std::memcpy(&frameBytes, bytes.data() + 8, 4);
            std::memcpy(&frameCount, bytes.data() + 12, 4);
            const uint32_t most = uint32_t(std::min<uint64_t>(32, (1u << 16) / (uint64_t(frameBytes) + 1)));
            if (frameCount > most) {
                frameCount %= most + 1;
                std::memcpy(bytes.data() + 12, &frameCount, 4);
            }
        }
        // Fresh files each round: rewriting a file in place makes some file
        // systems flush it, which would only slow the loop down.
        ::unlink(path.c_str());
        ::unlink((scratch.Path() + "fuzz.wav").c_str());
        WriteAll(path, bytes);
        const std::string wavPath = ConvertToWav(path);
        if (wavPath.empty()) continue;
        ++converted;
        const std::string wav = ReadAll(wavPath);
        ASSERT_EQ(wav.size(), 44u + U32At(wav, 40)) << "round " << round;
    }
    EXPECT_GT(converted, 300);
    EXPECT_TRUE(host.BoxIds().empty());
}

TEST(CodecLibrary, DecodesAnyHeaderAndFrameWithinItsBuffers)
{
    HMODULE library = LoadLibraryA(kCodecLibraryName);
    ASSERT_NE(library, nullptr) << "libvoxcodec.so must be found by its bare name";
    using Decode = int (*)(const void*, void*, const void*);
    auto decode = reinterpret_cast<Decode>(GetProcAddress(library, "wzq_decode"));
    ASSERT_NE(decode, nullptr);

    std::mt19937 random(77);
    for (int round = 0; round < 5000; ++round) {
        uint8_t header[16];
        for (uint8_t& b : header) b = uint8_t(random());
        header[0] = 'Z';
        header[1] = random() % 2 ? 'Q' : 'R';
        const uint32_t frameBytes = random() % 3 == 0 ? uint32_t(random()) : random() % 300;
        const int16_t channels = int16_t(random() % 4 == 0 ? int(random()) : int(random() % 6) - 1);
        std::memcpy(header + 2, &channels, 2);
        std::memcpy(header + 8, &frameBytes, 4);
        const bool usable = channels > 0 && frameBytes >= 8 && frameBytes <= voxadpcm::kLargestFrameBytes;
        // Buffers of exactly the sizes the header implies, so a sanitizer
        // sees any byte beyond them.
        std::vector<uint8_t> frame(usable ? frameBytes : 8);
        for (uint8_t& b : frame) b = uint8_t(random());
        std::vector<uint8_t> pcm(usable ? 4 * frameBytes - 32 : 4, 0xEE);
        pcm.reserve(1);  // a frame of 8 bytes decodes to nothing, into a real buffer
        const int result = decode(header, pcm.data(), frame.data());
        ASSERT_EQ(result == 0, usable) << "round " << round << ": " << channels << " channels, frame " << frameBytes;
        if (!usable) {
            EXPECT_EQ(pcm, std::vector<uint8_t>(4, 0xEE)) << "a refused header leaves the buffer alone";
            continue;
        }
        // The library agrees with the core the encoder is built on.
        voxadpcm::StreamHeader parsed;
        ASSERT_TRUE(voxadpcm::ReadHeader(header, parsed));
        std::vector<uint8_t> expected(pcm.size());
        voxadpcm::DecodeFrame(parsed, frame.data(), expected.data());
        ASSERT_EQ(pcm, expected) << "round " << round;
    }
    EXPECT_TRUE(FreeLibrary(library));
}
