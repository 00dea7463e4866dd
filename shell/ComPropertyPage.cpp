#include "shell/ComObjects.h"

#include <string>

#include "resources/ModuleResources.h"
#include "shell/ComObject.h"
#include "shell/TempvoxPropPage.h"

using namespace com;

namespace {


class PropertyPageObject final : public ComObject {
public:
    TVHRESULT QueryInterface(const TempvoxGuid& riid, void** object)
    {
        if (object == nullptr) return TEMPVOX_E_POINTER;
        *object = nullptr;
        if (riid == TEMPVOX_IID_Unknown || riid == TEMPVOX_IID_PropertyPage) return Answer(m_iface, *this, object);
        return TEMPVOX_E_NOINTERFACE;
    }

private:
    static TVHRESULT QueryThunk(ITempvoxPropertyPage* self, const TempvoxGuid* riid, void** object)
    {
        if (riid == nullptr) return TEMPVOX_E_POINTER;
        return OwnerOf<PropertyPageObject>(self)->QueryInterface(*riid, object);
    }
    static uint32_t AddRefThunk(ITempvoxPropertyPage* self) { return OwnerOf<PropertyPageObject>(self)->AddRef(); }
    static uint32_t ReleaseThunk(ITempvoxPropertyPage* self) { return OwnerOf<PropertyPageObject>(self)->Release(); }
    static TVHRESULT GetPageInfo(ITempvoxPropertyPage* self, TempvoxPageInfo* info)
    {
        if (info == nullptr) return TEMPVOX_E_POINTER;
        PropertyPageObject* owner = OwnerOf<PropertyPageObject>(self);
        const DialogTemplate& dialog = PropertyPageDialog();
        info->title = owner->m_caption.c_str();
        info->dialogId = static_cast<int32_t>(owner->m_page.GetDialogId());
        info->width = dialog.width;
        info->height = dialog.height;
        return TEMPVOX_S_OK;
    }

    static constexpr ITempvoxPropertyPageVtbl kVtbl = {QueryThunk, AddRefThunk, ReleaseThunk, GetPageInfo};

    CTempvoxPropPage m_page;
    std::string m_caption = m_page.GetCaption();
    Tearoff<ITempvoxPropertyPage, PropertyPageObject> m_iface{{&kVtbl}, this};
};


}  // namespace

TVHRESULT CreatePropertyPageObject(const TempvoxGuid& riid, void** object)
{
    return Guarded([&] { return HandOut<PropertyPageObject>(riid, object); });
}
