#pragma once
#include <atomic>
#include <cstdio>
#include <string>

#include "platform/Download.h"
#include "platform/Plugin.h"

// The table of tempvox-curl.so, the one object that links libcurl. Download
// loads it when the first remote address is fetched; the partial file, the
// cancel flag and the observer stay on this side.
namespace platform {

inline constexpr const char* kCurlPluginFile = "tempvox-curl.so";
inline constexpr uint32_t kCurlPluginVersion = 1;

struct TransferRequest {
    std::string url;
    FILE* file = nullptr;  // the caller's, open for writing; the bytes go here
    DownloadLimits limits;
    const std::atomic<bool>* cancelled = nullptr;  // read while the transfer runs
    const DownloadObserver* observer = nullptr;    // may be empty; called on this thread
};

struct CurlPluginTable {
    PluginHeader header;
    // Runs one transfer on the calling thread: 0 or one of the kDownload
    // results, with `detail` set to libcurl's account of a failure.
    HRESULT (*transfer)(const TransferRequest& request, std::string& detail);
};

}  // namespace platform
