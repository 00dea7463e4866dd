#include "dsp/WordSpeed.h"

#include <gtest/gtest.h>

#include "support/SampleBytes.h"

#include <cmath>
#include <string>
#include <vector>

namespace {

// Signals are laid out in units of 128 samples, the detector's hop: frame i
// covers units i and i + 1, so it is unvoiced only when both are quiet.
enum class Unit { Quiet, Loud, FallingTicks, RisingTicks };

constexpr int kUnit = 128;
constexpr double kLoudAmplitude = 20000.0;

// A tone of period 8 whose units start and end on zero; ticks are sign changes
// of 1.1 % of the loud peak: too little energy to be voiced, but six or more
// per frame are enough crossings when they fall.
void AppendUnit(std::vector<int16_t>& out, Unit unit) {
    const double pi = 3.14159265358979323846;
    for (int k = 0; k < kUnit; ++k) {
        double value = 0.0;
        if (unit == Unit::Loud) value = kLoudAmplitude * std::sin(2.0 * pi * k / 8.0);
        if ((unit == Unit::FallingTicks || unit == Unit::RisingTicks) && k % 32 < 2) {
            const double tick = 0.011 * kLoudAmplitude;
            value = (k % 32 == 0) == (unit == Unit::FallingTicks) ? tick : -tick;
        }
        out.push_back(int16_t(std::lround(value)));
    }
}

struct Piece {
    Unit unit;
    int units;
};

std::vector<int16_t> Signal(const std::vector<Piece>& pieces) {
    std::vector<int16_t> out;
    for (const Piece& piece : pieces)
        for (int u = 0; u < piece.units; ++u) AppendUnit(out, piece.unit);
    return out;
}

// `count` segments that each close cleanly: ten loud units, ten quiet ones.
std::vector<int16_t> Segments(int count) {
    std::vector<Piece> pieces{{Unit::Quiet, 3}};
    for (int s = 0; s < count; ++s) {
        pieces.push_back({Unit::Loud, 10});
        pieces.push_back({Unit::Quiet, 10});
    }
    return Signal(pieces);
}

int32_t Estimate(const std::vector<int16_t>& samples, float wordsPerSegment = 1.0f, int32_t timeSpan = 60) {
    const std::vector<uint8_t> bytes = testbytes::ToBytes(samples);
    return EstimateWordSpeed(bytes.data(), uint32_t(bytes.size()), 1, 16, wordsPerSegment, timeSpan);
}

TEST(WordSpeedTest, SegmentsBecomeARatePerMinute) {
    struct Case {
        int segments;
        float wordsPerSegment;
        int32_t timeSpan;
        int32_t expected;
    };
    const Case cases[] = {
        {10, 2.5f, 30, 50}, {7, 1.0f, 60, 7}, {7, 1.0f, 61, 6}, {1, 1.0f, 60, 1}, {0, 1.0f, 60, 0},
        {3, 1.0f, 0, 0},    {3, 1.0f, -5, 0}, {3, 0.1f, 60, 0},  // 0.3 segments a minute truncate to none
        {4, 3.0f, 7, 102},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.segments << " x " << c.wordsPerSegment << " / " << c.timeSpan);
        EXPECT_EQ(Estimate(Segments(c.segments), c.wordsPerSegment, c.timeSpan), c.expected);
    }
}

