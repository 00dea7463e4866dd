#pragma once
// Helpers of the media tests: loopback servers run from a Python script, a
// private copy of the test executable for tests that touch the temporary
// folder, and wzq files made with the encoder core.
#include <gtest/gtest.h>

#include <cmath>
#include <dirent.h>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "codec/VoxAdpcm.h"
#include "platform/File.h"

namespace mediatest {

inline std::string ReadAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

inline void WriteAll(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(bytes.data(), std::streamsize(bytes.size()));
}

inline bool IsExecutable(const std::string& path) { return ::access(path.c_str(), X_OK) == 0; }

// Debian's own interpreter first: that is where python3-pyftpdlib lands,
// whatever other python3 comes first on the path.
inline std::string PythonInterpreter()
{
    if (IsExecutable("/usr/bin/python3")) return "/usr/bin/python3";
    const char* path = std::getenv("PATH");
    std::stringstream folders(path != nullptr ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (!folder.empty() && IsExecutable(folder + "/python3")) return folder + "/python3";
    }
    return std::string();
}

// A folder of its own under the build tree, removed with the object.
class ScratchFolder {
public:
    explicit ScratchFolder(const std::string& name)
    {
        std::string pattern = std::string(TEMPVOX_BINARY_DIR) + "/tests/" + name + "-XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (::mkdtemp(buffer.data()) != nullptr) m_path = std::string(buffer.data()) + "/";
    }
    ~ScratchFolder()
    {
        if (!m_path.empty()) platform::RemoveDirectoryTree(m_path);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

// tests/media/AudioServer.py serving `root` over http or ftp on 127.0.0.1.
class LoopbackServer {
public:
    LoopbackServer(const std::string& kind, const std::string& root, const std::string& work)
        : m_kind(kind), m_portFile(work + kind + ".port"), m_logFile(work + kind + ".log")
    {
        const std::string python = PythonInterpreter();
        const std::string script = std::string(TEMPVOX_SOURCE_DIR) + "/tests/media/AudioServer.py";
        m_pid = ::fork();
        if (m_pid == 0) {
            ::execl(python.c_str(), python.c_str(), script.c_str(), kind.c_str(), root.c_str(), m_portFile.c_str(),
                    m_logFile.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        // Waits for the port, at most about ten seconds.
        for (int i = 0; i < 400 && m_port == 0 && IsRunning(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(25));
            std::string text = ReadAll(m_portFile);
            if (!text.empty()) m_port = std::atoi(text.c_str());
        }
    }
    ~LoopbackServer()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGTERM);
            ::waitpid(m_pid, nullptr, 0);
        }
    }
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    int Port() const { return m_port; }
    std::string Url() const { return m_kind + "://127.0.0.1:" + std::to_string(m_port); }
    std::vector<std::string> Requests() const
    {
        std::vector<std::string> lines;
        std::stringstream log(ReadAll(m_logFile));
        for (std::string line; std::getline(log, line);) lines.push_back(line);
        return lines;
    }

private:
    bool IsRunning() { return m_pid > 0 && ::waitpid(m_pid, nullptr, WNOHANG) == 0; }

    std::string m_kind;
    std::string m_portFile;
    std::string m_logFile;
    pid_t m_pid = -1;
    int m_port = 0;
};

// Every control in every test process shares the temporary folder beside
// the executable, and a control that ends after a download removes it. A
// test that needs the folder to itself runs in a hard link (or copy) of
// this executable that sits alone in a scratch folder.
constexpr const char* kPrivateCopyVariable = "TEMPVOX_MEDIA_PRIVATE_COPY";

inline bool InPrivateCopy() { return std::getenv(kPrivateCopyVariable) != nullptr; }

// Runs the current test in the private copy and fails if it failed there or
// never ran. The copy writes the file named by the variable when it starts.
inline void RunCurrentTestInPrivateCopy()
{
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string(info->test_suite_name()) + "." + info->name();
    ScratchFolder folder("private");
    ASSERT_FALSE(folder.Path().empty());
    const std::string executable = platform::ExecutablePath();
    const std::string copy = folder.Path() + executable.substr(executable.rfind('/') + 1);
    if (::link(executable.c_str(), copy.c_str()) != 0) {
        ASSERT_TRUE(platform::CopyFile(executable, copy, true));
        ASSERT_EQ(::chmod(copy.c_str(), 0755), 0);
    }
    // The plugins go with it, beside it, where the copy looks first.
    if (DIR* plugins = ::opendir(TEMPVOX_PLUGIN_DIR)) {
        while (const dirent* entry = ::readdir(plugins)) {
            const std::string name = entry->d_name;
            if (name.size() > 3 && name.compare(name.size() - 3, 3, ".so") == 0) {
                ASSERT_EQ(::symlink((std::string(TEMPVOX_PLUGIN_DIR) + "/" + name).c_str(), (folder.Path() + name).c_str()), 0);
            }
        }
        ::closedir(plugins);
    }
    const std::string marker = folder.Path() + "ran";
    const std::string filterOption = "--gtest_filter=" + filter;
    pid_t child = ::fork();
    if (child == 0) {
        ::setenv(kPrivateCopyVariable, marker.c_str(), 1);
        ::execl(copy.c_str(), copy.c_str(), filterOption.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << filter << " failed in its private copy";
    EXPECT_TRUE(platform::FileExists(marker)) << filter << " did not run in its private copy";
}

inline void MarkPrivateCopyStarted()
{
    if (const char* marker = std::getenv(kPrivateCopyVariable)) WriteAll(marker, "ran");
}

// A wzq file's bytes for the given samples.
inline std::string EncodeSamples(voxadpcm::StreamHeader& header, const std::vector<int16_t>& samples)
{
    std::string error;
    std::vector<uint8_t> stream = voxadpcm::EncodeStream(header, samples, &error);
    EXPECT_FALSE(stream.empty()) << error;
    return std::string(stream.begin(), stream.end());
}

// Signal-to-noise ratio in dB of `decoded` against `source`, over the
// source's length.
inline double SnrDb(const std::vector<int16_t>& source, const std::vector<int16_t>& decoded)
{
    double signal = 0.0;
    double noise = 0.0;
    for (size_t i = 0; i < source.size() && i < decoded.size(); ++i) {
        const double difference = double(decoded[i]) - double(source[i]);
        signal += double(source[i]) * double(source[i]);
        noise += difference * difference;
    }
    return noise == 0.0 ? 200.0 : 10.0 * std::log10(signal / noise);
}

}  // namespace mediatest
