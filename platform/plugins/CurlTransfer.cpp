// The network plugin's transfer: libcurl's part of DownloadToFile, behind
// the plugin table so that a run that fetches nothing never maps libcurl.
#include "platform/CurlPluginTable.h"

#include <algorithm>
#include <chrono>
#include <mutex>

#include <curl/curl.h>

namespace platform {
namespace {

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

struct Progress {
    StallWatch watch;
    const std::atomic<bool>* cancelled;
    const DownloadObserver* observer;
};

int CheckForStall(void* progressData, curl_off_t total, curl_off_t received, curl_off_t, curl_off_t sent)
{
    Progress& progress = *static_cast<Progress*>(progressData);
    if (progress.cancelled->load(std::memory_order_relaxed)) return 1;
    if (progress.observer != nullptr && *progress.observer)
        (*progress.observer)(uint64_t(std::max<curl_off_t>(received, 0)), uint64_t(std::max<curl_off_t>(total, 0)));
    StallWatch& watch = progress.watch;
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
CURLcode RunUntilDoneOrCancelled(CURL* handle, const std::atomic<bool>& cancelled)
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
        if (cancelled.load()) {
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

std::string DetailOfTransfer(CURL* handle, CURLcode code)
{
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    if (code == CURLE_HTTP_RETURNED_ERROR && status >= 400) return "HTTP " + std::to_string(status);
    return code == CURLE_OK ? std::string() : curl_easy_strerror(code);
}

HRESULT RunTransfer(const TransferRequest& request, std::string& detail)
{
    InitialiseTransportOnce();
    const std::string& url = request.url;
    const DownloadLimits& limits = request.limits;
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
    Progress progress{StallWatch{std::chrono::seconds(limits.stallSeconds)}, request.cancelled, request.observer};
    curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, CheckForStall);
    curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &progress);
    curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, WriteToFile);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, request.file);
    CURLcode code = RunUntilDoneOrCancelled(handle, *request.cancelled);
    detail = DetailOfTransfer(handle, code);
    curl_easy_cleanup(handle);
    if (request.cancelled->load()) return kDownloadCancelled;
    return ResultOfTransfer(code);
}

}  // namespace
}  // namespace platform

extern "C" __attribute__((visibility("default"))) const platform::PluginHeader* tempvox_plugin_table()
{
    static const platform::CurlPluginTable table = {
        {platform::kCurlPluginVersion, sizeof(platform::CurlPluginTable), platform::kPluginBuild},
        platform::RunTransfer,
    };
    return &table.header;
}
