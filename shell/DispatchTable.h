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

class CTempvoxCtrl;

// Runs one member on a control, with arguments already checked against the
// member's row (count and types); `kind` tells a property's get from its put.
using MemberHandler = Variant (*)(CTempvoxCtrl& control, InvokeKind kind, const std::vector<Variant>& args);

struct ParamInfo {
    const char* name;
    VarType type;
};

// One entry of the automation surface: adding a member is adding a row.
// The same table drives dispatch and its argument checks, the test
// container, the type library and the ids of the C header.
struct MemberInfo {
    DISPID id;
    const char* name;
    VarType result;              // Empty for a member that returns nothing
    std::vector<ParamInfo> params;
    bool isProperty;             // get gives `result`, put takes one value of it
    MemberHandler run;
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
