#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "media/MediaTestSupport.h"
#include "platform/FileFind.h"
#include "shell/TempvoxCtrl.h"
#include "support/HostHarness.h"
#include "support/SpeechLikeSignal.h"
#include "support/WavFiles.h"

using namespace mediatest;

namespace {

// Normalised correlation of two runs of 16-bit samples over the shorter.
double Correlation(const std::string& a, const std::string& b)
{
    const std::vector<int16_t> x = testwav::ToSamples16(a);
    const std::vector<int16_t> y = testwav::ToSamples16(b);
    double xy = 0.0, xx = 0.0, yy = 0.0;
    for (size_t i = 0; i < x.size() && i < y.size(); ++i) {
        xy += double(x[i]) * y[i];
        xx += double(x[i]) * x[i];
        yy += double(y[i]) * y[i];
    }
    return xx > 0.0 && yy > 0.0 ? xy / std::sqrt(xx * yy) : 0.0;
}

// Each test runs in a private copy of this executable (see
// RunCurrentTestInPrivateCopy), so the folder beside it is the test's alone.
class RemoteAudioTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (PythonInterpreter().empty()) GTEST_SKIP() << "python3 is needed for the loopback servers";
        if (!InPrivateCopy()) return;
        MarkPrivateCopyStarted();
        host = std::make_unique<HostHarness>();
        served = std::make_unique<ScratchFolder>("served");
        local = std::make_unique<ScratchFolder>("local");

        const std::vector<int16_t> speech = test_signals::SpeechLike(22050, 22050, 1, 2);
        wavBytes = testwav::CanonicalWav(testwav::Format{1, 1, 22050, 16}, testwav::Samples16(speech));
        voxadpcm::StreamHeader header;
        header.sampleRate = 22050;
        wzqBytes = EncodeSamples(header, speech);
        convertedBytes = 44 + size_t(header.frameCount) * (4 * header.frameBytes - 32);
        for (const std::string& folder : {served->Path(), local->Path()}) {
            WriteAll(folder + "lesson.wav", wavBytes);
            WriteAll(folder + "lesson.wzq", wzqBytes);
        }
        http = std::make_unique<LoopbackServer>("http", served->Path(), local->Path());
        ASSERT_NE(http->Port(), 0) << "the http server did not start";
        control = std::make_unique<CTempvoxCtrl>();
        tempDir = control->TempDir();
    }

    bool Private() const { return InPrivateCopy(); }

    std::vector<std::string> FolderFiles() const
    {
        std::vector<std::string> names = platform::FindFiles(tempDir, "*");
        std::sort(names.begin(), names.end());
        return names;
    }

    // Plays the located file to its end on the manual device; the bytes heard.
    std::string PlayToEnd()
    {
        EXPECT_TRUE(control->StartPlay());
        while (host->Step()) host->Pump();
        std::string played = host->PlayedBytes();
        control->StopPlay();
        return played;
    }

    std::unique_ptr<HostHarness> host;
    std::unique_ptr<ScratchFolder> served;
    std::unique_ptr<ScratchFolder> local;
    std::unique_ptr<LoopbackServer> http;
    std::unique_ptr<CTempvoxCtrl> control;
    std::string tempDir;
    std::string wavBytes;
    std::string wzqBytes;
    size_t convertedBytes = 0;
};

}  // namespace

