#pragma once
#include <cstdint>
#include <string>

// A plain binary file. Reads shorter than asked are not failures; a read
// error is treated as the end of the data.
class CFile {
public:
    enum OpenFlags : unsigned {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        modeCreate = 0x1000,
        shareDenyNone = 0x0040,
        typeBinary = 0x8000,
    };
    enum SeekPosition { begin = 0, current = 1, end = 2 };

    CFile() = default;
    ~CFile();
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    // Opened for reading (no write or create flag), only a regular file is
    // taken, and the open never waits.
    bool Open(const char* path, unsigned flags);
    // Bytes actually read; 0 at the end, on an error, or when not open.
    uint32_t Read(void* buffer, uint32_t count);
    uint32_t Write(const void* buffer, uint32_t count);
    // New position, or -1 when the seek failed (the position stays).
    int64_t Seek(int64_t offset, SeekPosition from);
    uint64_t GetPosition() const;
    uint64_t GetLength() const;
    void Close();
    // Closes when open; never fails, and does nothing when closed.
    void Abort();
    bool IsOpen() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

namespace platform {
// A descriptor of a regular file opened for reading, or -1. The open never
// waits (a FIFO would wait for a writer), and anything but a regular file
// (a FIFO, a device, a folder) is refused.
int OpenRegularFileForReading(const std::string& path);
// Path of the running executable (from /proc/self/exe).
std::string ExecutablePath();
bool FileExists(const std::string& path);
bool CreateDirectory(const std::string& path);
bool RemoveDirectoryTree(const std::string& path);
bool DeleteFile(const std::string& path);
bool CopyFile(const std::string& from, const std::string& to, bool failIfExists);
}  // namespace platform
