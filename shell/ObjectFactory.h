#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "platform/Wnd.h"
#include "shell/Guids.h"

// A class factory of the module: the class it makes, by identity and by
// name, and how that class goes into the registry. Every factory built
// joins the module's list, which registration and DllGetClassObject walk.
class COleObjectFactory {
public:
    COleObjectFactory(const TempvoxGuid& clsid, const CRuntimeClass* runtimeClass, BOOL bMultiInstance,
                      const char* progId);
    virtual ~COleObjectFactory();
    COleObjectFactory(const COleObjectFactory&) = delete;
    COleObjectFactory& operator=(const COleObjectFactory&) = delete;

    const TempvoxGuid& GetClassID() const { return m_clsid; }
    const CRuntimeClass* GetRuntimeClass() const { return m_pRuntimeClass; }
    BOOL IsMultiInstance() const { return m_bMultiInstance; }
    const char* GetProgID() const { return m_lpszProgID; }

    virtual BOOL UpdateRegistry(BOOL bRegister) = 0;
    // A new object of the class, answering interface `riid`.
    virtual TVHRESULT CreateInstance(const TempvoxGuid& riid, void** object) = 0;

    // Every factory in the order they were built; stops at the first that
    // fails.
    static BOOL UpdateRegistryAll(BOOL bRegister);
    static COleObjectFactory* Find(const TempvoxGuid& clsid);
    static std::vector<COleObjectFactory*> All();

private:
    TempvoxGuid m_clsid;
    const CRuntimeClass* m_pRuntimeClass;
    BOOL m_bMultiInstance;
    const char* m_lpszProgID;
};

// The module's count of live objects and of server locks; while either is
// above zero the module must stay loaded.
void AfxOleObjectCreated();
void AfxOleObjectDestroyed();
void AfxOleLockApp();
void AfxOleUnlockApp();
uint32_t AfxOleLiveObjects();

TVHRESULT AfxDllGetClassObject(const TempvoxGuid& clsid, const TempvoxGuid& riid, void** object);
TVHRESULT AfxDllCanUnloadNow();

// The file this code was loaded from: the module itself, or the program
// that links the code in.
std::string AfxGetModulePath();
