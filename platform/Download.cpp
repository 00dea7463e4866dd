#include "platform/Download.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

#include <curl/curl.h>

namespace platform {
namespace {

// Set from a signal handler, read by the transfer loop and curl's progress
// callback: it must be lock-free to be touched from a handler at all.
std::atomic<bool> g_cancelled{false};
static_assert(std::atomic<bool>::is_always_lock_free);

// How long the transfer loop waits on the sockets before it looks at the
// cancel again: the most a cancel can take to be noticed.
constexpr int kCancelCheckMs = 50;

void InitialiseTransportOnce()
{
    // curl's global set-up is not thread-safe; doing it once up front keeps
    // later handles from racing for it.
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

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

size_t WriteToFile(char* data, size_t size, size_t count, void* file)
{
    return std::fwrite(data, size, count, static_cast<FILE*>(file)) * size;
}

// Watches for a transfer that has gone quiet: curl's own low-speed check
// averages over several seconds, so a burst followed by silence would
// outlive the limit.
struct StallWatch {
    std::chrono::steady_clock::duration limit;
    std::chrono::steady_clock::time_point lastProgress = std::chrono::steady_clock::now();
    curl_off_t lastReceived = 0;
};

thread_local DownloadObserver t_observer;

int CheckForStall(void* watchData, curl_off_t total, curl_off_t received, curl_off_t, curl_off_t sent)
{
    if (g_cancelled.load(std::memory_order_relaxed)) return 1;
    if (t_observer) t_observer(uint64_t(std::max<curl_off_t>(received, 0)), uint64_t(std::max<curl_off_t>(total, 0)));
    StallWatch& watch = *static_cast<StallWatch*>(watchData);
    const auto now = std::chrono::steady_clock::now();
    if (received + sent != watch.lastReceived) {
        watch.lastReceived = received + sent;
        watch.lastProgress = now;
        return 0;
    }
    return now - watch.lastProgress > watch.limit ? 1 : 0;
}

HRESULT ResultOfTransfer(CURLcode code)
{
    switch (code) {
    case CURLE_OK:
        return 0;
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_ABORTED_BY_CALLBACK:
        return kDownloadAborted;
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL:
        return kDownloadBadAddress;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_CONNECT:
        return kDownloadCannotConnect;
    case CURLE_HTTP_RETURNED_ERROR:
    case CURLE_REMOTE_FILE_NOT_FOUND:
    case CURLE_FTP_COULDNT_RETR_FILE:
    case CURLE_REMOTE_ACCESS_DENIED:
        return kDownloadNotFound;
    case CURLE_WRITE_ERROR:
        return kDownloadFileError;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        return kDownloadUntrusted;
    default:
        return kDownloadFailed;
    }
}

// curl_easy_perform waits on the sockets for up to a second at a time and
// calls the progress callback only between waits; this loop waits in short
// slices so that a cancel ends a quiet transfer at once.
CURLcode RunUntilDoneOrCancelled(CURL* handle)
{
    CURLM* multi = curl_multi_init();
    if (multi == nullptr) return CURLE_OUT_OF_MEMORY;
    if (curl_multi_add_handle(multi, handle) != CURLM_OK) {
        curl_multi_cleanup(multi);
        return CURLE_FAILED_INIT;
    }
    CURLcode code = CURLE_OK;
    bool done = false;
    while (!done) {
        if (g_cancelled.load()) {
            code = CURLE_ABORTED_BY_CALLBACK;
            break;
        }
        int running = 0;
        if (curl_multi_perform(multi, &running) != CURLM_OK) {
            code = CURLE_FAILED_INIT;
            break;
        }
        int queued = 0;
        while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
            if (message->msg == CURLMSG_DONE && message->easy_handle == handle) {
                code = message->data.result;
                done = true;
            }
        }
        if (done) break;
        if (running == 0) {
            // Finished without a message: nothing more will come.
            code = CURLE_GOT_NOTHING;
            break;
        }
        if (curl_multi_poll(multi, nullptr, 0, kCancelCheckMs, nullptr) != CURLM_OK) {
            code = CURLE_FAILED_INIT;
            break;
        }
    }
    curl_multi_remove_handle(multi, handle);
    curl_multi_cleanup(multi);
    return code;
}

// What the transport said about the last transfer on this thread: the
// HTTP status of a refusal, or libcurl's own words for a failure.
thread_local std::string t_lastDetail;

std::string DetailOfTransfer(CURL* handle, CURLcode code)
{
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    if (code == CURLE_HTTP_RETURNED_ERROR && status >= 400) return "HTTP " + std::to_string(status);
    return code == CURLE_OK ? std::string() : curl_easy_strerror(code);
}

HRESULT Transfer(const std::string& url, FILE* file, const DownloadLimits& limits)
{
    CURL* handle = curl_easy_init();
    if (handle == nullptr) return kDownloadFailed;
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https,ftp");
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https,ftp");
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, 10L);
    curl_easy_setopt(handle, CURLOPT_FAILONERROR, 1L);
    // Signals would be the only way to time out name look-ups otherwise, and
    // they are not ours to take in a host's process.
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, limits.connectTimeoutSeconds);
    StallWatch watch{std::chrono::seconds(limits.stallSeconds)};
    curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, CheckForStall);
    curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &watch);
    curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, WriteToFile);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, file);
    CURLcode code = RunUntilDoneOrCancelled(handle);
    t_lastDetail = DetailOfTransfer(handle, code);
    curl_easy_cleanup(handle);
    if (g_cancelled.load()) return kDownloadCancelled;
    return ResultOfTransfer(code);
}

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
    InitialiseTransportOnce();

    std::string partial = PartialNameFor(target);
    int fd = ::open(partial.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) return kDownloadFileError;
    FILE* file = ::fdopen(fd, "wb");
    if (file == nullptr) {
        ::close(fd);
        ::unlink(partial.c_str());
        return kDownloadFileError;
    }

    HRESULT result = Transfer(url, file, limits);
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
