#include "platform/Gdi.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <unordered_set>
#include <utility>

#include "platform/GdiInternal.h"

namespace platform {
namespace {

constexpr uint32_t kAllBits = 0x00FFFFFF;
constexpr int kLargestBitmapSide = 16384;

// Handles are checked against the live sets before use, so a stale or
// made-up handle is refused instead of dereferenced.
struct Handles {
    std::mutex mutex;
    std::unordered_set<const GdiObject*> objects;
    std::unordered_set<const DeviceContext*> contexts;
};

Handles& Live()
{
    static Handles* handles = new Handles;
    return *handles;
}

HGDIOBJ Register(GdiObject* object)
{
    Handles& live = Live();
    std::lock_guard lock(live.mutex);
    live.objects.insert(object);
    return object;
}


HGDIOBJ MakeStock(GdiKind kind, int penStyle, COLORREF color)
{
    auto* object = new GdiObject;
    object->kind = kind;
    object->stock = true;
    object->penStyle = penStyle;
    object->color = color;
    return Register(object);
}

struct StockObjects {
    HGDIOBJ whiteBrush = MakeStock(GdiKind::Brush, PS_SOLID, RGB(255, 255, 255));
    HGDIOBJ blackBrush = MakeStock(GdiKind::Brush, PS_SOLID, RGB(0, 0, 0));
    HGDIOBJ nullBrush = MakeStock(GdiKind::Brush, PS_NULL, 0);
    HGDIOBJ whitePen = MakeStock(GdiKind::Pen, PS_SOLID, RGB(255, 255, 255));
    HGDIOBJ blackPen = MakeStock(GdiKind::Pen, PS_SOLID, RGB(0, 0, 0));
    HGDIOBJ nullPen = MakeStock(GdiKind::Pen, PS_NULL, 0);
    HGDIOBJ systemFont = MakeStock(GdiKind::Font, PS_SOLID, 0);
    HGDIOBJ guiFont = [] {
        HGDIOBJ font = MakeStock(GdiKind::Font, PS_SOLID, 0);
        font->font.height = 13;
        font->font.weight = FW_NORMAL;
        return font;
    }();
    // What a memory context holds until a bitmap is selected into it.
    HGDIOBJ defaultBitmap = [] {
        HGDIOBJ bitmap = MakeStock(GdiKind::Bitmap, PS_SOLID, 0);
        bitmap->bitmap = std::make_shared<Framebuffer>(1, 1, 0);
        return bitmap;
    }();
};

StockObjects& Stock()
{
    static StockObjects* stock = new StockObjects;
    return *stock;
}

void Unselect(HGDIOBJ object)
{
    if (object != nullptr && !object->stock && object->selectedCount > 0)
        --object->selectedCount;
}

// The pen's pixels as a set of (x, y) points: one, or a square for a wide pen.
void PlotPen(DeviceContext& dc, int x, int y)
{
    const GdiObject& pen = *dc.pen;
    const int side = std::max(1, pen.penWidth);
    const int first = -(side - 1) / 2;
    RECT square{x + first, y + first, x + first + side, y + first + side};
    RECT area = Intersect(square, DrawableArea(dc));
    if (IsEmpty(area))
        return;
    uint32_t andMask = 0;
    uint32_t xorMask = 0;
    RopMasks(dc.rop2, PixelOf(pen.color), andMask, xorMask);
    FillMasked(*dc.surface, area, andMask, xorMask);
}

bool DrawsPen(const DeviceContext& dc)
{
    return dc.pen != nullptr && dc.pen->penStyle != PS_NULL;
}

bool DrawsBrush(const DeviceContext& dc)
{
    return dc.brush != nullptr && dc.brush->penStyle != PS_NULL;
}

void FillThroughRop(DeviceContext& dc, const RECT& rect, COLORREF color)
{
    RECT area = Intersect(rect, DrawableArea(dc));
    if (IsEmpty(area))
        return;
    uint32_t andMask = 0;
    uint32_t xorMask = 0;
    RopMasks(dc.rop2, PixelOf(color), andMask, xorMask);
    FillMasked(*dc.surface, area, andMask, xorMask);
}

}  // namespace

HGDIOBJ RegisterObject(GdiObject* object)
{
    Stock();
    return Register(object);
}

bool IsLiveDC(HDC dc)
{
    Handles& live = Live();
    std::lock_guard lock(live.mutex);
    return dc != nullptr && live.contexts.count(dc) != 0;
}

bool IsLiveObject(HGDIOBJ object)
{
    Stock();
    Handles& live = Live();
    std::lock_guard lock(live.mutex);
    return object != nullptr && live.objects.count(object) != 0;
}

RECT Intersect(const RECT& a, const RECT& b)
{
    return RECT{std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
                std::min(a.bottom, b.bottom)};
}

bool IsEmpty(const RECT& rect)
{
    return rect.left >= rect.right || rect.top >= rect.bottom;
}

RECT DrawableArea(const DeviceContext& dc)
{
    RECT bounds{0, 0, dc.surface ? dc.surface->width : 0, dc.surface ? dc.surface->height : 0};
    return dc.clipToSurface ? bounds : Intersect(bounds, dc.clip);
}

void FillMasked(Framebuffer& surface, const RECT& area, uint32_t andMask, uint32_t xorMask)
{
    for (LONG y = area.top; y < area.bottom; ++y) {
        uint32_t* row = surface.pixels.data() + static_cast<size_t>(y) * surface.width;
        for (LONG x = area.left; x < area.right; ++x)
            row[x] = ((row[x] & andMask) ^ xorMask) & kAllBits;
    }
}

void RopMasks(int rop2, uint32_t pixel, uint32_t& andMask, uint32_t& xorMask)
{
    // Bit (2p + d) of the table is the result for pen bit p over pixel bit
    // d, so any of the sixteen modes is (d & a(p)) ^ x(p) bit by bit.
    const int table = std::clamp(rop2, 1, 16) - 1;
    auto result = [table](int p, int d) { return ((table >> (p * 2 + d)) & 1) != 0 ? kAllBits : 0u; };
    const uint32_t xorWhen0 = result(0, 0);
    const uint32_t xorWhen1 = result(1, 0);
    const uint32_t andWhen0 = result(0, 0) ^ result(0, 1);
    const uint32_t andWhen1 = result(1, 0) ^ result(1, 1);
    xorMask = ((pixel & xorWhen1) | (~pixel & xorWhen0)) & kAllBits;
    andMask = ((pixel & andWhen1) | (~pixel & andWhen0)) & kAllBits;
}

void InvertRect(Framebuffer& surface, const RECT& rect)
{
    RECT area = Intersect(rect, RECT{0, 0, surface.width, surface.height});
    if (!IsEmpty(area))
        FillMasked(surface, area, kAllBits, kAllBits);
}

HDC CreateSurfaceDC(std::shared_ptr<Framebuffer> surface, const RECT& clip)
{
    auto* dc = new DeviceContext;
    dc->surface = std::move(surface);
    dc->clip = clip;
    dc->pen = Stock().blackPen;
    dc->brush = Stock().whiteBrush;
    dc->font = Stock().systemFont;
    Handles& live = Live();
    std::lock_guard lock(live.mutex);
    live.contexts.insert(dc);
    return dc;
}

std::shared_ptr<Framebuffer> SurfaceOf(HDC dc)
{
    return IsLiveDC(dc) ? dc->surface : nullptr;
}

}  // namespace platform

