#include <gtest/gtest.h>

#include <set>

#include "platform/File.h"
#include "platform/FileFind.h"
#include "shell/TempvoxCtrl.h"
#include "support/HostHarness.h"
#include "support/WavFiles.h"

using namespace testwav;

namespace {

struct FiredEvent {
    DISPID id;
    std::vector<Variant> args;
};

class ControlTest : public ::testing::Test {
protected:
    HostHarness host;
    CTempvoxCtrl control;
    std::vector<FiredEvent> events;

    void SetUp() override
    {
        control.SetEventSink([this](DISPID id, const std::vector<Variant>& args) { events.push_back({id, args}); });
    }

    std::vector<DISPID> EventIds() const
    {
        std::vector<DISPID> ids;
        for (const FiredEvent& e : events) ids.push_back(e.id);
        return ids;
    }

    std::string SpeechFile(const std::string& name, size_t blocks)
    {
        std::string data(blocks * 4410, '\0');
        for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 13);
        return WriteFile(name, CanonicalWav(Format{1, 1, 22050, 16}, data));
    }
};

}  // namespace

TEST(DispatchTable, MembersAndEventsAreCompleteAndUnique)
{
    std::set<DISPID> ids;
    std::set<std::string> names;
    for (const MemberInfo& member : ControlMembers()) {
        ids.insert(member.id);
        names.insert(member.name);
        EXPECT_EQ(FindMemberByName(member.name), &member);
        // A row without its handler would dispatch to nothing.
        EXPECT_NE(member.run, nullptr) << member.name;
    }
    // The original surface holds ids 1 to 34, the property last; members of
    // our own follow without a gap.
    EXPECT_EQ(ids.size(), ControlMembers().size());
    EXPECT_EQ(names.size(), ControlMembers().size());
    EXPECT_EQ(*ids.begin(), 1);
    EXPECT_EQ(*ids.rbegin(), DISPID(ids.size()));
    EXPECT_TRUE(FindMember(34)->isProperty);
    EXPECT_STREQ(FindMember(35)->name, "SetPlaybackProfile");
    EXPECT_EQ(ControlEvents().size(), 5u);
    EXPECT_STREQ(FindEvent(2)->name, "CountWordFire");
}

TEST_F(ControlTest, DispatchLayerAnswersErrorsInsteadOfCrashing)
{
    struct Case {
        const char* name;
        DISPID id;
        InvokeKind kind;
        std::vector<Variant> args;
        HRESULT expected;
    };
    const Case cases[] = {
        {"unknown id", 99, InvokeKind::Method, {}, DISP_E_MEMBERNOTFOUND},
        {"id zero", 0, InvokeKind::Method, {}, DISP_E_MEMBERNOTFOUND},
        {"too few", 10, InvokeKind::Method, {}, DISP_E_BADPARAMCOUNT},
        {"too many", 8, InvokeKind::Method, {Variant::I4(1)}, DISP_E_BADPARAMCOUNT},
        {"string for long", 10, InvokeKind::Method, {Variant::Str("1000")}, DISP_E_TYPEMISMATCH},
        {"long for short", 15, InvokeKind::Method, {Variant::Str("a"), Variant::I4(-1), Variant::Str("b")},
         DISP_E_TYPEMISMATCH},
        {"method as property", 8, InvokeKind::PropertyGet, {}, DISP_E_MEMBERNOTFOUND},
        {"property as method", 34, InvokeKind::Method, {}, DISP_E_MEMBERNOTFOUND},
        {"property put without value", 34, InvokeKind::PropertyPut, {}, DISP_E_BADPARAMCOUNT},
        {"property put of a long", 34, InvokeKind::PropertyPut, {Variant::I4(2)}, DISP_E_TYPEMISMATCH},
        {"speed level clamps", 6, InvokeKind::Method, {Variant::I2(51)}, S_OK},
        {"view without a parent", 20, InvokeKind::Method,
         {Variant::I4(0), Variant::I4(0), Variant::I4(10), Variant::I4(10), Variant::I4(0)}, S_OK},
        {"state", 8, InvokeKind::Method, {}, S_OK},
        {"null strings", 15, InvokeKind::Method, {Variant::Str(std::nullopt), Variant::I2(-1), Variant::Str(std::nullopt)},
         S_OK},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Variant result;
        std::string error;
        EXPECT_EQ(control.Invoke(c.id, c.kind, c.args, &result, &error), c.expected);
        EXPECT_EQ(error.empty(), c.expected == S_OK);
    }
}

