// The refined view's arithmetic: the time axis, the per-column extremes and
// the ruler's layout. Expected values are worked by hand from the files'
// timing, or are properties every layout must have.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "view/PeakColumns.h"
#include "view/RulerScale.h"
#include "view/TimeAxis.h"

namespace {

using view::PeakColumns;
using view::SampleLayout;
using view::TimeAxis;

TEST(RefinedTimeAxis, TimesFramesAndColumnsAgree)
{
    struct Case {
        const char* name;
        TimeAxis axis;
        uint64_t ms;
        int columnOfMs;
        int column;
        uint64_t firstFrame;  // of `column`
        uint64_t msOfColumn;
    };
    const std::vector<Case> cases = {
        // 5 s at 22050 over 640 columns: 128 columns a second, 172.27 frames a column.
        {"5 s, 640", {110250, 22050, 640}, 1000, 128, 1, 173, 7},
        {"5 s, 640, second 4", {110250, 22050, 640}, 4000, 512, 512, 88200, 4000},
        {"5 s, 640, the end", {110250, 22050, 640}, 5000, 640, 640, 110250, 5000},
        {"5 s, 200", {110250, 22050, 200}, 3000, 120, 120, 66150, 3000},
        // 3 frames over 10 columns: column c begins at frame ceil(3c / 10).
        {"fewer frames than columns", {3, 1000, 10}, 1, 3, 4, 2, 2},
        // A 4 GiB chunk of 8-bit mono at 8 kHz over the widest view.
        {"longest", {0xFFFFFFFFull, 8000, 8192}, 536870000ull, 8191, 8191, 4294443008ull, 536805376ull},
        {"empty", {0, 22050, 640}, 1000, 0, 5, 0, 0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.axis.ColumnOfMs(c.ms), c.columnOfMs) << c.name;
        EXPECT_EQ(c.axis.FirstFrameOfColumn(c.column), c.firstFrame) << c.name;
        EXPECT_EQ(c.axis.MsOfColumn(c.column), c.msOfColumn) << c.name;
    }
}

TEST(RefinedTimeAxis, EveryFrameLiesInTheColumnWhoseRangeHoldsIt)
{
    for (const TimeAxis& axis : {TimeAxis{1000, 8000, 7}, TimeAxis{7, 8000, 1000}, TimeAxis{110250, 22050, 640}}) {
        for (int column = 0; column < axis.width; ++column) {
            const uint64_t first = axis.FirstFrameOfColumn(column);
            const uint64_t end = axis.FirstFrameOfColumn(column + 1);
            ASSERT_LE(first, end);
            for (uint64_t frame = first; frame < end; ++frame)
                ASSERT_EQ(axis.ColumnOfFrame(frame), column) << axis.frames << " frames, " << axis.width;
        }
        EXPECT_EQ(axis.FirstFrameOfColumn(axis.width), axis.frames);
    }
}

// ------------------------------------------------------------ peaks

std::vector<uint8_t> Bytes16(const std::vector<int>& values)
{
    std::vector<uint8_t> bytes;
    for (int value : values) {
        bytes.push_back(static_cast<uint8_t>(value & 0xFF));
        bytes.push_back(static_cast<uint8_t>((value >> 8) & 0xFF));
    }
    return bytes;
}

TEST(RefinedPeaks, EachColumnHoldsTheExtremesOfItsFrames)
{
    struct Case {
        const char* name;
        SampleLayout layout;
        std::vector<uint8_t> bytes;
        int width;
        std::vector<float> low;   // per column and channel
        std::vector<float> high;
    };
    const std::vector<Case> cases = {
        {"16-bit, two frames a column",
         {1, 16, 2, false},
         Bytes16({0, 32767, -32768, 0, 100, -100, 0, 0, 16384, 0}),
         5,
         {0.0f, -1.0f, -100 / 32768.0f, 0.0f, 0.0f},
         {32767 / 32768.0f, 0.0f, 100 / 32768.0f, 0.0f, 0.5f}},
        {"8-bit is offset by 128", {1, 8, 1, false}, {128, 255, 0, 64}, 2, {0.0f, -1.0f}, {127 / 128.0f, -0.5f}},
        {"stereo keeps its channels apart",
         {2, 16, 4, false},
         Bytes16({0, 16384, 0, -16384, 0, 8192, 0, -8192}),
         2,
         {0.0f, -0.5f, 0.0f, -0.25f},
         {0.0f, 0.5f, 0.0f, 0.25f}},
        {"24-bit", {1, 24, 3, false}, {0x00, 0x00, 0x80, 0xFF, 0xFF, 0x7F}, 1, {-1.0f}, {8388607 / 8388608.0f}},
        {"a column with no frame of its own shows the frame sounding then",
         {1, 8, 1, false},
         {128, 192, 64},
         10,
         // Column c spans frame times [0.3c, 0.3c + 0.3): frame 1 begins in
         // column 3, frame 2 in column 6.
         {0, 0, 0, 0.5f, 0.5f, 0.5f, -0.5f, -0.5f, -0.5f, -0.5f},
         {0, 0, 0, 0.5f, 0.5f, 0.5f, -0.5f, -0.5f, -0.5f, -0.5f}},
        {"an unread depth is silence", {1, 12, 2, false}, {0xFF, 0x7F}, 2, {0, 0}, {0, 0}},
    };
    for (const Case& c : cases) {
        const TimeAxis axis{c.bytes.size() / c.layout.blockAlign, 8000, c.width};
        const PeakColumns columns = view::ReadPeakColumns(c.bytes.data(), c.layout, axis);
        ASSERT_EQ(columns.width, c.width) << c.name;
        EXPECT_EQ(columns.low, c.low) << c.name;
        EXPECT_EQ(columns.high, c.high) << c.name;
    }
}

TEST(RefinedPeaks, FloatSamplesAreHeldToFullScaleAndNaNIsSilence)
{
    const float values[] = {0.25f, -2.0f, std::numeric_limits<float>::quiet_NaN(), 3.0f};
    std::vector<uint8_t> bytes(sizeof values);
    std::memcpy(bytes.data(), values, sizeof values);
    const PeakColumns columns = view::ReadPeakColumns(bytes.data(), {1, 32, 4, true}, TimeAxis{4, 8000, 4});
    EXPECT_EQ(columns.low, (std::vector<float>{0.25f, -1.0f, 0.0f, 1.0f}));
}

TEST(RefinedPeaks, OneSampleClickAmongAMillionStillReachesFullScale)
{
    // Taking every n-th sample, as a thinned trace does, would miss it.
    std::vector<int> samples(1000000, 0);
    samples[654321] = -32768;
    const std::vector<uint8_t> bytes = Bytes16(samples);
    const TimeAxis axis{samples.size(), 22050, 300};
    const PeakColumns columns = view::ReadPeakColumns(bytes.data(), {1, 16, 2, false}, axis);
    const int column = 654321 * 300 / 1000000;
    EXPECT_EQ(columns.Low(column, 0), -1.0f);
    for (int x = 0; x < 300; ++x) {
        if (x != column) {
            ASSERT_EQ(columns.Low(x, 0), 0.0f) << x;
        }
    }
}

// ------------------------------------------------------------ ruler

// A monospaced measure: 6 pixels a character, as the classic label font.
int SixPerCharacter(const std::string& text)
{
    return static_cast<int>(text.size()) * 6;
}

TEST(RefinedRuler, LabelTextsCountMinutesWithoutLimit)
{
    const std::vector<std::pair<uint64_t, std::string>> cases = {
        {0, "00:00"}, {5, "00:05"}, {65, "01:05"}, {3725, "62:05"}, {7500, "125:00"}};
    for (const auto& [seconds, text] : cases)
        EXPECT_EQ(view::RulerLabelText(seconds), text) << seconds;
}

TEST(RefinedRuler, TheStepGrowsUntilLabelsFit)
{
    struct Case {
        const char* name;
        TimeAxis axis;
        uint64_t step;
        std::vector<int> majorTicks;  // empty: not checked
        std::vector<std::string> labels;
        size_t minorTicks;
    };
    const std::vector<Case> cases = {
        // 128 columns a second: every second; the end tick moves into the view.
        {"5 s at 640", {110250, 22050, 640}, 1, {0, 128, 256, 384, 512, 639},
         {"00:00", "00:01", "00:02", "00:03", "00:04", "00:05"}, 0},
        // 40 columns a second still hold a 30-pixel label and its gap; the
        // label of the end would cover the one before and is left out.
        {"5 s at 200", {110250, 22050, 200}, 1, {0, 40, 80, 120, 160, 199},
         {"00:00", "00:01", "00:02", "00:03", "00:04"}, 0},
        // 10.7 columns a second: 5 s steps, minor ticks each other second.
        {"60 s at 640", {60 * 8000, 8000, 640}, 5, {}, {}, 48},
        // 0.215 columns a second: 172 s would be needed, so 5 minutes.
        {"62 min at 800", {3725 * 1000, 1000, 800}, 300, {}, {}, 0},
        // Six columns a second: 10 s, longer than the file, is the first
        // step with room, so the start's tick stands alone; its label and
        // margins would need 34 columns.
        {"5 s at 30", {110250, 22050, 30}, 10, {0}, {}, 0},
    };
    for (const Case& c : cases) {
        const view::RulerLayout ruler = view::LayOutRuler(c.axis, SixPerCharacter);
        EXPECT_EQ(ruler.stepSeconds, c.step) << c.name;
        if (!c.majorTicks.empty()) {
            EXPECT_EQ(ruler.majorTicks, c.majorTicks) << c.name;
        }
        if (!c.labels.empty() || c.axis.width < 100) {
            std::vector<std::string> texts;
            for (const view::RulerLabel& label : ruler.labels)
                texts.push_back(label.text);
            EXPECT_EQ(texts, c.labels) << c.name;
        }
        if (c.minorTicks != 0) {
            EXPECT_EQ(ruler.minorTicks.size(), c.minorTicks) << c.name;
        }
    }
}

TEST(RefinedRuler, LabelsNeverOverlapAndStayInsideAtAnyWidth)
{
    const std::vector<TimeAxis> files = {{110250, 22050, 0}, {60 * 22050, 22050, 0}, {3725 * 1000, 1000, 0},
                                         {7 * 3600 * 100 + 77, 100, 0}};
    for (TimeAxis axis : files) {
        for (int width = 100; width <= 2000; ++width) {
            axis.width = width;
            const view::RulerLayout ruler = view::LayOutRuler(axis, SixPerCharacter);
            ASSERT_FALSE(ruler.labels.empty()) << axis.frames << " at " << width;
            int firstFree = 0;
            for (const view::RulerLabel& label : ruler.labels) {
                ASSERT_GE(label.left, firstFree) << axis.frames << " at " << width << ": " << label.text;
                ASSERT_LE(label.left + label.width, width) << axis.frames << " at " << width << ": " << label.text;
                ASSERT_EQ(label.width, SixPerCharacter(label.text));
                firstFree = label.left + label.width + 1;
            }
            for (int x : ruler.majorTicks)
                ASSERT_TRUE(x >= 0 && x < width) << x;
        }
    }
}

}  // namespace
