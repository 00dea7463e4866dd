#include "riff/WaveLayout.h"

#include <gtest/gtest.h>

#include <string>

#include "riff/LittleEndian.h"

namespace {

std::string U16(uint16_t value)
{
    return std::string{char(value & 0xFF), char(value >> 8)};
}

std::string U32(uint32_t value)
{
    return U16(uint16_t(value & 0xFFFF)) + U16(uint16_t(value >> 16));
}

std::string Chunk(const std::string& tag, const std::string& body, uint32_t statedLength)
{
    std::string chunk = tag + U32(statedLength) + body;
    if (body.size() % 2 == 1) chunk += '\0';
    return chunk;
}

std::string Chunk(const std::string& tag, const std::string& body)
{
    return Chunk(tag, body, uint32_t(body.size()));
}

std::string Format16(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits)
{
    const uint16_t align = uint16_t(channels * bits / 8);
    return U16(tag) + U16(channels) + U32(rate) + U32(rate * align) + U16(align) + U16(bits);
}

// WAVE_FORMAT_EXTENSIBLE: cbSize 22, valid bits, channel mask, sub-format.
std::string Extensible(uint16_t subFormat, uint16_t channels, uint32_t rate, uint16_t bits)
{
    const std::string tail("\x00\x00\x00\x00\x10\x00\x80\x00\x00\xAA\x00\x38\x9B\x71", 14);
    return Format16(0xFFFE, channels, rate, bits) + U16(22) + U16(bits) + U32(3) + U16(subFormat) + tail;
}

std::string Riff(const std::string& chunks)
{
    return "RIFF" + U32(uint32_t(4 + chunks.size())) + "WAVE" + chunks;
}

riff::LayoutError Find(const std::string& file, riff::WaveLayout& layout)
{
    return riff::FindWaveLayout(reinterpret_cast<const uint8_t*>(file.data()), file.size(), layout);
}

}  // namespace

// Each case is a file as a writer lays it out; the offset and length of its
// samples follow from the layout by hand.
TEST(WaveLayout, TheSamplesAreTheDataChunksWhereverItStands)
{
    const std::string samples(400, 'S');
    // What ffmpeg writes by default: a 26-byte LIST/INFO chunk ("Lavf...").
    const std::string list = Chunk("LIST", "INFOISFT" + U32(14) + std::string("Lavf59.27.100\0", 14));
    struct Case {
        const char* name;
        std::string file;
        uint64_t dataOffset;
        uint64_t dataLength;
        uint16_t formatTag;
        uint16_t bits;
    };
    const Case cases[] = {
        {"canonical", Riff(Chunk("fmt ", Format16(1, 2, 44100, 16)) + Chunk("data", samples)), 44, 400, 1, 16},
        {"LIST before data", Riff(Chunk("fmt ", Format16(1, 2, 44100, 16)) + list + Chunk("data", samples)),
         44 + 34, 400, 1, 16},
        {"fmt of 18 bytes and a fact chunk",
         Riff(Chunk("fmt ", Format16(1, 1, 8000, 8) + U16(0)) + Chunk("fact", U32(400)) + Chunk("data", samples)),
         12 + 26 + 12 + 8, 400, 1, 8},
        {"odd chunk padded", Riff(Chunk("fmt ", Format16(1, 1, 16000, 16)) + Chunk("junk", "abc") + Chunk("data", samples)),
         44 + 12, 400, 1, 16},
        {"cue and bext before fmt",
         Riff(Chunk("bext", std::string(10, 'b')) + Chunk("cue ", U32(0)) + Chunk("fmt ", Format16(1, 1, 16000, 16)) +
              Chunk("data", samples)),
         12 + 18 + 12 + 24 + 8, 400, 1, 16},
        {"extensible 16-bit PCM", Riff(Chunk("fmt ", Extensible(1, 2, 48000, 16)) + Chunk("data", samples)),
         12 + 48 + 8, 400, 1, 16},
        {"extensible float", Riff(Chunk("fmt ", Extensible(3, 2, 48000, 32)) + Chunk("data", samples)), 12 + 48 + 8,
         400, 3, 32},
        {"data length 0: to the end", Riff(Chunk("fmt ", Format16(1, 1, 8000, 16)) + Chunk("data", samples, 0)), 44,
         400, 1, 16},
        {"data length past the end: cut",
         Riff(Chunk("fmt ", Format16(1, 1, 8000, 16)) + Chunk("data", samples, 0xFFFFFFF0u)), 44, 400, 1, 16},
        {"data shorter than the file", Riff(Chunk("fmt ", Format16(1, 1, 8000, 16)) + Chunk("data", samples, 100)),
         44, 100, 1, 16},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        riff::WaveLayout layout;
        ASSERT_EQ(Find(c.file, layout), riff::LayoutError::None);
        EXPECT_EQ(layout.dataOffset, c.dataOffset);
        EXPECT_EQ(layout.dataLength, c.dataLength);
        EXPECT_EQ(layout.formatTag, c.formatTag);
        EXPECT_EQ(layout.bitsPerSample, c.bits);
        EXPECT_EQ(c.file.substr(layout.dataOffset, 4), "SSSS");
    }
}

