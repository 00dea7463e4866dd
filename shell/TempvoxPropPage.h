#pragma once
#include <string>

#include "platform/Wnd.h"
#include "shell/Guids.h"
#include "shell/ObjectFactory.h"

// What a page's data exchange did; the page binds no property, so only the
// closing step runs.
struct CDataExchange {
    BOOL m_bSaveAndValidate = FALSE;
    int postProcessingRuns = 0;
};
void DDP_PostProcessing(CDataExchange* exchange);

// A property page: a dialog resource and a caption string.
class COlePropertyPage : public CObject {
public:
    COlePropertyPage(UINT dialogId, UINT captionId) : m_dialogId(dialogId), m_captionId(captionId) {}
    UINT GetDialogId() const { return m_dialogId; }
    UINT GetCaptionId() const { return m_captionId; }
    std::string GetCaption() const;
    virtual void DoDataExchange(CDataExchange* exchange) = 0;

private:
    UINT m_dialogId;
    UINT m_captionId;
};

class CTempvoxPropPage : public COlePropertyPage {
public:
    static const CRuntimeClass classCTempvoxPropPage;

    CTempvoxPropPage() : COlePropertyPage(200, 200) {}
    const CRuntimeClass* GetRuntimeClass() const override { return &classCTempvoxPropPage; }
    void DoDataExchange(CDataExchange* exchange) override { DDP_PostProcessing(exchange); }
    TempvoxGuid GetClassID() const { return TEMPVOX_CLSID_TempvoxPropPage; }

    class CTempvoxPropPageFactory : public COleObjectFactory {
    public:
        CTempvoxPropPageFactory();
        BOOL UpdateRegistry(BOOL bRegister) override;
        TVHRESULT CreateInstance(const TempvoxGuid& riid, void** object) override;
    };
};
