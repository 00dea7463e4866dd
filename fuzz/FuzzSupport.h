#pragma once
// What every fuzz target shares: a private folder on a memory file system
// for the files the readers open, and a host that answers every box at
// once, so that an execution never waits for anybody.
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/File.h"
#include "platform/MessageBox.h"

namespace fuzzsupport {

class Scratch {
public:
    explicit Scratch(const char* name)
    {
        // /dev/shm keeps the files in memory; a file system on disk would
        // make every execution wait for it.
        const char* base = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        m_folder = std::string(base) + "/tempvox-fuzz-" + name + "-" + std::to_string(::getpid()) + "/";
        ::mkdir(m_folder.c_str(), 0700);
    }
    ~Scratch() { platform::RemoveDirectoryTree(m_folder); }

    // A fresh file of that name holding the bytes; its path.
    std::string Write(const std::string& name, const uint8_t* data, size_t size) const
    {
        const std::string path = m_folder + name;
        ::unlink(path.c_str());
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0) std::abort();
        size_t done = 0;
        while (done < size) {
            const ssize_t n = ::write(fd, data + done, size - done);
            if (n <= 0) std::abort();
            done += size_t(n);
        }
        ::close(fd);
        return path;
    }

    const std::string& Folder() const { return m_folder; }

private:
    std::string m_folder;
};

// Boxes are answered OK at once and never shown.
inline void AnswerBoxesQuietly()
{
    platform::SetMessageBoxHandler([](const platform::MessageBoxRequest&) { return IDOK; });
}

}  // namespace fuzzsupport