TEST(WaveLayout, FilesWithoutUsableChunksAreRefused)
{
    const std::string fmt = Chunk("fmt ", Format16(1, 1, 8000, 16));
    struct Case {
        const char* name;
        std::string file;
        riff::LayoutError expected;
    };
    const Case cases[] = {
        {"empty", "", riff::LayoutError::NotRiffWave},
        {"not RIFF", "RIFX" + U32(4) + "WAVE" + fmt, riff::LayoutError::NotRiffWave},
        {"not WAVE", Riff(fmt).replace(8, 4, "AVI "), riff::LayoutError::NotRiffWave},
        {"data before fmt", Riff(Chunk("data", "xx") + fmt), riff::LayoutError::NoFormat},
        {"fmt too short", Riff(Chunk("fmt ", std::string(10, '\0')) + Chunk("data", "xx")), riff::LayoutError::NoFormat},
        {"no data", Riff(fmt + Chunk("LIST", "INFO")), riff::LayoutError::NoData},
        {"a chunk claiming 4 GiB hides the rest", Riff(fmt + Chunk("LIST", "x", 0xFFFFFFFFu) + Chunk("data", "xx")),
         riff::LayoutError::NoData},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        riff::WaveLayout layout;
        EXPECT_EQ(Find(c.file, layout), c.expected);
    }
}

TEST(WaveLayout, PlainPcmIsEightOrSixteenBitsWithConsistentRates)
{
    struct Case {
        const char* name;
        riff::WaveLayout layout;
        bool plain;
    };
    auto pcm = [](uint16_t channels, uint32_t rate, uint16_t bits) {
        riff::WaveLayout layout;
        layout.formatTag = 1;
        layout.channels = channels;
        layout.samplesPerSec = rate;
        layout.bitsPerSample = bits;
        layout.blockAlign = uint16_t(channels * bits / 8);
        layout.avgBytesPerSec = rate * layout.blockAlign;
        return layout;
    };
    riff::WaveLayout tinyRate = pcm(1, 8000, 16);
    tinyRate.avgBytesPerSec = 5;
    riff::WaveLayout hugeRate = pcm(2, 44100, 16);
    hugeRate.avgBytesPerSec = 0xFFFFFFFFu;
    riff::WaveLayout badAlign = pcm(2, 44100, 16);
    badAlign.blockAlign = 3;
    riff::WaveLayout floating = pcm(2, 48000, 32);
    floating.formatTag = 3;
    const Case cases[] = {
        {"16-bit stereo 44.1 kHz", pcm(2, 44100, 16), true},
        {"8-bit mono 8 kHz", pcm(1, 8000, 8), true},
        {"24-bit", pcm(2, 48000, 24), false},
        {"float", floating, false},
        {"byte rate below the samples'", tinyRate, false},
        {"byte rate of 4 GiB", hugeRate, false},
        {"block alignment off", badAlign, false},
        {"no channels", pcm(0, 8000, 16), false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(riff::IsPlainPcm(c.layout), c.plain) << c.name;
    }
}
