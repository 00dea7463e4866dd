#include "platform/FileMapping.h"

#include "platform/File.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>
#include <unordered_map>
#include <unordered_set>

struct FileMappingObject {
    int fd = -1;
    uint64_t size = 0;
};

namespace {

struct Mappings {
    std::mutex mutex;
    std::unordered_set<const FileMappingObject*> handles;
    std::unordered_map<const void*, size_t> views;
};

Mappings& State()
{
    static Mappings* mappings = new Mappings;
    return *mappings;
}

bool IsLive(HFILEMAPPING mapping)
{
    Mappings& state = State();
    std::lock_guard lock(state.mutex);
    return mapping != nullptr && state.handles.count(mapping) != 0;
}

}  // namespace

CMappableFile::~CMappableFile()
{
    Close();
}

bool CMappableFile::Open(const std::string& path)
{
    Close();
    m_fd = platform::OpenRegularFileForReading(path);
    return m_fd >= 0;
}

void CMappableFile::Close()
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

HFILEMAPPING CreateFileMappingA(const CMappableFile& file, void*, DWORD protect, DWORD sizeHigh, DWORD sizeLow,
                                const char*)
{
    if (file.Handle() < 0 || protect != PAGE_READONLY || sizeHigh != 0 || sizeLow != 0)
        return nullptr;
    struct stat info;
    if (::fstat(file.Handle(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size <= 0)
        return nullptr;
    const int fd = ::fcntl(file.Handle(), F_DUPFD_CLOEXEC, 0);
    if (fd < 0)
        return nullptr;
    auto* mapping = new FileMappingObject{fd, static_cast<uint64_t>(info.st_size)};
    Mappings& state = State();
    std::lock_guard lock(state.mutex);
    state.handles.insert(mapping);
    return mapping;
}

const BYTE* MapViewOfFile(HFILEMAPPING mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, size_t bytes)
{
    if (!IsLive(mapping) || access != FILE_MAP_READ || offsetHigh != 0 || offsetLow != 0 || bytes != 0)
        return nullptr;
    if (mapping->size > SIZE_MAX)
        return nullptr;
    const size_t length = static_cast<size_t>(mapping->size);
    void* view = ::mmap(nullptr, length, PROT_READ, MAP_PRIVATE, mapping->fd, 0);
    if (view == MAP_FAILED)
        return nullptr;
    Mappings& state = State();
    std::lock_guard lock(state.mutex);
    state.views.emplace(view, length);
    return static_cast<const BYTE*>(view);
}

BOOL UnmapViewOfFile(const void* view)
{
    size_t length = 0;
    {
        Mappings& state = State();
        std::lock_guard lock(state.mutex);
        auto it = state.views.find(view);
        if (it == state.views.end())
            return FALSE;
        length = it->second;
        state.views.erase(it);
    }
    return ::munmap(const_cast<void*>(view), length) == 0 ? TRUE : FALSE;
}

BOOL CloseHandle(HFILEMAPPING mapping)
{
    {
        Mappings& state = State();
        std::lock_guard lock(state.mutex);
        if (mapping == nullptr || state.handles.erase(mapping) == 0)
            return FALSE;
    }
    ::close(mapping->fd);
    delete mapping;
    return TRUE;
}

namespace platform {
uint64_t MappingSize(HFILEMAPPING mapping)
{
    return IsLive(mapping) ? mapping->size : 0;
}
}  // namespace platform
