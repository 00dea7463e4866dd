// The module-level objects, built in this order when the module loads and
// ended in reverse when it unloads.
#include "shell/RuntimeClasses.h"
#include "shell/TempvoxApp.h"
#include "shell/TempvoxPropPage.h"
#include "view/WaveViewCtrl.h"

namespace {

CTempvoxApp theApp;
CTempvoxCtrlFactory g_controlFactory;
CTempvoxPropPage::CTempvoxPropPageFactory g_propPageFactory;

struct ModuleStartup {
    ModuleStartup()
    {
        AfxClassInit(&CWaveViewCtrl::classCWaveViewCtrl);
        theApp.InitInstance();
    }
    ~ModuleStartup() { theApp.ExitInstance(); }
};
ModuleStartup g_startup;

}  // namespace

CTempvoxApp& AfxGetTempvoxApp()
{
    return theApp;
}
