#include "shell/ComObjects.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <strings.h>

#include "platform/Messages.h"
#include "platform/WaveOut.h"
#include "resources/ModuleResources.h"
#include "resources/StringTable.h"
#include "shell/ComObject.h"
#include "shell/ComTypeInfo.h"
#include "shell/TempvoxOleControl.h"

using namespace com;

namespace {


void FillException(TempvoxExcepInfo* excepInfo, TVHRESULT code, const std::string& why)
{
    if (excepInfo == nullptr) return;
    excepInfo->scode = code;
    std::snprintf(excepInfo->description, sizeof excepInfo->description, "%s", why.c_str());
}

class ControlObject final : public ComObject {
public:
    ControlObject()
    {
        m_ole.Control().SetEventSink([this](DISPID id, const std::vector<Variant>& args) { OnEvent(id, args); });
    }
    ~ControlObject() override { m_ole.Control().SetEventSink(nullptr); }

    TVHRESULT QueryInterface(const TempvoxGuid& riid, void** object)
    {
        if (object == nullptr) return TEMPVOX_E_POINTER;
        *object = nullptr;
        if (riid == TEMPVOX_IID_Unknown || riid == TEMPVOX_IID_Dispatch || riid == m_ole.PrimaryDispatchIID()) {
            return Answer(m_dispatch, *this, object);
        }
        if (riid == TEMPVOX_IID_ConnectionPoint) return Answer(m_connection, *this, object);
        if (riid == TEMPVOX_IID_HostServices) return Answer(m_services, *this, object);
        if (riid == TEMPVOX_IID_OleControl) return Answer(m_oleControl, *this, object);
        return TEMPVOX_E_NOINTERFACE;
    }

private:
    // ------------------------------------------------ events

    void OnEvent(DISPID id, const std::vector<Variant>& args)
    {
        ++m_firedCounts[id];
        if (m_sinks.empty()) return;
        std::vector<TempvoxVariant> reversed(args.size());
        for (size_t i = 0; i < args.size(); ++i) {
            TempvoxVariant& out = reversed[args.size() - 1 - i];
            out.vt = VariantTypeCode(args[i].type);
            switch (args[i].type) {
            case VarType::Bool: out.boolVal = args[i].intValue; break;
            case VarType::I2: out.iVal = static_cast<int16_t>(args[i].intValue); break;
            case VarType::I4: out.lVal = args[i].intValue; break;
            case VarType::R4: out.fltVal = args[i].floatValue; break;
            // Lent for the call; a sink copies what it keeps.
            case VarType::Str: out.bstrVal = const_cast<char*>(args[i].CStr()); break;
            case VarType::Empty: break;
            }
        }
        TempvoxDispParams params{reversed.data(), nullptr, static_cast<uint32_t>(reversed.size()), 0};
        // A sink may advise or unadvise from inside its call.
        std::vector<std::pair<uint32_t, TempvoxEventSink>> sinks = m_sinks;
        for (const auto& entry : sinks) entry.second.OnEvent(entry.second.context, id, &params);
    }

    // ------------------------------------------------ dispatch

