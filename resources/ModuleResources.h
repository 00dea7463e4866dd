#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "platform/Window.h"

// The module's resources beside the string table, kept as data: the
// property page's dialog, the toolbox bitmap and the version record.

constexpr WORD kResourceLanguage = 2052;

constexpr DWORD DS_SETFONT = 0x40;
constexpr DWORD SS_LEFT = 0x0;

struct DialogItem {
    const char* windowClass;
    const char* text;
    int id;
    int x;
    int y;
    int width;
    int height;
    DWORD style;
};

struct DialogTemplate {
    UINT id;
    WORD language;
    DWORD style;
    int width;   // dialog units
    int height;
    const char* fontName;
    int pointSize;
    std::vector<DialogItem> items;
};

// Dialog 200: the property page.
const DialogTemplate& PropertyPageDialog();

struct BitmapResource {
    UINT id;
    WORD language;
    int width;
    int height;
    int bitsPerPixel;
    // A device-independent bitmap: info header, 16-colour table, then the
    // rows bottom-up, each padded to four bytes.
    std::vector<uint8_t> dib;
};

// Bitmap 1: the toolbox picture.
const BitmapResource& ToolboxBitmap();

struct VersionRecord {
    UINT id;
    WORD language;
    WORD codePage;
    WORD fileVersion[4];
    WORD productVersion[4];
    std::vector<std::pair<std::string, std::string>> strings;
};

// Version 1.
const VersionRecord& ModuleVersionRecord();