TEST(WordSpeedTest, EndpointDetectorBridgesShortPausesAndDropsShortBursts) {
    using enum Unit;
    struct Case {
        const char* name;
        std::vector<Piece> pieces;
        int32_t segments;
    };
    const Case cases[] = {
        // 7 quiet frames need 8 quiet units; the second run of speech continues the first.
        {"pause of 7 frames", {{Quiet, 3}, {Loud, 10}, {Quiet, 8}, {Loud, 10}, {Quiet, 12}}, 1},
        {"pause of 8 frames", {{Quiet, 3}, {Loud, 10}, {Quiet, 9}, {Loud, 10}, {Quiet, 12}}, 2},
        // A burst of u loud units is u + 1 frames; with 7 bridged frames it needs 15.
        {"burst one frame short", {{Quiet, 3}, {Loud, 6}, {Quiet, 12}}, 0},
        {"shortest burst that counts", {{Quiet, 3}, {Loud, 7}, {Quiet, 12}}, 1},
        {"steady tone", {{Loud, 200}}, 0},
        {"ends still in speech", {{Quiet, 3}, {Loud, 10}, {Quiet, 5}}, 0},
        {"ends on the frame that ends the segment", {{Quiet, 3}, {Loud, 10}, {Quiet, 9}}, 0},
        {"one frame more closes it", {{Quiet, 3}, {Loud, 10}, {Quiet, 10}}, 1},
        // Ticks keep a short burst going only when their crossings fall.
        {"falling crossings are voiced", {{Quiet, 3}, {Loud, 3}, {FallingTicks, 12}, {Quiet, 12}}, 1},
        {"rising crossings are not", {{Quiet, 3}, {Loud, 3}, {RisingTicks, 12}, {Quiet, 12}}, 0},
        {"too short for a frame", {{Loud, 2}}, 0},
    };
    for (const Case& c : cases) EXPECT_EQ(Estimate(Signal(c.pieces)), c.segments) << c.name;
}

TEST(WordSpeedTest, ReadsTheFirstChannelOfEachFormat) {
    const std::vector<int16_t> speech = Segments(3);
    struct Case {
        uint16_t channels;
        uint16_t bits;
        int32_t expected;
    };
    for (const Case& c : {Case{1, 16, 3}, Case{2, 16, 3}, Case{1, 8, 3}, Case{2, 8, 3}, Case{3, 16, 0},
                          Case{1, 24, 0}, Case{2, 12, 0}, Case{0, 8, 0}}) {
        std::vector<uint8_t> bytes;
        for (size_t k = 0; k < speech.size(); ++k) {
            for (uint16_t ch = 0; ch < std::max<uint16_t>(c.channels, 1); ++ch) {
                // The second channel never pauses: reading it would find no segment.
                const int16_t value = ch == 0 ? speech[k] : int16_t(kLoudAmplitude * std::sin(double(k)));
                if (c.bits == 8) {
                    bytes.push_back(uint8_t(int8_t(value / 256)));  // signed bytes: 0 is the zero line
                } else {
                    bytes.push_back(uint8_t(uint16_t(value) & 0xff));
                    bytes.push_back(uint8_t(uint16_t(value) >> 8));
                }
            }
        }
        EXPECT_EQ(EstimateWordSpeed(bytes.data(), uint32_t(bytes.size()), c.channels, c.bits, 1.0f, 60), c.expected)
            << c.channels << " channels, " << c.bits << " bits";
    }
}

TEST(WordSpeedTest, QuietOrEmptyStretchesGiveZero) {
    std::vector<int16_t> faint = Segments(2);
    for (int16_t& s : faint) s = int16_t(s * 9 / 20000);
    std::vector<int16_t> justLoudEnough = Segments(2);
    for (int16_t& s : justLoudEnough) s = int16_t(s / 2000);
    EXPECT_EQ(Estimate(faint), 0) << "peak 9";
    EXPECT_EQ(Estimate(justLoudEnough), 2) << "peak 10";
    EXPECT_EQ(Estimate({}), 0);
    EXPECT_EQ(EstimateWordSpeed(nullptr, 1000, 1, 16, 1.0f, 60), 0);
    const std::vector<uint8_t> midScale(20 * kUnit, 128);  // signed -128 throughout: a level, never a pause
    EXPECT_EQ(EstimateWordSpeed(midScale.data(), uint32_t(midScale.size()), 1, 8, 1.0f, 60), 0);
}

