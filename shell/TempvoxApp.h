#pragma once
#include "platform/Wnd.h"
#include "shell/ObjectFactory.h"

// The module object: started when the module loads, ended when it unloads.
class COleControlModule {
public:
    virtual ~COleControlModule() = default;
    virtual BOOL InitInstance() { return TRUE; }
    virtual int ExitInstance() { return 0; }
};

class CTempvoxApp : public COleControlModule {
public:
    BOOL InitInstance() override;
    int ExitInstance() override;
    bool IsRunning() const { return m_bRunning; }

private:
    bool m_bRunning = false;
};

// The control's class factory.
class CTempvoxCtrlFactory : public COleObjectFactory {
public:
    static const CRuntimeClass classCTempvoxCtrl;

    CTempvoxCtrlFactory();
    BOOL UpdateRegistry(BOOL bRegister) override;
    TVHRESULT CreateInstance(const TempvoxGuid& riid, void** object) override;
};

// The module's one application object, built at load with the two factories.
CTempvoxApp& AfxGetTempvoxApp();
