#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/Types.h"

// Software drawing over 32-bit framebuffers, in the shape of the classic
// device-context calls. Everything is deterministic to the pixel: lines are
// Bresenham, blits are nearest-neighbour and text is rendered monochrome.

using COLORREF = uint32_t;  // 0x00BBGGRR, as RGB() packs it

constexpr COLORREF RGB(BYTE red, BYTE green, BYTE blue)
{
    return static_cast<COLORREF>(red) | (static_cast<COLORREF>(green) << 8) | (static_cast<COLORREF>(blue) << 16);
}
constexpr BYTE GetRValue(COLORREF color) { return static_cast<BYTE>(color & 0xFF); }
constexpr BYTE GetGValue(COLORREF color) { return static_cast<BYTE>((color >> 8) & 0xFF); }
constexpr BYTE GetBValue(COLORREF color) { return static_cast<BYTE>((color >> 16) & 0xFF); }

struct RECT {
    LONG left = 0;
    LONG top = 0;
    LONG right = 0;
    LONG bottom = 0;
};

struct POINT {
    LONG x = 0;
    LONG y = 0;
};

struct SIZE {
    LONG cx = 0;
    LONG cy = 0;
};

struct PAINTSTRUCT {
    struct DeviceContext* hdc = nullptr;
    BOOL fErase = FALSE;
    RECT rcPaint;
};

// Pixels are 0x00RRGGBB, row after row, the layout a presenter can show as
// is. Callers convert with PixelOf / ColorOf.
struct Framebuffer {
    int width = 0;
    int height = 0;
    std::vector<uint32_t> pixels;

    Framebuffer() = default;
    Framebuffer(int w, int h, uint32_t fill = 0);
    // Keeps the pixels that lie inside both sizes; new ones are `fill`.
    void Resize(int w, int h, uint32_t fill = 0);
    bool Contains(int x, int y) const { return x >= 0 && y >= 0 && x < width && y < height; }
    uint32_t At(int x, int y) const { return pixels[static_cast<size_t>(y) * width + x]; }
    uint32_t& At(int x, int y) { return pixels[static_cast<size_t>(y) * width + x]; }
};

namespace platform {
constexpr uint32_t PixelOf(COLORREF color)
{
    return (static_cast<uint32_t>(GetRValue(color)) << 16) | (static_cast<uint32_t>(GetGValue(color)) << 8) |
           GetBValue(color);
}
constexpr COLORREF ColorOf(uint32_t pixel)
{
    return RGB(static_cast<BYTE>(pixel >> 16), static_cast<BYTE>(pixel >> 8), static_cast<BYTE>(pixel));
}
}  // namespace platform

// ------------------------------------------------------------------ objects

struct GdiObject;
struct DeviceContext;
using HGDIOBJ = GdiObject*;
using HPEN = GdiObject*;
using HBRUSH = GdiObject*;
using HFONT = GdiObject*;
using HBITMAP = GdiObject*;
using HDC = DeviceContext*;

constexpr int WHITE_BRUSH = 0;
constexpr int BLACK_BRUSH = 4;
constexpr int NULL_BRUSH = 5;
constexpr int WHITE_PEN = 6;
constexpr int BLACK_PEN = 7;
constexpr int NULL_PEN = 8;
constexpr int SYSTEM_FONT = 13;
constexpr int DEFAULT_GUI_FONT = 17;

constexpr int PS_SOLID = 0;
constexpr int PS_NULL = 5;
constexpr int PS_INSIDEFRAME = 6;

constexpr int R2_BLACK = 1;
constexpr int R2_NOT = 6;
constexpr int R2_XORPEN = 7;
constexpr int R2_NOP = 11;
constexpr int R2_COPYPEN = 13;
constexpr int R2_WHITE = 16;

constexpr int TRANSPARENT = 1;
constexpr int OPAQUE = 2;

constexpr DWORD SRCCOPY = 0x00CC0020;

constexpr int FW_NORMAL = 400;
constexpr int FW_BOLD = 700;
constexpr BYTE FF_DONTCARE = 0x00;
constexpr BYTE FF_ROMAN = 0x10;
constexpr BYTE FF_SWISS = 0x20;
constexpr BYTE FF_MODERN = 0x30;

HGDIOBJ GetStockObject(int which);
HBRUSH CreateSolidBrush(COLORREF color);
// Width 0 and 1 draw one pixel; a wider pen draws a square of that side at
// each point of the line and a frame of that thickness inside a Rectangle.
HPEN CreatePen(int style, int width, COLORREF color);
// The face is looked up by family (roman: serif, swiss: sans, modern:
// monospace), weight and slant; the cell is `height` pixels high, glyphs
// are scaled so that an average character is `width` pixels wide (0: the
// face's own proportion).
HFONT CreateFontA(int height, int width, int escapement, int orientation, int weight, DWORD italic,
                  DWORD underline, DWORD strikeOut, DWORD charSet, DWORD outPrecision, DWORD clipPrecision,
                  DWORD quality, DWORD pitchAndFamily, const char* faceName);
