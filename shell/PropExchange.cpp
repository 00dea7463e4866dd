#include "shell/PropExchange.h"

#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace {

constexpr const char* kFormatLine = "Tempvox control state";
constexpr const char* kVersionName = "_Version";

bool ParseNumber(const std::string& text, long long low, long long high, long long& value)
{
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    long long parsed = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || parsed < low || parsed > high) return false;
    value = parsed;
    return true;
}

}  // namespace

CPropExchange CPropExchange::ForSaving()
{
    return CPropExchange(false, true);
}

CPropExchange CPropExchange::ForLoading(const std::string& stored)
{
    std::istringstream lines(stored);
    std::string line;
    if (!std::getline(lines, line) || line != kFormatLine) return CPropExchange(true, false);
    CPropExchange exchange(true, true);
    while (std::getline(lines, line)) {
        size_t equals = line.find('=');
        if (equals == std::string::npos || equals == 0) continue;
        exchange.m_values[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return exchange;
}

CPropExchange CPropExchange::ForReset()
{
    return CPropExchange(true, true);
}

BOOL CPropExchange::ExchangeVersion(DWORD& version, DWORD defaultVersion, BOOL convert)
{
    if (!m_bLoading) {
        m_values[kVersionName] = std::to_string(convert ? defaultVersion : version);
        return TRUE;
    }
    long long stored = 0;
    auto found = m_values.find(kVersionName);
    if (found != m_values.end() && ParseNumber(found->second, 0, UINT32_MAX, stored)) {
        version = static_cast<DWORD>(stored);
    } else {
        version = defaultVersion;
    }
    return TRUE;
}

BOOL CPropExchange::PX_Long(const char* name, LONG& value, LONG defaultValue)
{
    if (!m_bLoading) {
        m_values[name] = std::to_string(value);
        return TRUE;
    }
    long long stored = 0;
    auto found = m_values.find(name);
    if (found != m_values.end() && ParseNumber(found->second, INT32_MIN, INT32_MAX, stored)) {
        value = static_cast<LONG>(stored);
    } else {
        value = defaultValue;
    }
    return TRUE;
}

std::string CPropExchange::Stored() const
{
    std::string text = std::string(kFormatLine) + "\n";
    for (const auto& [name, value] : m_values) text += name + "=" + value + "\n";
    return text;
}
