#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "platform/Caret.h"
#include "platform/Exceptions.h"
#include "platform/File.h"
#include "tests/view/ViewFixture.h"

namespace {

using namespace viewtest;

constexpr const char* kBadFile = "Failing while reading wav file!";

// 8 kHz 16-bit mono: 16000 bytes a second, so lengths in seconds are exact.
std::string SilentFile(const std::string& name, uint32_t samples)
{
    return testwav::WriteFile(name, WaveBytes(Mono(8000, 16), Constant(16, samples, 0)));
}

void ExpectEmptyPicture(const ViewFixture& fixture, const char* name)
{
    for (int y = 0; y < fixture.Height(); y += 7)
        for (int x = 0; x < fixture.Width(); x += 5)
            ASSERT_EQ(fixture.Pixel(x, y), y < 25 ? kWhite : kBlack) << name << " at " << x << "," << y;
}

TEST(ViewRuler, TicksStandAtTheirTimesAndEveryTickHasItsLabel)
{
    struct Case {
        const char* name;
        uint32_t samples;  // at 8000 a second
        int step;          // whole seconds between ticks
        int last;          // number of the last tick
    };
    const std::vector<Case> cases = {
        {"25 s", 200000, 2, 12},
        {"19.9 s", 159200, 1, 19},
        {"10 s", 80000, 1, 10},
        {"5.5 s", 44000, 1, 5},
    };
    constexpr int kWidth = 800;
    for (const Case& c : cases) {
        ViewFixture fixture(kWidth, 240);
        fixture.Attach(SilentFile("ruler.wav", c.samples));
        const double seconds = c.samples / 8000.0;
        std::set<int> ticks;
        for (int i = 0; i <= c.last; ++i) {
            const int x = static_cast<int>(kWidth * (i * c.step) / seconds + 1e-9);
            ticks.insert(i == c.last ? x - 1 : x);
        }
        for (int y = 12; y < 25; ++y)
            for (int x = 0; x < kWidth; ++x)
                ASSERT_EQ(fixture.Pixel(x, y), ticks.count(x) ? kBlack : kWhite) << c.name << " at " << x << "," << y;
        for (int i = 0; i <= c.last; ++i) {
            const int x = static_cast<int>(kWidth * (i * c.step) / seconds + 1e-9);
            const int left = i == 0 ? 0 : i == c.last ? x - 32 : x - 20;
            int ink = 0;
            for (int y = 0; y < 12; ++y)
                for (int column = std::max(left, 0); column < std::min(left + 30, kWidth); ++column)
                    ink += fixture.Pixel(column, y) == kBlack;
            EXPECT_GT(ink, 25) << c.name << ": label " << i;
        }
        // The last label ends about at its tick; further right is only paper.
        const int lastX = static_cast<int>(kWidth * (c.last * c.step) / seconds + 1e-9);
        for (int y = 0; y < 12; ++y)
            for (int x = lastX + 8; x < kWidth; ++x)
                ASSERT_EQ(fixture.Pixel(x, y), kWhite) << c.name << " at " << x << "," << y;
    }
}

TEST(ViewWave, SampleValuesLandOnTheirRowsAndTheCentreLineFollowsTheHeight)
{
    struct Case {
        const char* name;
        uint16_t bits;
        int value;
        int height;
        int row;  // of the client area
    };
    const std::vector<Case> cases = {
        {"16-bit zero, H 240", 16, 0, 240, 25 + 120},
        {"16-bit zero, H 201", 16, 0, 201, 25 + 100},
        {"8-bit 128 is zero", 8, 128, 200, 125},
        {"16-bit full scale", 16, 32767, 200, 25},
        {"8-bit 255", 8, 255, 200, 26},
        {"16-bit half down", 16, -16384, 200, 175},
    };
    for (const Case& c : cases) {
        ViewFixture fixture(400, c.height);
        // Ten seconds: the trace spans the whole width.
        const uint32_t rate = 8000;
        const std::string data = Constant(c.bits, rate * 10, c.value);
        fixture.Attach(testwav::WriteFile("wave.wav", WaveBytes(Mono(rate, c.bits), data)));
        for (int x = 2; x < 398; x += 3) {
            ASSERT_EQ(fixture.Pixel(x, c.row), kTrace) << c.name << " at x " << x;
            ASSERT_EQ(fixture.Pixel(x, c.row - 3 < 25 ? c.row + 3 : c.row - 3), kBlack) << c.name << " at x " << x;
        }
    }
}

TEST(ViewWave, ShortFileEndsItsTraceAtTenthsOfTheWidthAndEmptyFilesDrawSafely)
{
    struct Case {
        const char* name;
        std::string bytes;
        int traceEnd;  // first column right of the trace on the centre line
    };
    const std::vector<Case> cases = {
        {"5.5 s", WaveBytes(Mono(8000, 16), Constant(16, 44000, 0)), 400},
        {"0.5 s counts as 1", WaveBytes(Mono(8000, 16), Constant(16, 4000, 0)), 80},
        {"low rate, wide window", WaveBytes(Mono(10, 16), Constant(16, 30, 0)), 240},
        {"empty data chunk", WaveBytes(Mono(8000, 16), ""), 0},
    };
    for (const Case& c : cases) {
        ViewFixture fixture(800, 240);
        fixture.Attach(testwav::WriteFile("short.wav", c.bytes));
        EXPECT_EQ(fixture.BoxesSaying(kBadFile), 0) << c.name;
        for (int x = 0; x < 800; ++x) {
            // The last point of a polyline is not drawn, and the last
            // sample taken lies up to a step before the end.
            const bool onTrace = x < c.traceEnd - 8;
            const bool beyond = x >= c.traceEnd;
            if (onTrace) {
                ASSERT_EQ(fixture.Pixel(x, 145), kTrace) << c.name << " at x " << x;
            }
            if (beyond) {
                ASSERT_EQ(fixture.Pixel(x, 145), kBlack) << c.name << " at x " << x;
            }
            ASSERT_EQ(fixture.Pixel(x, 100), kBlack) << c.name << " at x " << x;
        }
    }
}

TEST(ViewFile, UnreadableFilesGetTheirFailureAndPaintTheEmptyView)
{
    const testwav::Format format = Mono(8000, 16);
    const std::string data = Constant(16, 8000, 1000);
    std::string listBetween = WaveBytes(format, data);
    listBetween.insert(36, std::string("LIST") + std::string("\4\0\0\0abcd", 8));
    std::string longData = WaveBytes(format, data);
    longData[40 + 2] = 0x7F;  // data length far past the file's end
    std::string walkPastEnd = WaveBytes(format, data, Layout{16, false, std::string("junk\xFF\xFF\0\0", 8)});
    std::string zeroRate = WaveBytes(Mono(0, 16), data);
    std::string truncatedFormat = std::string("RIFF\x10\0\0\0WAVEfmt \x10\0\0\0", 20) + "\1\0";
    struct Case {
        const char* name;
        std::string bytes;
        bool archiveException;
        int badFileBoxes;
    };
    const std::vector<Case> cases = {
        {"not RIFF", "RIFX" + data, true, 0},
        {"too short", "RIFF", true, 0},
        {"empty", "", true, 0},
        {"chunk between fmt and data", listBetween, false, 1},
        {"data length past the end", longData, false, 1},
        {"chunk walk past the end", walkPastEnd, false, 1},
        {"rate of zero", zeroRate, false, 1},
        {"format cut short", truncatedFormat, false, 1},
    };
    for (const Case& c : cases) {
        ViewFixture fixture(300, 100);
        const std::string path = testwav::WriteFile("bad.wav", c.bytes);
        bool threw = false;
        try {
            fixture.view.AttachFile(path);
        } catch (const CArchiveException&) {
            threw = true;
        }
        platform::PumpPendingMessages();
        EXPECT_EQ(threw, c.archiveException) << c.name;
        EXPECT_EQ(fixture.BoxesSaying(kBadFile), c.badFileBoxes) << c.name;
        ExpectEmptyPicture(fixture, c.name);
        fixture.view.ShowPlayCaret(1);
        fixture.view.MoveCaretToTime(5000);
        EXPECT_EQ(platform::CurrentCaret().rect.left, 0) << c.name;
    }
}

TEST(ViewFile, ReadableLayoutsDrawTheTraceAndAViewWithoutFileIsEmpty)
{
    const testwav::Format format = Mono(8000, 16);
    const std::string data = Constant(16, 80000, 0);
    struct Case {
        const char* name;
        Layout layout;
    };
    const std::vector<Case> cases = {
        {"fact chunk", Layout{16, true, ""}},
        {"format of 18 bytes", Layout{18, false, ""}},
        {"both", Layout{18, true, ""}},
        {"odd chunk ahead of fmt", Layout{16, false, std::string("bext\3\0\0\0xyz", 11)}},
    };
    for (const Case& c : cases) {
        ViewFixture fixture(300, 100);
        fixture.Attach(testwav::WriteFile("layout.wav", WaveBytes(format, data, c.layout)));
        EXPECT_TRUE(fixture.ui.boxes.empty()) << c.name;
        EXPECT_EQ(fixture.Pixel(150, 25 + 50), kTrace) << c.name;
    }
    ViewFixture unattached(300, 100);
    InvalidateRect(unattached.Window(), nullptr, TRUE);
    platform::PumpPendingMessages();
    ExpectEmptyPicture(unattached, "no file");
}

TEST(ViewFile, ThePrivateCopyIsReplacedAtEachAttachAndGoesWithTheView)
{
    const std::string first = testwav::WriteFile("first.wav", WaveBytes(Mono(8000, 16), Constant(16, 800, 0)));
    const std::string second = testwav::WriteFile("second.data.wav", WaveBytes(Mono(8000, 8), Constant(8, 800, 128)));
    const std::string firstCopy = first.substr(0, first.size() - 4) + "_copy.wav";
    const std::string secondCopy = second.substr(0, second.size() - 4) + "_copy.wav";
    {
        ViewFixture fixture(200, 80);
        fixture.Attach(first);
        EXPECT_TRUE(platform::FileExists(firstCopy));
        fixture.Attach(first);
        EXPECT_TRUE(platform::FileExists(firstCopy)) << "the same name again";
        fixture.Attach(second);
        EXPECT_FALSE(platform::FileExists(firstCopy));
        EXPECT_EQ(testwav::ReadFile(secondCopy), testwav::ReadFile(second));
        EXPECT_TRUE(fixture.ui.boxes.empty());
    }
    EXPECT_FALSE(platform::FileExists(secondCopy));

    ViewFixture missing(200, 80);
    EXPECT_THROW(missing.view.AttachFile(testwav::TempPath("absent.wav")), CFileException);
    ASSERT_EQ(missing.ui.boxes.size(), 1u);
    EXPECT_EQ(missing.ui.boxes[0].catalogueId, 217);
}

}  // namespace
