#include "shell/TempvoxPropPage.h"

#include "resources/StringTable.h"
#include "shell/ComObjects.h"
#include "shell/Registration.h"

namespace {

CObject* CreatePropPage()
{
    return new CTempvoxPropPage;
}

}  // namespace

void DDP_PostProcessing(CDataExchange* exchange)
{
    if (exchange != nullptr) ++exchange->postProcessingRuns;
}

std::string COlePropertyPage::GetCaption() const
{
    const char* caption = LoadStringResource(m_captionId);
    return caption != nullptr ? caption : "";
}

const CRuntimeClass CTempvoxPropPage::classCTempvoxPropPage = {"CTempvoxPropPage", &CreatePropPage};

CTempvoxPropPage::CTempvoxPropPageFactory::CTempvoxPropPageFactory()
    : COleObjectFactory(TEMPVOX_CLSID_TempvoxPropPage, &CTempvoxPropPage::classCTempvoxPropPage, FALSE,
                        TEMPVOX_PROGID_PROPPAGE)
{
}

BOOL CTempvoxPropPage::CTempvoxPropPageFactory::UpdateRegistry(BOOL bRegister)
{
    CUserRegistry registry;
    if (bRegister) return AfxOleRegisterPropertyPageClass(registry, AfxGetModulePath(), GetClassID(), 2);
    return AfxOleUnregisterClass(registry, GetClassID(), nullptr);
}

TVHRESULT CTempvoxPropPage::CTempvoxPropPageFactory::CreateInstance(const TempvoxGuid& riid, void** object)
{
    return CreatePropertyPageObject(riid, object);
}