    TVHRESULT Invoke(int32_t dispid, uint16_t flags, TempvoxDispParams* params, TempvoxVariant* result,
                     TempvoxExcepInfo* excepInfo, uint32_t* argErr)
    {
        CallScope scope;
        const MemberInfo* member = FindMember(dispid);
        if (member == nullptr) {
            FillException(excepInfo, TEMPVOX_DISP_E_MEMBERNOTFOUND, "unknown member #" + std::to_string(dispid));
            return TEMPVOX_DISP_E_MEMBERNOTFOUND;
        }
        InvokeKind kind;
        if (member->isProperty) {
            kind = (flags & TEMPVOX_DISPATCH_PROPERTYPUT)   ? InvokeKind::PropertyPut
                   : (flags & TEMPVOX_DISPATCH_PROPERTYGET) ? InvokeKind::PropertyGet
                                                            : InvokeKind::Method;
        } else {
            kind = (flags & TEMPVOX_DISPATCH_METHOD) ? InvokeKind::Method : InvokeKind::PropertyGet;
        }

        const uint32_t count = params != nullptr ? params->cArgs : 0;
        const uint32_t named = params != nullptr ? params->cNamedArgs : 0;
        if (count > 0 && params->rgvarg == nullptr) return TEMPVOX_E_POINTER;
        if (named > 0) {
            bool putValue = kind == InvokeKind::PropertyPut && named == 1 && params->rgdispidNamedArgs != nullptr &&
                            params->rgdispidNamedArgs[0] == TEMPVOX_DISPID_PROPERTYPUT;
            if (!putValue) return TEMPVOX_DISP_E_NONAMEDARGS;
        }

        std::vector<ParamInfo> expected = member->params;
        if (kind == InvokeKind::PropertyPut) expected = {{"value", member->result}};
        std::vector<Variant> args(count);
        for (uint32_t i = 0; i < count; ++i) {
            const TempvoxVariant& given = params->rgvarg[count - 1 - i];
            // With a wrong count the control names the fault; the values then
            // keep their own types.
            VarType wanted = count == expected.size() ? expected[i].type : VarType::Empty;
            TVHRESULT converted = CoerceArgument(given, wanted, args[i]);
            if (converted != TEMPVOX_S_OK) {
                if (argErr != nullptr) *argErr = count - 1 - i;
                FillException(excepInfo, converted,
                              std::string(member->name) + ": argument " + std::to_string(i + 1) + " (" +
                                  (count == expected.size() ? expected[i].name : "?") + ") has the wrong type");
                return converted;
            }
        }

        Variant value;
        std::string why;
        HRESULT hr = m_ole.Control().Invoke(dispid, kind, args, &value, &why);
        if (hr != S_OK) {
            FillException(excepInfo, hr, why);
            return hr;
        }
        if (result != nullptr) return ExportResult(value, *result);
        return TEMPVOX_S_OK;
    }

    TVHRESULT GetIDsOfNames(const char** names, uint32_t count, int32_t* dispids)
    {
        if (count == 0) return TEMPVOX_S_OK;
        if (names == nullptr || dispids == nullptr) return TEMPVOX_E_POINTER;
        TVHRESULT hr = TEMPVOX_S_OK;
        const MemberInfo* found = nullptr;
        for (const MemberInfo& member : ControlMembers()) {
            if (names[0] != nullptr && strcasecmp(member.name, names[0]) == 0) found = &member;
        }
        dispids[0] = found != nullptr ? found->id : TEMPVOX_DISPID_UNKNOWN;
        if (found == nullptr) hr = TEMPVOX_DISP_E_UNKNOWNNAME;
        // Further names are the member's parameters, answered by position.
        for (uint32_t n = 1; n < count; ++n) {
            dispids[n] = TEMPVOX_DISPID_UNKNOWN;
            for (size_t p = 0; found != nullptr && p < found->params.size(); ++p) {
                if (names[n] != nullptr && strcasecmp(found->params[p].name, names[n]) == 0) {
                    dispids[n] = static_cast<int32_t>(p);
                }
            }
            if (dispids[n] == TEMPVOX_DISPID_UNKNOWN) hr = TEMPVOX_DISP_E_UNKNOWNNAME;
        }
        return hr;
    }

    // ------------------------------------------------ host services

    TVHRESULT PumpUntilEvent(int32_t dispid, uint32_t timeoutMs)
    {
        CallScope scope;
        const uint64_t before = m_firedCounts[dispid];
        bool fired = platform::PumpUntil([&] { return m_firedCounts[dispid] != before; }, timeoutMs);
        return fired ? TEMPVOX_S_OK : TEMPVOX_S_FALSE;
    }

    TVHRESULT StepDevice(uint32_t count, uint32_t* completed)
    {
        CallScope scope;
        uint32_t done = 0;
        while (done < count) {
            platform::ManualWaveOut* device = platform::ManualWaveOut::Current();
            if (device == nullptr || !device->Step()) break;
            platform::PumpPendingMessages();
            ++done;
        }
        if (completed != nullptr) *completed = done;
        return done == count ? TEMPVOX_S_OK : TEMPVOX_S_FALSE;
    }

    // ------------------------------------------------ tables

