#pragma once
#include "platform/Types.h"

// The module's string table: ids 1, 2 and 200 are single texts, 201-220 hold
// four language slots joined by carriage returns. Texts are UTF-8, this
// platform's 8-bit code page. Null for an id the table does not hold.
const char* LoadStringResource(UINT id);