using namespace platform;

Framebuffer::Framebuffer(int w, int h, uint32_t fill)
    : width(std::max(0, w)), height(std::max(0, h)), pixels(static_cast<size_t>(width) * height, fill)
{
}

void Framebuffer::Resize(int w, int h, uint32_t fill)
{
    Framebuffer resized(w, h, fill);
    const int keepWidth = std::min(width, resized.width);
    const int keepHeight = std::min(height, resized.height);
    for (int y = 0; y < keepHeight; ++y)
        std::copy_n(pixels.begin() + static_cast<size_t>(y) * width, keepWidth,
                    resized.pixels.begin() + static_cast<size_t>(y) * resized.width);
    *this = std::move(resized);
}

HGDIOBJ GetStockObject(int which)
{
    StockObjects& stock = Stock();
    switch (which) {
    case WHITE_BRUSH: return stock.whiteBrush;
    case BLACK_BRUSH: return stock.blackBrush;
    case NULL_BRUSH: return stock.nullBrush;
    case WHITE_PEN: return stock.whitePen;
    case BLACK_PEN: return stock.blackPen;
    case NULL_PEN: return stock.nullPen;
    case SYSTEM_FONT: return stock.systemFont;
    case DEFAULT_GUI_FONT: return stock.guiFont;
    default: return nullptr;
    }
}

