#pragma once
#include <cstdint>

// The handful of fixed-width names the engine and the control are written
// in. They keep the code close to the platform API it was designed on and give
// the dispatch layer stable widths.
using BOOL = int32_t;
using BYTE = uint8_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using UINT = uint32_t;
using LONG = int32_t;
using UINT_PTR = uintptr_t;
using DWORD_PTR = uintptr_t;
using WPARAM = uintptr_t;
using LPARAM = intptr_t;
using LRESULT = intptr_t;

constexpr BOOL TRUE = 1;
constexpr BOOL FALSE = 0;

struct WindowHandleTag;
// A window handle is an opaque number; a stale handle is detected, never
// dereferenced.
using HWND = WindowHandleTag*;
