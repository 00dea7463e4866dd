// The view in the refined drawing, in a window on this thread: times of
// stereo files, the caret, the tint over the trace, sentence marks, frame-
// whole saves, and the host's folder after a save in both drawings.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/Caret.h"
#include "platform/File.h"
#include "platform/FileApi.h"
#include "tests/view/ViewFixture.h"

namespace {

using namespace viewtest;

testwav::Format Format(uint16_t channels, uint32_t rate, uint16_t bits)
{
    testwav::Format format;
    format.channels = channels;
    format.samplesPerSec = rate;
    format.bitsPerSample = bits;
    return format;
}

// Frames whose samples tell their frame and channel: frame i holds
// i * 2 + channel (16-bit), so any byte range shows where it came from.
std::string CountingFrames(uint16_t channels, uint32_t frames)
{
    std::vector<int16_t> samples;
    for (uint32_t i = 0; i < frames; ++i)
        for (uint16_t channel = 0; channel < channels; ++channel)
            samples.push_back(static_cast<int16_t>((i * 2 + channel) & 0x7FFF));
    return testwav::Samples16(samples);
}

struct RefinedFixture : ViewFixture {
    RefinedFixture(int width, int height) : ViewFixture(width, height) { view.SetRefined(true); }
};

void SaveThroughMenu(ViewFixture& fixture, int x, const std::string& target)
{
    fixture.ui.dialogAnswers.push_back({true, target});
    fixture.ui.menuChoices.push_back(ID_WAVE_SAVE);
    fixture.Mouse(WM_RBUTTONDOWN, x, MK_RBUTTON);
    platform::PumpPendingMessages();
}

TEST(RefinedView, SelectionTimesAndTheCaretFollowTheFilesTimeForAnyChannelCount)
{
    struct Case {
        const char* name;
        uint16_t channels;
        int from, to;
        int32_t startMs, endMs;  // from / 500 and to / 500 of 10 s
        uint32_t caretMs;
        int caretX;              // caretMs / 10 s of 500 columns
    };
    const std::vector<Case> cases = {
        {"mono", 1, 100, 200, 2000, 4000, 5000, 250},
        {"stereo counts frames, not samples", 2, 100, 200, 2000, 4000, 5000, 250},
        {"to the right edge", 2, 400, 600, 8000, 10000, 9990, 498},
        {"past the end the caret stays inside", 1, 0, 50, 0, 1000, 20000, 498},
    };
    for (const Case& c : cases) {
        RefinedFixture fixture(500, 200);
        fixture.Attach(testwav::WriteFile("refined.wav", WaveBytes(Format(c.channels, 8000, 16),
                                                                   CountingFrames(c.channels, 80000))));
        fixture.Drag(c.from, c.to);
        ASSERT_TRUE(fixture.view.IsSelected()) << c.name;
        int32_t startMs = -1;
        int32_t endMs = -1;
        fixture.view.GetSelectionTimes(startMs, endMs);
        EXPECT_EQ(startMs, c.startMs) << c.name;
        EXPECT_EQ(endMs, c.endMs) << c.name;

        fixture.view.ShowPlayCaret(TRUE);
        fixture.view.MoveCaretToTime(c.caretMs);
        const platform::CaretState caret = platform::CurrentCaret();
        EXPECT_EQ(caret.rect.left, c.caretX) << c.name;
        EXPECT_EQ(caret.rect.top, 25) << c.name << ": the caret spans the wave band";
        EXPECT_EQ(caret.rect.bottom, 200) << c.name;
        EXPECT_GE(caret.rect.right - caret.rect.left, 2) << c.name << ": wide enough to see over the tint";
        fixture.view.ShowPlayCaret(FALSE);
    }
}

TEST(RefinedView, TheTintCoversTheSelectedColumnsAndLeavesTheTraceInSight)
{
    RefinedFixture fixture(400, 125);
    // A full-scale square wave: the trace fills every column of the lane.
    std::vector<int16_t> samples;
    for (int i = 0; i < 8000 * 4; ++i)
        samples.push_back(i % 2 ? 32767 : -32768);
    fixture.Attach(testwav::WriteFile("square.wav", WaveBytes(Mono(8000, 16), testwav::Samples16(samples))));
    const int centre = 25 + 100 / 2;
    const uint32_t plainBand = fixture.Pixel(10, 25);
    const uint32_t plainTrace = fixture.Pixel(10, centre);
    ASSERT_NE(plainBand, plainTrace);

    fixture.Drag(100, 200);
    // The band's top row is beyond the lane's reach; its centre row is trace.
    for (int x = 90; x < 210; ++x) {
        const bool inside = x >= 100 && x < 200;
        ASSERT_EQ(fixture.Pixel(x, 25) != plainBand, inside) << "band at " << x;
        ASSERT_EQ(fixture.Pixel(x, centre) != plainTrace, inside) << "trace at " << x;
        if (inside) {
            ASSERT_NE(fixture.Pixel(x, centre), fixture.Pixel(x, 25)) << "trace and tint differ at " << x;
        }
    }
}

TEST(RefinedView, SentenceMarksStandInTheRulerAtTheirTimes)
{
    RefinedFixture fixture(500, 120);
    fixture.Attach(testwav::WriteFile("marks.wav", WaveBytes(Mono(8000, 16), Constant(16, 40000, 0))));
    const uint32_t paper = fixture.Pixel(250, 22);
    fixture.view.SetSentenceMarks({3000, 1000});
    platform::PumpPendingMessages();
    // 5 s over 500 columns: 1 s at column 100, 3 s at 300. The mark's point
    // is the ruler's lowest row; nothing else there but the second ticks.
    std::vector<int> marked;
    for (int x = 0; x < 500; ++x) {
        const uint32_t pixel = fixture.Pixel(x, 24);
        if (pixel != paper && pixel != kBlack)
            marked.push_back(x);
    }
    EXPECT_EQ(marked, (std::vector<int>{100, 300}));
    fixture.view.SetSentenceMarks({});
    platform::PumpPendingMessages();
    EXPECT_EQ(fixture.Pixel(300, 24), kBlack) << "the second's tick again";
}

TEST(RefinedView, SavesTakeWholeFramesFromTheFirstFrameOfTheStartColumn)
{
    struct Case {
        const char* name;
        uint16_t channels;
        uint16_t bits;
        uint32_t frames;
        int width, from, to;
        uint32_t firstFrame, frameCount;
    };
    const std::vector<Case> cases = {
        // 80000 frames over 500 columns: 160 a column.
        {"stereo starts on the left channel", 2, 16, 80000, 500, 100, 200, 16000, 16000},
        {"mono", 1, 16, 80000, 500, 0, 499, 0, 79840},
        // 999 frames over 999 columns: three 8-bit frames, an odd chunk.
        {"odd length gets its pad byte", 1, 8, 999, 999, 10, 13, 10, 3},
    };
    for (const Case& c : cases) {
        RefinedFixture fixture(c.width, 150);
        std::string data;
        if (c.bits == 16) {
            data = CountingFrames(c.channels, c.frames);
        } else {
            for (uint32_t i = 0; i < c.frames; ++i)
                data += static_cast<char>(i & 0xFF);
        }
        const std::string source = WaveBytes(Format(c.channels, 8000, c.bits), data);
        fixture.Attach(testwav::WriteFile("source.wav", source));
        fixture.Drag(c.from, c.to);
        const std::string target = testwav::TempPath("refined-saved.wav");
        platform::DeleteFile(target);
        const std::string folder = platform::CurrentDirectory();
        SaveThroughMenu(fixture, (c.from + c.to) / 2, target);
        EXPECT_EQ(platform::CurrentDirectory(), folder) << c.name << ": the host's folder comes back";

        const uint32_t block = c.channels * c.bits / 8;
        const uint32_t bytes = c.frameCount * block;
        const uint32_t pad = bytes % 2;
        std::string expected = source.substr(0, 44);
        for (int i = 0; i < 4; ++i) {
            expected[4 + i] = static_cast<char>((36 + bytes + pad) >> (8 * i));
            expected[40 + i] = static_cast<char>(bytes >> (8 * i));
        }
        expected += data.substr(static_cast<size_t>(c.firstFrame) * block, bytes) + std::string(pad, '\0');
        EXPECT_EQ(testwav::ReadFile(target), expected) << c.name;
        EXPECT_TRUE(fixture.ui.boxes.empty()) << c.name;
    }
}

TEST(RefinedView, ReadsChunksAsTheFormatLaysThemOutAndRefusesWhatItCannotDraw)
{
    constexpr const char* kBadFile = "Failing while reading wav file!";
    const std::string loud = Constant(16, 16000, 20000);
    testwav::Format adpcm = Mono(8000, 16);
    adpcm.formatTag = 2;
    struct Case {
        const char* name;
        std::string bytes;
        bool drawn;
    };
    const std::vector<Case> cases = {
        // An odd chunk ahead of "fmt " is padded to an even length.
        {"odd LIST chunk before the format", WaveBytes(Mono(8000, 16), loud, Layout{16, false, std::string("LIST\3\0\0\0abc\0", 12)}), true},
        {"18-byte format", WaveBytes(Mono(8000, 16), loud, Layout{18, false, ""}), true},
        {"compressed samples", WaveBytes(adpcm, loud), false},
    };
    for (const Case& c : cases) {
        RefinedFixture fixture(300, 125);
        fixture.Attach(testwav::WriteFile("chunks.wav", c.bytes));
        EXPECT_EQ(fixture.BoxesSaying(kBadFile), c.drawn ? 0 : 1) << c.name;
        // A constant 20000 of 32768 is a flat trace 0.61 of the way from the
        // band's centre (row 75) to its top (row 25): about row 45.
        bool traced = false;
        for (int y = 40; y <= 50; ++y)
            traced = traced || fixture.Pixel(150, y) != kBlack;
        EXPECT_EQ(traced, c.drawn) << c.name;
    }
}

TEST(ViewSave, TheHostsFolderComesBackAfterTheDialogueInBothDrawings)
{
    for (bool refined : {false, true}) {
        ViewFixture fixture(512, 200);
        fixture.view.SetRefined(refined);
        fixture.Attach(testwav::WriteFile("source.wav", WaveBytes(Mono(8000, 16), Constant(16, 10000, 0))));
        fixture.Drag(128, 256);
        const std::string folder = platform::CurrentDirectory();
        ASSERT_NE(folder, platform::HomeFolder()) << "the test must start outside the home folder";
        for (bool accepted : {false, true}) {
            const std::string target = testwav::TempPath("folder-kept.wav");
            platform::DeleteFile(target);
            fixture.ui.dialogAnswers.push_back({accepted, target});
            fixture.ui.menuChoices.push_back(ID_WAVE_SAVE);
            fixture.Mouse(WM_RBUTTONDOWN, 200, MK_RBUTTON);
            platform::PumpPendingMessages();
            EXPECT_EQ(platform::CurrentDirectory(), folder) << refined << accepted;
        }
        // The dialogue itself still opened in the home folder.
        ASSERT_EQ(fixture.ui.dialogs.size(), 2u);
        EXPECT_EQ(fixture.ui.dialogs[0].initialFolder, platform::HomeFolder());
    }
}

}  // namespace
