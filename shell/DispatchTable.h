#pragma once
#include <cstdint>
#include <vector>

#include "shell/Variant.h"

using DISPID = int32_t;
using HRESULT = int32_t;

constexpr HRESULT S_OK = 0;
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
constexpr HRESULT DISP_E_MEMBERNOTFOUND = static_cast<HRESULT>(0x80020003u);
constexpr HRESULT DISP_E_TYPEMISMATCH = static_cast<HRESULT>(0x80020005u);
constexpr HRESULT DISP_E_EXCEPTION = static_cast<HRESULT>(0x80020009u);
constexpr HRESULT DISP_E_BADPARAMCOUNT = static_cast<HRESULT>(0x8002000Eu);

// How a member is reached.
enum class InvokeKind : uint8_t { Method = 1, PropertyGet = 2, PropertyPut = 4 };

struct ParamInfo {
    const char* name;
    VarType type;
};

// One entry of the automation surface. The same table drives dispatch, the
// test container and the type library.
struct MemberInfo {
    DISPID id;
    const char* name;
    VarType result;              // Empty for a member that returns nothing
    std::vector<ParamInfo> params;
    bool isProperty;             // get gives `result`, put takes one value of it
};

struct EventInfo {
    DISPID id;
    const char* name;
    std::vector<ParamInfo> params;
};

const std::vector<MemberInfo>& ControlMembers();
const std::vector<EventInfo>& ControlEvents();

const MemberInfo* FindMember(DISPID id);
const MemberInfo* FindMemberByName(const char* name);
const EventInfo* FindEvent(DISPID id);
