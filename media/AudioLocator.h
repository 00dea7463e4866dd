#pragma once
#include <cstdint>
#include <string>

// Turning what a host names into one local .wav path, and the temporary
// folder that remote files are fetched into.

// The folder "ZqTempAudio" beside the running executable, made if missing,
// with a trailing separator. Failures to make it go unreported: downloads
// into it fail later.
std::string MakeTempFolder();

// True when the text after the last '.' (or the whole path without one) is
// "wzq" in any case.
bool IsEncodedPath(const std::string& path);

// The last path component: after the last backslash, else after the last
// '/', else all of it.
std::string FileNameOfPath(const std::string& path);

// The address a remote file is fetched from: "http:/" and "ftp://" prefixes
// (any case) take the path as it is; any other server gets
// "http://address:port" in front of the path.
std::string BuildDownloadUrl(const std::string& address, int16_t port, const std::string& path);

// Fetches a remote file into `tempDir`, under its own name or under
// `localName` with its extension. The local path, or empty on failure.
std::string FetchToTemp(const char* address, int16_t port, const char* path, const char* localName,
                        const std::string& tempDir);

// The first file in `tempDir` matching localName.* whose name equals
// localName.wav without regard to case; empty when there is none.
std::string FindCachedCopy(const std::string& tempDir, const std::string& localName);

// Deletes every file of the folder, then removes it; the result of the
// removal.
bool DeleteFolderAndFiles(const std::string& tempDir);
