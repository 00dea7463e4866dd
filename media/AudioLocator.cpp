#include "media/AudioLocator.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "platform/Debug.h"
#include "platform/Download.h"
#include "platform/File.h"
#include "platform/FileFind.h"
#include "platform/OwnedFiles.h"
#include "platform/UserFolders.h"

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
    return ChooseTempFolder(executable, platform::UserCacheHome());
}

std::string ChooseTempFolder(const std::string& executablePath, const std::string& cacheHome)
{
    size_t slash = executablePath.rfind('/');
    std::string beside =
        (slash == std::string::npos ? std::string() : executablePath.substr(0, slash)) + "/ZqTempAudio/";
    platform::CreateDirectory(beside);
    if (platform::IsWritableFolder(beside) || cacheHome.empty()) return beside;
    // Installed under /usr/bin and run by an ordinary user, the folder
    // beside the program can't be made; every user can write their cache.
    std::string cached = cacheHome + "/tempvox/ZqTempAudio/";
    platform::CreateDirectories(cached.substr(0, cached.size() - 1));
    return cached;
}

bool DeleteControlFile(const std::string& path, const std::string& tempDir)
{
    if (path.empty()) return false;
    if (platform::IsOwnedFile(path)) return platform::DeleteOwnedFile(path);
    // The temporary folder is the controls' own: what stands in it, they
    // made (downloads, conversions, copies), in this process or another
    // that shares it. Elsewhere only a file this process made may go.
    const bool inTempDir = !tempDir.empty() && path.size() > tempDir.size() &&
                           path.compare(0, tempDir.size(), tempDir) == 0 &&
                           path.find('/', tempDir.size()) == std::string::npos;
    return inTempDir && platform::DeleteFile(path);
}

void RemoveTempFolderIfEmpty(const std::string& tempDir)
{
    if (!tempDir.empty()) platform::RemoveDirectory(tempDir);
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

std::string BuildDownloadUrl(const std::string& address, int16_t port, const std::string& path, bool takeHttps)
{
    std::string scheme = Lowercase(std::string_view(address).substr(0, 6));
    if (scheme == "http:/" || scheme == "ftp://") return address + path;
    // An https address would only fail with the plain form's prefix and port
    // in front of it; libcurl speaks it, so the refined profile takes it as
    // it is. The classic rule keeps the prefix, as hosts of old expect.
    if (takeHttps && Lowercase(std::string_view(address).substr(0, 8)) == "https://") return address + path;
    char portText[16];
    std::snprintf(portText, sizeof portText, "%d", static_cast<int>(port));
    return "http://" + address + ":" + portText + path;
}

std::string FetchToTemp(const char* address, int16_t port, const char* path, const char* localName,
                        const std::string& tempDir, bool takeHttps)
{
    if (path == nullptr || address == nullptr || *path == '\0' || *address == '\0') return std::string();
    // The target must stay inside the folder, so a name from the host can't
    // reach a user's file elsewhere.
    if (localName != nullptr && (std::strchr(localName, '/') != nullptr || std::strcmp(localName, "..") == 0))
        return std::string();
    std::string fileName = FileNameOfPath(path);
    if (fileName.empty() || fileName == "." || fileName == "..") return std::string();
    std::string target;
    if (localName == nullptr) {
        target = tempDir + fileName;
    } else {
        target = tempDir + localName + "." + ExtensionOf(fileName);
        OutputDebugStringA(("DownLoadFromFtp下载到的路径:" + target + "\n in DownLoadFromFtp").c_str());
    }
    std::string url = BuildDownloadUrl(address, port, path, takeHttps);
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