TEST_F(RemoteAudioTest, RemoteFilesAreFetchedConvertedAndPlayed)
{
    if (!Private()) return RunCurrentTestInPrivateCopy();
    LoopbackServer ftp("ftp", served->Path(), local->Path());
    ASSERT_NE(ftp.Port(), 0) << "no ftp server: python3-pyftpdlib is needed";
    struct Case {
        const char* name;
        std::string address;
        int16_t port;
        const char* path;
        std::vector<std::string> folder;
    };
    const Case cases[] = {
        {"server and port", "127.0.0.1", int16_t(http->Port()), "/lesson.wav", {"lesson.wav"}},
        {"http address in capitals, port unused", "HTTP://127.0.0.1:" + std::to_string(http->Port()), 1,
         "/lesson.wav", {"lesson.wav"}},
        {"encoded over http", "127.0.0.1", int16_t(http->Port()), "/lesson.wzq", {"lesson.wav", "lesson.wzq"}},
        {"ftp", ftp.Url(), 0, "/lesson.wav", {"lesson.wav"}},
        {"encoded over ftp", ftp.Url(), -2, "/lesson.wzq", {"lesson.wav", "lesson.wzq"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(control->SetPlayFilePath(c.address.c_str(), c.port, c.path));
        EXPECT_EQ(control->GetPlayFilePath(), tempDir + "lesson.wav");
        EXPECT_EQ(FolderFiles(), c.folder);
        const std::string wav = ReadAll(tempDir + "lesson.wav");
        if (c.folder.size() == 1) {
            EXPECT_EQ(wav, wavBytes);
        } else {
            EXPECT_EQ(ReadAll(tempDir + "lesson.wzq"), wzqBytes);
            EXPECT_EQ(wav.size(), convertedBytes);
        }
        // The gain stage scales what is heard, so the shape is compared.
        const std::string played = PlayToEnd();
        EXPECT_EQ(played.size(), wav.size() - 44);
        EXPECT_GT(Correlation(played, wav.substr(44)), 0.999);
    }
}

TEST_F(RemoteAudioTest, FailedDownloadsLeaveNoFile)
{
    if (!Private()) return RunCurrentTestInPrivateCopy();
    struct Case {
        const char* name;
        std::string address;
        const char* path;
        BOOL result;
        std::vector<std::string> requests;
    };
    const std::string server = http->Url();
    const Case cases[] = {
        {"not found", server, "/absent.wav", FALSE, {"/absent.wav"}},
        {"dropped twice", server, "/drop/lesson.wav", FALSE, {"/drop/lesson.wav", "/drop/lesson.wav"}},
        {"dropped once, then whole", server, "/flaky/lesson.wav", TRUE, {"/flaky/lesson.wav", "/flaky/lesson.wav"}},
        {"refused", "http://127.0.0.1:1", "/lesson.wav", FALSE, {}},
    };
    size_t seen = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(control->SetPlayFilePath(c.address.c_str(), 80, c.path), c.result);
        const std::vector<std::string> all = http->Requests();
        EXPECT_EQ(std::vector<std::string>(all.begin() + ptrdiff_t(std::min(seen, all.size())), all.end()),
                  c.requests);
        seen = all.size();
        if (c.result) {
            EXPECT_EQ(ReadAll(control->GetPlayFilePath()), wavBytes);
        } else {
            EXPECT_EQ(control->GetPlayFilePath(), "");
            EXPECT_EQ(FolderFiles(), std::vector<std::string>{});
        }
    }
    EXPECT_TRUE(host->BoxIds().empty()) << "a failed download shows nothing";
}

TEST_F(RemoteAudioTest, NamedDownloadsAreFoundAgainWithoutAskingTheServer)
{
    if (!Private()) return RunCurrentTestInPrivateCopy();
    const int16_t port = int16_t(http->Port());
    for (const char* path : {"/lesson.wav", "/lesson.wzq"}) {
        SCOPED_TRACE(path);
        const std::string saveName = std::string("saved-") + (path + 8);
        const size_t before = http->Requests().size();
        ASSERT_TRUE(control->SetPlayFilePath2("127.0.0.1", port, path, saveName.c_str()));
        EXPECT_EQ(control->GetPlayFilePath(), tempDir + saveName + ".wav");
        EXPECT_EQ(http->Requests().size(), before + 1);
        ASSERT_TRUE(control->SetPlayFilePath2("127.0.0.1", port, path, saveName.c_str()));
        EXPECT_EQ(control->GetPlayFilePath(), tempDir + saveName + ".wav");
        EXPECT_EQ(http->Requests().size(), before + 1);
    }
    EXPECT_EQ(FolderFiles(), (std::vector<std::string>{"saved-wav.wav", "saved-wzq.wav", "saved-wzq.wzq"}));
}

TEST_F(RemoteAudioTest, NextFileDeletesWhatTheSourceBefore)
{
    if (!Private()) return RunCurrentTestInPrivateCopy();
    struct Case {
        const char* name;
        const char* address;
        std::string path;
        bool usersWavBeside;
        std::vector<std::string> gone;
        std::vector<std::string> kept;
    };
    const std::string l = local->Path();
    // A converted file goes beside its source only where no file of the
    // user's stands; only what the control made is deleted.
    const Case cases[] = {
        {"local wav", nullptr, l + "lesson.wav", true, {}, {l + "lesson.wav"}},
        {"local wzq", nullptr, l + "lesson.wzq", false, {l + "lesson.wav"}, {l + "lesson.wzq"}},
        {"local wzq beside a user's wav", nullptr, l + "lesson.wzq", true, {tempDir + "lesson-1.wav"},
         {l + "lesson.wzq", l + "lesson.wav"}},
        {"remote wav", "127.0.0.1", "/lesson.wav", false, {tempDir + "lesson.wav"}, {}},
        {"remote wzq", "127.0.0.1", "/lesson.wzq", false, {tempDir + "lesson.wav", tempDir + "lesson.wzq"}, {}},
    };
    const std::string next = served->Path() + "lesson.wav";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        platform::DeleteFile(l + "lesson.wav");
        if (c.usersWavBeside) WriteAll(l + "lesson.wav", wavBytes);
        const int16_t port = c.address != nullptr ? int16_t(http->Port()) : int16_t(-1);
        ASSERT_TRUE(control->SetPlayFilePath(c.address, port, c.path.c_str()));
        for (const std::string& file : c.gone) ASSERT_TRUE(platform::FileExists(file)) << file;
        ASSERT_TRUE(control->SetPlayFilePath(nullptr, -1, next.c_str()));
        for (const std::string& file : c.gone) EXPECT_FALSE(platform::FileExists(file)) << file;
        for (const std::string& file : c.kept) EXPECT_TRUE(platform::FileExists(file)) << file;
        if (c.usersWavBeside) {
            EXPECT_EQ(ReadAll(l + "lesson.wav"), wavBytes);
        }
        EXPECT_TRUE(platform::FileExists(next));
    }
}

