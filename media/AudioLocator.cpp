#include "media/AudioLocator.h"

#include <cctype>
#include <cstdio>
#include <string_view>

#include "platform/Debug.h"
#include "platform/Download.h"
#include "platform/File.h"
#include "platform/FileFind.h"

namespace {

std::string Lowercase(std::string_view text)
{
    std::string lower(text);
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower;
}

std::string ExtensionOf(const std::string& name)
{
    size_t dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(dot + 1);
}

}  // namespace

std::string MakeTempFolder()
{
    std::string executable = platform::ExecutablePath();
    if (executable.empty()) OutputDebugStringA("获取当前路径为空\n");
    size_t slash = executable.rfind('/');
    std::string folder = (slash == std::string::npos ? std::string() : executable.substr(0, slash)) + "/ZqTempAudio/";
    platform::CreateDirectory(folder);
    return folder;
}

bool IsEncodedPath(const std::string& path)
{
    return Lowercase(ExtensionOf(path)) == "wzq";
}

std::string FileNameOfPath(const std::string& path)
{
    size_t separator = path.rfind('\\');
    if (separator == std::string::npos) separator = path.rfind('/');
    return separator == std::string::npos ? path : path.substr(separator + 1);
}

std::string BuildDownloadUrl(const std::string& address, int16_t port, const std::string& path)
{
    std::string scheme = Lowercase(std::string_view(address).substr(0, 6));
    if (scheme == "http:/" || scheme == "ftp://") return address + path;
    char portText[16];
    std::snprintf(portText, sizeof portText, "%d", static_cast<int>(port));
    return "http://" + address + ":" + portText + path;
}

std::string FetchToTemp(const char* address, int16_t port, const char* path, const char* localName,
                        const std::string& tempDir)
{
    if (path == nullptr || address == nullptr || *path == '\0' || *address == '\0') return std::string();
    std::string fileName = FileNameOfPath(path);
    std::string target;
    if (localName == nullptr) {
        target = tempDir + fileName;
    } else {
        target = tempDir + localName + "." + ExtensionOf(fileName);
        OutputDebugStringA(("DownLoadFromFtp下载到的路径:" + target + "\n in DownLoadFromFtp").c_str());
    }
    std::string url = BuildDownloadUrl(address, port, path);
    HRESULT result = URLDownloadToFileA(nullptr, url.c_str(), target.c_str(), 0, nullptr);
    // A dropped or timed-out connection is worth exactly one more attempt.
    if (result == platform::kDownloadAborted)
        result = URLDownloadToFileA(nullptr, url.c_str(), target.c_str(), 0, nullptr);
    return result >= 0 ? target : std::string();
}

std::string FindCachedCopy(const std::string& tempDir, const std::string& localName)
{
    std::string wanted = Lowercase(localName + ".wav");
    // The cache is looked up the way the original platform's search works:
    // without regard to case, in the name as in the extension.
    for (const std::string& name : platform::FindFiles(tempDir, localName + ".*", platform::MatchCase::Ignore)) {
        if (Lowercase(name) == wanted) return tempDir + name;
    }
    return std::string();
}

bool DeleteFolderAndFiles(const std::string& tempDir)
{
    // "*.*" on the original platform matches every file, with or without a dot.
    for (const std::string& name : platform::FindFiles(tempDir, "*")) platform::DeleteFile(tempDir + name);
    return platform::RemoveDirectory(tempDir);
}