HBRUSH CreateSolidBrush(COLORREF color)
{
    auto* brush = new GdiObject;
    brush->kind = GdiKind::Brush;
    brush->color = color & kAllBits;
    return Register(brush);
}

HPEN CreatePen(int style, int width, COLORREF color)
{
    auto* pen = new GdiObject;
    pen->kind = GdiKind::Pen;
    pen->penStyle = style == PS_NULL ? PS_NULL : PS_SOLID;
    pen->penWidth = std::max(0, width);
    pen->color = color & kAllBits;
    return Register(pen);
}

HBITMAP CreateCompatibleBitmap(HDC, int width, int height)
{
    if (width <= 0 || height <= 0 || width > kLargestBitmapSide || height > kLargestBitmapSide)
        return nullptr;
    auto* bitmap = new GdiObject;
    bitmap->kind = GdiKind::Bitmap;
    bitmap->bitmap = std::make_shared<Framebuffer>(width, height, 0);
    return Register(bitmap);
}

BOOL DeleteObject(HGDIOBJ object)
{
    if (!IsLiveObject(object))
        return FALSE;
    if (object->stock)
        return TRUE;
    if (object->selectedCount > 0)
        return FALSE;
    {
        Handles& live = Live();
        std::lock_guard lock(live.mutex);
        live.objects.erase(object);
    }
    delete object;
    return TRUE;
}

const Framebuffer* GetBitmapPixels(HBITMAP bitmap)
{
    if (!IsLiveObject(bitmap) || bitmap->kind != GdiKind::Bitmap)
        return nullptr;
    return bitmap->bitmap.get();
}

HDC CreateCompatibleDC(HDC)
{
    HGDIOBJ defaultBitmap = Stock().defaultBitmap;
    HDC dc = CreateSurfaceDC(defaultBitmap->bitmap, RECT{});
    dc->memory = true;
    dc->clipToSurface = true;
    dc->bitmap = defaultBitmap;
    return dc;
}

BOOL DeleteDC(HDC dc)
{
    if (!IsLiveDC(dc))
        return FALSE;
    {
        Handles& live = Live();
        std::lock_guard lock(live.mutex);
        live.contexts.erase(dc);
    }
    Unselect(dc->pen);
    Unselect(dc->brush);
    Unselect(dc->font);
    Unselect(dc->bitmap);
    delete dc;
    return TRUE;
}

HGDIOBJ SelectObject(HDC dc, HGDIOBJ object)
{
    if (!IsLiveDC(dc) || !IsLiveObject(object))
        return nullptr;
    HGDIOBJ* slot = nullptr;
    switch (object->kind) {
    case GdiKind::Pen: slot = &dc->pen; break;
    case GdiKind::Brush: slot = &dc->brush; break;
    case GdiKind::Font: slot = &dc->font; break;
    case GdiKind::Bitmap:
        // A bitmap lives in one memory context at a time.
        if (!dc->memory || (object->selectedCount > 0 && dc->bitmap != object))
            return nullptr;
        slot = &dc->bitmap;
        break;
    }
    HGDIOBJ previous = *slot;
    if (previous == object)
        return previous;
    Unselect(previous);
    if (!object->stock)
        ++object->selectedCount;
    *slot = object;
    if (object->kind == GdiKind::Bitmap)
        dc->surface = object->bitmap;
    return previous;
}

int SetROP2(HDC dc, int mode)
{
    if (!IsLiveDC(dc) || mode < 1 || mode > 16)
        return 0;
    return std::exchange(dc->rop2, mode);
}

int GetROP2(HDC dc)
{
    return IsLiveDC(dc) ? dc->rop2 : 0;
}

COLORREF SetTextColor(HDC dc, COLORREF color)
{
    return IsLiveDC(dc) ? std::exchange(dc->textColor, color & kAllBits) : CLR_INVALID;
}

