#include "shell/ComObjects.h"

#include <cstring>
#include <string>

#include "shell/ComObject.h"

using namespace com;

uint16_t VariantTypeCode(VarType type)
{
    switch (type) {
    case VarType::Empty: return TEMPVOX_VT_EMPTY;
    case VarType::Bool: return TEMPVOX_VT_BOOL;
    case VarType::I2: return TEMPVOX_VT_I2;
    case VarType::I4: return TEMPVOX_VT_I4;
    case VarType::R4: return TEMPVOX_VT_R4;
    case VarType::Str: return TEMPVOX_VT_BSTR;
    }
    return TEMPVOX_VT_EMPTY;
}

TVHRESULT CoerceArgument(const TempvoxVariant& in, VarType expected, Variant& out)
{
    bool isInteger = in.vt == TEMPVOX_VT_BOOL || in.vt == TEMPVOX_VT_I2 || in.vt == TEMPVOX_VT_I4;
    int32_t integer = in.vt == TEMPVOX_VT_I2 ? in.iVal : in.vt == TEMPVOX_VT_I4 ? in.lVal : in.boolVal;
    if (expected == VarType::Empty) {
        // No type is asked for: the value goes on as it is.
        switch (in.vt) {
        case TEMPVOX_VT_EMPTY: out = Variant::Empty(); return TEMPVOX_S_OK;
        case TEMPVOX_VT_BOOL: out = Variant::Bool(in.boolVal); return TEMPVOX_S_OK;
        case TEMPVOX_VT_I2: out = Variant::I2(in.iVal); return TEMPVOX_S_OK;
        case TEMPVOX_VT_I4: out = Variant::I4(in.lVal); return TEMPVOX_S_OK;
        case TEMPVOX_VT_R4: out = Variant::R4(in.fltVal); return TEMPVOX_S_OK;
        case TEMPVOX_VT_BSTR:
            out = Variant::Str(in.bstrVal != nullptr ? std::optional<std::string>(in.bstrVal) : std::nullopt);
            return TEMPVOX_S_OK;
        default: return TEMPVOX_DISP_E_TYPEMISMATCH;
        }
    }
    switch (expected) {
    case VarType::Bool:
        if (!isInteger) return TEMPVOX_DISP_E_TYPEMISMATCH;
        out = Variant::Bool(integer != 0);
        return TEMPVOX_S_OK;
    case VarType::I2:
        if (!isInteger) return TEMPVOX_DISP_E_TYPEMISMATCH;
        if (integer < INT16_MIN || integer > INT16_MAX) return TEMPVOX_DISP_E_OVERFLOW;
        out = Variant::I2(static_cast<int16_t>(integer));
        return TEMPVOX_S_OK;
    case VarType::I4:
        if (!isInteger) return TEMPVOX_DISP_E_TYPEMISMATCH;
        out = Variant::I4(integer);
        return TEMPVOX_S_OK;
    case VarType::R4:
        if (in.vt == TEMPVOX_VT_R4) {
            out = Variant::R4(in.fltVal);
        } else if (isInteger) {
            out = Variant::R4(static_cast<float>(integer));
        } else {
            return TEMPVOX_DISP_E_TYPEMISMATCH;
        }
        return TEMPVOX_S_OK;
    case VarType::Str:
        if (in.vt != TEMPVOX_VT_BSTR) return TEMPVOX_DISP_E_TYPEMISMATCH;
        out = Variant::Str(in.bstrVal != nullptr ? std::optional<std::string>(in.bstrVal) : std::nullopt);
        return TEMPVOX_S_OK;
    case VarType::Empty:
        break;
    }
    return TEMPVOX_DISP_E_TYPEMISMATCH;
}

TVHRESULT ExportResult(const Variant& in, TempvoxVariant& out)
{
    std::memset(&out, 0, sizeof out);
    out.vt = VariantTypeCode(in.type);
    switch (in.type) {
    case VarType::Bool: out.boolVal = in.intValue ? 1 : 0; break;
    case VarType::I2: out.iVal = static_cast<int16_t>(in.intValue); break;
    case VarType::I4: out.lVal = in.intValue; break;
    case VarType::R4: out.fltVal = in.floatValue; break;
    case VarType::Str:
        if (in.text) {
            out.bstrVal = CopyToHost(*in.text);
            if (out.bstrVal == nullptr) {
                out.vt = TEMPVOX_VT_EMPTY;
                return TEMPVOX_E_OUTOFMEMORY;
            }
        }
        break;
    case VarType::Empty: break;
    }
    return TEMPVOX_S_OK;
}

