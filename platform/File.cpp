#include "platform/File.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int OpenModeFor(unsigned flags)
{
    int mode = O_CLOEXEC;
    if (flags & CFile::modeReadWrite)
        mode |= O_RDWR;
    else if (flags & CFile::modeWrite)
        mode |= O_WRONLY;
    else
        mode |= O_RDONLY;
    if (flags & CFile::modeCreate)
        mode |= O_CREAT | O_TRUNC;
    return mode;
}

bool WriteAll(int fd, const char* data, size_t count, size_t* written)
{
    size_t done = 0;
    while (done < count) {
        ssize_t n = ::write(fd, data + done, count - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    }
    *written = done;
    return done == count;
}

}  // namespace

CFile::~CFile()
{
    Abort();
}

bool CFile::Open(const char* path, unsigned flags)
{
    Abort();
    if (path == nullptr)
        return false;
    const bool reading = (flags & (modeWrite | modeReadWrite | modeCreate)) == 0;
    int fd = reading ? platform::OpenRegularFileForReading(path) : -1;
    if (!reading) {
        do {
            fd = ::open(path, OpenModeFor(flags), 0666);
        } while (fd < 0 && errno == EINTR);
    }
    m_fd = fd;
    return m_fd >= 0;
}

uint32_t CFile::Read(void* buffer, uint32_t count)
{
    if (m_fd < 0 || buffer == nullptr)
        return 0;
    char* into = static_cast<char*>(buffer);
    uint32_t done = 0;
    while (done < count) {
        ssize_t n = ::read(m_fd, into + done, count - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;  // the end of the data, or an error taken as the end
        done += static_cast<uint32_t>(n);
    }
    return done;
}

uint32_t CFile::Write(const void* buffer, uint32_t count)
{
    if (m_fd < 0 || buffer == nullptr)
        return 0;
    size_t written = 0;
    WriteAll(m_fd, static_cast<const char*>(buffer), count, &written);
    return static_cast<uint32_t>(written);
}

int64_t CFile::Seek(int64_t offset, SeekPosition from)
{
    if (m_fd < 0)
        return -1;
    int64_t base;
    switch (from) {
    case begin: base = 0; break;
    case current: base = static_cast<int64_t>(GetPosition()); break;
    case end: base = static_cast<int64_t>(GetLength()); break;
    default: return -1;
    }
    // Worked out here so that an overflowing or negative target fails
    // before the descriptor is touched.
    int64_t target;
    if (__builtin_add_overflow(base, offset, &target) || target < 0)
        return -1;
    off_t landed = ::lseek(m_fd, static_cast<off_t>(target), SEEK_SET);
    return landed < 0 ? -1 : static_cast<int64_t>(landed);
}

uint64_t CFile::GetPosition() const
{
    if (m_fd < 0)
        return 0;
    off_t position = ::lseek(m_fd, 0, SEEK_CUR);
    return position < 0 ? 0 : static_cast<uint64_t>(position);
}

uint64_t CFile::GetLength() const
{
    struct stat info;
    if (m_fd < 0 || ::fstat(m_fd, &info) != 0)
        return 0;
    return static_cast<uint64_t>(info.st_size);
}

void CFile::Close()
{
    Abort();
}

void CFile::Abort()
{
    if (m_fd >= 0) {
        // Linux releases the descriptor even when close reports EINTR, so
        // it is never retried.
        ::close(m_fd);
        m_fd = -1;
    }
}

namespace platform {

int OpenRegularFileForReading(const std::string& path)
{
    // A FIFO would hold the open itself until a writer came, and a device
    // such as /dev/zero reads without end: the open must not wait, and only
    // a regular file, whose length is known, is taken.
    int fd;
    do {
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return -1;
    struct stat info;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        errno = EINVAL;
        return -1;
    }
    // Reads of a regular file never wait anyway; the flag goes so that the
    // descriptor behaves as any other.
    const int status = ::fcntl(fd, F_GETFL);
    if (status >= 0)
        ::fcntl(fd, F_SETFL, status & ~O_NONBLOCK);
    return fd;
}

std::string ExecutablePath()
{
    char path[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0)
        return std::string();
    return std::string(path, static_cast<size_t>(n));
}

bool FileExists(const std::string& path)
{
    struct stat info;
    return !path.empty() && ::stat(path.c_str(), &info) == 0;
}

bool CreateDirectory(const std::string& path)
{
    return !path.empty() && ::mkdir(path.c_str(), 0777) == 0;
}

namespace {

int RemoveEntry(const char* path, const struct stat*, int, struct FTW*)
{
    return ::remove(path) == 0 ? 0 : -1;
}

}  // namespace

bool RemoveDirectoryTree(const std::string& path)
{
    struct stat info;
    if (path.empty() || ::lstat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
        return false;
    // Depth first, and never through a symbolic link into another tree.
    return ::nftw(path.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS) == 0;
}

bool DeleteFile(const std::string& path)
{
    struct stat info;
    if (path.empty() || ::lstat(path.c_str(), &info) != 0 || S_ISDIR(info.st_mode))
        return false;
    return ::unlink(path.c_str()) == 0;
}

bool CopyFile(const std::string& from, const std::string& to, bool failIfExists)
{
    int source = OpenRegularFileForReading(from);
    if (source < 0)
        return false;
    struct stat info;
    if (::fstat(source, &info) != 0) {
        ::close(source);
        return false;
    }
    struct stat existing;
    if (::stat(to.c_str(), &existing) == 0 && existing.st_dev == info.st_dev && existing.st_ino == info.st_ino) {
        // Truncating the target would destroy the source.
        ::close(source);
        return false;
    }
    int targetFlags = O_WRONLY | O_CREAT | O_CLOEXEC | (failIfExists ? O_EXCL : O_TRUNC);
    int target = ::open(to.c_str(), targetFlags, info.st_mode & 0777);
    if (target < 0) {
        ::close(source);
        return false;
    }
    bool ok = true;
    char chunk[1 << 16];
    // No more than the length at the start: a file that keeps growing while
    // it is copied would otherwise be copied without end.
    uint64_t left = static_cast<uint64_t>(info.st_size);
    while (left > 0) {
        ssize_t n = ::read(source, chunk, static_cast<size_t>(std::min<uint64_t>(sizeof chunk, left)));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            ok = false;
            break;
        }
        if (n == 0)
            break;
        size_t written = 0;
        if (!WriteAll(target, chunk, static_cast<size_t>(n), &written)) {
            ok = false;
            break;
        }
        left -= static_cast<uint64_t>(n);
    }
    ::close(source);
    if (::close(target) != 0)
        ok = false;
    // A half-written copy is worse than none.
    if (!ok)
        ::unlink(to.c_str());
    return ok;
}

}  // namespace platform
