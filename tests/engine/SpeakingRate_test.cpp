// Measuring a stretch of a wave file, and cutting a file at its pauses. The
// files hold syllables laid out by hand, so the expected counts and times
// follow from the layout.
#include "engine/SpeakingRate.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/Exceptions.h"
#include "support/SyllableSignal.h"
#include "support/WavFiles.h"

using namespace testwav;
using namespace test_signals;

namespace {

// Groups of syllables (0.2 s each, 0.1 s apart) after `pauses[i]` seconds of
// silence each, and half a second of silence at the end.
std::vector<int16_t> Groups(const std::vector<int>& counts, const std::vector<double>& pauses, int rate, int channels)
{
    std::vector<Piece> pieces;
    for (size_t g = 0; g < counts.size(); ++g) {
        pieces.push_back({pauses[g], 0.0});
        for (int i = 0; i < counts[g]; ++i) {
            for (const Piece& p : Syllable()) pieces.push_back(p);
            if (i + 1 < counts[g]) pieces.push_back({0.1, 0.0});
        }
    }
    pieces.push_back({0.5, 0.0});
    return Render(pieces, Source::Voice, rate, channels, 25000.0);
}

std::string File(const std::string& name, const std::vector<int16_t>& samples, int rate, int channels)
{
    return WriteFile(name, CanonicalWav(Format{1, uint16_t(channels), uint32_t(rate), 16}, Samples16(samples)));
}

TEST(SpeakingRate, MeasuresTheStretchAskedFor)
{
    // Ten syllables from 0.5 s, a syllable every 0.3 s: syllable k spans
    // 0.5 + 0.3k to 0.7 + 0.3k seconds.
    const std::string path = File("rate-ten.wav", Groups({10}, {0.5}, 22050, 2), 22050, 2);
    struct Case {
        int64_t startMs;
        int64_t endMs;
        uint64_t syllables;
    };
    const Case cases[] = {
        {0, 60000, 10},   // the end is cut to the file's
        {0, 500, 0},      // silence only
        {0, 1400, 3},     // syllables 0 to 2 end by 1.3 s; 3 starts at 1.4
        {1400, 2600, 4},  // syllables 3 to 6
        {3500, 9000, 0},  // after the last one
    };
    for (const Case& c : cases) {
        const SpeakingRate rate = MeasureFileSpeakingRate(path, c.startMs, c.endMs);
        EXPECT_EQ(rate.syllables, c.syllables) << c.startMs << " to " << c.endMs;
    }
    // Speech from the first syllable's start to the last one's end: 2.9 s.
    EXPECT_NEAR(MeasureFileSpeakingRate(path, 0, 60000).SyllablesPerSecond(), 10.0 / 2.9, 10.0 / 2.9 * 0.03);
    EXPECT_EQ(WaveFileMilliseconds(path), 3900u);
}

TEST(SpeakingRate, FindsTheSamplesWhereverTheDataChunkStands)
{
    const std::vector<int16_t> samples = Groups({8}, {0.3}, 16000, 1);
    const std::string data = Samples16(samples);
    const std::string plain = File("rate-plain.wav", samples, 16000, 1);
    // A LIST chunk before the samples and another after them.
    std::string list = "LIST";
    PutU32(list, 10);
    list += "INFOabcdef";
    std::string head = RiffAndFormat(Format{1, 1, 16000, 16}) + list + "data";
    PutU32(head, uint32_t(data.size()));
    std::string bytes = head + data + list;
    bytes.replace(4, 4, std::string(4, '\0'));
    std::string size;
    PutU32(size, uint32_t(bytes.size() - 8));
    bytes.replace(4, 4, size);
    const std::string chunked = WriteFile("rate-chunked.wav", bytes);

    const SpeakingRate a = MeasureFileSpeakingRate(plain, 0, 10000);
    const SpeakingRate b = MeasureFileSpeakingRate(chunked, 0, 10000);
    EXPECT_EQ(a.syllables, 8u);
    EXPECT_EQ(b.syllables, 8u);
    EXPECT_DOUBLE_EQ(a.speechSeconds, b.speechSeconds);
}

TEST(SpeakingRate, RefusesWhatItCannotMeasure)
{
    const std::string good = File("rate-good.wav", Groups({2}, {0.3}, 8000, 1), 8000, 1);
    Format wide{1, 1, 22050, 24};
    const std::string wideFile = WriteFile("rate-24bit.wav", CanonicalWav(wide, std::string(3000, '\0')));
    const std::string notRiff = WriteFile("rate-not-riff.wav", "RIFX" + std::string(60, '\0'));
    struct Case {
        const char* name;
        std::string path;
        int64_t startMs;
        int64_t endMs;
        bool fileError;  // else a bad argument
    };
    const Case cases[] = {
        {"missing file", TempPath("rate-missing.wav"), 0, 1000, true},
        {"no file named", "", 0, 1000, true},
        {"not a wave file", notRiff, 0, 1000, false},
        {"24-bit samples", wideFile, 0, 1000, false},
        {"negative start", good, -1, 1000, false},
        {"end before start", good, 500, 499, false},
    };
    for (const Case& c : cases) {
        if (c.fileError) {
            EXPECT_THROW(MeasureFileSpeakingRate(c.path, c.startMs, c.endMs), CFileException) << c.name;
        } else {
            EXPECT_THROW(MeasureFileSpeakingRate(c.path, c.startMs, c.endMs), std::invalid_argument) << c.name;
        }
    }
    EXPECT_EQ(MeasureFileSpeakingRate(good, 300, 300).syllables, 0u) << "an empty stretch";
}

}  // namespace