TEST_F(ControlTest, EngineMessagesBecomeEvents)
{
    struct Case {
        UINT message;
        WPARAM wParam;
        DISPID event;
        Variant firstArg;
    };
    float* snr = new float(12.5f);
    const Case cases[] = {
        {WM_ONESENTENCEDONE, 0, 4, Variant::Empty()},
        {WM_WORDSPEEDDONE, 187, 5, Variant::I4(187)},
        {WM_COMPUTESNR, reinterpret_cast<WPARAM>(snr), 3, Variant::R4(12.5f)},
        {WM_PLAYCLOSED, 0, 0, Variant::Empty()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        events.clear();
        PostMessageA(control.GetSafeHwnd(), c.message, c.wParam, 0);
        host.Pump();
        if (c.event == 0) {
            EXPECT_TRUE(events.empty());
            continue;
        }
        ASSERT_EQ(EventIds(), std::vector<DISPID>{c.event});
        if (c.firstArg.type != VarType::Empty) {
            ASSERT_EQ(events[0].args.size(), 1u);
            EXPECT_EQ(events[0].args[0].type, c.firstArg.type);
            EXPECT_EQ(events[0].args[0].intValue, c.firstArg.intValue);
            EXPECT_EQ(events[0].args[0].floatValue, c.firstArg.floatValue);
        }
    }
}

TEST_F(ControlTest, NamingLocalFiles)
{
    struct Case {
        const char* name;
        const char* address;
        int16_t port;
        const char* path;
        BOOL result;
        bool pathKept;
    };
    const Case cases[] = {
        {"null path", "server", -1, nullptr, FALSE, false},
        {"empty path, port -1", "server", -1, "", FALSE, false},
        {"local path, address ignored", "server", -1, "/some/lesson.wav", TRUE, true},
        {"port 65535 is -1", nullptr, static_cast<int16_t>(65535), "/some/lesson.wav", TRUE, true},
        {"remote without address", nullptr, 80, "/lesson.wav", FALSE, false},
        {"remote with empty address", "", 0, "/lesson.wav", FALSE, false},
        {"empty remote path", "server", 80, "", FALSE, false},
        {"encoded local file", nullptr, -1, "/some/lesson.WzQ", FALSE, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(control.SetPlayFilePath(c.address, c.port, c.path), c.result);
        EXPECT_EQ(control.GetPlayFilePath(), c.pathKept ? std::string(c.path) : std::string());
    }
}

TEST_F(ControlTest, TemporaryFolderCacheAndRemoval)
{
    std::string executable = platform::ExecutablePath();
    std::string folder = executable.substr(0, executable.rfind('/')) + "/ZqTempAudio/";
    EXPECT_EQ(control.TempDir(), folder);
    ASSERT_TRUE(platform::FileExists(folder));

    // Only the .wav of a name counts as its cached copy, in any case.
    std::string cachedEncoded = folder + "lessonA.wzq";
    std::string cachedWav = folder + "lessonB.WAV";
    for (const std::string& path : {cachedEncoded, cachedWav}) {
        FILE* file = std::fopen(path.c_str(), "wb");
        ASSERT_NE(file, nullptr);
        std::fclose(file);
    }
    EXPECT_TRUE(control.SetPlayFilePath2(nullptr, -1, "/local/x.wav", "LESSONb"));
    EXPECT_EQ(control.GetPlayFilePath(), cachedWav);
    EXPECT_TRUE(control.SetPlayFilePath2(nullptr, -1, "/local/x.wav", "lessonA"));
    EXPECT_EQ(control.GetPlayFilePath(), "/local/x.wav");

    EXPECT_TRUE(control.DeleteAllDownedFile());
    EXPECT_FALSE(platform::FileExists(folder));
    EXPECT_FALSE(control.DeleteAllDownedFile());
    CTempvoxCtrl fresh;
    EXPECT_TRUE(platform::FileExists(folder));
}

TEST_F(ControlTest, WordSpeedRunsOnAWorkerAndAnswersTheMinute)
{
    // No file was ever opened: the file exception reaches the host as an error.
    Variant result;
    std::string error;
    EXPECT_EQ(control.Invoke(33, InvokeKind::Method, {Variant::R4(2.5f), Variant::I4(30)}, &result, &error),
              DISP_E_EXCEPTION);
    EXPECT_FALSE(error.empty());

    std::string path = SpeechFile("speed.wav", 40);
    ASSERT_TRUE(control.SetPlayFilePath(nullptr, -1, path.c_str()));
    ASSERT_TRUE(control.StartPlay());
    events.clear();
    ASSERT_EQ(control.Invoke(33, InvokeKind::Method, {Variant::R4(2.5f), Variant::I4(2)}, &result), S_OK);
    EXPECT_EQ(result.intValue, 1);
    ASSERT_TRUE(platform::PumpUntil([&] { return !events.empty(); }, 10000));
    ASSERT_EQ(EventIds(), std::vector<DISPID>{5});
    EXPECT_EQ(events[0].args[0].type, VarType::I4);
}

TEST_F(ControlTest, ViewRectanglesAtTheEndsOfTheRangeKeepTheirSize)
{
    // The host gives a corner and a size; however far out the corner, the
    // view is made with that size (the far edge wraps and unwraps).
    HWND parent = CreateMessageWindow(nullptr);
    const int32_t parentHandle = static_cast<int32_t>(reinterpret_cast<uintptr_t>(parent));
    struct Case {
        int32_t x, y, cx, cy;
    };
    const Case cases[] = {
        {10, 10, 300, 200},
        {2000, -1, 64, 0},
        {INT32_MAX, INT32_MAX, 1, 1},
        {INT32_MAX - 5, 0, 300, 20},
        {INT32_MIN, INT32_MIN + 1, 40, 30},
        {-1, INT32_MIN, 300, 200},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.x) + "," + std::to_string(c.y));
        CTempvoxCtrl viewHost;
        ASSERT_TRUE(viewHost.CreateWavViewWnd(c.x, c.y, c.cx, c.cy, parentHandle));
        HWND view = reinterpret_cast<HWND>(static_cast<uintptr_t>(static_cast<uint32_t>(viewHost.GetWavViewCtrlHwnd())));
        RECT client{};
        ASSERT_TRUE(GetClientRect(view, &client));
        EXPECT_EQ(client.right - client.left, c.cx);
        EXPECT_EQ(client.bottom - client.top, c.cy);
    }
    DestroyWindow(parent);
}
