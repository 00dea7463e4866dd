#include "platform/OwnedFiles.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "media/AudioLocator.h"
#include "platform/File.h"

namespace {

void WriteText(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string ReadText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

class TemporaryFilesTest : public ::testing::Test {
protected:
    std::string m_scratch;

    void SetUp() override
    {
        m_scratch = std::string(TEMPVOX_BINARY_DIR) + "/TemporaryFiles_test_" +
                    ::testing::UnitTest::GetInstance()->current_test_info()->name() + "/";
        chmod(m_scratch.c_str(), 0755);
        platform::RemoveDirectoryTree(m_scratch);
        ASSERT_TRUE(platform::CreateDirectory(m_scratch));
    }
    void TearDown() override
    {
        chmod(m_scratch.c_str(), 0755);
        platform::RemoveDirectoryTree(m_scratch);
    }
};

}  // namespace

// What a user's file has to fear: being replaced, being deleted, or being
// taken for one of ours after ours went.
TEST_F(TemporaryFilesTest, OnlyAFileMadeHereAndStillTheSameIsEverDeleted)
{
    struct Case {
        const char* name;
        bool usersFileFirst;       // a file of the user's stands at the path before
        bool replacedByUser;       // ours is deleted behind our back, the user writes one there
        bool createSucceeds;
        bool ownedAfterwards;
    };
    const Case cases[] = {
        {"a free name", false, false, true, true},
        {"a user's file already there", true, false, false, false},
        {"ours deleted elsewhere, the user's file in its place", false, true, true, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = m_scratch + "file.wav";
        platform::DeleteFile(path);
        if (c.usersFileFirst) WriteText(path, "user");
        EXPECT_EQ(platform::CreateOwnedFile(path), c.createSucceeds);
        if (c.replacedByUser) {
            ASSERT_EQ(::unlink(path.c_str()), 0);
            WriteText(path, "user");
        }
        EXPECT_EQ(platform::IsOwnedFile(path), c.ownedAfterwards);
        EXPECT_EQ(platform::DeleteOwnedFile(path), c.ownedAfterwards);
        EXPECT_EQ(platform::FileExists(path), !c.ownedAfterwards);
        if (!c.ownedAfterwards) {
            EXPECT_EQ(ReadText(path), "user");
        }
    }
}

TEST_F(TemporaryFilesTest, APlaceNearThePreferredOneIsFreeOrOurOwn)
{
    const std::string folder = m_scratch + "lessons/";
    const std::string fallback = m_scratch + "temp/";
    ASSERT_TRUE(platform::CreateDirectory(folder));
    ASSERT_TRUE(platform::CreateDirectory(fallback));
    const std::string preferred = folder + "lesson_copy.wav";

    // Free: the preferred place. Ours already: the same place, emptied.
    EXPECT_EQ(platform::CreateOwnedFileNear(preferred, fallback), preferred);
    WriteText(preferred, "our old copy");
    EXPECT_EQ(platform::CreateOwnedFileNear(preferred, fallback), preferred);
    EXPECT_EQ(ReadText(preferred), "");
    ASSERT_TRUE(platform::DeleteOwnedFile(preferred));

    // Taken by the user: the fallback folder, under the first free number.
    WriteText(preferred, "user");
    WriteText(fallback + "lesson_copy-1.wav", "someone's");
    EXPECT_EQ(platform::CreateOwnedFileNear(preferred, fallback), fallback + "lesson_copy-2.wav");
    EXPECT_EQ(ReadText(preferred), "user");
    EXPECT_EQ(platform::CreateOwnedFileNear(preferred, ""), "") << "nowhere else to go";

    // The shared temporary folder, removed by another control that left it
    // empty: made again, not a failure.
    EXPECT_EQ(platform::CreateOwnedFileNear(preferred, m_scratch + "gone/"), m_scratch + "gone/lesson_copy-1.wav");

    // A folder that can't be written sends the file to the fallback too
    // (root writes anywhere, so this part needs an ordinary user).
    if (geteuid() != 0) {
        const std::string readOnly = m_scratch + "ro/";
        ASSERT_TRUE(platform::CreateDirectory(readOnly));
        chmod(readOnly.c_str(), 0555);
        EXPECT_EQ(platform::CreateOwnedFileNear(readOnly + "a.wav", fallback), fallback + "a-1.wav");
        chmod(readOnly.c_str(), 0755);
    }
}

TEST_F(TemporaryFilesTest, TheTemporaryFolderGoesToTheCacheWhenBesideTheProgramIsClosed)
{
    const std::string programFolder = m_scratch + "bin";
    ASSERT_TRUE(platform::CreateDirectory(programFolder));
    const std::string cacheHome = m_scratch + "cache";
    EXPECT_EQ(ChooseTempFolder(programFolder + "/tempvox", cacheHome), programFolder + "/ZqTempAudio/");
    ASSERT_TRUE(platform::RemoveDirectoryTree(programFolder + "/ZqTempAudio"));

    // A program folder where nothing can be made: a file stands in the way
    // of the folder (this holds for root too).
    WriteText(programFolder + "/ZqTempAudio", "not a folder");
    const std::string cached = cacheHome + "/tempvox/ZqTempAudio/";
    EXPECT_EQ(ChooseTempFolder(programFolder + "/tempvox", cacheHome), cached);
    EXPECT_TRUE(platform::IsWritableFolder(cached));

    // Without a cache home there is no better answer than the rule's own.
    EXPECT_EQ(ChooseTempFolder(programFolder + "/tempvox", ""), programFolder + "/ZqTempAudio/");
}

TEST_F(TemporaryFilesTest, ControlFilesAreThoseInTheTemporaryFolderOrMadeHere)
{
    const std::string temp = m_scratch + "ZqTempAudio/";
    ASSERT_TRUE(platform::CreateDirectory(temp));
    ASSERT_TRUE(platform::CreateDirectory(m_scratch + "user"));
    ASSERT_TRUE(platform::CreateDirectory(temp + "sub"));
    struct Case {
        const char* name;
        std::string path;
        bool madeHere;
        bool deleted;
    };
    const Case cases[] = {
        {"a download in the folder", temp + "lesson.wav", false, true},
        {"a user's file elsewhere", m_scratch + "user/lesson.wzq", false, false},
        {"a conversion made here beside the user's", m_scratch + "user/lesson.wav", true, true},
        {"below the folder is not in it", temp + "sub/x.wav", false, false},
        {"a name that only starts like the folder", m_scratch + "ZqTempAudioX.wav", false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.madeHere) {
            ASSERT_TRUE(platform::CreateOwnedFile(c.path));
        } else {
            WriteText(c.path, "x");
        }
        EXPECT_EQ(DeleteControlFile(c.path, temp), c.deleted);
        EXPECT_EQ(platform::FileExists(c.path), !c.deleted);
    }
}