    struct DispatchThunks {
        static TVHRESULT QueryInterface(ITempvoxDispatch* self, const TempvoxGuid* riid, void** object)
        {
            if (riid == nullptr) return TEMPVOX_E_POINTER;
            return OwnerOf<ControlObject>(self)->QueryInterface(*riid, object);
        }
        static uint32_t AddRef(ITempvoxDispatch* self) { return OwnerOf<ControlObject>(self)->AddRef(); }
        static uint32_t Release(ITempvoxDispatch* self) { return OwnerOf<ControlObject>(self)->Release(); }
        static TVHRESULT GetTypeInfoCount(ITempvoxDispatch* self, uint32_t* count)
        {
            if (count == nullptr) return TEMPVOX_E_POINTER;
            *count = OwnerOf<ControlObject>(self)->m_ole.GetTypeInfoCount();
            return TEMPVOX_S_OK;
        }
        static TVHRESULT GetTypeInfo(ITempvoxDispatch*, uint32_t index, uint32_t, ITempvoxTypeInfo** info)
        {
            if (info != nullptr) *info = nullptr;
            if (index != 0) return TEMPVOX_DISP_E_BADINDEX;
            return Guarded([&] { return CreateMemberTypeInfo(info); });
        }
        static TVHRESULT GetIDsOfNames(ITempvoxDispatch* self, const TempvoxGuid*, const char** names, uint32_t count,
                                       uint32_t, int32_t* dispids)
        {
            return OwnerOf<ControlObject>(self)->GetIDsOfNames(names, count, dispids);
        }
        static TVHRESULT Invoke(ITempvoxDispatch* self, int32_t dispid, const TempvoxGuid*, uint32_t, uint16_t flags,
                                TempvoxDispParams* params, TempvoxVariant* result, TempvoxExcepInfo* excepInfo,
                                uint32_t* argErr)
        {
            return Guarded([&] {
                return OwnerOf<ControlObject>(self)->Invoke(dispid, flags, params, result, excepInfo, argErr);
            });
        }
    };
    static constexpr ITempvoxDispatchVtbl kDispatchVtbl = {
        DispatchThunks::QueryInterface, DispatchThunks::AddRef,        DispatchThunks::Release,
        DispatchThunks::GetTypeInfoCount, DispatchThunks::GetTypeInfo, DispatchThunks::GetIDsOfNames,
        DispatchThunks::Invoke,
    };

    struct ConnectionThunks {
        static TVHRESULT QueryInterface(ITempvoxConnectionPoint* self, const TempvoxGuid* riid, void** object)
        {
            if (riid == nullptr) return TEMPVOX_E_POINTER;
            return OwnerOf<ControlObject>(self)->QueryInterface(*riid, object);
        }
        static uint32_t AddRef(ITempvoxConnectionPoint* self) { return OwnerOf<ControlObject>(self)->AddRef(); }
        static uint32_t Release(ITempvoxConnectionPoint* self) { return OwnerOf<ControlObject>(self)->Release(); }
        static TVHRESULT GetConnectionInterface(ITempvoxConnectionPoint* self, TempvoxGuid* iid)
        {
            if (iid == nullptr) return TEMPVOX_E_POINTER;
            *iid = OwnerOf<ControlObject>(self)->m_ole.EventsIID();
            return TEMPVOX_S_OK;
        }
        static TVHRESULT Advise(ITempvoxConnectionPoint* self, const TempvoxEventSink* sink, uint32_t* cookie)
        {
            if (sink == nullptr || sink->OnEvent == nullptr || cookie == nullptr) return TEMPVOX_E_POINTER;
            return Guarded([&] {
                ControlObject* owner = OwnerOf<ControlObject>(self);
                *cookie = owner->m_nextCookie++;
                owner->m_sinks.emplace_back(*cookie, *sink);
                return TEMPVOX_S_OK;
            });
        }
        static TVHRESULT Unadvise(ITempvoxConnectionPoint* self, uint32_t cookie)
        {
            auto& sinks = OwnerOf<ControlObject>(self)->m_sinks;
            for (auto at = sinks.begin(); at != sinks.end(); ++at) {
                if (at->first == cookie) {
                    sinks.erase(at);
                    return TEMPVOX_S_OK;
                }
            }
            return TEMPVOX_CONNECT_E_NOCONNECTION;
        }
        static TVHRESULT GetEventTypeInfo(ITempvoxConnectionPoint*, ITempvoxTypeInfo** info)
        {
            return Guarded([&] { return CreateEventTypeInfo(info); });
        }
    };
    static constexpr ITempvoxConnectionPointVtbl kConnectionVtbl = {
        ConnectionThunks::QueryInterface, ConnectionThunks::AddRef,   ConnectionThunks::Release,
        ConnectionThunks::GetConnectionInterface, ConnectionThunks::Advise, ConnectionThunks::Unadvise,
        ConnectionThunks::GetEventTypeInfo,
    };