TEST(WordSpeedTest, LastEnergyFrameWithoutCrossingsIsSafe) {
    // 22 units close the segment on the last energy frame, which has no crossing
    // frame when the length is a multiple of 128; one sample more gives it one.
    std::vector<int16_t> exact = Signal({{Unit::Quiet, 3}, {Unit::Loud, 10}, {Unit::Quiet, 10}});
    EXPECT_EQ(Estimate(exact), 1);
    exact.push_back(0);
    EXPECT_EQ(Estimate(exact), 1);
}

TEST(WordSpeedTest, StretchStartsSecondsIntoTheDataByMinuteOfPlay) {
    // 44.1 kHz 16-bit stereo, 60 s of data behind a 44-byte head.
    const uint32_t perSecond = 176400;
    const int64_t dataStart = 44;
    const uint32_t dataLength = 60 * perSecond;
    WordSpeedStretchRequest base;
    base.avgBytesPerSec = perSecond;
    base.blockAlign = 4;
    base.dataChunkLength = dataLength;
    base.formatLength = 16;
    base.fileLength = dataStart + dataLength;
    base.timeSpan = 10;

    struct Case {
        const char* name;
        uint32_t playTimeMs;
        int32_t timeSpan;
        uint32_t avgBytesPerSec;
        uint16_t blockAlign;
        uint32_t n;
        int64_t position;
        uint32_t size;
    };
    const Case cases[] = {
        {"start of play", 0, 10, perSecond, 4, 1, dataStart + perSecond, 10 * perSecond},
        {"third minute", 125000, 10, perSecond, 4, 3, dataStart + 3 * perSecond, 10 * perSecond},
        {"near the end: cut to what is left", 125000, 58, perSecond, 4, 3, dataStart + 3 * perSecond,
         57 * perSecond},
        {"no span", 0, 0, perSecond, 4, 1, dataStart + perSecond, 0},
        {"negative span", 0, -3, perSecond, 4, 1, dataStart + perSecond, 0},
        {"start rounded up to the block", 0, 1, 1001, 4, 1, dataStart + 1004, 1001},
        {"no block alignment", 0, 1, 1001, 0, 1, dataStart + 1001, 1001},
        {"past the end", 61 * 60000, 10, perSecond, 4, 62, dataStart + 62 * int64_t(perSecond), 0},
    };
    for (const Case& c : cases) {
        WordSpeedStretchRequest request = base;
        request.playTimeMs = c.playTimeMs;
        request.timeSpan = c.timeSpan;
        request.avgBytesPerSec = c.avgBytesPerSec;
        request.blockAlign = c.blockAlign;
        const WordSpeedStretch stretch = PlanWordSpeedStretch(request);
        EXPECT_EQ(stretch.n, c.n) << c.name;
        EXPECT_EQ(stretch.position, c.position) << c.name;
        EXPECT_EQ(stretch.position, request.fileLength + stretch.seekFromEnd) << c.name;
        EXPECT_EQ(stretch.size, c.size) << c.name;
        EXPECT_EQ(stretch.dataChunkLength, dataLength) << c.name;
    }
}

TEST(WordSpeedTest, StretchFillsAnOpenDataLengthFromTheFile) {
    WordSpeedStretchRequest request;
    request.avgBytesPerSec = 1000;
    request.blockAlign = 2;
    request.formatLength = 16;
    request.factExtra = 12;
    request.fileLength = 5048;
    request.timeSpan = 2;
    const WordSpeedStretch stretch = PlanWordSpeedStretch(request);
    EXPECT_EQ(stretch.dataChunkLength, 5048u - 16u - 12u - 20u);
    EXPECT_EQ(stretch.position, 5048 - int64_t(stretch.dataChunkLength) + 1000);
    EXPECT_EQ(stretch.size, 2000u);

    request.fileLength = 30;  // shorter than its own head
    const WordSpeedStretch shortFile = PlanWordSpeedStretch(request);
    EXPECT_EQ(shortFile.dataChunkLength, 0u);
    EXPECT_EQ(shortFile.size, 0u);
}

}  // namespace
