#include "platform/Plugin.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#ifndef TEMPVOX_PLUGIN_LIBDIR
#define TEMPVOX_PLUGIN_LIBDIR "lib"
#endif

namespace platform {
namespace {

struct Loaded {
    const PluginHeader* header = nullptr;
    std::string error;
};

// The folder of the object this code was linked into: the tool, a test, or
// libtempvox.so inside a host's process.
std::string FolderOfThisObject()
{
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&FolderOfThisObject), &info) == 0 || info.dli_fname == nullptr) return ".";
    std::string path = info.dli_fname;
    if (path.find('/') == std::string::npos) {
        // The main program may be named as it was started; its real path is
        // known to the kernel.
        char self[4096];
        const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
        if (length <= 0) return ".";
        path.assign(self, size_t(length));
    }
    return path.substr(0, path.rfind('/'));
}

std::vector<std::string> Candidates(const std::string& fileName)
{
    const std::string folder = FolderOfThisObject();
    const std::string libdir = TEMPVOX_PLUGIN_LIBDIR;
    return {folder + "/" + fileName, folder + "/tempvox/" + fileName, folder + "/" + libdir + "/tempvox/" + fileName,
            folder + "/../" + libdir + "/tempvox/" + fileName};
}

Loaded Load(const std::string& fileName, uint32_t version, uint32_t size)
{
    Loaded loaded;
    std::string tried;
    for (const std::string& path : Candidates(fileName)) {
        if (::access(path.c_str(), F_OK) != 0) {
            tried += (tried.empty() ? "" : ", ") + path.substr(0, path.rfind('/'));
            continue;
        }
        void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) {
            const char* why = ::dlerror();
            loaded.error = "cannot load the plugin " + path + ": " + (why != nullptr ? why : "unknown reason");
            return loaded;
        }
        using Entry = const PluginHeader* (*)();
        auto entry = reinterpret_cast<Entry>(::dlsym(handle, "tempvox_plugin_table"));
        const PluginHeader* header = entry != nullptr ? entry() : nullptr;
        if (header == nullptr || header->version != version || header->size != size || header->build == nullptr ||
            std::strcmp(header->build, kPluginBuild) != 0) {
            // Not called again and not unloaded: its code might still run
            // from a static destructor it registered while loading.
            loaded.error = "the plugin " + path + " belongs to another build of Tempvox";
            return loaded;
        }
        loaded.header = header;
        return loaded;
    }
    loaded.error = "the plugin " + fileName + " is not installed (looked in " + tried + ")";
    return loaded;
}

}  // namespace

const PluginHeader* LoadPlugin(const char* fileName, uint32_t version, uint32_t size, std::string& error)
{
    static std::mutex lock;
    static std::map<std::string, Loaded>* loaded = new std::map<std::string, Loaded>();  // outlives every caller
    std::lock_guard<std::mutex> hold(lock);
    // Keyed by what was asked as well, so that a table of another layout is
    // never handed out for one that was checked before.
    const std::string key = std::string(fileName) + "/" + std::to_string(version) + "/" + std::to_string(size);
    auto found = loaded->find(key);
    if (found == loaded->end()) found = loaded->emplace(key, Load(fileName, version, size)).first;
    error = found->second.error;
    return found->second.header;
}

}  // namespace platform