    struct ServicesThunks {
        static TVHRESULT QueryInterface(ITempvoxHostServices* self, const TempvoxGuid* riid, void** object)
        {
            if (riid == nullptr) return TEMPVOX_E_POINTER;
            return OwnerOf<ControlObject>(self)->QueryInterface(*riid, object);
        }
        static uint32_t AddRef(ITempvoxHostServices* self) { return OwnerOf<ControlObject>(self)->AddRef(); }
        static uint32_t Release(ITempvoxHostServices* self) { return OwnerOf<ControlObject>(self)->Release(); }
        static int32_t PumpMessages(ITempvoxHostServices*)
        {
            int32_t delivered = 0;
            Guarded([&] {
                CallScope scope;
                delivered = platform::PumpPendingMessages();
                return TEMPVOX_S_OK;
            });
            return delivered;
        }
        static TVHRESULT PumpFor(ITempvoxHostServices*, uint32_t ms)
        {
            return Guarded([&] {
                CallScope scope;
                platform::PumpFor(ms);
                return TEMPVOX_S_OK;
            });
        }
        static TVHRESULT PumpUntilEvent(ITempvoxHostServices* self, int32_t dispid, uint32_t timeoutMs)
        {
            return Guarded([&] { return OwnerOf<ControlObject>(self)->PumpUntilEvent(dispid, timeoutMs); });
        }
        static TVHRESULT SetAudioDevice(ITempvoxHostServices*, const char* device)
        {
            if (device == nullptr) return TEMPVOX_E_POINTER;
            return Guarded([&] {
                platform::AudioBackendConfig config;
                if (!platform::ParseAudioDevice(device, config)) return TEMPVOX_E_INVALIDARG;
                platform::SetAudioBackend(config);
                return TEMPVOX_S_OK;
            });
        }
        static TVHRESULT StepDevice(ITempvoxHostServices* self, uint32_t count, uint32_t* completed)
        {
            return Guarded([&] { return OwnerOf<ControlObject>(self)->StepDevice(count, completed); });
        }
        static uint32_t QueuedBuffers(ITempvoxHostServices*)
        {
            platform::ManualWaveOut* device = platform::ManualWaveOut::Current();
            return device != nullptr ? static_cast<uint32_t>(device->QueuedCount()) : 0;
        }
    };
    static constexpr ITempvoxHostServicesVtbl kServicesVtbl = {
        ServicesThunks::QueryInterface, ServicesThunks::AddRef,         ServicesThunks::Release,
        ServicesThunks::PumpMessages,   ServicesThunks::PumpFor,        ServicesThunks::PumpUntilEvent,
        ServicesThunks::SetAudioDevice, ServicesThunks::StepDevice,     ServicesThunks::QueuedBuffers,
    };

