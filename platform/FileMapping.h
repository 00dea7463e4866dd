#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/Types.h"

// Read-only file mappings. A mapping holds its own reference to the file,
// so its view stays valid after the file object that made it is closed.

constexpr DWORD PAGE_READONLY = 0x02;
constexpr DWORD FILE_MAP_READ = 0x04;

// A file opened for reading whose handle a mapping can take.
class CMappableFile {
public:
    CMappableFile() = default;
    ~CMappableFile();
    CMappableFile(const CMappableFile&) = delete;
    CMappableFile& operator=(const CMappableFile&) = delete;

    bool Open(const std::string& path);
    void Close();
    int Handle() const { return m_fd; }

private:
    int m_fd = -1;
};

struct FileMappingObject;
using HFILEMAPPING = FileMappingObject*;

// The whole file; null for an empty file or a file that can't be mapped.
HFILEMAPPING CreateFileMappingA(const CMappableFile& file, void* security, DWORD protect, DWORD sizeHigh,
                                DWORD sizeLow, const char* name);
// The whole mapping as memory (offsets and size must be 0); null on failure.
const BYTE* MapViewOfFile(HFILEMAPPING mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, size_t bytes);
BOOL UnmapViewOfFile(const void* view);
BOOL CloseHandle(HFILEMAPPING mapping);

namespace platform {
// Bytes of the file the mapping shows, 0 for an unknown handle.
uint64_t MappingSize(HFILEMAPPING mapping);
}
