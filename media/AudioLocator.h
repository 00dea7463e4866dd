#pragma once
#include <cstdint>
#include <string>

// Turning what a host names into one local .wav path, and the temporary
// folder that remote files are fetched into.

// The folder "ZqTempAudio" beside the running executable, made if missing,
// with a trailing separator. Where that folder can't be made or written (an
// installed program under /usr/bin run by an ordinary user), it is
// $XDG_CACHE_HOME/tempvox/ZqTempAudio/ instead (~/.cache without it).
// Failures to make either go unreported: downloads into it fail later.
std::string MakeTempFolder();

// The same choice for a given executable path and cache home; for tests.
std::string ChooseTempFolder(const std::string& executablePath, const std::string& cacheHome);

// Deletes a file that the controls made: one in the shared temporary folder
// `tempDir`, or one this process recorded as its own. Anything else (a
// user's file that a path happens to name) is left alone; false then.
bool DeleteControlFile(const std::string& path, const std::string& tempDir);

// Removes the temporary folder when nothing is left in it, so that a run
// that made it leaves nothing behind; a folder that holds files stays.
void RemoveTempFolderIfEmpty(const std::string& tempDir);

// True when the text after the last '.' (or the whole path without one) is
// "wzq" in any case.
bool IsEncodedPath(const std::string& path);

// The last path component: after the last backslash, else after the last
// '/', else all of it.
std::string FileNameOfPath(const std::string& path);

// The address a remote file is fetched from: "http:/", "https://" and
// "ftp://" prefixes (any case) take the path as it is; any other server gets
// "http://address:port" in front of the path.
std::string BuildDownloadUrl(const std::string& address, int16_t port, const std::string& path,
                             bool takeHttps = false);

// Fetches a remote file into `tempDir`, under its own name or under
// `localName` with its extension. The local path, or empty on failure; a
// `localName` that would lead out of the folder ('/' or "..") fails.
std::string FetchToTemp(const char* address, int16_t port, const char* path, const char* localName,
                        const std::string& tempDir, bool takeHttps = false);

// The first file in `tempDir` matching localName.* whose name equals
// localName.wav without regard to case; empty when there is none.
std::string FindCachedCopy(const std::string& tempDir, const std::string& localName);

// Deletes every file of the folder, then removes it; the result of the
// removal.
bool DeleteFolderAndFiles(const std::string& tempDir);
