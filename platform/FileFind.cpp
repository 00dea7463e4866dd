#include "platform/FileFind.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

std::vector<std::string> FindFiles(const std::string& folder, const std::string& wildcard, MatchCase matchCase)
{
    const int flags = matchCase == MatchCase::Ignore ? FNM_CASEFOLD : 0;
    std::vector<std::string> names;
    DIR* directory = opendir(folder.c_str());
    if (directory == nullptr) return names;
    std::string base = folder.empty() || folder.back() == '/' ? folder : folder + "/";
    while (dirent* entry = readdir(directory)) {
        std::string name = entry->d_name;
        if (fnmatch(wildcard.c_str(), name.c_str(), flags) != 0) continue;
        struct stat info;
        if (stat((base + name).c_str(), &info) == 0 && S_ISREG(info.st_mode)) names.push_back(name);
    }
    closedir(directory);
    return names;
}

bool RemoveDirectory(const std::string& path)
{
    return rmdir(path.c_str()) == 0;
}

}  // namespace platform
