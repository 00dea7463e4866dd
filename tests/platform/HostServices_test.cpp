#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/Debug.h"
#include "platform/MessageBox.h"

namespace {

using namespace platform;

TEST(DebugOutput, GoesToTheSinkByteForByteAndNowhereWithout)
{
    OutputDebugStringA("before any sink\n");
    std::vector<std::string> received;
    SetDebugSink([&](const std::string& text) { received.push_back(text); });
    const std::vector<std::string> texts = {"音频播放完\n", "", "plain", "two\nlines\r\n"};
    for (const std::string& text : texts)
        OutputDebugStringA(text.c_str());
    OutputDebugStringA(nullptr);
    SetDebugSink(nullptr);
    OutputDebugStringA("after the sink\n");
    EXPECT_EQ(received, texts);
}

TEST(DebugOutput, TextsFromManyThreadsArriveWhole)
{
    std::vector<std::string> received;  // no lock of its own: the sink is called one at a time
    SetDebugSink([&](const std::string& text) { received.push_back(text); });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            const std::string text(64, static_cast<char>('a' + t));
            for (int i = 0; i < 250; ++i)
                OutputDebugStringA(text.c_str());
        });
    for (std::thread& thread : threads)
        thread.join();
    SetDebugSink(nullptr);
    ASSERT_EQ(received.size(), 1000u);
    for (const std::string& text : received)
        EXPECT_EQ(text, std::string(64, text[0]));
}

TEST(MessageBoxes, HandlerSeesEveryKindOfBoxAndItsAnswerComesBack)
{
    std::vector<MessageBoxRequest> seen;
    SetMessageBoxHandler([&](const MessageBoxRequest& request) {
        seen.push_back(request);
        return static_cast<int>(seen.size()) + 10;
    });
    EXPECT_EQ(MessageBoxA(nullptr, "停止音频播放失败!", "提示", MB_OK), 11);
    EXPECT_EQ(AfxMessageBox("text only", MB_YESNO), 12);
    EXPECT_EQ(ShowCatalogueBox(211, "catalogue text", MB_ICONEXCLAMATION), 13);
    EXPECT_EQ(MessageBoxA(nullptr, nullptr, nullptr, MB_OKCANCEL), 14);
    SetMessageBoxHandler(nullptr);

    struct Expected {
        int catalogueId;
        const char* text;
        const char* caption;
        UINT type;
    };
    const Expected expected[] = {
        {-1, "停止音频播放失败!", "提示", MB_OK},
        {-1, "text only", "", MB_YESNO},
        {211, "catalogue text", "", MB_ICONEXCLAMATION},
        {-1, "", "", MB_OKCANCEL},
    };
    ASSERT_EQ(seen.size(), std::size(expected));
    for (size_t i = 0; i < seen.size(); ++i) {
        EXPECT_EQ(seen[i].catalogueId, expected[i].catalogueId) << i;
        EXPECT_EQ(seen[i].text, expected[i].text) << i;
        EXPECT_EQ(seen[i].caption, expected[i].caption) << i;
        EXPECT_EQ(seen[i].type, expected[i].type) << i;
    }
}

TEST(MessageBoxes, DefaultAnswerFollowsTheButtons)
{
    struct Case {
        UINT type;
        int answer;
    };
    const Case cases[] = {
        {MB_OK, IDOK},
        {MB_OKCANCEL, IDOK},
        {MB_YESNO, IDYES},
        {MB_YESNOCANCEL | MB_ICONQUESTION, IDYES},
        {MB_ICONINFORMATION, IDOK},
    };
    for (const Case& c : cases) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(MessageBoxA(nullptr, "the text", "the caption", c.type), c.answer) << c.type;
        const std::string printed = testing::internal::GetCapturedStderr();
        EXPECT_NE(printed.find("the text"), std::string::npos);
        EXPECT_NE(printed.find("the caption"), std::string::npos);
    }
}

}  // namespace
