#include "shell/ComObjects.h"

#include "shell/ComObject.h"
#include "shell/ObjectFactory.h"

using namespace com;

namespace {


class ClassFactoryObject final : public ComObject {
public:
    explicit ClassFactoryObject(COleObjectFactory& factory) : m_factory(factory) {}

    TVHRESULT QueryInterface(const TempvoxGuid& riid, void** object)
    {
        if (object == nullptr) return TEMPVOX_E_POINTER;
        *object = nullptr;
        if (riid == TEMPVOX_IID_Unknown || riid == TEMPVOX_IID_ClassFactory) return Answer(m_iface, *this, object);
        return TEMPVOX_E_NOINTERFACE;
    }

private:
    static TVHRESULT QueryThunk(ITempvoxClassFactory* self, const TempvoxGuid* riid, void** object)
    {
        if (riid == nullptr) return TEMPVOX_E_POINTER;
        return OwnerOf<ClassFactoryObject>(self)->QueryInterface(*riid, object);
    }
    static uint32_t AddRefThunk(ITempvoxClassFactory* self) { return OwnerOf<ClassFactoryObject>(self)->AddRef(); }
    static uint32_t ReleaseThunk(ITempvoxClassFactory* self) { return OwnerOf<ClassFactoryObject>(self)->Release(); }
    static TVHRESULT CreateInstance(ITempvoxClassFactory* self, ITempvoxUnknown* outer, const TempvoxGuid* riid,
                                    void** object)
    {
        if (object == nullptr || riid == nullptr) return TEMPVOX_E_POINTER;
        *object = nullptr;
        if (outer != nullptr) return TEMPVOX_CLASS_E_NOAGGREGATION;
        return Guarded([&] { return OwnerOf<ClassFactoryObject>(self)->m_factory.CreateInstance(*riid, object); });
    }
    static TVHRESULT LockServer(ITempvoxClassFactory*, int32_t lock)
    {
        if (lock) {
            AfxOleLockApp();
        } else {
            AfxOleUnlockApp();
        }
        return TEMPVOX_S_OK;
    }

    static constexpr ITempvoxClassFactoryVtbl kVtbl = {QueryThunk, AddRefThunk, ReleaseThunk, CreateInstance,
                                                       LockServer};

    COleObjectFactory& m_factory;
    Tearoff<ITempvoxClassFactory, ClassFactoryObject> m_iface{{&kVtbl}, this};
};


}  // namespace

TVHRESULT CreateClassFactoryObject(COleObjectFactory& factory, const TempvoxGuid& riid, void** object)
{
    return Guarded([&] { return HandOut<ClassFactoryObject>(riid, object, factory); });
}