    struct OleThunks {
        static CTempvoxOleControl& Ole(ITempvoxOleControl* self) { return OwnerOf<ControlObject>(self)->m_ole; }
        static TVHRESULT QueryInterface(ITempvoxOleControl* self, const TempvoxGuid* riid, void** object)
        {
            if (riid == nullptr) return TEMPVOX_E_POINTER;
            return OwnerOf<ControlObject>(self)->QueryInterface(*riid, object);
        }
        static uint32_t AddRef(ITempvoxOleControl* self) { return OwnerOf<ControlObject>(self)->AddRef(); }
        static uint32_t Release(ITempvoxOleControl* self) { return OwnerOf<ControlObject>(self)->Release(); }
        static TVHRESULT GetClassID(ITempvoxOleControl* self, TempvoxGuid* clsid)
        {
            if (clsid == nullptr) return TEMPVOX_E_POINTER;
            *clsid = Ole(self).GetClassID();
            return TEMPVOX_S_OK;
        }
        static TVHRESULT GetUserTypeName(ITempvoxOleControl* self, char** name)
        {
            if (name == nullptr) return TEMPVOX_E_POINTER;
            const char* text = LoadStringResource(Ole(self).GetUserTypeNameID());
            *name = CopyToHost(text != nullptr ? text : "");
            return *name != nullptr ? TEMPVOX_S_OK : TEMPVOX_E_OUTOFMEMORY;
        }
        static TVHRESULT GetMiscStatus(ITempvoxOleControl* self, uint32_t, uint32_t* status)
        {
            if (status == nullptr) return TEMPVOX_E_POINTER;
            *status = Ole(self).GetMiscStatus();
            return TEMPVOX_S_OK;
        }
        static TVHRESULT GetControlFlags(ITempvoxOleControl* self, uint32_t* flags)
        {
            if (flags == nullptr) return TEMPVOX_E_POINTER;
            *flags = Ole(self).GetControlFlags();
            return TEMPVOX_S_OK;
        }
        static TVHRESULT GetPropertyPages(ITempvoxOleControl* self, TempvoxGuid* pages, uint32_t capacity,
                                          uint32_t* count)
        {
            if (count == nullptr || (capacity > 0 && pages == nullptr)) return TEMPVOX_E_POINTER;
            return Guarded([&] {
                std::vector<TempvoxGuid> ids = Ole(self).GetPropPageIDs();
                *count = static_cast<uint32_t>(ids.size());
                for (uint32_t i = 0; i < capacity && i < ids.size(); ++i) pages[i] = ids[i];
                return TEMPVOX_S_OK;
            });
        }
        static TVHRESULT DoVerb(ITempvoxOleControl* self, int32_t verb)
        {
            return Guarded([&] { return Ole(self).DoVerb(verb); });
        }
        static TVHRESULT Draw(ITempvoxOleControl* self)
        {
            Ole(self).OnDraw();
            return TEMPVOX_S_OK;
        }
        static TVHRESULT ShowWindow(ITempvoxOleControl* self, int32_t show)
        {
            Ole(self).ShowWindow(show);
            return TEMPVOX_S_OK;
        }
        static TVHRESULT IsWindowVisible(ITempvoxOleControl* self, int32_t* visible)
        {
            if (visible == nullptr) return TEMPVOX_E_POINTER;
            *visible = Ole(self).IsWindowVisible();
            return TEMPVOX_S_OK;
        }
        static TVHRESULT IsDirty(ITempvoxOleControl* self)
        {
            return Ole(self).Control().IsModified() ? TEMPVOX_S_OK : TEMPVOX_S_FALSE;
        }
        static TVHRESULT Save(ITempvoxOleControl* self, char** data, uint32_t* size)
        {
            if (data == nullptr || size == nullptr) return TEMPVOX_E_POINTER;
            return Guarded([&] {
                std::string stored = Ole(self).Save();
                *data = CopyToHost(stored);
                if (*data == nullptr) return TEMPVOX_E_OUTOFMEMORY;
                *size = static_cast<uint32_t>(stored.size());
                return TEMPVOX_S_OK;
            });
        }
        static TVHRESULT Load(ITempvoxOleControl* self, const char* data, uint32_t size)
        {
            if (data == nullptr && size > 0) return TEMPVOX_E_POINTER;
            return Guarded([&] {
                return Ole(self).Load(std::string(data != nullptr ? data : "", size)) ? TEMPVOX_S_OK
                                                                                        : TEMPVOX_E_INVALIDARG;
            });
        }
        static TVHRESULT ResetState(ITempvoxOleControl* self)
        {
            Ole(self).OnResetState();
            return TEMPVOX_S_OK;
        }
    };
    static constexpr ITempvoxOleControlVtbl kOleVtbl = {
        OleThunks::QueryInterface,  OleThunks::AddRef,          OleThunks::Release,
        OleThunks::GetClassID,      OleThunks::GetUserTypeName, OleThunks::GetMiscStatus,
        OleThunks::GetControlFlags, OleThunks::GetPropertyPages, OleThunks::DoVerb,
        OleThunks::Draw,            OleThunks::ShowWindow,      OleThunks::IsWindowVisible,
        OleThunks::IsDirty,         OleThunks::Save,            OleThunks::Load,
        OleThunks::ResetState,
    };

    CTempvoxOleControl m_ole;
    std::vector<std::pair<uint32_t, TempvoxEventSink>> m_sinks;
    uint32_t m_nextCookie = 1;
    std::map<int32_t, uint64_t> m_firedCounts;
    Tearoff<ITempvoxDispatch, ControlObject> m_dispatch{{&kDispatchVtbl}, this};
    Tearoff<ITempvoxConnectionPoint, ControlObject> m_connection{{&kConnectionVtbl}, this};
    Tearoff<ITempvoxHostServices, ControlObject> m_services{{&kServicesVtbl}, this};
    Tearoff<ITempvoxOleControl, ControlObject> m_oleControl{{&kOleVtbl}, this};
};


}  // namespace

TVHRESULT CreateControlObject(const TempvoxGuid& riid, void** object)
{
    return Guarded([&] { return HandOut<ControlObject>(riid, object); });
}
