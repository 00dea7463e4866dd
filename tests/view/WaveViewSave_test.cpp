#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/Caret.h"
#include "platform/Clock.h"
#include "platform/File.h"
#include "platform/FileApi.h"
#include "messages/MessageCatalogue.h"
#include "tests/view/ViewFixture.h"

namespace {

using namespace viewtest;

constexpr const char* kReplaceQuestion = "该目录下存在重名文件,是否要替换原有文件?";

// N = 10000 samples whose values tell their index.
std::string CountingData(uint16_t bits)
{
    if (bits == 8) {
        std::string data;
        for (int i = 0; i < 10000; ++i)
            data += static_cast<char>(i & 0xFF);
        return data;
    }
    std::vector<int16_t> samples;
    for (int i = 0; i < 10000; ++i)
        samples.push_back(static_cast<int16_t>(i));
    return testwav::Samples16(samples);
}

// The source's head up to and with the data tag, lengths rewritten for
// `sampleBytes`, then those bytes.
std::string ExpectedFile(const std::string& source, size_t firstByte, size_t sampleBytes)
{
    const size_t head = source.find("data", 12) + 8;
    std::string expected = source.substr(0, head);
    auto put = [&expected](size_t at, uint32_t value) {
        for (int i = 0; i < 4; ++i)
            expected[at + i] = static_cast<char>(value >> (8 * i));
    };
    put(4, static_cast<uint32_t>(sampleBytes + head - 8));
    put(head - 4, static_cast<uint32_t>(sampleBytes));
    return expected + source.substr(head + firstByte, sampleBytes);
}

// Right click inside the selection, pick the menu's entry, and let the
// command arrive.
void SaveThroughMenu(ViewFixture& fixture, int x)
{
    fixture.ui.menuChoices.push_back(ID_WAVE_SAVE);
    fixture.Mouse(WM_RBUTTONDOWN, x, MK_RBUTTON);
    platform::PumpPendingMessages();
}

struct CurrentDirectoryGuard {
    std::string saved = platform::CurrentDirectory();
    ~CurrentDirectoryGuard() { SetCurrentDirectoryA(saved.c_str()); }
};

TEST(ViewSave, TheSelectedSamplesGoOutBehindTheSourcesHeadWithBothLengthsRewritten)
{
    CurrentDirectoryGuard directory;
    struct Case {
        const char* name;
        uint16_t bits;
        Layout layout;
        int from, to;
        size_t firstSample, sampleCount;
    };
    const std::vector<Case> cases = {
        {"16-bit", 16, {}, 128, 256, 2499, 2501},
        {"8-bit", 8, {}, 128, 256, 2499, 2501},
        {"fact chunk keeps its value", 16, Layout{16, true, ""}, 128, 256, 2499, 2501},
        {"18-byte format", 8, Layout{18, false, ""}, 128, 256, 2499, 2501},
        {"from pixel 0", 16, {}, 0, 100, 0, 1953},
        {"up to the right edge", 16, {}, 300, 700, 5858, 4142},
        {"whole width", 8, {}, 0, 600, 0, 10000},
    };
    for (const Case& c : cases) {
        ViewFixture fixture(512, 200);
        const std::string source = WaveBytes(Mono(8000, c.bits), CountingData(c.bits), c.layout);
        fixture.Attach(testwav::WriteFile("source.wav", source));
        fixture.Drag(c.from, c.to);
        ASSERT_TRUE(fixture.view.IsSelected()) << c.name;
        const std::string target = testwav::TempPath("saved.wav");
        platform::DeleteFile(target);
        fixture.ui.dialogAnswers.push_back({true, target});
        SaveThroughMenu(fixture, (fixture.SelectionPixels().first + fixture.SelectionPixels().second) / 2);

        const size_t bytesPerSample = c.bits == 16 ? 2 : 1;
        const std::string saved = testwav::ReadFile(target);
        EXPECT_EQ(saved, ExpectedFile(source, c.firstSample * bytesPerSample, c.sampleCount * bytesPerSample))
            << c.name;
        EXPECT_TRUE(fixture.ui.boxes.empty()) << c.name;
        EXPECT_TRUE(fixture.view.IsSelected()) << c.name << ": the selection stays for another save";
        ASSERT_EQ(fixture.ui.dialogs.size(), 1u);
        EXPECT_EQ(fixture.ui.dialogs[0].initialFolder, platform::HomeFolder());
        EXPECT_EQ(fixture.ui.dialogs[0].fileName, "AudioFile.wav");
        EXPECT_EQ(fixture.ui.dialogs[0].defaultExtension, "wav");
        EXPECT_FALSE(fixture.ui.dialogs[0].openDialog);
    }
}

TEST(ViewSave, TheMenuComesOnlyStrictlyInsideTheSelectionWithTheLabelOfTheLanguage)
{
    ViewFixture fixture(512, 200);
    fixture.Attach(testwav::WriteFile("source.wav", WaveBytes(Mono(8000, 16), CountingData(16))));
    fixture.Drag(128, 256);
    for (int x : {128, 256, 50, 400})
        fixture.Mouse(WM_RBUTTONDOWN, x, MK_RBUTTON);
    EXPECT_TRUE(fixture.ui.menus.empty());

    struct Case {
        int16_t language;
        std::string label;
    };
    for (const Case& c : std::vector<Case>{{1, "保存"}, {2, "Save"}, {0, "保存"}, {3, "Save"}}) {
        g_languageType = c.language;
        fixture.Mouse(WM_RBUTTONDOWN, 129, MK_RBUTTON);
        ASSERT_FALSE(fixture.ui.menus.empty());
        const platform::PopupMenuRequest menu = fixture.ui.menus.back();
        ASSERT_EQ(menu.items.size(), 1u);
        EXPECT_EQ(menu.items[0].text, c.label) << c.language;
        EXPECT_EQ(menu.items[0].id, ID_WAVE_SAVE);
        EXPECT_EQ(menu.flags, TPM_RIGHTBUTTON);
        EXPECT_EQ(menu.owner, fixture.Window());
    }
    g_languageType = 1;
    platform::PumpPendingMessages();
    EXPECT_TRUE(fixture.ui.dialogs.empty()) << "no entry was chosen";
}

TEST(ViewSave, CancellingTheReplaceQuestionBringsTheDialogueBackAndWritesNothing)
{
    CurrentDirectoryGuard directory;
    ViewFixture fixture(512, 200);
    fixture.Attach(testwav::WriteFile("source.wav", WaveBytes(Mono(8000, 16), CountingData(16))));
    fixture.Drag(128, 256);
    const std::string existing = testwav::WriteFile("existing.wav", "keep me");
    fixture.ui.dialogAnswers = {{true, existing}, {true, existing}, {false, ""}};
    fixture.ui.boxAnswers = {IDCANCEL, IDCANCEL};
    SaveThroughMenu(fixture, 200);

    EXPECT_EQ(fixture.ui.dialogs.size(), 3u);
    for (const platform::FileDialogRequest& dialog : fixture.ui.dialogs)
        EXPECT_EQ(dialog.fileName, "AudioFile.wav");
    ASSERT_EQ(fixture.ui.boxes.size(), 2u);
    EXPECT_EQ(fixture.ui.boxes[0].text, kReplaceQuestion);
    EXPECT_EQ(fixture.ui.boxes[0].caption, "System");
    EXPECT_EQ(fixture.ui.boxes[0].type, 0x21u);
    EXPECT_EQ(testwav::ReadFile(existing), "keep me");

    // Answering OK replaces it.
    fixture.ui.dialogAnswers = {{true, existing}};
    fixture.ui.boxAnswers = {IDOK};
    SaveThroughMenu(fixture, 200);
    EXPECT_EQ(testwav::ReadFile(existing).size(), 44u + 5002u);
}

TEST(ViewSave, AnAttachWhileTheDialogueIsUpDropsTheSaveWithTheLostSelectionBox)
{
    CurrentDirectoryGuard directory;
    ViewFixture fixture(512, 200);
    fixture.Attach(testwav::WriteFile("source.wav", WaveBytes(Mono(8000, 16), CountingData(16))));
    const std::string other = testwav::WriteFile("other.wav", WaveBytes(Mono(8000, 8), CountingData(8)));
    fixture.Drag(128, 256);
    const std::string target = testwav::TempPath("never.wav");
    platform::DeleteFile(target);
    fixture.ui.dialogAnswers = {{true, target}};
    fixture.ui.beforeAnswer = [&] {
        if (!fixture.ui.dialogs.empty() && fixture.ui.boxes.empty())
            fixture.view.AttachFile(other);
    };
    SaveThroughMenu(fixture, 200);
    fixture.ui.beforeAnswer = nullptr;
    EXPECT_FALSE(platform::FileExists(target));
    ASSERT_EQ(fixture.ui.boxes.size(), 1u);
    EXPECT_EQ(fixture.ui.boxes[0].catalogueId, 218);
}

// Counts the pictures the view shows: each paint ends in one.
struct PaintCounter : platform::IWindowObserver {
    HWND window = nullptr;
    int changes = 0;
    void SurfaceChanged(HWND changed) override { changes += changed == window; }
};

TEST(ViewSave, TheViewRepaintsEveryHalfSecondBehindTheDialogueAndTheCaretComesBack)
{
    CurrentDirectoryGuard directory;
    platform::ManualClock clock(1000);
    platform::SetClock(&clock);
    {
        ViewFixture fixture(512, 200);
        fixture.Attach(testwav::WriteFile("source.wav", WaveBytes(Mono(8000, 16), CountingData(16))));
        fixture.Drag(128, 256);
        fixture.view.ShowPlayCaret(TRUE);
        fixture.view.MoveCaretToTime(800);  // of 1250 ms: x 327
        ASSERT_EQ(platform::CurrentCaret().rect.left, 327);

        PaintCounter counter;
        counter.window = fixture.Window();
        platform::SetWindowObserver(&counter);
        int changesBehindDialogue = -1;
        bool caretDuringDialogue = true;
        fixture.ui.dialogAnswers = {{false, ""}};
        fixture.ui.beforeAnswer = [&] {
            caretDuringDialogue = platform::CurrentCaret().owner != nullptr;
            platform::PumpPendingMessages();
            const int before = counter.changes;
            platform::AdvanceClockAndPump(1600);
            changesBehindDialogue = counter.changes - before;
        };
        SaveThroughMenu(fixture, 200);
        fixture.ui.beforeAnswer = nullptr;
        EXPECT_FALSE(caretDuringDialogue);
        EXPECT_GE(changesBehindDialogue, 3) << "three ticks of 500 ms";

        platform::PumpPendingMessages();
        const int settled = counter.changes;
        platform::AdvanceClockAndPump(3000);
        EXPECT_EQ(counter.changes, settled) << "the timer ends with the save";
        platform::SetWindowObserver(nullptr);

        const platform::CaretState caret = platform::CurrentCaret();
        EXPECT_EQ(caret.owner, fixture.Window());
        EXPECT_EQ(caret.rect.left, 327);
        EXPECT_TRUE(caret.visible);
        fixture.view.ShowPlayCaret(FALSE);
    }
    platform::SetClock(nullptr);
}

TEST(ViewSave, ALostSelectionIsReportedAndAFileThatCannotBeMadeLeavesAsAFileFailure)
{
    CurrentDirectoryGuard directory;
    ViewFixture fixture(512, 200);
    fixture.Attach(testwav::WriteFile("source.wav", WaveBytes(Mono(8000, 16), CountingData(16))));
    fixture.Drag(128, 256);
    fixture.ui.dialogAnswers = {{true, "/nonexistent-folder/out.wav"}};
    SaveThroughMenu(fixture, 200);
    ASSERT_EQ(fixture.ui.boxes.size(), 1u) << "the framework shows the file failure";
    EXPECT_EQ(fixture.ui.boxes[0].catalogueId, -1);
    EXPECT_NE(fixture.ui.boxes[0].text.find("/nonexistent-folder/out.wav"), std::string::npos);

    // A click drops the selection flag while the command is on its way.
    fixture.ui.menuChoices.push_back(ID_WAVE_SAVE);
    fixture.Mouse(WM_RBUTTONDOWN, 200, MK_RBUTTON);
    fixture.Mouse(WM_LBUTTONDOWN, 10);
    fixture.Mouse(WM_LBUTTONUP, 10, 0);
    platform::PumpPendingMessages();
    EXPECT_EQ(fixture.ui.boxes.size(), 1u) << "the command finds no selection and does nothing";
    EXPECT_EQ(fixture.ui.dialogs.size(), 1u);
}

}  // namespace
