#include "platform/OwnedFiles.h"

#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "platform/UserFolders.h"

namespace platform {
namespace {

// A file is known by the path it was made under and by its identity. The
// entry keeps the file open: while it does, the inode can't be given to
// another file, so a user's file that later takes the same name, after
// ours was deleted elsewhere, never passes for ours.
struct OwnedEntry {
    std::string path;
    dev_t device;
    ino_t inode;
    int fd;
};

struct Registry {
    std::mutex mutex;
    std::vector<OwnedEntry> entries;
};

Registry& Owned()
{
    static Registry registry;
    return registry;
}

bool IdentityOf(const std::string& path, dev_t& device, ino_t& inode)
{
    struct stat info;
    if (path.empty() || ::lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    device = info.st_dev;
    inode = info.st_ino;
    return true;
}

// Forgets the files that were deleted behind the registry's back; the
// caller holds the registry's lock.
void PruneLocked(Registry& registry)
{
    for (auto it = registry.entries.begin(); it != registry.entries.end();) {
        struct stat info;
        if (::fstat(it->fd, &info) != 0 || info.st_nlink == 0) {
            ::close(it->fd);
            it = registry.entries.erase(it);
        } else {
            ++it;
        }
    }
}

void AddLocked(Registry& registry, const std::string& path, int fd)
{
    struct stat info;
    if (::fstat(fd, &info) != 0) {
        ::close(fd);
        return;
    }
    PruneLocked(registry);
    registry.entries.push_back(OwnedEntry{path, info.st_dev, info.st_ino, fd});
}

// The entry for `path` while it still names the recorded file; the caller
// holds the registry's lock.
std::vector<OwnedEntry>::iterator FindLocked(Registry& registry, const std::string& path)
{
    dev_t device;
    ino_t inode;
    if (!IdentityOf(path, device, inode))
        return registry.entries.end();
    for (auto it = registry.entries.begin(); it != registry.entries.end(); ++it) {
        if (it->path == path && it->device == device && it->inode == inode)
            return it;
    }
    return registry.entries.end();
}

void SplitName(const std::string& path, std::string& stem, std::string& extension)
{
    const size_t slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const size_t dot = name.rfind('.');
    stem = dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
    extension = dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot);
}

bool EmptyOwnedFile(const std::string& path)
{
    int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return false;
    ::close(fd);
    return true;
}

}  // namespace

bool CreateOwnedFile(const std::string& path)
{
    if (path.empty())
        return false;
    // O_EXCL is what makes the promise: the file is ours only if it was not
    // there a moment ago, whatever another process does meanwhile.
    int fd;
    do {
        fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return false;
    Registry& registry = Owned();
    std::lock_guard lock(registry.mutex);
    AddLocked(registry, path, fd);
    return true;
}

std::string CreateOwnedFileNear(const std::string& preferred, const std::string& fallbackFolder)
{
    if (IsOwnedFile(preferred) && EmptyOwnedFile(preferred))
        return preferred;
    if (IsWritableFolder(FolderOfPath(preferred)) && CreateOwnedFile(preferred))
        return preferred;
    if (fallbackFolder.empty())
        return std::string();
    std::string stem;
    std::string extension;
    SplitName(preferred, stem, extension);
    // A bounded search: a folder with ten thousand leftovers of one name
    // means something else is wrong, and an empty answer says so.
    int remakes = 3;
    for (int n = 1; n <= 10000; ++n) {
        std::string candidate = fallbackFolder + stem + "-" + std::to_string(n) + extension;
        if (CreateOwnedFile(candidate))
            return candidate;
        if (errno == ENOENT && remakes-- > 0) {
            // Controls share the temporary folder, and each removes it when
            // it leaves it empty: another one may have done so a moment ago.
            // The folder is made again and the same name tried.
            CreateDirectories(fallbackFolder.substr(0, fallbackFolder.find_last_not_of('/') + 1));
            --n;
            continue;
        }
        if (errno != EEXIST)
            return std::string();
    }
    return std::string();
}

void RecordOwnedFile(const std::string& path)
{
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0)
        return;
    Registry& registry = Owned();
    std::lock_guard lock(registry.mutex);
    if (FindLocked(registry, path) == registry.entries.end())
        AddLocked(registry, path, fd);
    else
        ::close(fd);
}

bool IsOwnedFile(const std::string& path)
{
    Registry& registry = Owned();
    std::lock_guard lock(registry.mutex);
    return FindLocked(registry, path) != registry.entries.end();
}

bool DeleteOwnedFile(const std::string& path)
{
    Registry& registry = Owned();
    std::lock_guard lock(registry.mutex);
    auto entry = FindLocked(registry, path);
    if (entry == registry.entries.end())
        return false;
    const bool deleted = ::unlink(path.c_str()) == 0;
    ::close(entry->fd);
    registry.entries.erase(entry);
    return deleted;
}

bool IsWritableFolder(const std::string& folder)
{
    const std::string name = folder.empty() ? std::string(".") : folder;
    struct stat info;
    return ::stat(name.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && ::access(name.c_str(), W_OK | X_OK) == 0;
}

std::string FolderOfPath(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

}  // namespace platform
