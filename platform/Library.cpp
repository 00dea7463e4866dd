#include "platform/Library.h"

#include <dlfcn.h>

HMODULE LoadLibraryA(const char* fileName)
{
    if (fileName == nullptr || *fileName == '\0') return nullptr;
    // Local binding: each library keeps its symbols to itself, so one
    // library's names never stand in for another's.
    return static_cast<HMODULE>(::dlopen(fileName, RTLD_NOW | RTLD_LOCAL));
}

FARPROC GetProcAddress(HMODULE module, const char* procName)
{
    if (module == nullptr || procName == nullptr) return nullptr;
    return reinterpret_cast<FARPROC>(::dlsym(module, procName));
}

BOOL FreeLibrary(HMODULE module)
{
    if (module == nullptr) return FALSE;
    return ::dlclose(module) == 0 ? TRUE : FALSE;
}
