#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>

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