// Always 32 bits a pixel; null for a size that is not positive or absurdly
// large. The device context is not read.
HBITMAP CreateCompatibleBitmap(HDC dc, int width, int height);
// Stock objects are never deleted; an object selected into a context can't
// be deleted (FALSE).
BOOL DeleteObject(HGDIOBJ object);
// The bitmap's pixels, for tests and presenters; null for anything else.
const Framebuffer* GetBitmapPixels(HBITMAP bitmap);

// ----------------------------------------------------------- device context

// A memory context holding a 1x1 bitmap until one is selected.
HDC CreateCompatibleDC(HDC dc);
BOOL DeleteDC(HDC dc);
HGDIOBJ SelectObject(HDC dc, HGDIOBJ object);

int SetROP2(HDC dc, int mode);
int GetROP2(HDC dc);
COLORREF SetTextColor(HDC dc, COLORREF color);
COLORREF SetBkColor(HDC dc, COLORREF color);
int SetBkMode(HDC dc, int mode);

// Fills left..right-1 and top..bottom-1 with the brush; the raster mode does
// not apply.
int FillRect(HDC dc, const RECT* rect, HBRUSH brush);
// Pen outline inside the rectangle, brush inside that, both through the
// raster mode. A rectangle given upside down or right to left is turned.
BOOL Rectangle(HDC dc, int left, int top, int right, int bottom);
BOOL MoveToEx(HDC dc, int x, int y, POINT* previous);
// Draws from the current position up to, not including, (x, y).
BOOL LineTo(HDC dc, int x, int y);
COLORREF SetPixel(HDC dc, int x, int y, COLORREF color);
// CLR_INVALID outside the picture or the clip.
COLORREF GetPixel(HDC dc, int x, int y);
constexpr COLORREF CLR_INVALID = 0xFFFFFFFF;
// Nearest neighbour: destination column dx takes source column
// sx + dx * sw / dw (integer division), rows alike. Only SRCCOPY.
BOOL StretchBlt(HDC dest, int x, int y, int width, int height, HDC source, int sx, int sy, int sourceWidth,
                int sourceHeight, DWORD rop);
BOOL BitBlt(HDC dest, int x, int y, int width, int height, HDC source, int sx, int sy, DWORD rop);
// Text in UTF-8, top-left of the cell at (x, y), in the text colour over a
// background of the cell's size when the mode is opaque.
BOOL TextOutA(HDC dc, int x, int y, const char* text, int length);
// The cell TextOutA would fill with the context's font: the advance of the
// whole run wide and the font's cell high. FALSE without a usable font.
BOOL GetTextExtentPoint32A(HDC dc, const char* text, int length, SIZE* size);

// The current clip rectangle, in the context's own coordinates.
RECT GetClipBox(HDC dc);

namespace platform {

// How a window-side module makes a context for a window's pixels. The
// surface is shared, so a window that grows keeps its contexts valid.
HDC CreateSurfaceDC(std::shared_ptr<Framebuffer> surface, const RECT& clip);
std::shared_ptr<Framebuffer> SurfaceOf(HDC dc);
// Inverts a rectangle of a surface (XOR white), clipped to it.
void InvertRect(Framebuffer& surface, const RECT& rect);

}  // namespace platform

// The framework's context object: owns its handle when it made it.
class CDC {
public:
    CDC() = default;
    virtual ~CDC();
    CDC(const CDC&) = delete;
    CDC& operator=(const CDC&) = delete;

    HDC GetSafeHdc() const { return m_hDC; }
    BOOL Attach(HDC dc);
    HDC Detach();
    BOOL CreateCompatibleDC(CDC* other);
    BOOL DeleteDC();

    HGDIOBJ SelectObject(HGDIOBJ object) { return ::SelectObject(m_hDC, object); }
    int SetROP2(int mode) { return ::SetROP2(m_hDC, mode); }
    void FillRect(const RECT* rect, HBRUSH brush) { ::FillRect(m_hDC, rect, brush); }
    void FillSolidRect(const RECT* rect, COLORREF color);
    void FillSolidRect(int x, int y, int width, int height, COLORREF color);
    BOOL Rectangle(int left, int top, int right, int bottom) { return ::Rectangle(m_hDC, left, top, right, bottom); }
    POINT MoveTo(int x, int y);
    BOOL LineTo(int x, int y) { return ::LineTo(m_hDC, x, y); }
    BOOL TextOut(int x, int y, const char* text, int length) { return ::TextOutA(m_hDC, x, y, text, length); }
    BOOL StretchBlt(int x, int y, int width, int height, CDC* source, int sx, int sy, int sourceWidth,
                    int sourceHeight, DWORD rop);

protected:
    HDC m_hDC = nullptr;
};
