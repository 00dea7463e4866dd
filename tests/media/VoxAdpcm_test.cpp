#include <gtest/gtest.h>

#include "codec/VoxAdpcm.h"
#include "media/MediaTestSupport.h"
#include "support/SpeechLikeSignal.h"

using namespace mediatest;

namespace {

std::vector<int16_t> DecodeStream(const std::vector<uint8_t>& stream)
{
    voxadpcm::StreamHeader header;
    if (stream.size() < voxadpcm::kHeaderBytes || !voxadpcm::ReadHeader(stream.data(), header)) return {};
    const uint32_t perFrame = voxadpcm::SamplesPerFrame(header.frameBytes);
    std::vector<uint8_t> pcm(size_t(header.frameCount) * perFrame * 2);
    for (uint32_t f = 0; f < header.frameCount; ++f) {
        voxadpcm::DecodeFrame(header, stream.data() + voxadpcm::kHeaderBytes + size_t(f) * header.frameBytes,
                              pcm.data() + size_t(f) * perFrame * 2);
    }
    std::vector<int16_t> samples(pcm.size() / 2);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = int16_t(pcm[2 * i] | pcm[2 * i + 1] << 8);
    return samples;
}

// The samples of one channel out of interleaved ones.
std::vector<int16_t> Channel(const std::vector<int16_t>& samples, int channels, int channel, size_t frames)
{
    std::vector<int16_t> one;
    for (size_t i = 0; i < frames; ++i) one.push_back(samples[i * size_t(channels) + size_t(channel)]);
    return one;
}

}  // namespace

TEST(VoxAdpcm, FrameHeadRestartsEachChannel)
{
    struct Case {
        const char* name;
        int16_t channels;
        std::vector<uint8_t> head;
        std::vector<int16_t> firstSamples;  // all codes 0: each channel holds near its predictor
    };
    const Case cases[] = {
        {"mono, negative predictor", 1, {0x18, 0xFC, 0, 0, 0x77, 0x77, 0, 0}, {-1000, -1000, -1000, -1000}},
        {"stereo", 2, {0x10, 0x27, 0, 0, 0xF0, 0xD8, 0, 0}, {10000, -10000, 10000, -10000}},
        // An index beyond the table is held at its end: step 32767 adds 4095.
        {"index past the table", 1, {0, 0, 200, 0, 0, 0, 0, 0}, {4095, 4095 + 3724, 4095 + 3724 + 3385}},
        {"third channel starts from silence", 3, {0xE8, 0x03, 0, 0, 0xE8, 0x03, 0, 0}, {1000, 1000, 0, 1000}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        voxadpcm::StreamHeader header;
        header.channels = c.channels;
        header.frameBytes = 8 + 6;
        std::vector<uint8_t> frame = c.head;
        frame.resize(header.frameBytes, 0);
        std::vector<uint8_t> pcm(2 * voxadpcm::SamplesPerFrame(header.frameBytes));
        voxadpcm::DecodeFrame(header, frame.data(), pcm.data());
        for (size_t i = 0; i < c.firstSamples.size(); ++i)
            EXPECT_EQ(int16_t(pcm[2 * i] | pcm[2 * i + 1] << 8), c.firstSamples[i]) << "sample " << i;
    }
}

TEST(VoxAdpcm, VariantsAreToldApartByTheHeader)
{
    const std::vector<int16_t> source = test_signals::SpeechLike(16000, 8000, 1, 4);
    for (voxadpcm::Variant variant : {voxadpcm::Variant::ZQ, voxadpcm::Variant::ZR}) {
        SCOPED_TRACE(variant == voxadpcm::Variant::ZR ? "ZR" : "ZQ");
        voxadpcm::StreamHeader header;
        header.variant = variant;
        std::vector<uint8_t> stream = voxadpcm::EncodeStream(header, source, nullptr);
        ASSERT_EQ(stream[1], variant == voxadpcm::Variant::ZR ? 'R' : 'Q');
        const double matched = SnrDb(source, DecodeStream(stream));
        EXPECT_GT(matched, 20.0);
        // Read with the other variant's steps, the same frames come out
        // clearly worse.
        stream[1] = stream[1] == 'Q' ? 'R' : 'Q';
        EXPECT_LT(SnrDb(source, DecodeStream(stream)), matched - 8.0);
    }
}

TEST(VoxAdpcm, ChannelsBeyondTheHeadStillComeThrough)
{
    // Three channels: the third restarts from silence at each frame, so it
    // is coded a little worse, but each channel stays its own.
    const size_t frames = 6000;
    std::vector<int16_t> source(frames * 3);
    const std::vector<int16_t> a = test_signals::SpeechLike(16000, int32_t(frames), 1, 1);
    const std::vector<int16_t> b = test_signals::SpeechLike(16000, int32_t(frames), 1, 6);
    for (size_t i = 0; i < frames; ++i) {
        source[3 * i] = a[i];
        source[3 * i + 1] = b[i];
        source[3 * i + 2] = int16_t(a[i] / 2);
    }
    voxadpcm::StreamHeader header;
    header.channels = 3;
    header.frameBytes = 8 + 3 * 64;
    const std::vector<int16_t> decoded = DecodeStream(voxadpcm::EncodeStream(header, source, nullptr));
    ASSERT_GE(decoded.size(), source.size());
    for (int c = 0; c < 3; ++c) {
        const double snr = SnrDb(Channel(source, 3, c, frames), Channel(decoded, 3, c, frames));
        std::printf("  channel %d of 3: SNR %.1f dB\n", c, snr);
        EXPECT_GT(snr, c < 2 ? 20.0 : 12.0) << "channel " << c;
    }
}

TEST(VoxAdpcm, EncoderRefusesWhatItCannotCarry)
{
    struct Case {
        const char* name;
        int16_t channels;
        uint32_t frameBytes;
        size_t samples;
    };
    const Case cases[] = {
        {"frame of its head alone", 1, 8, 100},
        {"frame beyond the largest", 1, voxadpcm::kLargestFrameBytes + 1, 100},
        {"no channel", 0, 264, 100},
        {"frame not a whole number of sample frames", 3, 264, 99},
        {"samples not whole sample frames", 2, 264, 101},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        voxadpcm::StreamHeader header;
        header.channels = c.channels;
        header.frameBytes = c.frameBytes;
        std::string error;
        EXPECT_TRUE(voxadpcm::EncodeStream(header, std::vector<int16_t>(c.samples), &error).empty());
        EXPECT_FALSE(error.empty());
    }
}
