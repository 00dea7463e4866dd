#pragma once
#include <string>

#include "tempvox/host.h"

// The identities of the module's classes and interfaces live in the host
// header, so that the module and its hosts can never disagree on them.

inline bool operator==(const TempvoxGuid& a, const TempvoxGuid& b)
{
    return TempvoxGuidEqual(&a, &b) != 0;
}

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", as registry keys name them.
inline std::string GuidString(const TempvoxGuid& guid)
{
    char text[39];
    TempvoxGuidToString(&guid, text);
    return text;
}

// Without the braces, as type library source writes them.
inline std::string GuidBareString(const TempvoxGuid& guid)
{
    std::string text = GuidString(guid);
    return text.substr(1, text.size() - 2);
}