TEST_F(RemoteAudioTest, FolderGoesWithDeleteAllOrWithTheLastRemoteControl)
{
    if (!Private()) return RunCurrentTestInPrivateCopy();
    const int16_t port = int16_t(http->Port());
    ASSERT_TRUE(control->SetPlayFilePath("127.0.0.1", port, "/lesson.wzq"));
    ASSERT_TRUE(control->SetPlayFilePath2("127.0.0.1", port, "/lesson.wav", "kept"));
    EXPECT_EQ(FolderFiles(), (std::vector<std::string>{"kept.wav", "lesson.wav", "lesson.wzq"}));
    EXPECT_TRUE(control->DeleteAllDownedFile());
    EXPECT_FALSE(platform::FileExists(tempDir));
    // Nothing makes the folder again for this control: downloads now fail.
    EXPECT_FALSE(control->SetPlayFilePath("127.0.0.1", port, "/lesson.wav"));
    control.reset();

    struct Case {
        const char* name;
        const char* address;
        std::string path;
        bool folderStays;
    };
    const Case cases[] = {
        {"last source local", nullptr, local->Path() + "lesson.wav", true},
        {"last source remote", "127.0.0.1", "/lesson.wav", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        {
            CTempvoxCtrl ending;
            ASSERT_TRUE(platform::FileExists(tempDir));
            WriteAll(tempDir + "other.wav", wavBytes);
            ASSERT_TRUE(ending.SetPlayFilePath(c.address, c.address != nullptr ? port : int16_t(-1), c.path.c_str()));
        }
        EXPECT_EQ(platform::FileExists(tempDir), c.folderStays);
        EXPECT_EQ(platform::FileExists(tempDir + "other.wav"), c.folderStays);
    }
    EXPECT_TRUE(platform::FileExists(local->Path() + "lesson.wav"));
}
