#pragma once
#include <string>

#include "platform/Types.h"
#include "shell/Guids.h"
#include "shell/Registry.h"

// The framework's registration calls, writing the per-user registry. The
// module's "instance" is the path of its file. Each answers FALSE at the
// first entry it cannot write or remove, leaving what it did before.

constexpr int afxRegInsertable = 0x0001;
constexpr int afxRegApartmentThreading = 0x0002;

// Registers the type library that the module holds under `libid`; FALSE
// for an id the module does not hold.
BOOL AfxOleRegisterTypeLib(const CUserRegistry& registry, const std::string& modulePath, const TempvoxGuid& libid);
// FALSE when that version of the library is not registered.
BOOL AfxOleUnregisterTypeLib(const CUserRegistry& registry, const TempvoxGuid& libid, WORD major, WORD minor);

BOOL AfxOleRegisterControlClass(const CUserRegistry& registry, const std::string& modulePath,
                                const TempvoxGuid& clsid, const char* progId, UINT typeNameId, UINT bitmapId,
                                int regFlags, DWORD miscStatus, const TempvoxGuid& libid, WORD major, WORD minor);
BOOL AfxOleRegisterPropertyPageClass(const CUserRegistry& registry, const std::string& modulePath,
                                     const TempvoxGuid& clsid, UINT typeNameId);
// Removes the class and, when `progId` is not null, its ProgID. FALSE when
// the class was not registered.
BOOL AfxOleUnregisterClass(const CUserRegistry& registry, const TempvoxGuid& clsid, const char* progId);
