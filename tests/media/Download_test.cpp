#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>
#include <thread>

#include "media/AudioLocator.h"
#include "media/MediaTestSupport.h"
#include "platform/Download.h"
#include "platform/FileFind.h"

using namespace mediatest;

namespace {

// A loopback port that nothing listens on: bound once, then let go.
int ClosedPort()
{
    int probe = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(probe);
    return ntohs(address.sin_port);
}

std::string RandomBytes(size_t count)
{
    std::mt19937 random(5);
    std::string bytes(count, '\0');
    for (char& c : bytes) c = char(random());
    return bytes;
}

}  // namespace

TEST(Download, FetchesWholeFilesOrLeavesTheTargetAsItWas)
{
    if (PythonInterpreter().empty()) GTEST_SKIP() << "python3 is needed for the loopback servers";
    ScratchFolder served("served");
    ScratchFolder work("download");
    const std::string content = RandomBytes(300000);
    WriteAll(served.Path() + "lesson.bin", content);
    LoopbackServer http("http", served.Path(), work.Path());
    LoopbackServer ftp("ftp", served.Path(), work.Path());
    ASSERT_NE(http.Port(), 0) << "the http server did not start";
    ASSERT_NE(ftp.Port(), 0) << "no ftp server: python3-pyftpdlib is needed";

    struct Case {
        const char* name;
        std::string url;
        HRESULT expected;
        long stallSeconds;
    };
    const Case cases[] = {
        {"http file", http.Url() + "/lesson.bin", 0, 30},
        {"redirected", http.Url() + "/redirect/lesson.bin", 0, 30},
        {"ftp file", ftp.Url() + "/lesson.bin", 0, 30},
        {"http 404", http.Url() + "/absent.bin", platform::kDownloadNotFound, 30},
        {"ftp missing file", ftp.Url() + "/absent.bin", platform::kDownloadNotFound, 30},
        {"dropped mid-file", http.Url() + "/drop/lesson.bin", platform::kDownloadAborted, 30},
        {"stalled mid-file", http.Url() + "/stall/lesson.bin", platform::kDownloadAborted, 1},
        {"refused", "http://127.0.0.1:" + std::to_string(ClosedPort()) + "/lesson.bin",
         platform::kDownloadCannotConnect, 30},
        {"negative port", "http://127.0.0.1:-2/lesson.bin", platform::kDownloadBadAddress, 30},
        {"foreign scheme", "file:///etc/hostname", platform::kDownloadBadAddress, 30},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string target = work.Path() + "target.bin";
        WriteAll(target, "what was there before");
        platform::DownloadLimits limits;
        limits.stallSeconds = c.stallSeconds;
        EXPECT_EQ(platform::DownloadToFile(c.url, target, limits), c.expected);
        EXPECT_EQ(ReadAll(target), c.expected == 0 ? content : "what was there before");
        // Nothing half-written is left beside it either.
        for (const std::string& name : platform::FindFiles(work.Path(), ".~*")) ADD_FAILURE() << "left over: " << name;
    }
}

namespace {

void CancelOnSignal(int)
{
    platform::CancelDownloads();
}

// Sends SIGUSR1 to the process after `delay`, as a tool's Ctrl-C would
// arrive while a download holds the host's thread.
std::thread SignalAfter(std::chrono::milliseconds delay)
{
    return std::thread([delay] {
        std::this_thread::sleep_for(delay);
        ::kill(::getpid(), SIGUSR1);
    });
}

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

TEST(Download, ACancelFromASignalHandlerStopsAStalledDownloadAtOnce)
{
    if (PythonInterpreter().empty()) GTEST_SKIP() << "python3 is needed for the loopback servers";
    ScratchFolder served("served");
    ScratchFolder work("cancel");
    const std::string content = RandomBytes(300000);
    WriteAll(served.Path() + "lesson.wav", content);
    LoopbackServer http("http", served.Path(), work.Path());
    ASSERT_NE(http.Port(), 0) << "the http server did not start";
    struct sigaction action {};
    action.sa_handler = CancelOnSignal;
    struct sigaction previous {};
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &previous), 0);
    platform::ResumeDownloads();

    // The server sends half the file, then nothing for 20 s; the stall limit
    // is 30 s, and the retry after it would wait as long again.
    const std::string target = work.Path() + "target.wav";
    WriteAll(target, "what was there before");
    auto start = std::chrono::steady_clock::now();
    std::thread signal = SignalAfter(std::chrono::milliseconds(500));
    EXPECT_EQ(platform::DownloadToFile(http.Url() + "/stall/lesson.wav", target, platform::DownloadLimits{}),
              platform::kDownloadCancelled);
    signal.join();
    EXPECT_LT(SecondsSince(start), 5.0) << "the stall went on after the cancel";
    EXPECT_EQ(ReadAll(target), "what was there before");
    for (const std::string& name : platform::FindFiles(work.Path(), ".~*")) ADD_FAILURE() << "left over: " << name;

    // Until it is cleared, the cancel stops new downloads before they ask.
    EXPECT_TRUE(platform::DownloadsCancelled());
    const size_t requestsBefore = http.Requests().size();
    EXPECT_EQ(platform::DownloadToFile(http.Url() + "/lesson.wav", target, platform::DownloadLimits{}),
              platform::kDownloadCancelled);
    EXPECT_EQ(http.Requests().size(), requestsBefore);
    platform::ResumeDownloads();
    EXPECT_FALSE(platform::DownloadsCancelled());
    EXPECT_EQ(platform::DownloadToFile(http.Url() + "/lesson.wav", target, platform::DownloadLimits{}), 0);
    EXPECT_EQ(ReadAll(target), content);

    // Naming a stalled file for play: one request, no retry after the cancel.
    const std::string cache = work.Path() + "cache/";
    ASSERT_TRUE(platform::CreateDirectory(cache));
    start = std::chrono::steady_clock::now();
    signal = SignalAfter(std::chrono::milliseconds(500));
    EXPECT_EQ(FetchToTemp(http.Url().c_str(), 0, "/stall/lesson.wav", nullptr, cache), "");
    signal.join();
    EXPECT_LT(SecondsSince(start), 5.0);
    size_t stalls = 0;
    for (const std::string& request : http.Requests()) stalls += request == "/stall/lesson.wav" ? 1 : 0;
    EXPECT_EQ(stalls, 2u) << "one for the download above, one for play";
    EXPECT_TRUE(platform::FindFiles(cache, "*").empty());

    platform::ResumeDownloads();
    ::sigaction(SIGUSR1, &previous, nullptr);
}
