#include "tools/Language.h"

#include <cstdlib>
#include <cstring>

short LanguageSlotForLocale(const char* lcAll, const char* lcMessages, const char* lang)
{
    for (const char* value : {lcAll, lcMessages, lang}) {
        if (value == nullptr || value[0] == '\0') continue;
        // "zh" alone or followed by a territory, codeset or modifier; not
        // "zha" (Zhuang), which is a language of its own.
        const bool chinese = std::strncmp(value, "zh", 2) == 0 &&
                             (value[2] == '\0' || value[2] == '_' || value[2] == '.' || value[2] == '@');
        return chinese ? kLanguageSlotChinese : kLanguageSlotEnglish;
    }
    return kLanguageSlotEnglish;
}

short LanguageSlotFromEnvironment()
{
    return LanguageSlotForLocale(std::getenv("LC_ALL"), std::getenv("LC_MESSAGES"), std::getenv("LANG"));
}

std::optional<short> LanguageSlotForName(const std::string& name)
{
    if (name == "en") return kLanguageSlotEnglish;
    if (name == "zh") return kLanguageSlotChinese;
    return std::nullopt;
}
