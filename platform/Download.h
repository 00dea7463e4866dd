#pragma once
#include <cstdint>
#include <functional>
#include <string>

#include "platform/Types.h"

using HRESULT = int32_t;

namespace platform {

// Results of a download besides 0 for success. Only kDownloadAborted is
// worth another try: the connection dropped, stalled or timed out.
constexpr HRESULT kDownloadAborted = static_cast<HRESULT>(0x80004004u);
constexpr HRESULT kDownloadBadAddress = static_cast<HRESULT>(0x800C0002u);
constexpr HRESULT kDownloadCannotConnect = static_cast<HRESULT>(0x800C0004u);
constexpr HRESULT kDownloadNotFound = static_cast<HRESULT>(0x800C0005u);
constexpr HRESULT kDownloadFailed = static_cast<HRESULT>(0x800C0008u);
constexpr HRESULT kDownloadFileError = static_cast<HRESULT>(0x80004005u);
// Stopped by CancelDownloads; never worth another try.
constexpr HRESULT kDownloadCancelled = static_cast<HRESULT>(0x800704C7u);
// The https server's certificate was not trusted (unknown issuer, expired,
// another host's name). A refusal, never worth another try.
constexpr HRESULT kDownloadUntrusted = static_cast<HRESULT>(0x800C0019u);

// The result of the last download made on the calling thread (0 before any),
// and a short text for a result, for tools that tell their user why.
HRESULT LastDownloadResult();
const char* DescribeDownloadResult(HRESULT result);
// The transport's own account of the last failed download on the calling
// thread: "HTTP 404" for a status the server refused with, else libcurl's
// text ("Couldn't connect to server"); empty after a success or when no
// transfer was tried.
std::string LastDownloadDetail();

// Stops every download in progress within a few hundredths of a second, and
// makes every download started later fail with kDownloadCancelled before it
// sends a request, until ResumeDownloads. It only stores to a lock-free
// atomic, so a signal handler may call it (a tool's Ctrl-C while naming a
// file held up by a stalled server).
void CancelDownloads();
// Lets downloads run again after a cancel.
void ResumeDownloads();
bool DownloadsCancelled();

// Told, on the downloading thread, the bytes received so far and the
// length the server announced (0 when it announced none), several times a
// second while a download made on that thread runs. For a tool's progress
// line; a control never sets one.
using DownloadObserver = std::function<void(uint64_t received, uint64_t total)>;
void SetDownloadObserver(DownloadObserver observer);

struct DownloadLimits {
    // Time allowed to make the connection.
    long connectTimeoutSeconds = 5;
    // A transfer that moves no byte for this long is given up.
    long stallSeconds = 30;
};

// Fetches an http, https or ftp address into `target`, following
// redirects. The bytes go to a hidden file beside the target that is renamed
// over it only when complete, so a failed or interrupted download never
// leaves a partial file under the target's name. An HTTP error status is a
// failure, never a file.
HRESULT DownloadToFile(const std::string& url, const std::string& target, const DownloadLimits& limits);

}  // namespace platform

// The platform's synchronous fetch, with the default limits.
// `caller`, `reserved` and `statusCallback` are accepted and not used. 0 on
// success, a negative code from above otherwise.
HRESULT URLDownloadToFileA(void* caller, const char* url, const char* fileName, DWORD reserved,
                           void* statusCallback);
