#include "shell/TempvoxApp.h"

#include "shell/ComObjects.h"
#include "shell/Registration.h"
#include "shell/TempvoxOleControl.h"

BOOL CTempvoxApp::InitInstance()
{
    m_bRunning = true;
    return COleControlModule::InitInstance();
}

int CTempvoxApp::ExitInstance()
{
    m_bRunning = false;
    return COleControlModule::ExitInstance();
}

// The control is not a framework object here, so its class record names it
// without a way to make one: only its factory makes controls.
const CRuntimeClass CTempvoxCtrlFactory::classCTempvoxCtrl = {"CTempvoxCtrl", nullptr};

CTempvoxCtrlFactory::CTempvoxCtrlFactory()
    : COleObjectFactory(TEMPVOX_CLSID_Tempvox, &classCTempvoxCtrl, FALSE, TEMPVOX_PROGID_CONTROL)
{
}

BOOL CTempvoxCtrlFactory::UpdateRegistry(BOOL bRegister)
{
    CUserRegistry registry;
    if (bRegister) {
        return AfxOleRegisterControlClass(registry, AfxGetModulePath(), GetClassID(), GetProgID(), 1, 1,
                                          afxRegApartmentThreading, CTempvoxOleControl::kMiscStatus,
                                          TEMPVOX_LIBID_TEMPVOXLib, 1, 0);
    }
    return AfxOleUnregisterClass(registry, GetClassID(), GetProgID());
}

TVHRESULT CTempvoxCtrlFactory::CreateInstance(const TempvoxGuid& riid, void** object)
{
    return CreateControlObject(riid, object);
}
