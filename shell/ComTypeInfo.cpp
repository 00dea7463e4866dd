#include "shell/ComTypeInfo.h"

#include <cstring>
#include <string>
#include <vector>

#include "shell/ComObject.h"
#include "shell/ComObjects.h"
#include "shell/DispatchTable.h"

namespace com {
namespace {


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


}  // namespace

TVHRESULT CreateMemberTypeInfo(ITempvoxTypeInfo** info)
{
    return TypeInfoObject::Create(MemberTable(), info);
}

TVHRESULT CreateEventTypeInfo(ITempvoxTypeInfo** info)
{
    return TypeInfoObject::Create(EventTable(), info);
}

}  // namespace com
