#include <gtest/gtest.h>

#include <cstring>

#include "platform/Debug.h"
#include "platform/MessageBox.h"
#include "messages/MessageCatalogue.h"
#include "shell/TempvoxCtrl.h"

namespace {

class CatalogueTest : public ::testing::Test {
protected:
    std::vector<platform::MessageBoxRequest> boxes;
    std::vector<std::string> debugLines;

    void SetUp() override
    {
        g_languageType = 1;
        platform::SetMessageBoxHandler([this](const platform::MessageBoxRequest& request) {
            boxes.push_back(request);
            return IDOK;
        });
        platform::SetDebugSink([this](const std::string& text) { debugLines.push_back(text); });
    }
    void TearDown() override
    {
        platform::SetMessageBoxHandler(nullptr);
        platform::SetDebugSink(nullptr);
        g_languageType = 1;
    }
};

}  // namespace

TEST_F(CatalogueTest, EveryLanguageSlotOfAReport)
{
    struct Case {
        int16_t language;
        UINT id;
        const char* text;
    };
    const Case cases[] = {
        {0, 206, "Normal"},
        {1, 206, "不支持的音频格式,对不起，不能播放!"},
        {2, 206, "Unsupported audio format! Sorry, this audio file cannot be played!"},
        {3, 206, "Japanese"},
        {2, 204, "The wav file to be drawn in the wave form does not exist!"},
        {2, 215, "Unsupported audio format! Sorry, niose file unabled to be opened!"},
        {1, 220, "波形未选中,调用失败!"},
    };
    for (const Case& c : cases) {
        g_languageType = c.language;
        ReportMessage(c.id, "fallback");
    }
    ASSERT_EQ(boxes.size(), std::size(cases));
    for (size_t i = 0; i < boxes.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(boxes[i].catalogueId, static_cast<int>(cases[i].id));
        EXPECT_EQ(boxes[i].text, cases[i].text);
        EXPECT_EQ(boxes[i].type, MB_OK);
    }
}

TEST_F(CatalogueTest, MissingEntryShowsTheFallbackWhateverTheLanguage)
{
    g_languageType = 2;
    ReportMessage(999, "装载音频文件失败!");
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].catalogueId, 999);
    EXPECT_EQ(boxes[0].text, "装载音频文件失败!");
    EXPECT_EQ(debugLines, (std::vector<std::string>{"LoadLanguage!", "Failure!"}));
}

TEST_F(CatalogueTest, SplittingLeavesMissingSlotsEmptyAndFitsSmallBuffers)
{
    char slots[4][kMessageSlotBytes];
    for (auto& slot : slots) std::strcpy(slot, "untouched");

    // A missing entry leaves the caller's buffers alone.
    EXPECT_EQ(LoadLanguageStrings(12345, slots[0], slots[1], slots[2], slots[3]), 0);
    EXPECT_STREQ(slots[0], "untouched");

    // A single text (no carriage return) fills the first slot only.
    EXPECT_EQ(LoadLanguageStrings(200, slots[0], slots[1], slots[2], slots[3]), 1);
    EXPECT_STREQ(slots[0], "General");
    EXPECT_STREQ(slots[1], "");
    EXPECT_STREQ(slots[3], "");

    // The menu label fits 20-byte buffers in every slot.
    char menu[4][kMenuSlotBytes];
    EXPECT_EQ(LoadLanguageStrings(201, menu[0], menu[1], menu[2], menu[3], kMenuSlotBytes), 1);
    EXPECT_STREQ(menu[0], "保存");
    EXPECT_STREQ(menu[1], "保存");
    EXPECT_STREQ(menu[2], "Save");
    EXPECT_STREQ(menu[3], "Save");

    // A buffer too small for a slot gets a cut, terminated text.
    char tiny[4][8];
    EXPECT_EQ(LoadLanguageStrings(208, tiny[0], tiny[1], tiny[2], tiny[3], 8), 1);
    EXPECT_STREQ(tiny[0], "Normal");
    EXPECT_STREQ(tiny[2], "Loading");
    EXPECT_EQ(std::strlen(tiny[1]), 7u);
}

TEST_F(CatalogueTest, LanguagePropertyRefusesOutOfRangeAndNewControlsResetIt)
{
    CTempvoxCtrl first;
    struct Put {
        int16_t value;
        int16_t after;
        bool modified;
    };
    const Put puts[] = {{4, 1, false}, {-1, 1, false}, {static_cast<int16_t>(65535), 1, false},
                        {-32768, 1, false}, {3, 3, true}, {0, 0, true}};
    for (const Put& put : puts) {
        SCOPED_TRACE(put.value);
        CTempvoxCtrl probe;
        probe.SetLanguageType(put.value);
        EXPECT_EQ(probe.GetLanguageType(), put.after);
        EXPECT_EQ(probe.IsModified(), put.modified);
    }
    first.SetLanguageType(2);
    EXPECT_EQ(first.GetLanguageType(), 2);
    CTempvoxCtrl second;
    EXPECT_EQ(first.GetLanguageType(), 1);
}
