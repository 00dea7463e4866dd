#include "shell/ComObjects.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <strings.h>
#include <utility>

#include "platform/Messages.h"
#include "platform/WaveOut.h"
#include "resources/ModuleResources.h"
#include "resources/StringTable.h"
#include "shell/ObjectFactory.h"
#include "shell/TempvoxOleControl.h"
#include "shell/TempvoxPropPage.h"

namespace {

// ---------------------------------------------------------------- lifetime

// Calls that can run the control's handlers (Invoke and the pumps) nest on
// the control's thread. An object whose last reference goes inside one of
// them, typically from an event sink, lives until the outermost call ends,
// so that no handler returns into a freed control.
class ComObject;
thread_local int t_callDepth = 0;
thread_local std::vector<ComObject*>* t_releasedInCall = nullptr;

class ComObject {
public:
    ComObject() { AfxOleObjectCreated(); }
    virtual ~ComObject() { AfxOleObjectDestroyed(); }
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    uint32_t AddRef() { return ++m_references; }
    uint32_t Release()
    {
        uint32_t left = --m_references;
        if (left == 0) {
            if (t_callDepth > 0) {
                if (t_releasedInCall == nullptr) t_releasedInCall = new std::vector<ComObject*>;
                t_releasedInCall->push_back(this);
            } else {
                delete this;
            }
        }
        return left;
    }

private:
    std::atomic<uint32_t> m_references{1};
};

class CallScope {
public:
    CallScope() { ++t_callDepth; }
    ~CallScope()
    {
        if (--t_callDepth > 0 || t_releasedInCall == nullptr) return;
        std::vector<ComObject*>* released = t_releasedInCall;
        t_releasedInCall = nullptr;
        for (ComObject* object : *released) delete object;
        delete released;
    }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;
};

// One interface of an object: the table pointer the host sees, then the
// object it belongs to.
template <class Interface, class Owner>
struct Tearoff {
    Interface iface;
    Owner* owner;
};

template <class Owner, class Interface>
Owner* OwnerOf(Interface* self)
{
    return reinterpret_cast<Tearoff<Interface, Owner>*>(self)->owner;
}

// No exception may cross into the host's code.
template <class Body>
TVHRESULT Guarded(Body&& body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return TEMPVOX_E_OUTOFMEMORY;
    } catch (...) {
        return TEMPVOX_E_FAIL;
    }
}

char* CopyToHost(const std::string& text)
{
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy != nullptr) std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

template <class Interface, class Owner>
TVHRESULT Answer(Tearoff<Interface, Owner>& tearoff, Owner& owner, void** object)
{
    owner.AddRef();
    *object = &tearoff.iface;
    return TEMPVOX_S_OK;
}

// ---------------------------------------------------------------- type information

struct FuncTable {
    TempvoxGuid guid;
    const char* name;
    std::vector<std::vector<const char*>> paramNames;
    std::vector<std::vector<uint16_t>> paramTypes;
    std::vector<TempvoxFuncDesc> descs;
};

void AddFunc(FuncTable& table, DISPID id, const char* name, uint16_t invkind, VarType result,
             const std::vector<ParamInfo>& params)
{
    std::vector<const char*> names;
    std::vector<uint16_t> types;
    for (const ParamInfo& param : params) {
        names.push_back(param.name);
        types.push_back(VariantTypeCode(param.type));
    }
    table.paramNames.push_back(std::move(names));
    table.paramTypes.push_back(std::move(types));
    table.descs.push_back({id, name, invkind, VariantTypeCode(result), static_cast<uint32_t>(params.size()),
                           nullptr, nullptr});
}

// The name and type arrays are placed once all rows exist, since the
// vectors move while they grow.
void FinishTable(FuncTable& table)
{
    for (size_t i = 0; i < table.descs.size(); ++i) {
        table.descs[i].paramNames = table.paramNames[i].data();
        table.descs[i].paramTypes = table.paramTypes[i].data();
    }
}

const FuncTable& MemberTable()
{
    static const FuncTable table = [] {
        FuncTable built{TEMPVOX_DIID_DTempvox, "_DTempvox", {}, {}, {}};
        for (const MemberInfo& member : ControlMembers()) {
            uint16_t invkind = member.isProperty ? TEMPVOX_DISPATCH_PROPERTYGET | TEMPVOX_DISPATCH_PROPERTYPUT
                                                 : TEMPVOX_DISPATCH_METHOD;
            AddFunc(built, member.id, member.name, invkind, member.result, member.params);
        }
        FinishTable(built);
        return built;
    }();
    return table;
}

const FuncTable& EventTable()
{
    static const FuncTable table = [] {
        FuncTable built{TEMPVOX_DIID_DTempvoxEvents, "_DTempvoxEvents", {}, {}, {}};
        for (const EventInfo& event : ControlEvents()) {
            AddFunc(built, event.id, event.name, TEMPVOX_DISPATCH_METHOD, VarType::Empty, event.params);
        }
        FinishTable(built);
        return built;
    }();
    return table;
}

