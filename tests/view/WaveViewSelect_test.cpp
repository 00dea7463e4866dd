#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/Caret.h"
#include "tests/view/ViewFixture.h"

namespace {

using namespace viewtest;

// Ten seconds of silence at 8 kHz 16-bit: T is 10000 ms and the centre
// line is the only trace, on row 25 + H / 2.
std::string TenSeconds()
{
    return testwav::WriteFile("ten.wav", WaveBytes(Mono(8000, 16), Constant(16, 80000, 0)));
}

TEST(ViewSelection, DragsLeaveSelectionsOfMoreThanTwoPixelsHeldInsideTheView)
{
    struct Case {
        const char* name;
        int from, to;
        WPARAM moveFlags;
        std::pair<int32_t, int32_t> pixels;
        bool selected;
        int serialStep;
    };
    const std::vector<Case> cases = {
        {"two pixels", 100, 102, MK_LBUTTON, {-1, -1}, false, 1},
        {"three pixels", 100, 103, MK_LBUTTON, {100, 103}, true, 1},
        {"three pixels leftwards", 103, 100, MK_LBUTTON, {100, 103}, true, 1},
        {"ends left of the view", 100, -40, MK_LBUTTON, {0, 100}, true, 1},
        {"ends right of the view", 100, 950, MK_LBUTTON, {100, 800}, true, 1},
        {"shift held: no band", 100, 300, MK_LBUTTON | MK_SHIFT, {-1, -1}, false, 0},
    };
    for (const Case& c : cases) {
        ViewFixture fixture(800, 200);
        fixture.Attach(TenSeconds());
        const int32_t serialBefore = fixture.view.GetSelectionSerial();
        fixture.Drag(c.from, c.to, c.moveFlags);
        EXPECT_EQ(fixture.view.IsSelected(), c.selected ? TRUE : FALSE) << c.name;
        if (c.selected) {
            EXPECT_EQ(fixture.SelectionPixels(), c.pixels) << c.name;
        }
        EXPECT_EQ(fixture.view.GetSelectionSerial() - serialBefore, c.serialStep) << c.name;
        EXPECT_EQ(GetCapture(), nullptr) << c.name;
    }
}

TEST(ViewSelection, ClicksDropTheSelectionOnlyWhileSelectingIsAllowed)
{
    ViewFixture fixture(800, 200);
    fixture.Attach(TenSeconds());
    fixture.Drag(100, 300);
    ASSERT_TRUE(fixture.view.IsSelected());

    fixture.view.SetSelectable(FALSE);
    fixture.Drag(400, 600);
    fixture.Mouse(WM_LBUTTONDOWN, 200);
    fixture.Mouse(WM_LBUTTONUP, 200, 0);
    EXPECT_EQ(fixture.SelectionPixels(), std::make_pair(100, 300)) << "play forbids selecting";
    EXPECT_TRUE(fixture.view.IsSelected());

    fixture.view.SetSelectable(TRUE);
    const int32_t serial = fixture.view.GetSelectionSerial();
    fixture.Mouse(WM_LBUTTONDOWN, 200);  // inside the selection
    fixture.Mouse(WM_LBUTTONUP, 200, 0);
    EXPECT_FALSE(fixture.view.IsSelected());
    EXPECT_EQ(fixture.view.GetSelectionSerial(), serial) << "a click is no drag";

    fixture.Drag(100, 300);
    fixture.view.ClearSelection();
    EXPECT_EQ(fixture.SelectionPixels(), std::make_pair(0, 0));
    EXPECT_FALSE(fixture.view.IsSelected());
}

TEST(ViewSelection, TheBandFlipsOnlyTheStripItCrossesAndThePaintLeavesTheTint)
{
    ViewFixture fixture(400, 200);
    fixture.Attach(TenSeconds());
    const int centre = 25 + 100;
    fixture.Mouse(WM_LBUTTONDOWN, 100);
    platform::PumpPendingMessages();
    fixture.Mouse(WM_MOUSEMOVE, 150);
    // Rectangle(99, 26, 150, H) with a null pen: columns 99 to 148.
    EXPECT_EQ(fixture.Pixel(98, 60), kBlack);
    EXPECT_EQ(fixture.Pixel(99, 60), kTintOnBlack);
    EXPECT_EQ(fixture.Pixel(148, 60), kTintOnBlack);
    EXPECT_EQ(fixture.Pixel(149, 60), kBlack);
    EXPECT_EQ(fixture.Pixel(120, centre), kTintOnTrace);
    EXPECT_EQ(fixture.Pixel(120, 25), kBlack) << "the wave band's first row stays";
    EXPECT_EQ(fixture.Pixel(120, 198), kTintOnBlack);
    EXPECT_EQ(fixture.Pixel(120, 199), kBlack);
    fixture.Mouse(WM_MOUSEMOVE, 120);  // back over the band: it flips back
    EXPECT_EQ(fixture.Pixel(118, 60), kTintOnBlack);
    EXPECT_EQ(fixture.Pixel(119, 60), kBlack);
    EXPECT_EQ(fixture.Pixel(140, centre), kTrace);

    fixture.Mouse(WM_LBUTTONUP, 120, 0);
    platform::PumpPendingMessages();
    // The paint's tint runs from the start to the end - 2.
    EXPECT_EQ(fixture.Pixel(99, 60), kBlack);
    EXPECT_EQ(fixture.Pixel(100, 60), kTintOnBlack);
    EXPECT_EQ(fixture.Pixel(118, centre), kTintOnTrace);
    EXPECT_EQ(fixture.Pixel(119, 60), kBlack);
    EXPECT_EQ(fixture.Pixel(0, 10), kWhite) << "the ruler is no part of it";
}

TEST(ViewSelection, ResizingKeepsTheSelectionOnTheSameStretchOfTheFile)
{
    struct Case {
        int fromWidth, toWidth;
        std::pair<int32_t, int32_t> before, after;
    };
    const std::vector<Case> cases = {
        {400, 800, {100, 300}, {200, 600}},
        {800, 400, {101, 303}, {50, 151}},
        {400, 400, {100, 300}, {100, 300}},
    };
    for (const Case& c : cases) {
        ViewFixture fixture(c.fromWidth, 200);
        fixture.Attach(TenSeconds());
        fixture.Drag(c.before.first, c.before.second);
        ASSERT_EQ(fixture.SelectionPixels(), c.before);
        MoveWindow(fixture.Window(), 0, 0, c.toWidth, 200, TRUE);
        platform::PumpPendingMessages();
        EXPECT_EQ(fixture.SelectionPixels(), c.after) << c.fromWidth << " to " << c.toWidth;
        int32_t startMs = -5;
        int32_t endMs = -5;
        fixture.view.GetSelectionTimes(startMs, endMs);
        EXPECT_EQ(startMs, static_cast<int32_t>(double(c.after.first) / c.toWidth * 10000.0));
        EXPECT_EQ(endMs, static_cast<int32_t>(double(c.after.second) / c.toWidth * 10000.0));
        // The picture is stretched, not redrawn: the centre line still runs.
        EXPECT_EQ(fixture.Pixel(c.toWidth - 4, 125), kTrace);
    }
}

TEST(ViewSelection, TimesNeedASelectionAndReachTheTotalAtTheRightEdge)
{
    ViewFixture fixture(800, 200);
    fixture.Attach(TenSeconds());
    int32_t startMs = -5;
    int32_t endMs = -5;
    fixture.view.GetSelectionTimes(startMs, endMs);
    EXPECT_EQ(startMs, -5);
    EXPECT_EQ(endMs, -5);
    ASSERT_EQ(fixture.ui.boxes.size(), 1u);
    EXPECT_EQ(fixture.ui.boxes[0].catalogueId, 220);

    fixture.Drag(100, 900);
    fixture.view.GetSelectionTimes(startMs, endMs);
    EXPECT_EQ(startMs, 1250);
    EXPECT_EQ(endMs, 10000);
}

TEST(ViewCaret, CaretStandsAtItsShareOfTheWidthAndActivatesTheParentWhenNothingIsActive)
{
    ViewFixture fixture(800, 200);
    fixture.Attach(TenSeconds());
    ASSERT_EQ(GetActiveWindow(), nullptr);
    fixture.view.ShowPlayCaret(TRUE);
    EXPECT_EQ(GetActiveWindow(), fixture.parent) << "the first move finds no active window";
    platform::CaretState caret = platform::CurrentCaret();
    EXPECT_EQ(caret.owner, fixture.Window());
    EXPECT_TRUE(caret.visible);
    EXPECT_EQ(caret.rect.left, 0);
    EXPECT_EQ(caret.rect.top, 26);
    EXPECT_EQ(caret.rect.bottom - caret.rect.top, 200 - 25);

    struct Case {
        uint32_t ms;
        int x;
    };
    for (const Case& c : std::vector<Case>{{5000, 400}, {1234, 98}, {10000, 800}, {0, 0}, {9999, 799}}) {
        fixture.view.MoveCaretToTime(c.ms);
        EXPECT_EQ(platform::CurrentCaret().rect.left, c.x) << c.ms;
    }
    fixture.view.MoveCaretToTime(2500);
    platform::PumpPendingMessages();
    EXPECT_EQ(fixture.Pixel(200, 60), kWhite) << "inverted black";
    EXPECT_EQ(fixture.Pixel(200, 125), 0xFFA54Bu) << "inverted trace";

    // A resize moves the caret with the width and gives it the new height.
    MoveWindow(fixture.Window(), 0, 0, 400, 100, TRUE);
    caret = platform::CurrentCaret();
    EXPECT_EQ(caret.rect.left, 100);
    EXPECT_EQ(caret.rect.bottom - caret.rect.top, 75);

    fixture.view.ShowPlayCaret(FALSE);
    EXPECT_EQ(platform::CurrentCaret().owner, nullptr);
    fixture.view.MoveCaretToTime(5000);
    EXPECT_EQ(platform::CurrentCaret().owner, nullptr) << "no caret, and the window is active";

    EXPECT_EQ(SendMessageA(fixture.Window(), WM_SHOWCARET, 0, 0), 1);
    EXPECT_EQ(platform::CurrentCaret().owner, fixture.Window());
    SetActiveWindow(nullptr);
    fixture.view.ShowPlayCaret(FALSE);
}

TEST(ViewCaret, WithNoActiveWindowEachTickRebuildsTheCaretEvenWithoutOne)
{
    ViewFixture fixture(800, 200);
    fixture.Attach(TenSeconds());
    // The parent goes away, so activating it fails and the next tick finds
    // no active window again.
    HWND parent = fixture.parent;
    fixture.parent = CreateMessageWindow(nullptr);
    DestroyWindow(parent);
    for (int tick = 0; tick < 3; ++tick) {
        DestroyCaret();
        fixture.view.MoveCaretToTime(5000);
        EXPECT_EQ(platform::CurrentCaret().owner, fixture.Window()) << tick;
        EXPECT_EQ(platform::CurrentCaret().rect.left, 400) << tick;
        EXPECT_EQ(GetActiveWindow(), nullptr);
    }
    fixture.view.ShowPlayCaret(FALSE);
}

}  // namespace
