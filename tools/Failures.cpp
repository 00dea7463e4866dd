#include "tools/Failures.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/ExitCodes.h"

const char* const kSupportedInputs =
    "supported: WAV (PCM of 8 to 32 bits, float, extensible), MP3, AAC in MP4/M4A, Ogg Vorbis, Opus, FLAC, wzq";

namespace {

std::string FolderOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

std::optional<Failure> CheckInputFile(const std::string& path)
{
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) return Failure{kExitCannotRead, "no such file"};
        return Failure{kExitCannotRead, std::strerror(errno)};
    }
    if (S_ISDIR(info.st_mode)) return Failure{kExitCannotRead, "is a folder, not a file"};
    if (!S_ISREG(info.st_mode)) return Failure{kExitUnsupported, "not a regular file (a pipe or a device)"};
    if (::access(path.c_str(), R_OK) != 0) return Failure{kExitCannotRead, "permission denied (not readable)"};
    return std::nullopt;
}

std::optional<Failure> CheckOutputPath(const std::string& path)
{
    const std::string folder = FolderOf(path);
    struct stat info {};
    if (::stat(folder.c_str(), &info) != 0) return Failure{kExitCannotWrite, "the folder " + folder + " does not exist"};
    if (!S_ISDIR(info.st_mode)) return Failure{kExitCannotWrite, folder + " is not a folder"};
    if (::access(folder.c_str(), W_OK) != 0)
        return Failure{kExitCannotWrite, "the folder " + folder + " is not writable (permission denied)"};
    if (::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
        return Failure{kExitCannotWrite, "is a folder"};
    return std::nullopt;
}

int ReportFailure(const char* command, const std::string& name, const Failure& failure)
{
    std::fprintf(stderr, "tempvox %s: %s: %s\n", command, name.c_str(), failure.reason.c_str());
    return failure.exitCode;
}