class TypeInfoObject final : public ComObject {
public:
    explicit TypeInfoObject(const FuncTable& table) : m_table(table) {}

    static TVHRESULT Create(const FuncTable& table, ITempvoxTypeInfo** info)
    {
        if (info == nullptr) return TEMPVOX_E_POINTER;
        *info = &(new TypeInfoObject(table))->m_iface.iface;
        return TEMPVOX_S_OK;
    }

private:
    static TVHRESULT QueryInterface(ITempvoxTypeInfo* self, const TempvoxGuid* riid, void** object)
    {
        if (object == nullptr || riid == nullptr) return TEMPVOX_E_POINTER;
        *object = nullptr;
        TypeInfoObject* owner = OwnerOf<TypeInfoObject>(self);
        if (*riid == TEMPVOX_IID_Unknown || *riid == TEMPVOX_IID_TypeInfo) return Answer(owner->m_iface, *owner, object);
        return TEMPVOX_E_NOINTERFACE;
    }
    static uint32_t AddRefThunk(ITempvoxTypeInfo* self) { return OwnerOf<TypeInfoObject>(self)->AddRef(); }
    static uint32_t ReleaseThunk(ITempvoxTypeInfo* self) { return OwnerOf<TypeInfoObject>(self)->Release(); }
    static TVHRESULT GetGuid(ITempvoxTypeInfo* self, TempvoxGuid* guid)
    {
        if (guid == nullptr) return TEMPVOX_E_POINTER;
        *guid = OwnerOf<TypeInfoObject>(self)->m_table.guid;
        return TEMPVOX_S_OK;
    }
    static TVHRESULT GetName(ITempvoxTypeInfo* self, const char** name)
    {
        if (name == nullptr) return TEMPVOX_E_POINTER;
        *name = OwnerOf<TypeInfoObject>(self)->m_table.name;
        return TEMPVOX_S_OK;
    }
    static TVHRESULT GetFuncCount(ITempvoxTypeInfo* self, uint32_t* count)
    {
        if (count == nullptr) return TEMPVOX_E_POINTER;
        *count = static_cast<uint32_t>(OwnerOf<TypeInfoObject>(self)->m_table.descs.size());
        return TEMPVOX_S_OK;
    }
    static TVHRESULT GetFuncDesc(ITempvoxTypeInfo* self, uint32_t index, TempvoxFuncDesc* desc)
    {
        if (desc == nullptr) return TEMPVOX_E_POINTER;
        const FuncTable& table = OwnerOf<TypeInfoObject>(self)->m_table;
        if (index >= table.descs.size()) return TEMPVOX_DISP_E_BADINDEX;
        *desc = table.descs[index];
        return TEMPVOX_S_OK;
    }

    static constexpr ITempvoxTypeInfoVtbl kVtbl = {QueryInterface, AddRefThunk, ReleaseThunk, GetGuid,
                                                   GetName,        GetFuncCount, GetFuncDesc};

    const FuncTable& m_table;
    Tearoff<ITempvoxTypeInfo, TypeInfoObject> m_iface{{&kVtbl}, this};
};

// ---------------------------------------------------------------- the control

bool ParseAudioDevice(const std::string& text, platform::AudioBackendConfig& config)
{
    const std::string capturePrefix = "capture:";
    if (text == "default") {
        config.backend = platform::AlsaOutputAvailable() ? platform::AudioBackend::Alsa : platform::AudioBackend::Null;
    } else if (text == "alsa") {
        config.backend = platform::AudioBackend::Alsa;
    } else if (text == "null") {
        config.backend = platform::AudioBackend::Null;
    } else if (text == "manual") {
        config.backend = platform::AudioBackend::Manual;
    } else if (text.rfind(capturePrefix, 0) == 0 && text.size() > capturePrefix.size()) {
        config.backend = platform::AudioBackend::Capture;
        config.capturePath = text.substr(capturePrefix.size());
    } else {
        return false;
    }
    return true;
}

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
            return Guarded([&] { return TypeInfoObject::Create(MemberTable(), info); });
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
            return Guarded([&] { return TypeInfoObject::Create(EventTable(), info); });
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
                if (!ParseAudioDevice(device, config)) return TEMPVOX_E_INVALIDARG;
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

// ---------------------------------------------------------------- the property page

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

// ---------------------------------------------------------------- class factories

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

// A new object handed out under `riid`: the creation reference goes once
// the interface holds its own.
template <class Object, class... Args>
TVHRESULT HandOut(const TempvoxGuid& riid, void** object, Args&&... args)
{
    if (object == nullptr) return TEMPVOX_E_POINTER;
    *object = nullptr;
    Object* created = new Object(std::forward<Args>(args)...);
    TVHRESULT hr = created->QueryInterface(riid, object);
    created->Release();
    return hr;
}

}  // namespace

