#include <gtest/gtest.h>

#include <cstring>

#include "engine/WaveReader.h"
#include "platform/File.h"
#include "support/WavFiles.h"

using namespace testwav;

namespace {

struct HeadCase {
    const char* name;
    std::string bytes;
    int accepted;
    uint32_t formatLength;
    uint32_t factExtra;
    uint32_t chunkLength;
    bool dataTagWritten;
};

std::string FactChunk()
{
    std::string bytes = "fact";
    PutU32(bytes, 4);
    PutU32(bytes, 1234);
    return bytes;
}

std::string DataChunk(uint32_t length)
{
    std::string bytes = "data";
    PutU32(bytes, length);
    return bytes + std::string(length, '\x01');
}

std::vector<HeadCase> HeadCases()
{
    Format format;
    std::string fmt16 = RiffAndFormat(format);
    std::string fmt18 = RiffAndFormat(format, 18) + std::string(2, '\0');
    std::string badRiff = fmt16 + DataChunk(10);
    badRiff[3] = 'X';
    std::string badWave = fmt16 + DataChunk(10);
    badWave[11] = 'x';
    std::string list = fmt16 + "LIST";
    PutU32(list, 4);
    list += "abcd";
    return {
        {"format16_data", fmt16 + DataChunk(100), 1, 16, 0, 100, true},
        {"format16_fact_data", fmt16 + FactChunk() + DataChunk(100), 1, 16, 12, 0, false},
        {"format18_data", fmt18 + DataChunk(100), 1, 18, 0, 0, false},
        {"format18_fact_data", fmt18 + FactChunk() + DataChunk(100), 1, 18, 0, 0, false},
        {"data_of_length_0", fmt16 + DataChunk(0), 1, 16, 0, 0, true},
        {"list_at_36", list, 1, 16, 0, 0, false},
        {"riff_last_byte_wrong", badRiff, 0, 0, 0, 77, false},
        {"wave_last_byte_wrong", badWave, 0, 0, 0, 77, false},
        {"eleven_bytes", std::string("RIFF\0\0\0\0WAV", 11), 0, 0, 0, 77, false},
        {"twelve_bytes", std::string("RIFF\0\0\0\0WAVE", 12), 1, 0xA5A5A5A5u, 0, 0, false},
    };
}

}  // namespace

TEST(WaveReader, HeadsAndRefusals)
{
    for (const HeadCase& c : HeadCases()) {
        SCOPED_TRACE(c.name);
        std::string path = WriteFile(std::string(c.name) + ".wav", c.bytes);
        CFile stream;
        ASSERT_TRUE(stream.Open(path.c_str(), CFile::modeRead | CFile::typeBinary));

        WavFormatRecord format;
        std::memset(&format, 0xA5, sizeof format);
        WavChunkHead chunk;
        std::memcpy(chunk.tag, "none", 4);
        chunk.length = 77;
        uint32_t factExtra = 0;

        EXPECT_EQ(ReadWaveHeader(stream, format, chunk, factExtra), c.accepted);
        EXPECT_EQ(chunk.length, c.chunkLength);
        EXPECT_EQ(factExtra, c.factExtra);
        EXPECT_EQ(std::memcmp(chunk.tag, c.dataTagWritten ? "data" : "none", 4), 0);
        if (c.accepted) {
            EXPECT_EQ(format.length, c.formatLength);
        } else {
            // A refusal writes nothing into the format record.
            EXPECT_EQ(format.length, 0xA5A5A5A5u);
            EXPECT_EQ(format.bitsPerSample, 0xA5A5);
        }
    }
}

TEST(WaveReader, FormatFieldsInFileOrderAndPartialTail)
{
    Format format{1, 2, 44100, 16};
    std::string bytes = RiffAndFormat(format) + DataChunk(8);
    std::string path = WriteFile("full.wav", bytes);
    CFile stream;
    ASSERT_TRUE(stream.Open(path.c_str(), CFile::modeRead | CFile::typeBinary));
    WavFormatRecord record{};
    WavChunkHead chunk{};
    uint32_t factExtra = 0;
    ASSERT_EQ(ReadWaveHeader(stream, record, chunk, factExtra), 1);
    EXPECT_EQ(std::memcmp(record.tag, "fmt ", 4), 0);
    EXPECT_EQ(record.formatTag, 1);
    EXPECT_EQ(record.channels, 2);
    EXPECT_EQ(record.samplesPerSec, 44100u);
    EXPECT_EQ(record.avgBytesPerSec, 176400u);
    EXPECT_EQ(record.blockAlign, 4);
    EXPECT_EQ(record.bitsPerSample, 16);

    // A file that ends inside the format chunk keeps the caller's values for
    // the fields it can't supply, byte by byte.
    std::string cut = bytes.substr(0, 29);
    std::string cutPath = WriteFile("cut.wav", cut);
    CFile cutStream;
    ASSERT_TRUE(cutStream.Open(cutPath.c_str(), CFile::modeRead | CFile::typeBinary));
    WavFormatRecord partial;
    std::memset(&partial, 0xEE, sizeof partial);
    ASSERT_EQ(ReadWaveHeader(cutStream, partial, chunk, factExtra), 1);
    EXPECT_EQ(partial.samplesPerSec, 44100u);
    EXPECT_EQ(partial.avgBytesPerSec, 0xEEEEEE00u | (176400u & 0xFF));
    EXPECT_EQ(partial.bitsPerSample, 0xEEEE);
}