COLORREF SetBkColor(HDC dc, COLORREF color)
{
    return IsLiveDC(dc) ? std::exchange(dc->backgroundColor, color & kAllBits) : CLR_INVALID;
}

int SetBkMode(HDC dc, int mode)
{
    if (!IsLiveDC(dc) || (mode != TRANSPARENT && mode != OPAQUE))
        return 0;
    return std::exchange(dc->backgroundMode, mode);
}

int FillRect(HDC dc, const RECT* rect, HBRUSH brush)
{
    if (!IsLiveDC(dc) || rect == nullptr || !IsLiveObject(brush) || brush->kind != GdiKind::Brush)
        return 0;
    if (brush->penStyle == PS_NULL)
        return 1;
    RECT area = Intersect(*rect, DrawableArea(*dc));
    if (!IsEmpty(area))
        FillMasked(*dc->surface, area, 0, PixelOf(brush->color));
    return 1;
}

BOOL Rectangle(HDC dc, int left, int top, int right, int bottom)
{
    if (!IsLiveDC(dc))
        return FALSE;
    if (left > right)
        std::swap(left, right);
    if (top > bottom)
        std::swap(top, bottom);
    if (!DrawsPen(*dc)) {
        // Without a pen the fill takes the place of the outline on the left
        // and top only, one pixel short of right and bottom.
        if (DrawsBrush(*dc))
            FillThroughRop(*dc, RECT{left, top, right - 1, bottom - 1}, dc->brush->color);
        return TRUE;
    }
    const int frame = std::max(1, dc->pen->penWidth);
    const COLORREF penColor = dc->pen->color;
    // Four disjoint strips, so that a raster mode like XOR meets each pixel once.
    const LONG innerTop = std::min<LONG>(top + frame, bottom);
    const LONG innerBottom = std::max<LONG>(bottom - frame, innerTop);
    FillThroughRop(*dc, RECT{left, top, right, innerTop}, penColor);
    FillThroughRop(*dc, RECT{left, innerBottom, right, bottom}, penColor);
    const LONG innerLeft = std::min<LONG>(left + frame, right);
    const LONG innerRight = std::max<LONG>(right - frame, innerLeft);
    FillThroughRop(*dc, RECT{left, innerTop, innerLeft, innerBottom}, penColor);
    FillThroughRop(*dc, RECT{innerRight, innerTop, right, innerBottom}, penColor);
    if (DrawsBrush(*dc))
        FillThroughRop(*dc, RECT{innerLeft, innerTop, innerRight, innerBottom}, dc->brush->color);
    return TRUE;
}

BOOL MoveToEx(HDC dc, int x, int y, POINT* previous)
{
    if (!IsLiveDC(dc))
        return FALSE;
    if (previous != nullptr)
        *previous = dc->position;
    dc->position = POINT{x, y};
    return TRUE;
}

BOOL LineTo(HDC dc, int x, int y)
{
    if (!IsLiveDC(dc))
        return FALSE;
    int64_t cx = dc->position.x;
    int64_t cy = dc->position.y;
    dc->position = POINT{x, y};
    if (!DrawsPen(*dc))
        return TRUE;
    // Steps along the longer axis; the shorter one moves when the error
    // passes half a pixel, and a tie stays put.
    const int64_t dx = std::llabs(x - cx);
    const int64_t dy = std::llabs(y - cy);
    const int stepX = cx < x ? 1 : -1;
    const int stepY = cy < y ? 1 : -1;
    const bool xMajor = dx >= dy;
    const int64_t major = xMajor ? dx : dy;
    const int64_t minor = xMajor ? dy : dx;
    int64_t error = 2 * minor - major;
    for (int64_t i = 0; i < major; ++i) {
        PlotPen(*dc, static_cast<int>(cx), static_cast<int>(cy));
        if (error > 0) {
            if (xMajor)
                cy += stepY;
            else
                cx += stepX;
            error -= 2 * major;
        }
        error += 2 * minor;
        if (xMajor)
            cx += stepX;
        else
            cy += stepY;
    }
    return TRUE;
}

