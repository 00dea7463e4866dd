#pragma once
#include <map>
#include <string>

#include "platform/Types.h"

// One pass of saving, loading or resetting a control's stored properties.
// Stored state is plain text: a first line naming the format, then one
// "name=value" line per property.
class CPropExchange {
public:
    static CPropExchange ForSaving();
    // A loading exchange over stored text; IsValid() is false when the text
    // is not a stored control.
    static CPropExchange ForLoading(const std::string& stored);
    // Loading from nothing: every property takes its default.
    static CPropExchange ForReset();

    BOOL IsLoading() const { return m_bLoading; }
    bool IsValid() const { return m_bValid; }

    // Loading: `version` takes the stored version, or `defaultVersion` when
    // none was stored. Saving: stores `defaultVersion` when `convert`, so an
    // old control is written back in the current format, else `version`.
    BOOL ExchangeVersion(DWORD& version, DWORD defaultVersion, BOOL convert);
    BOOL PX_Long(const char* name, LONG& value, LONG defaultValue);

    // The text written by a saving exchange.
    std::string Stored() const;

private:
    CPropExchange(bool loading, bool valid) : m_bLoading(loading), m_bValid(valid) {}

    bool m_bLoading;
    bool m_bValid;
    std::map<std::string, std::string> m_values;
};
