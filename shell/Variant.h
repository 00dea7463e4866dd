#pragma once
#include <cstdint>
#include <optional>
#include <string>

// The few automation types the control's members use.
enum class VarType : uint8_t {
    Empty,  // no value: the result of a member that returns nothing
    Bool,   // BOOL, 32-bit
    I2,     // short
    I4,     // long
    R4,     // float
    Str,    // 8-bit string, which may be null
};

const char* VarTypeName(VarType type);

struct Variant {
    VarType type = VarType::Empty;
    int32_t intValue = 0;                 // Bool, I2 and I4
    float floatValue = 0.0f;              // R4
    std::optional<std::string> text;      // Str; nullopt is a null string

    static Variant Bool(int32_t value) { return {VarType::Bool, value ? 1 : 0, 0.0f, std::nullopt}; }
    static Variant I2(int16_t value) { return {VarType::I2, value, 0.0f, std::nullopt}; }
    static Variant I4(int32_t value) { return {VarType::I4, value, 0.0f, std::nullopt}; }
    static Variant R4(float value) { return {VarType::R4, 0, value, std::nullopt}; }
    static Variant Str(std::optional<std::string> value) { return {VarType::Str, 0, 0.0f, std::move(value)}; }
    static Variant Empty() { return {}; }

    const char* CStr() const { return text ? text->c_str() : nullptr; }
};
