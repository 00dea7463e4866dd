#pragma once
#include <string>

#include "platform/Types.h"

// The named file calls, each with a success result.
BOOL CopyFileA(const char* from, const char* to, BOOL failIfExists);
BOOL DeleteFileA(const char* path);
BOOL SetCurrentDirectoryA(const char* path);

namespace platform {
std::string CurrentDirectory();
// The user's home folder from the account database, "/" when unknown.
std::string HomeFolder();
}  // namespace platform
