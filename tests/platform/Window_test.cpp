#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "platform/Caret.h"
#include "platform/FileApi.h"
#include "platform/FileMapping.h"
#include "platform/HostUi.h"
#include "platform/Window.h"

namespace {

struct Recorded {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    RECT paintArea;
};

// A window that fills what its paint context lets it with one colour and
// keeps every message it saw.
struct TestWindow {
    std::vector<Recorded> seen;
    COLORREF paintColor = RGB(200, 0, 0);
    HWND handle = nullptr;

    TestWindow(HWND parent, RECT rect, DWORD style = WS_CHILD | WS_VISIBLE)
    {
        RegisterWindowClass("TestWindow", CS_HREDRAW | CS_VREDRAW);
        handle = CreateWindowExA(0, "TestWindow", "", style, rect.left, rect.top, rect.right - rect.left,
                                 rect.bottom - rect.top, parent, 7,
                                 [this](HWND window, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
                                     Recorded record{message, wParam, lParam, {}};
                                     if (message == WM_PAINT) {
                                         CPaintDC dc(window);
                                         record.paintArea = dc.m_ps.rcPaint;
                                         RECT all{0, 0, 10000, 10000};
                                         dc.FillSolidRect(&all, paintColor);
                                     }
                                     seen.push_back(record);
                                     return 0;
                                 });
    }
    ~TestWindow() { DestroyWindow(handle); }

