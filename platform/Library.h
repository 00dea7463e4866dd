#pragma once
#include "platform/Types.h"

// Loading a shared library at run time by name, and finding a function in
// it. A bare name is looked for where the dynamic loader looks: the run path
// of the executable, then the library path and the system folders.

struct ModuleHandleTag;
using HMODULE = ModuleHandleTag*;
using FARPROC = void (*)();

// The loaded library, or nullptr when it can't be found or loaded. Each
// successful call must be matched by one FreeLibrary.
HMODULE LoadLibraryA(const char* fileName);

// The named function of a loaded library, or nullptr.
FARPROC GetProcAddress(HMODULE module, const char* procName);

// TRUE when the handle was released.
BOOL FreeLibrary(HMODULE module);