uint16_t VariantTypeCode(VarType type)
{
    switch (type) {
    case VarType::Empty: return TEMPVOX_VT_EMPTY;
    case VarType::Bool: return TEMPVOX_VT_BOOL;
    case VarType::I2: return TEMPVOX_VT_I2;
    case VarType::I4: return TEMPVOX_VT_I4;
    case VarType::R4: return TEMPVOX_VT_R4;
    case VarType::Str: return TEMPVOX_VT_BSTR;
    }
    return TEMPVOX_VT_EMPTY;
}

TVHRESULT CoerceArgument(const TempvoxVariant& in, VarType expected, Variant& out)
{
    bool isInteger = in.vt == TEMPVOX_VT_BOOL || in.vt == TEMPVOX_VT_I2 || in.vt == TEMPVOX_VT_I4;
    int32_t integer = in.vt == TEMPVOX_VT_I2 ? in.iVal : in.vt == TEMPVOX_VT_I4 ? in.lVal : in.boolVal;
    if (expected == VarType::Empty) {
        // No type is asked for: the value goes on as it is.
        switch (in.vt) {
        case TEMPVOX_VT_EMPTY: out = Variant::Empty(); return TEMPVOX_S_OK;
        case TEMPVOX_VT_BOOL: out = Variant::Bool(in.boolVal); return TEMPVOX_S_OK;
        case TEMPVOX_VT_I2: out = Variant::I2(in.iVal); return TEMPVOX_S_OK;
        case TEMPVOX_VT_I4: out = Variant::I4(in.lVal); return TEMPVOX_S_OK;
        case TEMPVOX_VT_R4: out = Variant::R4(in.fltVal); return TEMPVOX_S_OK;
        case TEMPVOX_VT_BSTR:
            out = Variant::Str(in.bstrVal != nullptr ? std::optional<std::string>(in.bstrVal) : std::nullopt);
            return TEMPVOX_S_OK;
        default: return TEMPVOX_DISP_E_TYPEMISMATCH;
        }
    }
    switch (expected) {
    case VarType::Bool:
        if (!isInteger) return TEMPVOX_DISP_E_TYPEMISMATCH;
        out = Variant::Bool(integer != 0);
        return TEMPVOX_S_OK;
    case VarType::I2:
        if (!isInteger) return TEMPVOX_DISP_E_TYPEMISMATCH;
        if (integer < INT16_MIN || integer > INT16_MAX) return TEMPVOX_DISP_E_OVERFLOW;
        out = Variant::I2(static_cast<int16_t>(integer));
        return TEMPVOX_S_OK;
    case VarType::I4:
        if (!isInteger) return TEMPVOX_DISP_E_TYPEMISMATCH;
        out = Variant::I4(integer);
        return TEMPVOX_S_OK;
    case VarType::R4:
        if (in.vt == TEMPVOX_VT_R4) {
            out = Variant::R4(in.fltVal);
        } else if (isInteger) {
            out = Variant::R4(static_cast<float>(integer));
        } else {
            return TEMPVOX_DISP_E_TYPEMISMATCH;
        }
        return TEMPVOX_S_OK;
    case VarType::Str:
        if (in.vt != TEMPVOX_VT_BSTR) return TEMPVOX_DISP_E_TYPEMISMATCH;
        out = Variant::Str(in.bstrVal != nullptr ? std::optional<std::string>(in.bstrVal) : std::nullopt);
        return TEMPVOX_S_OK;
    case VarType::Empty:
        break;
    }
    return TEMPVOX_DISP_E_TYPEMISMATCH;
}

TVHRESULT ExportResult(const Variant& in, TempvoxVariant& out)
{
    std::memset(&out, 0, sizeof out);
    out.vt = VariantTypeCode(in.type);
    switch (in.type) {
    case VarType::Bool: out.boolVal = in.intValue ? 1 : 0; break;
    case VarType::I2: out.iVal = static_cast<int16_t>(in.intValue); break;
    case VarType::I4: out.lVal = in.intValue; break;
    case VarType::R4: out.fltVal = in.floatValue; break;
    case VarType::Str:
        if (in.text) {
            out.bstrVal = CopyToHost(*in.text);
            if (out.bstrVal == nullptr) {
                out.vt = TEMPVOX_VT_EMPTY;
                return TEMPVOX_E_OUTOFMEMORY;
            }
        }
        break;
    case VarType::Empty: break;
    }
    return TEMPVOX_S_OK;
}

TVHRESULT CreateClassFactoryObject(COleObjectFactory& factory, const TempvoxGuid& riid, void** object)
{
    return Guarded([&] { return HandOut<ClassFactoryObject>(riid, object, factory); });
}

TVHRESULT CreateControlObject(const TempvoxGuid& riid, void** object)
{
    return Guarded([&] { return HandOut<ControlObject>(riid, object); });
}

TVHRESULT CreatePropertyPageObject(const TempvoxGuid& riid, void** object)
{
    return Guarded([&] { return HandOut<PropertyPageObject>(riid, object); });
}
