#include "shell/ObjectFactory.h"

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <mutex>

#include "shell/ComObjects.h"

namespace {

struct FactoryList {
    std::mutex lock;
    std::vector<COleObjectFactory*> factories;
};

FactoryList& Factories()
{
    static FactoryList list;
    return list;
}

std::atomic<uint32_t> g_liveObjects{0};
std::atomic<uint32_t> g_serverLocks{0};

}  // namespace

COleObjectFactory::COleObjectFactory(const TempvoxGuid& clsid, const CRuntimeClass* runtimeClass,
                                     BOOL bMultiInstance, const char* progId)
    : m_clsid(clsid), m_pRuntimeClass(runtimeClass), m_bMultiInstance(bMultiInstance), m_lpszProgID(progId)
{
    FactoryList& list = Factories();
    std::lock_guard<std::mutex> guard(list.lock);
    list.factories.push_back(this);
}

COleObjectFactory::~COleObjectFactory()
{
    FactoryList& list = Factories();
    std::lock_guard<std::mutex> guard(list.lock);
    list.factories.erase(std::remove(list.factories.begin(), list.factories.end(), this), list.factories.end());
}

std::vector<COleObjectFactory*> COleObjectFactory::All()
{
    FactoryList& list = Factories();
    std::lock_guard<std::mutex> guard(list.lock);
    return list.factories;
}

BOOL COleObjectFactory::UpdateRegistryAll(BOOL bRegister)
{
    for (COleObjectFactory* factory : All()) {
        if (!factory->UpdateRegistry(bRegister)) return FALSE;
    }
    return TRUE;
}

COleObjectFactory* COleObjectFactory::Find(const TempvoxGuid& clsid)
{
    for (COleObjectFactory* factory : All()) {
        if (factory->GetClassID() == clsid) return factory;
    }
    return nullptr;
}

void AfxOleObjectCreated()
{
    ++g_liveObjects;
}

void AfxOleObjectDestroyed()
{
    --g_liveObjects;
}

void AfxOleLockApp()
{
    ++g_serverLocks;
}

void AfxOleUnlockApp()
{
    // A host that unlocks more often than it locked must not wrap the count
    // round and pin the module for ever.
    uint32_t locks = g_serverLocks.load();
    while (locks > 0 && !g_serverLocks.compare_exchange_weak(locks, locks - 1)) {
    }
}

uint32_t AfxOleLiveObjects()
{
    return g_liveObjects.load();
}

TVHRESULT AfxDllGetClassObject(const TempvoxGuid& clsid, const TempvoxGuid& riid, void** object)
{
    if (object == nullptr) return TEMPVOX_E_POINTER;
    *object = nullptr;
    COleObjectFactory* factory = COleObjectFactory::Find(clsid);
    if (factory == nullptr) return TEMPVOX_CLASS_E_CLASSNOTAVAILABLE;
    return CreateClassFactoryObject(*factory, riid, object);
}

TVHRESULT AfxDllCanUnloadNow()
{
    return g_liveObjects.load() == 0 && g_serverLocks.load() == 0 ? TEMPVOX_S_OK : TEMPVOX_S_FALSE;
}

std::string AfxGetModulePath()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&AfxGetModulePath), &info) == 0 || info.dli_fname == nullptr) return "";
    char resolved[PATH_MAX];
    if (realpath(info.dli_fname, resolved) == nullptr) return info.dli_fname;
    return resolved;
}
