// The canonical .wav head that every writer of the project writes.
#include <gtest/gtest.h>

#include <string>

#include "riff/WavHead.h"
#include "support/WavFiles.h"

TEST(CanonicalWavHead, StatesTheLengthsAndRatesOfSixteenBitSamples)
{
    struct Case {
        uint16_t channels;
        uint32_t rate;
        uint32_t dataBytes;
        uint32_t riffLength, byteRate;
        uint16_t blockAlign;
    };
    // Worked by hand: the RIFF length counts the 36 head bytes after it.
    const Case cases[] = {
        {1, 16000, 102400, 102436, 32000, 2},
        {2, 16000, 102400, 102436, 64000, 4},
        {2, 44100, 0, 36, 176400, 4},
    };
    for (const Case& c : cases) {
        uint8_t head[riff::kCanonicalHeadBytes];
        riff::PutCanonicalWavHead(head, riff::Pcm16Format(c.channels, c.rate), c.dataBytes);
        const std::string bytes(reinterpret_cast<char*>(head), 44);
        std::string expected = "RIFF";
        testwav::PutU32(expected, c.riffLength);
        expected += "WAVEfmt ";
        testwav::PutU32(expected, 16);
        testwav::PutU16(expected, 1);
        testwav::PutU16(expected, c.channels);
        testwav::PutU32(expected, c.rate);
        testwav::PutU32(expected, c.byteRate);
        testwav::PutU16(expected, c.blockAlign);
        testwav::PutU16(expected, 16);
        expected += "data";
        testwav::PutU32(expected, c.dataBytes);
        EXPECT_EQ(bytes, expected) << c.channels << " channel(s) at " << c.rate;
    }
}

TEST(CanonicalWavHead, CopiesAnotherHeadsFieldsAsTheyAre)
{
    // The capture device's head: 8-bit stereo at 11025 Hz with a byte rate
    // that does not match (a file may state one), written as given.
    riff::WavHeadFormat format;
    format.formatTag = 1;
    format.channels = 2;
    format.sampleRate = 11025;
    format.byteRate = 12345;
    format.blockAlign = 2;
    format.bitsPerSample = 8;
    uint8_t head[riff::kCanonicalHeadBytes];
    riff::PutCanonicalWavHead(head, format, 0);
    std::string expected = "RIFF";
    testwav::PutU32(expected, 36);
    expected += "WAVEfmt ";
    testwav::PutU32(expected, 16);
    testwav::PutU16(expected, 1);
    testwav::PutU16(expected, 2);
    testwav::PutU32(expected, 11025);
    testwav::PutU32(expected, 12345);
    testwav::PutU16(expected, 2);
    testwav::PutU16(expected, 8);
    expected += "data";
    testwav::PutU32(expected, 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(head), sizeof head), expected);
}