    std::vector<Recorded> Of(UINT message) const
    {
        std::vector<Recorded> found;
        for (const Recorded& r : seen)
            if (r.message == message)
                found.push_back(r);
        return found;
    }
    uint32_t Pixel(int x, int y) const { return platform::WindowSurface(handle)->At(x, y); }
};

bool SameRect(const RECT& a, const RECT& b)
{
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

TEST(Windows, CreationNeedsALiveParentAndSendsCreateThenSize)
{
    HWND host = CreateMessageWindow(nullptr);
    TestWindow child(host, RECT{10, 20, 110, 70});
    ASSERT_NE(child.handle, nullptr);
    ASSERT_GE(child.seen.size(), 2u);
    EXPECT_EQ(child.seen[0].message, WM_CREATE);
    EXPECT_EQ(child.seen[1].message, WM_SIZE);
    EXPECT_EQ(child.seen[1].lParam, MAKELPARAM(100, 50));
    EXPECT_EQ(GetParent(child.handle), host);
    RECT client;
    ASSERT_TRUE(GetClientRect(child.handle, &client));
    EXPECT_TRUE(SameRect(client, RECT{0, 0, 100, 50}));

    TestWindow orphan(nullptr, RECT{0, 0, 10, 10});
    EXPECT_EQ(orphan.handle, nullptr);
    DestroyWindow(host);
    TestWindow staleParent(host, RECT{0, 0, 10, 10});
    EXPECT_EQ(staleParent.handle, nullptr);
}

TEST(Windows, InvalidationsBeforeThePaintMakeOnePaintClippedToTheirUnion)
{
    HWND host = CreateMessageWindow(nullptr);
    TestWindow window(host, RECT{0, 0, 40, 30});
    platform::PumpPendingMessages();
    ASSERT_EQ(window.Of(WM_PAINT).size(), 1u);
    EXPECT_TRUE(SameRect(window.Of(WM_PAINT)[0].paintArea, RECT{0, 0, 40, 30}));

    window.paintColor = RGB(0, 0, 200);
    RECT first{2, 3, 6, 5};
    RECT second{10, 4, 12, 8};
    InvalidateRect(window.handle, &first, TRUE);
    InvalidateRect(window.handle, &second, TRUE);
    EXPECT_EQ(window.Of(WM_PAINT).size(), 1u) << "a paint comes through the queue, not at once";
    platform::PumpPendingMessages();
    ASSERT_EQ(window.Of(WM_PAINT).size(), 2u);
    EXPECT_TRUE(SameRect(window.Of(WM_PAINT)[1].paintArea, RECT{2, 3, 12, 8}));
    struct Probe {
        int x, y;
        uint32_t expected;
    };
    for (const Probe& probe : std::vector<Probe>{{2, 3, 0x0000C8}, {11, 7, 0x0000C8}, {1, 3, 0xC80000},
                                                 {12, 7, 0xC80000}, {5, 8, 0xC80000}, {39, 29, 0xC80000}})
        EXPECT_EQ(window.Pixel(probe.x, probe.y), probe.expected) << probe.x << "," << probe.y;
    EXPECT_EQ(platform::PumpPendingMessages(), 0);
    DestroyWindow(host);
}

TEST(Windows, ResizeKeepsPixelsSendsSizeAndRepaintsAll)
{
    HWND host = CreateMessageWindow(nullptr);
    TestWindow window(host, RECT{0, 0, 40, 30});
    platform::PumpPendingMessages();
    ASSERT_TRUE(MoveWindow(window.handle, 5, 5, 80, 20, FALSE));
    EXPECT_EQ(window.Of(WM_SIZE).back().lParam, MAKELPARAM(80, 20));
    EXPECT_EQ(platform::WindowSurface(window.handle)->width, 80);
    platform::PumpPendingMessages();
    EXPECT_TRUE(SameRect(window.Of(WM_PAINT).back().paintArea, RECT{0, 0, 80, 20}));
    DestroyWindow(host);
}

TEST(Caret, ShownCaretInvertsItsPixelsAndEveryWayOfRemovingItRestoresThem)
{
    HWND host = CreateMessageWindow(nullptr);
    TestWindow window(host, RECT{0, 0, 20, 10});
    platform::PumpPendingMessages();
    const uint32_t red = 0xC80000;
    const uint32_t inverted = 0x37FFFF;
    auto column = [&](int x) {
        std::vector<uint32_t> pixels;
        for (int y = 0; y < 10; ++y)
            pixels.push_back(window.Pixel(x, y));
        return pixels;
    };
    std::vector<uint32_t> plain(10, red);
    std::vector<uint32_t> withCaret = {red, red, inverted, inverted, inverted, inverted, red, red, red, red};

    ASSERT_TRUE(CreateCaret(window.handle, nullptr, 0, 4));
    SetCaretPos(3, 2);
    EXPECT_EQ(column(3), plain) << "a new caret is hidden";
    ShowCaret(window.handle);
    EXPECT_EQ(column(3), withCaret);
    SetCaretPos(5, 2);
    EXPECT_EQ(column(3), plain);
    EXPECT_EQ(column(5), withCaret);
    HideCaret(window.handle);
    HideCaret(window.handle);
    ShowCaret(window.handle);
    EXPECT_EQ(column(5), plain) << "hides nest";
    ShowCaret(window.handle);
    EXPECT_EQ(column(5), withCaret);
    POINT where;
    GetCaretPos(&where);
    EXPECT_EQ(where.x, 5);

    // A paint neither erases the caret nor leaves a stale inversion.
    InvalidateRect(window.handle, nullptr, TRUE);
    platform::PumpPendingMessages();
    EXPECT_EQ(column(5), withCaret);
    EXPECT_FALSE(ShowCaret(host)) << "only the owner shows it";
    EXPECT_TRUE(DestroyCaret());
    EXPECT_EQ(column(5), plain);
    EXPECT_FALSE(SetCaretPos(1, 1));
    DestroyWindow(host);
}

TEST(Mouse, InputGoesToTheChildUnderThePointOrToTheCaptureWithItsOwnCoordinates)
{
    RegisterWindowClass("TestFrame", 0, true, RGB(255, 255, 255));
    TestWindow frame(nullptr, RECT{100, 100, 300, 200}, WS_OVERLAPPEDWINDOW | WS_VISIBLE);
    TestWindow child(frame.handle, RECT{50, 40, 150, 90});
    TestWindow other(frame.handle, RECT{0, 0, 20, 20});
    platform::PumpPendingMessages();
    struct Case {
        UINT message;
        int x, y;
        HWND capture;
        HWND expectedTarget;
        int expectedX, expectedY;
    };
    const std::vector<Case> cases = {
        {WM_LBUTTONDOWN, 60, 45, nullptr, child.handle, 10, 5},
        {WM_MOUSEMOVE, 5, 5, nullptr, other.handle, 5, 5},
        {WM_MOUSEMOVE, 160, 45, nullptr, frame.handle, 160, 45},
        {WM_MOUSEMOVE, 5, 5, child.handle, child.handle, -45, -35},
        {WM_LBUTTONUP, 199, 99, child.handle, child.handle, 149, 59},
    };
    for (const Case& c : cases) {
        ReleaseCapture();
        if (c.capture != nullptr)
            SetCapture(c.capture);
        HWND target = platform::PostMouseInput(frame.handle, c.message, c.x, c.y, MK_LBUTTON);
        EXPECT_EQ(target, c.expectedTarget);
        platform::PumpPendingMessages();
        TestWindow* window = target == child.handle ? &child : target == other.handle ? &other : &frame;
        ASSERT_FALSE(window->Of(c.message).empty());
        const Recorded got = window->Of(c.message).back();
        EXPECT_EQ(GET_X_LPARAM(got.lParam), c.expectedX);
        EXPECT_EQ(GET_Y_LPARAM(got.lParam), c.expectedY);
        EXPECT_EQ(got.wParam, MK_LBUTTON);
    }
    ReleaseCapture();
    POINT cursor;
    GetCursorPos(&cursor);
    EXPECT_EQ(cursor.x, 299);
    EXPECT_EQ(cursor.y, 199);
    EXPECT_EQ(GetActiveWindow(), frame.handle) << "a click activates the window";
    DestroyWindow(frame.handle);
    EXPECT_FALSE(IsWindow(child.handle)) << "children go with their parent";
    EXPECT_EQ(GetActiveWindow(), nullptr);
}

TEST(HostUi, MenuChoicesArriveAsCommandsAndDialoguesSeeTheCurrentFolder)
{
    HWND host = CreateMessageWindow(nullptr);
    TestWindow window(host, RECT{0, 0, 10, 10});
    HMENU menu = CreatePopupMenu();
    AppendMenuA(menu, MF_STRING, 32768, "Save");

    EXPECT_TRUE(TrackPopupMenu(menu, TPM_RIGHTBUTTON, 1, 2, 0, window.handle, nullptr));
    platform::PumpPendingMessages();
    EXPECT_TRUE(window.Of(WM_COMMAND).empty()) << "headless: no choice";
    CFileDialog headless(FALSE, "wav", "AudioFile.wav");
    EXPECT_EQ(headless.DoModal(), IDCANCEL);
    {
        platform::ScriptedHostUi ui;
        ui.menuChoices = {32768};
        ui.dialogAnswers = {{true, "/tmp/chosen.wav"}};
        ui.boxAnswers = {IDCANCEL};
        EXPECT_TRUE(TrackPopupMenu(menu, TPM_RIGHTBUTTON, 1, 2, 0, window.handle, nullptr));
        EXPECT_TRUE(window.Of(WM_COMMAND).empty()) << "posted, not sent";
        platform::PumpPendingMessages();
        ASSERT_EQ(window.Of(WM_COMMAND).size(), 1u);
        EXPECT_EQ(window.Of(WM_COMMAND)[0].wParam, 32768u);
        ASSERT_EQ(ui.menus.size(), 1u);
        EXPECT_EQ(ui.menus[0].items[0].text, "Save");

        CFileDialog dialog(FALSE, "wav", "AudioFile.wav");
        EXPECT_EQ(dialog.DoModal(), IDOK);
        EXPECT_EQ(dialog.GetPathName(), "/tmp/chosen.wav");
        ASSERT_EQ(ui.dialogs.size(), 1u);
        EXPECT_EQ(ui.dialogs[0].initialFolder, platform::CurrentDirectory());
        EXPECT_EQ(ui.dialogs[0].fileName, "AudioFile.wav");
        EXPECT_EQ(MessageBoxA(window.handle, "replace?", "System", MB_OKCANCEL), IDCANCEL);
        EXPECT_EQ(MessageBoxA(window.handle, "again", "System", MB_OKCANCEL), IDOK);
    }
    EXPECT_TRUE(DestroyMenu(menu));
    EXPECT_FALSE(AppendMenuA(menu, MF_STRING, 1, "stale"));
    DestroyWindow(host);
}

TEST(FileMapping, ViewShowsTheWholeFileAndOutlivesTheFileObject)
{
    const std::string path = ::testing::TempDir() + "mapping_probe.bin";
    std::ofstream(path, std::ios::binary) << "RIFF0123WAVE";
    CMappableFile file;
    ASSERT_TRUE(file.Open(path));
    HFILEMAPPING mapping = CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    ASSERT_NE(mapping, nullptr);
    const BYTE* view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0);
    file.Close();
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(platform::MappingSize(mapping), 12u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(view), 12), "RIFF0123WAVE");
    EXPECT_TRUE(UnmapViewOfFile(view));
    EXPECT_FALSE(UnmapViewOfFile(view));
    EXPECT_TRUE(CloseHandle(mapping));
    EXPECT_FALSE(CloseHandle(mapping));

    std::ofstream(path, std::ios::binary | std::ios::trunc).flush();
    ASSERT_TRUE(file.Open(path));
    EXPECT_EQ(CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr), nullptr) << "an empty file";
    EXPECT_TRUE(DeleteFileA(path.c_str()));
    EXPECT_FALSE(DeleteFileA(path.c_str()));
}

}  // namespace
