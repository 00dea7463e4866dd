#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "shell/Guids.h"

// The control's type library: what the module describes of itself to hosts
// that bind late, built from the one member and event table.

constexpr uint32_t TYPEFLAG_FCANCREATE = 0x0002;
constexpr uint32_t TYPEFLAG_FHIDDEN = 0x0010;
constexpr uint32_t TYPEFLAG_FCONTROL = 0x0020;
constexpr uint32_t TYPEFLAG_FDISPATCHABLE = 0x1000;

struct TypeLibraryAttributes {
    TempvoxGuid libid;
    const char* name;
    const char* helpString;
    const char* helpFile;
    uint32_t lcid;
    uint16_t majorVersion;
    uint16_t minorVersion;
};

enum class TypeKind { DispInterface, CoClass };

struct TypeLibraryElement {
    TypeKind kind;
    TempvoxGuid guid;
    const char* name;
    const char* helpString;
    uint32_t flags;
};

const TypeLibraryAttributes& TempvoxLibraryAttributes();
// `_DTempvox`, `_DTempvoxEvents` and the coclass `Tempvox`, in that order.
const std::vector<TypeLibraryElement>& TempvoxLibraryElements();

// The library's source text; resources/Tempvox.odl holds its output.
std::string WriteTypeLibrarySource();