COLORREF SetPixel(HDC dc, int x, int y, COLORREF color)
{
    if (!IsLiveDC(dc))
        return CLR_INVALID;
    RECT area = Intersect(RECT{x, y, x + 1, y + 1}, DrawableArea(*dc));
    if (IsEmpty(area))
        return CLR_INVALID;
    dc->surface->At(x, y) = PixelOf(color);
    return color & kAllBits;
}

COLORREF GetPixel(HDC dc, int x, int y)
{
    if (!IsLiveDC(dc))
        return CLR_INVALID;
    RECT area = Intersect(RECT{x, y, x + 1, y + 1}, DrawableArea(*dc));
    return IsEmpty(area) ? CLR_INVALID : ColorOf(dc->surface->At(x, y));
}

BOOL StretchBlt(HDC dest, int x, int y, int width, int height, HDC source, int sx, int sy, int sourceWidth,
                int sourceHeight, DWORD rop)
{
    if (!IsLiveDC(dest) || !IsLiveDC(source) || rop != SRCCOPY)
        return FALSE;
    if (width <= 0 || height <= 0 || sourceWidth <= 0 || sourceHeight <= 0)
        return FALSE;
    const RECT area = Intersect(RECT{x, y, x + width, y + height}, DrawableArea(*dest));
    if (IsEmpty(area))
        return TRUE;
    // A copy first, so that a blit within one picture reads unchanged pixels.
    const Framebuffer from = *source->surface;
    Framebuffer& to = *dest->surface;
    for (LONG row = area.top; row < area.bottom; ++row) {
        const int64_t fromY = sy + int64_t(row - y) * sourceHeight / height;
        if (fromY < 0 || fromY >= from.height)
            continue;
        for (LONG column = area.left; column < area.right; ++column) {
            const int64_t fromX = sx + int64_t(column - x) * sourceWidth / width;
            if (fromX < 0 || fromX >= from.width)
                continue;
            to.At(column, row) = from.At(static_cast<int>(fromX), static_cast<int>(fromY));
        }
    }
    return TRUE;
}

BOOL BitBlt(HDC dest, int x, int y, int width, int height, HDC source, int sx, int sy, DWORD rop)
{
    return StretchBlt(dest, x, y, width, height, source, sx, sy, width, height, rop);
}

RECT GetClipBox(HDC dc)
{
    return IsLiveDC(dc) ? DrawableArea(*dc) : RECT{};
}

// ------------------------------------------------------------------ CDC

CDC::~CDC()
{
    if (m_hDC != nullptr)
        ::DeleteDC(m_hDC);
}

BOOL CDC::Attach(HDC dc)
{
    if (m_hDC != nullptr || dc == nullptr)
        return FALSE;
    m_hDC = dc;
    return TRUE;
}

HDC CDC::Detach()
{
    return std::exchange(m_hDC, nullptr);
}

BOOL CDC::CreateCompatibleDC(CDC* other)
{
    return Attach(::CreateCompatibleDC(other != nullptr ? other->m_hDC : nullptr));
}

BOOL CDC::DeleteDC()
{
    if (m_hDC == nullptr)
        return FALSE;
    return ::DeleteDC(Detach());
}

void CDC::FillSolidRect(const RECT* rect, COLORREF color)
{
    if (!IsLiveDC(m_hDC) || rect == nullptr)
        return;
    RECT area = Intersect(*rect, DrawableArea(*m_hDC));
    if (!IsEmpty(area))
        FillMasked(*m_hDC->surface, area, 0, PixelOf(color));
}

void CDC::FillSolidRect(int x, int y, int width, int height, COLORREF color)
{
    RECT rect{x, y, x + width, y + height};
    FillSolidRect(&rect, color);
}

POINT CDC::MoveTo(int x, int y)
{
    POINT previous;
    ::MoveToEx(m_hDC, x, y, &previous);
    return previous;
}

BOOL CDC::StretchBlt(int x, int y, int width, int height, CDC* source, int sx, int sy, int sourceWidth,
                     int sourceHeight, DWORD rop)
{
    return ::StretchBlt(m_hDC, x, y, width, height, source != nullptr ? source->m_hDC : nullptr, sx, sy,
                        sourceWidth, sourceHeight, rop);
}
