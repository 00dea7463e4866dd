#include "platform/Download.h"

#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "platform/CurlPluginTable.h"

namespace platform {
namespace {

// Set from a signal handler, read by the transfer loop and curl's progress
// callback: it must be lock-free to be touched from a handler at all.
std::atomic<bool> g_cancelled{false};
static_assert(std::atomic<bool>::is_always_lock_free);

// The hidden name beside the target that a download is written under. It
// starts with ".~" so that a search for "name.*" never takes it for a copy.
std::string PartialNameFor(const std::string& target)
{
    static std::atomic<unsigned> serial{0};
    size_t slash = target.rfind('/');
    std::string folder = slash == std::string::npos ? std::string() : target.substr(0, slash + 1);
    std::string name = slash == std::string::npos ? target : target.substr(slash + 1);
    return folder + ".~" + name + "." + std::to_string(::getpid()) + "." + std::to_string(serial++);
}

thread_local DownloadObserver t_observer;

// What the transport said about the last transfer on this thread: the
// HTTP status of a refusal, or libcurl's own words for a failure.
thread_local std::string t_lastDetail;

thread_local HRESULT t_lastResult = 0;

}  // namespace

void SetDownloadObserver(DownloadObserver observer)
{
    t_observer = std::move(observer);
}

HRESULT LastDownloadResult()
{
    return t_lastResult;
}

std::string LastDownloadDetail()
{
    return t_lastDetail;
}

const char* DescribeDownloadResult(HRESULT result)
{
    switch (result) {
    case 0: return "downloaded";
    case kDownloadAborted: return "the connection broke off or stalled";
    case kDownloadBadAddress: return "not an address that can be fetched";
    case kDownloadCannotConnect: return "the server cannot be reached";
    case kDownloadNotFound: return "the server has no such file";
    case kDownloadFileError: return "the download cannot be written to disk";
    case kDownloadCancelled: return "the download was cancelled";
    case kDownloadUntrusted: return "the server's certificate is not trusted";
    default: return "the download failed";
    }
}

void CancelDownloads()
{
    g_cancelled.store(true);
}

void ResumeDownloads()
{
    g_cancelled.store(false);
}

bool DownloadsCancelled()
{
    return g_cancelled.load();
}

namespace {

HRESULT DownloadToFileOnce(const std::string& url, const std::string& target, const DownloadLimits& limits)
{
    if (url.empty() || target.empty()) return kDownloadBadAddress;
    if (g_cancelled.load()) return kDownloadCancelled;
    // libcurl is loaded with the first remote address. Without the plugin
    // the fetch fails as a network failure would, and the detail says why.
    const CurlPluginTable* transport =
        LoadPluginTable<CurlPluginTable>(kCurlPluginFile, kCurlPluginVersion, t_lastDetail);
    if (transport == nullptr) return kDownloadFailed;

    std::string partial = PartialNameFor(target);
    int fd = ::open(partial.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) return kDownloadFileError;
    FILE* file = ::fdopen(fd, "wb");
    if (file == nullptr) {
        ::close(fd);
        ::unlink(partial.c_str());
        return kDownloadFileError;
    }

    TransferRequest request;
    request.url = url;
    request.file = file;
    request.limits = limits;
    request.cancelled = &g_cancelled;
    request.observer = &t_observer;
    HRESULT result = transport->transfer(request, t_lastDetail);
    if (std::fclose(file) != 0 && result == 0) result = kDownloadFileError;
    if (result == 0 && std::rename(partial.c_str(), target.c_str()) != 0) result = kDownloadFileError;
    if (result != 0) ::unlink(partial.c_str());
    return result;
}

}  // namespace

HRESULT DownloadToFile(const std::string& url, const std::string& target, const DownloadLimits& limits)
{
    t_lastDetail.clear();
    t_lastResult = DownloadToFileOnce(url, target, limits);
    return t_lastResult;
}

}  // namespace platform

HRESULT URLDownloadToFileA(void*, const char* url, const char* fileName, DWORD, void*)
{
    if (url == nullptr || fileName == nullptr) return platform::kDownloadBadAddress;
    return platform::DownloadToFile(url, fileName, platform::DownloadLimits{});
}
