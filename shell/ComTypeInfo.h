#pragma once
// The type information of the control's dispatch interface and of its
// events, built from the member table; each call hands out a new object
// with one reference.
#include "shell/Guids.h"

namespace com {

TVHRESULT CreateMemberTypeInfo(ITempvoxTypeInfo** info);
TVHRESULT CreateEventTypeInfo(ITempvoxTypeInfo** info);

}  // namespace com
