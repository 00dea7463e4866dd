// The module's four entry points; nothing else leaves libtempvox.so.
#include "shell/ObjectFactory.h"
#include "shell/Registration.h"
#include "shell/TempvoxApp.h"

#define TEMPVOX_EXPORT extern "C" __attribute__((visibility("default")))

TEMPVOX_EXPORT TVHRESULT DllCanUnloadNow(void)
{
    return AfxDllCanUnloadNow();
}

TEMPVOX_EXPORT TVHRESULT DllGetClassObject(const TempvoxGuid* clsid, const TempvoxGuid* riid, void** object)
{
    if (clsid == nullptr || riid == nullptr || object == nullptr) return TEMPVOX_E_POINTER;
    *object = nullptr;
    // Before the module object has started no class is on offer.
    if (!AfxGetTempvoxApp().IsRunning()) return TEMPVOX_CLASS_E_CLASSNOTAVAILABLE;
    return AfxDllGetClassObject(*clsid, *riid, object);
}

TEMPVOX_EXPORT TVHRESULT DllRegisterServer(void)
{
    try {
        CUserRegistry registry;
        if (!AfxOleRegisterTypeLib(registry, AfxGetModulePath(), TEMPVOX_LIBID_TEMPVOXLib)) {
            return TEMPVOX_SELFREG_E_TYPELIB;
        }
        if (!COleObjectFactory::UpdateRegistryAll(TRUE)) return TEMPVOX_SELFREG_E_CLASS;
        return TEMPVOX_S_OK;
    } catch (...) {
        return TEMPVOX_E_FAIL;
    }
}

TEMPVOX_EXPORT TVHRESULT DllUnregisterServer(void)
{
    try {
        CUserRegistry registry;
        if (!AfxOleUnregisterTypeLib(registry, TEMPVOX_LIBID_TEMPVOXLib, 1, 0)) return TEMPVOX_SELFREG_E_TYPELIB;
        if (!COleObjectFactory::UpdateRegistryAll(FALSE)) return TEMPVOX_SELFREG_E_CLASS;
        return TEMPVOX_S_OK;
    } catch (...) {
        return TEMPVOX_E_FAIL;
    }
}
