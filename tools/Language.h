#pragma once
// Which slot of the message catalogue our tools show the control's texts in
// (its boxes and the window's menu): the user's language, where the control
// itself always starts in the Chinese slot.
#include <optional>
#include <string>

// The catalogue's slots that a locale can pick.
constexpr short kLanguageSlotChinese = 1;
constexpr short kLanguageSlotEnglish = 2;

// The slot for a locale read the way gettext reads it: the first of LC_ALL,
// LC_MESSAGES and LANG that is set and not empty names it. Chinese locales
// ("zh", "zh_CN.UTF-8", "zh_TW"...) take the Chinese slot; every other one,
// "C" and an unset locale among them, the English slot. Null pointers stand
// for unset variables.
short LanguageSlotForLocale(const char* lcAll, const char* lcMessages, const char* lang);

// The same, from this process's environment.
short LanguageSlotFromEnvironment();

// The slot that `--lang NAME` asks for: "en" or "zh"; nothing for any other
// name.
std::optional<short> LanguageSlotForName(const std::string& name);
