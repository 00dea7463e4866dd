#include "shell/TypeLibrary.h"

#include <cstdio>

#include "shell/DispatchTable.h"

namespace {

const char* OdlTypeName(VarType type)
{
    switch (type) {
    case VarType::Empty: return "void";
    case VarType::Bool: return "boolean";
    case VarType::I2: return "short";
    case VarType::I4: return "long";
    case VarType::R4: return "float";
    case VarType::Str: return "BSTR";
    }
    return "void";
}

std::string ParameterList(const std::vector<ParamInfo>& params)
{
    std::string text;
    for (size_t i = 0; i < params.size(); ++i) {
        if (i > 0) text += ", ";
        text += std::string(OdlTypeName(params[i].type)) + " " + params[i].name;
    }
    return text;
}

std::string Attributes(const TypeLibraryElement& element)
{
    std::string text = "\t[ uuid(" + GuidBareString(element.guid) + "),\n\t  helpstring(\"" + element.helpString + "\")";
    if (element.flags & TYPEFLAG_FHIDDEN) text += ", hidden";
    if (element.flags & TYPEFLAG_FCONTROL) text += ", control";
    return text + " ]\n";
}

std::string VersionText(uint16_t major, uint16_t minor)
{
    return std::to_string(major) + "." + std::to_string(minor);
}

}  // namespace

const TypeLibraryAttributes& TempvoxLibraryAttributes()
{
    static const TypeLibraryAttributes attributes = {
        TEMPVOX_LIBID_TEMPVOXLib, "TEMPVOXLib", "Tempvox ActiveX Control module", "Tempvox.hlp", 0x409, 1, 0,
    };
    return attributes;
}

const std::vector<TypeLibraryElement>& TempvoxLibraryElements()
{
    static const std::vector<TypeLibraryElement> elements = {
        {TypeKind::DispInterface, TEMPVOX_DIID_DTempvox, "_DTempvox", "Dispatch interface for Tempvox Control",
         TYPEFLAG_FHIDDEN | TYPEFLAG_FDISPATCHABLE},
        {TypeKind::DispInterface, TEMPVOX_DIID_DTempvoxEvents, "_DTempvoxEvents",
         "Event interface for Tempvox Control", TYPEFLAG_FDISPATCHABLE},
        {TypeKind::CoClass, TEMPVOX_CLSID_Tempvox, "Tempvox", "Tempvox Control",
         TYPEFLAG_FCANCREATE | TYPEFLAG_FCONTROL},
    };
    return elements;
}

std::string WriteTypeLibrarySource()
{
    const TypeLibraryAttributes& library = TempvoxLibraryAttributes();
    const std::vector<TypeLibraryElement>& elements = TempvoxLibraryElements();
    char lcid[16];
    std::snprintf(lcid, sizeof lcid, "0x%X", library.lcid);

    std::string text;
    text += "// Tempvox.odl: type library source for the Tempvox control.\n";
    text += "// Written from the control's member and event table; a test keeps the two equal.\n\n";
    text += "[ uuid(" + GuidBareString(library.libid) + "), version(" +
            VersionText(library.majorVersion, library.minorVersion) + "), lcid(" + lcid + "),\n";
    text += "  helpfile(\"" + std::string(library.helpFile) + "\"),\n";
    text += "  helpstring(\"" + std::string(library.helpString) + "\") ]\n";
    text += "library " + std::string(library.name) + "\n{\n";
    text += "\timportlib(STDOLE_TLB);\n\n";

    text += Attributes(elements[0]);
    text += "\tdispinterface " + std::string(elements[0].name) + "\n\t{\n\t\tproperties:\n";
    for (const MemberInfo& member : ControlMembers()) {
        if (!member.isProperty) continue;
        text += "\t\t\t[id(" + std::to_string(member.id) + ")] " + OdlTypeName(member.result) + " " + member.name +
                ";\n";
    }
    text += "\t\tmethods:\n";
    for (const MemberInfo& member : ControlMembers()) {
        if (member.isProperty) continue;
        text += "\t\t\t[id(" + std::to_string(member.id) + ")] " + OdlTypeName(member.result) + " " + member.name +
                "(" + ParameterList(member.params) + ");\n";
    }
    text += "\t};\n\n";

    text += Attributes(elements[1]);
    text += "\tdispinterface " + std::string(elements[1].name) + "\n\t{\n\t\tproperties:\n\t\tmethods:\n";
    for (const EventInfo& event : ControlEvents()) {
        text += "\t\t\t[id(" + std::to_string(event.id) + ")] void " + event.name + "(" +
                ParameterList(event.params) + ");\n";
    }
    text += "\t};\n\n";

    text += Attributes(elements[2]);
    text += "\tcoclass " + std::string(elements[2].name) + "\n\t{\n";
    text += "\t\t[default] dispinterface " + std::string(elements[0].name) + ";\n";
    text += "\t\t[default, source] dispinterface " + std::string(elements[1].name) + ";\n";
    text += "\t};\n};\n";
    return text;
}
