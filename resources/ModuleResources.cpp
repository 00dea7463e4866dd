#include "resources/ModuleResources.h"

#include <cstring>

namespace {

// The toolbox picture: a loudspeaker with sound waves, one palette index per
// character, top row first.
constexpr const char* kToolboxPixels[16] = {
    "000000000000000",
    "000000000009000",
    "000000800000900",
    "000008800900090",
    "000088800090090",
    "088888800090009",
    "087778800009009",
    "087778800009009",
    "087778800009009",
    "087778800009009",
    "088888800090009",
    "000088800090090",
    "000008800900090",
    "000000800000900",
    "000000000009000",
    "000000000000000",
};

// The standard 16-colour table, as blue, green, red, reserved.
constexpr uint8_t kPalette[16][4] = {
    {0x00, 0x00, 0x00, 0}, {0x00, 0x00, 0x80, 0}, {0x00, 0x80, 0x00, 0}, {0x00, 0x80, 0x80, 0},
    {0x80, 0x00, 0x00, 0}, {0x80, 0x00, 0x80, 0}, {0x80, 0x80, 0x00, 0}, {0xC0, 0xC0, 0xC0, 0},
    {0x80, 0x80, 0x80, 0}, {0x00, 0x00, 0xFF, 0}, {0x00, 0xFF, 0x00, 0}, {0x00, 0xFF, 0xFF, 0},
    {0xFF, 0x00, 0x00, 0}, {0xFF, 0x00, 0xFF, 0}, {0xFF, 0xFF, 0x00, 0}, {0xFF, 0xFF, 0xFF, 0},
};

void PutLittleEndian(std::vector<uint8_t>& out, uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

std::vector<uint8_t> BuildDib(int width, int height)
{
    const int rowBytes = ((width * 4 + 31) / 32) * 4;
    std::vector<uint8_t> dib;
    PutLittleEndian(dib, 40, 4);  // header size
    PutLittleEndian(dib, static_cast<uint32_t>(width), 4);
    PutLittleEndian(dib, static_cast<uint32_t>(height), 4);  // positive: bottom-up
    PutLittleEndian(dib, 1, 2);   // planes
    PutLittleEndian(dib, 4, 2);   // bits per pixel
    PutLittleEndian(dib, 0, 4);   // no compression
    PutLittleEndian(dib, static_cast<uint32_t>(rowBytes * height), 4);
    PutLittleEndian(dib, 0, 4);
    PutLittleEndian(dib, 0, 4);
    PutLittleEndian(dib, 16, 4);  // colours used
    PutLittleEndian(dib, 0, 4);
    for (const auto& colour : kPalette) dib.insert(dib.end(), colour, colour + 4);
    for (int row = height - 1; row >= 0; --row) {
        std::vector<uint8_t> line(static_cast<size_t>(rowBytes), 0);
        for (int x = 0; x < width; ++x) {
            uint8_t index = static_cast<uint8_t>(kToolboxPixels[row][x] - '0');
            line[static_cast<size_t>(x / 2)] |= static_cast<uint8_t>(x % 2 == 0 ? index << 4 : index);
        }
        dib.insert(dib.end(), line.begin(), line.end());
    }
    return dib;
}

}  // namespace

const DialogTemplate& PropertyPageDialog()
{
    static const DialogTemplate dialog = {
        200,
        kResourceLanguage,
        WS_CHILD | DS_SETFONT,
        250,
        62,
        "MS Sans Serif",
        8,
        {{"STATIC", "TODO: Place controls to manipulate properties of Tempvox Control on this dialog.", -1, 7, 25,
          229, 16, SS_LEFT}},
    };
    return dialog;
}

const BitmapResource& ToolboxBitmap()
{
    static const BitmapResource bitmap = {1, kResourceLanguage, 15, 16, 4, BuildDib(15, 16)};
    return bitmap;
}

const VersionRecord& ModuleVersionRecord()
{
    static const VersionRecord record = {
        1,
        0x0409,
        1200,
        {1, 0, 0, 1},
        {1, 0, 0, 1},
        {
            {"FileDescription", "Tempvox ActiveX Control Module"},
            {"FileVersion", "1, 0, 0, 1"},
            {"InternalName", "TEMPVOX"},
            {"OriginalFilename", "Tempvox.ocx"},
            {"ProductName", "Tempvox ActiveX Control Module"},
            {"ProductVersion", "1, 0, 0, 1"},
            {"OLESelfRegister", ""},
        },
    };
    return record;
}
