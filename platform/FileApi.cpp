#include "platform/FileApi.h"

#include <pwd.h>
#include <unistd.h>

#include <vector>

#include "platform/File.h"

BOOL CopyFileA(const char* from, const char* to, BOOL failIfExists)
{
    if (from == nullptr || to == nullptr)
        return FALSE;
    return platform::CopyFile(from, to, failIfExists != 0) ? TRUE : FALSE;
}

BOOL DeleteFileA(const char* path)
{
    if (path == nullptr)
        return FALSE;
    return platform::DeleteFile(path) ? TRUE : FALSE;
}

BOOL SetCurrentDirectoryA(const char* path)
{
    return path != nullptr && ::chdir(path) == 0 ? TRUE : FALSE;
}

namespace platform {

std::string CurrentDirectory()
{
    std::vector<char> buffer(4096);
    if (::getcwd(buffer.data(), buffer.size()) == nullptr)
        return std::string();
    return std::string(buffer.data());
}

std::string HomeFolder()
{
    std::vector<char> scratch(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, scratch.data(), scratch.size(), &found) == 0 && found != nullptr &&
        found->pw_dir != nullptr && found->pw_dir[0] != '\0')
        return found->pw_dir;
    return "/";
}

}  // namespace platform
