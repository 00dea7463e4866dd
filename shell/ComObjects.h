#pragma once
#include <vector>

#include "shell/DispatchTable.h"
#include "shell/Guids.h"

class COleObjectFactory;

// The objects a host reaches through the module's interface tables. Each
// answers `riid` with one reference, or fails with *object null.
TVHRESULT CreateClassFactoryObject(COleObjectFactory& factory, const TempvoxGuid& riid, void** object);
TVHRESULT CreateControlObject(const TempvoxGuid& riid, void** object);
TVHRESULT CreatePropertyPageObject(const TempvoxGuid& riid, void** object);

// The conversions at the edge of the dispatch interface.
uint16_t VariantTypeCode(VarType type);
// An argument as the member expects it; integer kinds convert among
// themselves and to float, strings only from strings.
TVHRESULT CoerceArgument(const TempvoxVariant& in, VarType expected, Variant& out);
// A member's result for the host; a string is a new malloc'd copy.
TVHRESULT ExportResult(const Variant& in, TempvoxVariant& out);
