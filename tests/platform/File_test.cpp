#include "platform/File.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/FileMapping.h"

namespace {

// One folder per test: CTest runs the cases of this file side by side.
std::string ScratchFolder()
{
    return std::string(TEMPVOX_BINARY_DIR) + "/File_test_scratch_" +
           ::testing::UnitTest::GetInstance()->current_test_info()->name();
}

void WriteText(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string ReadText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Runs `call` in a child process and answers its result, or "hung" when it
// has not returned within five seconds (the child is then killed), so that
// a call that blocks or runs without end fails the test instead of stopping it.
std::string ResultWithin5s(const std::function<bool()>& call)
{
    const pid_t child = ::fork();
    if (child == 0) ::_exit(call() ? 0 : 1);
    for (int waited = 0; waited < 500; ++waited) {
        int status = 0;
        if (::waitpid(child, &status, WNOHANG) == child) {
            if (!WIFEXITED(status)) return "crashed";
            return WEXITSTATUS(status) == 0 ? "true" : "false";
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    return "hung";
}

class FileTest : public ::testing::Test {
protected:
    std::string m_scratch;

    void SetUp() override
    {
        m_scratch = ScratchFolder();
        platform::RemoveDirectoryTree(m_scratch);
        ASSERT_TRUE(platform::CreateDirectory(m_scratch));
    }
    void TearDown() override { platform::RemoveDirectoryTree(m_scratch); }
};

TEST_F(FileTest, SeekMovesOnlyToValidPositions)
{
    const std::string path = m_scratch + "/ten.bin";
    WriteText(path, "0123456789");
    CFile file;
    ASSERT_TRUE(file.Open(path.c_str(), CFile::modeRead | CFile::typeBinary));
    EXPECT_EQ(file.GetLength(), 10u);

    struct Case {
        int64_t offset;
        CFile::SeekPosition from;
        int64_t answer;
        uint64_t positionAfter;
        char nextByte;  // 0 when nothing is left to read there
    };
    // Runs in order: each row starts where the last one left the file.
    const Case cases[] = {
        {3, CFile::begin, 3, 3, '3'},          // the read moves on to 4
        {2, CFile::current, 6, 6, '6'},        // from 4
        {-2, CFile::end, 8, 8, '8'},
        {-1, CFile::begin, -1, 9, '9'},        // refused: stays after the read
        {-100, CFile::current, -1, 10, 0},     // before the start
        {-11, CFile::end, -1, 10, 0},
        {0, CFile::end, 10, 10, 0},
        {5, CFile::end, 15, 15, 0},            // past the end is allowed
        {INT64_MAX, CFile::current, -1, 15, 0},  // overflows
        {int64_t{1} << 33, CFile::begin, int64_t{1} << 33, uint64_t{1} << 33, 0},
        {0, CFile::begin, 0, 0, '0'},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.offset) + " from " + std::to_string(c.from));
        EXPECT_EQ(file.Seek(c.offset, c.from), c.answer);
        EXPECT_EQ(file.GetPosition(), c.positionAfter);
        char byte = 0;
        EXPECT_EQ(file.Read(&byte, 1), c.nextByte ? 1u : 0u);
        EXPECT_EQ(byte, c.nextByte);
    }
}

TEST_F(FileTest, ReadsWritesAndModes)
{
    const std::string path = m_scratch + "/data.bin";
    CFile file;
    EXPECT_FALSE(file.IsOpen());
    char buffer[16] = {};
    EXPECT_EQ(file.Read(buffer, 4), 0u);
    EXPECT_EQ(file.Write("x", 1), 0u);
    EXPECT_EQ(file.Seek(0, CFile::begin), -1);
    EXPECT_FALSE(file.Open(path.c_str(), CFile::modeRead));  // not there yet

    ASSERT_TRUE(file.Open(path.c_str(), CFile::modeCreate | CFile::modeReadWrite));
    EXPECT_EQ(file.Write("hello world", 11), 11u);
    EXPECT_EQ(file.GetLength(), 11u);
    EXPECT_EQ(file.Seek(6, CFile::begin), 6);
    EXPECT_EQ(file.Read(buffer, 16), 5u);  // short at the end, not a failure
    EXPECT_EQ(std::string(buffer, 5), "world");
    EXPECT_EQ(file.Read(buffer, 16), 0u);
    file.Close();
    EXPECT_FALSE(file.IsOpen());
    file.Abort();  // harmless when closed

    // A write-only file reads as empty: the error counts as the end.
    ASSERT_TRUE(file.Open(path.c_str(), CFile::modeWrite));
    EXPECT_EQ(file.Read(buffer, 4), 0u);
    EXPECT_EQ(file.Write("J", 1), 1u);  // opened without truncation
    file.Close();
    EXPECT_EQ(ReadText(path), "Jello world");

    ASSERT_TRUE(file.Open(path.c_str(), CFile::modeCreate | CFile::modeWrite));
    file.Close();
    EXPECT_EQ(ReadText(path), "");
}

TEST_F(FileTest, FolderAndFileHelpers)
{
    const std::string outside = m_scratch + "/outside.txt";
    WriteText(outside, "keep me");
    const std::string tree = m_scratch + "/tree";
    ASSERT_TRUE(platform::CreateDirectory(tree));
    EXPECT_FALSE(platform::CreateDirectory(tree));
    ASSERT_TRUE(platform::CreateDirectory(tree + "/inner"));
    WriteText(tree + "/inner/a.wav", "a");
    WriteText(tree + "/b.wav", "b");
    ASSERT_EQ(symlink(outside.c_str(), (tree + "/link").c_str()), 0);

    EXPECT_TRUE(platform::FileExists(tree + "/inner/a.wav"));
    EXPECT_TRUE(platform::FileExists(tree));
    EXPECT_FALSE(platform::FileExists(tree + "/missing"));
    EXPECT_FALSE(platform::FileExists(""));
    EXPECT_FALSE(platform::DeleteFile(tree + "/inner"));  // a folder is not a file
    EXPECT_FALSE(platform::RemoveDirectoryTree(tree + "/b.wav"));

    ASSERT_TRUE(platform::RemoveDirectoryTree(tree));
    EXPECT_FALSE(platform::FileExists(tree));
    EXPECT_EQ(ReadText(outside), "keep me");  // the link went, not its target
    EXPECT_FALSE(platform::RemoveDirectoryTree(tree));

    struct CopyCase {
        const char* what;
        std::string from, to;
        bool failIfExists;
        bool copied;
        std::string targetAfter;
    };
    const std::string copy = m_scratch + "/copy.txt";
    WriteText(copy, "old");
    const CopyCase copies[] = {
        {"onto an existing file, refused", outside, copy, true, false, "old"},
        {"onto an existing file, replacing", outside, copy, false, true, "keep me"},
        {"onto itself", copy, copy, false, false, "keep me"},
        {"from a missing file", m_scratch + "/none", copy, false, false, "keep me"},
        {"into a missing folder", outside, m_scratch + "/no/where.txt", false, false, ""},
    };
    for (const CopyCase& c : copies) {
        EXPECT_EQ(platform::CopyFile(c.from, c.to, c.failIfExists), c.copied) << c.what;
        EXPECT_EQ(ReadText(c.to), c.targetAfter) << c.what;
    }
    EXPECT_TRUE(platform::DeleteFile(copy));
    EXPECT_FALSE(platform::DeleteFile(copy));
}

TEST_F(FileTest, OnlyRegularFilesAreReadOrCopiedAndNeverBlock)
{
    const std::string fifo = m_scratch + "/fifo.wav";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string regular = m_scratch + "/regular.wav";
    WriteText(regular, "RIFF....WAVE");
    const std::string target = m_scratch + "/copy.wav";
    struct Case {
        const char* what;
        std::string path;
        const char* expected;
    };
    const Case cases[] = {
        {"a regular file", regular, "true"},
        // Opening a FIFO for reading waits for a writer that never comes.
        {"a FIFO", fifo, "false"},
        // Endless bytes, and a device that reads as empty.
        {"/dev/zero", "/dev/zero", "false"},
        {"/dev/null", "/dev/null", "false"},
        {"a folder", m_scratch, "false"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(ResultWithin5s([&] {
                      CFile file;
                      return file.Open(c.path.c_str(), CFile::modeRead | CFile::typeBinary);
                  }),
                  c.expected)
            << "CFile::Open";
        EXPECT_EQ(ResultWithin5s([&] {
                      CMappableFile file;
                      return file.Open(c.path);
                  }),
                  c.expected)
            << "CMappableFile::Open";
        ::unlink(target.c_str());
        EXPECT_EQ(ResultWithin5s([&] { return platform::CopyFile(c.path, target, false); }), c.expected)
            << "CopyFile";
        EXPECT_EQ(platform::FileExists(target), std::string(c.expected) == "true") << "nothing is left of a failed copy";
    }
    // The regular file still reads and copies whole.
    ASSERT_TRUE(platform::CopyFile(regular, target, false));
    EXPECT_EQ(ReadText(target), "RIFF....WAVE");
    CFile file;
    ASSERT_TRUE(file.Open(regular.c_str(), CFile::modeRead));
    char bytes[16] = {};
    EXPECT_EQ(file.Read(bytes, sizeof bytes), 12u);
    // Writing still makes and truncates files as before.
    CFile out;
    ASSERT_TRUE(out.Open(target.c_str(), CFile::modeCreate | CFile::modeWrite));
    EXPECT_EQ(out.Write("ab", 2), 2u);
    out.Close();
    EXPECT_EQ(ReadText(target), "ab");
}

TEST(ExecutablePath, NamesThisTest)
{
    const std::string path = platform::ExecutablePath();
    ASSERT_GT(path.size(), 10u);
    EXPECT_EQ(path.front(), '/');
    EXPECT_EQ(path.substr(path.size() - 10), "/File_test");
}

}  // namespace
