#pragma once
#include <memory>

#include "platform/Gdi.h"

// What the drawing modules share behind the handles; not for callers.

struct LoadedFont;  // a FreeType face at one size (platform/Font.cpp)

enum class GdiKind { Pen, Brush, Font, Bitmap };

struct FontDescription {
    int height = 16;
    int width = 0;
    int weight = FW_BOLD;
    bool italic = false;
    BYTE family = FF_SWISS;
};

struct GdiObject {
    GdiKind kind = GdiKind::Brush;
    bool stock = false;
    int selectedCount = 0;
    int penStyle = PS_SOLID;
    int penWidth = 0;
    COLORREF color = 0;
    FontDescription font;
    std::shared_ptr<LoadedFont> loadedFont;  // made at the first text drawn
    std::shared_ptr<Framebuffer> bitmap;
};

struct DeviceContext {
    std::shared_ptr<Framebuffer> surface;
    bool memory = false;
    RECT clip;  // in surface coordinates; memory contexts clip to the bitmap only
    bool clipToSurface = false;
    HGDIOBJ pen = nullptr;
    HGDIOBJ brush = nullptr;
    HGDIOBJ font = nullptr;
    HGDIOBJ bitmap = nullptr;
    COLORREF textColor = RGB(0, 0, 0);
    COLORREF backgroundColor = RGB(255, 255, 255);
    int backgroundMode = OPAQUE;
    int rop2 = R2_COPYPEN;
    POINT position;
};

namespace platform {

// Makes a new object a valid handle.
HGDIOBJ RegisterObject(GdiObject* object);
bool IsLiveDC(HDC dc);
bool IsLiveObject(HGDIOBJ object);
// The part of the surface that drawing may touch: the clip within its bounds.
RECT DrawableArea(const DeviceContext& dc);
// Fills [left, right) x [top, bottom), already clipped, through the given
// and/xor masks.
void FillMasked(Framebuffer& surface, const RECT& area, uint32_t andMask, uint32_t xorMask);
// Copy: and 0, xor colour; any other raster mode from its truth table.
void RopMasks(int rop2, uint32_t pixel, uint32_t& andMask, uint32_t& xorMask);
RECT Intersect(const RECT& a, const RECT& b);
bool IsEmpty(const RECT& rect);

}  // namespace platform
