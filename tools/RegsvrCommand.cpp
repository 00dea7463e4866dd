// `tempvox regsvr [-u] [-s] MODULE`: loads a control module and has it
// register itself in (or, with -u, remove itself from) the per-user
// registry, as the system's registration tool does.
#include <dlfcn.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tempvox/host.h"
#include "tools/CommandLine.h"
#include "tools/Commands.h"
#include "tools/ExitCodes.h"

namespace {

// The registration tool's exit codes, which scripts test for.
constexpr int kFailArguments = 1;
constexpr int kFailLoad = 3;
constexpr int kFailEntry = 4;
constexpr int kFailRegistration = 5;

}  // namespace

int RunRegsvrCommand(const std::vector<std::string>& args)
{
    CLI::App app{"Registers (or with -u unregisters) a control module for the current user.", "tempvox regsvr"};
    SetUpCommand(app);
    bool unregister = false;
    bool silent = false;
    std::string module;
    app.add_flag("-u,--unregister", unregister, "unregister instead");
    app.add_flag("-s,--silent", silent, "print nothing on success");
    app.add_option("module", module, "the module, e.g. libtempvox.so")->required()->type_name("MODULE");
    // The registration tool's own spelling of the switches.
    std::vector<std::string> words;
    for (const std::string& arg : args) words.push_back(arg == "/u" ? "-u" : arg == "/s" ? "-s" : arg);
    if (const std::optional<int> status = ParseCommandLine(app, words))
        return *status == kExitOk ? kExitOk : kFailArguments;
    // A bare name would be looked for on the library path, not here.
    std::string path = module.find('/') == std::string::npos ? "./" + module : module;

    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        std::fprintf(stderr, "tempvox: cannot load %s: %s\n", module.c_str(), dlerror());
        return kFailLoad;
    }
    const char* entry = unregister ? "DllUnregisterServer" : "DllRegisterServer";
    auto function = reinterpret_cast<TempvoxDllRegisterServerFn>(dlsym(handle, entry));
    if (function == nullptr) {
        std::fprintf(stderr, "tempvox: %s was loaded, but the entry point %s was not found\n", module.c_str(), entry);
        dlclose(handle);
        return kFailEntry;
    }
    TVHRESULT result = function();
    dlclose(handle);
    if (result != TEMPVOX_S_OK) {
        std::fprintf(stderr, "tempvox: %s in %s failed; return code 0x%08X\n", entry, module.c_str(),
                     static_cast<unsigned>(result));
        return kFailRegistration;
    }
    if (!silent) std::printf("%s in %s succeeded.\n", entry, module.c_str());
    return 0;
}
