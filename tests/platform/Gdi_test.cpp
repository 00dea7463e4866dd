#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/Gdi.h"
#include "platform/GdiInternal.h"
#include "platform/Png.h"

namespace {

using Pixel = std::pair<int, int>;

constexpr COLORREF kWhite = RGB(255, 255, 255);
constexpr COLORREF kBlack = RGB(0, 0, 0);

// A memory context over a fresh bitmap of one colour.
struct Canvas {
    HDC dc = CreateCompatibleDC(nullptr);
    HBITMAP bitmap;
    HGDIOBJ oldBitmap;

    Canvas(int width, int height, COLORREF fill = kWhite) : bitmap(CreateCompatibleBitmap(nullptr, width, height))
    {
        oldBitmap = SelectObject(dc, bitmap);
        RECT all{0, 0, width, height};
        HBRUSH brush = CreateSolidBrush(fill);
        FillRect(dc, &all, brush);
        DeleteObject(brush);
    }
    ~Canvas()
    {
        SelectObject(dc, oldBitmap);
        DeleteDC(dc);
        DeleteObject(bitmap);
    }
    const Framebuffer& Pixels() const { return *GetBitmapPixels(bitmap); }
    std::set<Pixel> PixelsOf(COLORREF color) const
    {
        std::set<Pixel> found;
        const Framebuffer& pixels = Pixels();
        for (int y = 0; y < pixels.height; ++y)
            for (int x = 0; x < pixels.width; ++x)
                if (pixels.At(x, y) == platform::PixelOf(color))
                    found.insert({x, y});
        return found;
    }
};

std::set<Pixel> Box(int left, int top, int right, int bottom)  // inclusive
{
    std::set<Pixel> pixels;
    for (int y = top; y <= bottom; ++y)
        for (int x = left; x <= right; ++x)
            pixels.insert({x, y});
    return pixels;
}

TEST(Lines, BresenhamDrawsFromTheStartUpToButNotTheEndPoint)
{
    struct Case {
        const char* name;
        POINT from, to;
        std::set<Pixel> expected;
    };
    const std::vector<Case> cases = {
        {"right", {1, 2}, {5, 2}, {{1, 2}, {2, 2}, {3, 2}, {4, 2}}},
        {"left", {5, 2}, {1, 2}, {{5, 2}, {4, 2}, {3, 2}, {2, 2}}},
        {"down", {3, 0}, {3, 3}, {{3, 0}, {3, 1}, {3, 2}}},
        {"diagonal", {0, 0}, {3, 3}, {{0, 0}, {1, 1}, {2, 2}}},
        {"diagonal back", {3, 3}, {0, 0}, {{3, 3}, {2, 2}, {1, 1}}},
        {"shallow", {0, 0}, {4, 2}, {{0, 0}, {1, 0}, {2, 1}, {3, 1}}},
        {"zero length", {4, 4}, {4, 4}, {}},
        {"leaves the picture", {8, 1}, {12, 1}, {{8, 1}, {9, 1}}},
    };
    for (const Case& c : cases) {
        Canvas canvas(10, 6);
        MoveToEx(canvas.dc, c.from.x, c.from.y, nullptr);
        LineTo(canvas.dc, c.to.x, c.to.y);
        EXPECT_EQ(canvas.PixelsOf(kBlack), c.expected) << c.name;
    }
}

TEST(Lines, AnyLineHasOnePixelPerStepOfItsLongerAxisAndEndsNextToItsEnd)
{
    std::mt19937 random(7);
    std::uniform_int_distribution<int> coordinate(0, 39);
    for (int trial = 0; trial < 200; ++trial) {
        const POINT from{coordinate(random), coordinate(random)};
        const POINT to{coordinate(random), coordinate(random)};
        Canvas canvas(40, 40);
        MoveToEx(canvas.dc, from.x, from.y, nullptr);
        LineTo(canvas.dc, to.x, to.y);
        const std::set<Pixel> drawn = canvas.PixelsOf(kBlack);
        const int steps = std::max(std::abs(to.x - from.x), std::abs(to.y - from.y));
        ASSERT_EQ(static_cast<int>(drawn.size()), steps);
        if (steps == 0)
            continue;
        EXPECT_TRUE(drawn.count({from.x, from.y}));
        EXPECT_FALSE(drawn.count({to.x, to.y}));
        bool touchesEnd = false;
        for (const Pixel& p : drawn)
            touchesEnd = touchesEnd || (std::abs(p.first - to.x) <= 1 && std::abs(p.second - to.y) <= 1);
        EXPECT_TRUE(touchesEnd);
    }
}

TEST(Lines, NullPenDrawsNothingButStillMoves)
{
    Canvas canvas(10, 10);
    HPEN nullPen = CreatePen(PS_NULL, 0, RGB(0, 180, 237));
    HGDIOBJ old = SelectObject(canvas.dc, nullPen);
    MoveToEx(canvas.dc, 0, 0, nullptr);
    LineTo(canvas.dc, 9, 9);
    SelectObject(canvas.dc, old);
    LineTo(canvas.dc, 9, 0);  // from where the invisible line ended
    EXPECT_EQ(canvas.PixelsOf(kBlack), Box(9, 1, 9, 9));
    DeleteObject(nullPen);
}

TEST(Rectangles, OutlineWithPenAndNullPenFillOneShortOfRightAndBottom)
{
    constexpr COLORREF kGreen = RGB(61, 176, 79);
    struct Case {
        const char* name;
        bool nullPen;
        RECT args;
        std::set<Pixel> black, green;
    };
    std::set<Pixel> outline = Box(2, 3, 6, 8);
    std::set<Pixel> inside = Box(3, 4, 5, 7);
    for (const Pixel& p : inside)
        outline.erase(p);
    const std::vector<Case> cases = {
        {"pen", false, {2, 3, 7, 9}, outline, inside},
        {"pen, corners swapped", false, {7, 9, 2, 3}, outline, inside},
        {"one-pixel tick given bottom up", false, {4, 9, 5, 3}, Box(4, 3, 4, 8), {}},
        {"null pen", true, {2, 3, 7, 9}, {}, Box(2, 3, 5, 7)},
        {"null pen, right to left", true, {7, 3, 2, 9}, {}, Box(2, 3, 5, 7)},
        {"null pen, one column", true, {4, 3, 5, 9}, {}, {}},
        {"clipped at the edges", true, {-3, -3, 3, 3}, {}, Box(0, 0, 1, 1)},
    };
    for (const Case& c : cases) {
        Canvas canvas(10, 12);
        HBRUSH brush = CreateSolidBrush(kGreen);
        HGDIOBJ oldBrush = SelectObject(canvas.dc, brush);
        HGDIOBJ oldPen = c.nullPen ? SelectObject(canvas.dc, GetStockObject(NULL_PEN)) : nullptr;
        Rectangle(canvas.dc, c.args.left, c.args.top, c.args.right, c.args.bottom);
        EXPECT_EQ(canvas.PixelsOf(kBlack), c.black) << c.name;
        EXPECT_EQ(canvas.PixelsOf(kGreen), c.green) << c.name;
        SelectObject(canvas.dc, oldBrush);
        if (oldPen != nullptr)
            SelectObject(canvas.dc, oldPen);
        EXPECT_TRUE(DeleteObject(brush));
    }
}

TEST(RasterModes, XorTintsBlackAndBlueAndTheSameFillTwiceRestores)
{
    Canvas canvas(8, 4, kBlack);
    RECT blue{4, 0, 8, 4};
    HBRUSH blueBrush = CreateSolidBrush(RGB(0, 90, 180));
    FillRect(canvas.dc, &blue, blueBrush);
    const Framebuffer before = canvas.Pixels();

    HBRUSH tint = CreateSolidBrush(RGB(61, 176, 79));
    SelectObject(canvas.dc, tint);
    SelectObject(canvas.dc, GetStockObject(NULL_PEN));
    EXPECT_EQ(SetROP2(canvas.dc, R2_XORPEN), R2_COPYPEN);
    Rectangle(canvas.dc, 0, 0, 9, 5);
    EXPECT_EQ(GetPixel(canvas.dc, 1, 1), RGB(61, 176, 79));
    EXPECT_EQ(GetPixel(canvas.dc, 6, 1), RGB(61, 234, 251));
    Rectangle(canvas.dc, 0, 0, 9, 5);
    EXPECT_EQ(canvas.Pixels().pixels, before.pixels);

    // FillRect is not a raster operation: it copies whatever the mode.
    RECT all{0, 0, 8, 4};
    FillRect(canvas.dc, &all, tint);
    EXPECT_EQ(GetPixel(canvas.dc, 6, 1), RGB(61, 176, 79));
    SelectObject(canvas.dc, GetStockObject(WHITE_BRUSH));
    DeleteObject(tint);
    DeleteObject(blueBrush);
}

TEST(RasterModes, AllSixteenModesMatchTheirBitwiseDefinitions)
{
    using Op = uint32_t (*)(uint32_t p, uint32_t d);
    const std::vector<std::pair<int, Op>> modes = {
        {1, [](uint32_t, uint32_t) { return 0u; }},
        {2, [](uint32_t p, uint32_t d) { return ~(p | d); }},
        {3, [](uint32_t p, uint32_t d) { return d & ~p; }},
        {4, [](uint32_t p, uint32_t) { return ~p; }},
        {5, [](uint32_t p, uint32_t d) { return p & ~d; }},
        {6, [](uint32_t, uint32_t d) { return ~d; }},
        {7, [](uint32_t p, uint32_t d) { return p ^ d; }},
        {8, [](uint32_t p, uint32_t d) { return ~(p & d); }},
        {9, [](uint32_t p, uint32_t d) { return p & d; }},
        {10, [](uint32_t p, uint32_t d) { return ~(p ^ d); }},
        {11, [](uint32_t, uint32_t d) { return d; }},
        {12, [](uint32_t p, uint32_t d) { return d | ~p; }},
        {13, [](uint32_t p, uint32_t) { return p; }},
        {14, [](uint32_t p, uint32_t d) { return p | ~d; }},
        {15, [](uint32_t p, uint32_t d) { return p | d; }},
        {16, [](uint32_t, uint32_t) { return 0xFFFFFFFFu; }},
    };
    std::mt19937 random(3);
    for (const auto& [mode, op] : modes) {
        for (int trial = 0; trial < 50; ++trial) {
            const uint32_t pen = random() & 0xFFFFFF;
            const uint32_t pixel = random() & 0xFFFFFF;
            uint32_t andMask = 0;
            uint32_t xorMask = 0;
            platform::RopMasks(mode, pen, andMask, xorMask);
            ASSERT_EQ(((pixel & andMask) ^ xorMask) & 0xFFFFFF, op(pen, pixel) & 0xFFFFFF) << "mode " << mode;
        }
    }
}

TEST(Blits, StretchIsNearestNeighbourAndClipped)
{
    struct Case {
        const char* name;
        int x, y, width, height;
        std::vector<uint32_t> expected;  // the 4x4 destination, row by row
    };
    // Source 2x2: a b / c d
    const uint32_t a = 0x111111, b = 0x222222, c = 0x333333, d = 0x444444, o = 0xFFFFFF;
    const std::vector<Case> cases = {
        {"doubled", 0, 0, 4, 4, {a, a, b, b, a, a, b, b, c, c, d, d, c, c, d, d}},
        {"same size, moved", 1, 1, 2, 2, {o, o, o, o, o, a, b, o, o, c, d, o, o, o, o, o}},
        {"halved to one pixel", 0, 0, 1, 1, {a, o, o, o, o, o, o, o, o, o, o, o, o, o, o, o}},
        {"past the right and bottom", 2, 3, 4, 4, {o, o, o, o, o, o, o, o, o, o, o, o, o, o, a, a}},
        {"three wide", 0, 0, 3, 1, {a, a, b, o, o, o, o, o, o, o, o, o, o, o, o, o}},
    };
    for (const Case& test : cases) {
        Canvas source(2, 2);
        SetPixel(source.dc, 0, 0, platform::ColorOf(a));
        SetPixel(source.dc, 1, 0, platform::ColorOf(b));
        SetPixel(source.dc, 0, 1, platform::ColorOf(c));
        SetPixel(source.dc, 1, 1, platform::ColorOf(d));
        Canvas dest(4, 4);
        EXPECT_TRUE(StretchBlt(dest.dc, test.x, test.y, test.width, test.height, source.dc, 0, 0, 2, 2, SRCCOPY));
        EXPECT_EQ(dest.Pixels().pixels, test.expected) << test.name;
    }
    Canvas source(2, 2);
    Canvas dest(4, 4);
    EXPECT_FALSE(StretchBlt(dest.dc, 0, 0, 0, 4, source.dc, 0, 0, 2, 2, SRCCOPY));
    EXPECT_FALSE(StretchBlt(dest.dc, 0, 0, 4, 4, source.dc, 0, 0, 2, 2, 0x00660046));
}

TEST(Objects, SelectedObjectsCannotBeDeletedAndStaleHandlesAreRefused)
{
    HDC dc = CreateCompatibleDC(nullptr);
    HBRUSH brush = CreateSolidBrush(kBlack);
    HGDIOBJ old = SelectObject(dc, brush);
    EXPECT_FALSE(DeleteObject(brush));
    SelectObject(dc, old);
    EXPECT_TRUE(DeleteObject(brush));
    EXPECT_FALSE(DeleteObject(brush));
    EXPECT_EQ(SelectObject(dc, brush), nullptr);
    EXPECT_TRUE(DeleteObject(GetStockObject(WHITE_BRUSH)));
    EXPECT_NE(GetStockObject(WHITE_BRUSH), nullptr);

    HBITMAP bitmap = CreateCompatibleBitmap(dc, 3, 3);
    HDC other = CreateCompatibleDC(nullptr);
    EXPECT_NE(SelectObject(dc, bitmap), nullptr);
    EXPECT_EQ(SelectObject(other, bitmap), nullptr);  // one context at a time
    EXPECT_TRUE(DeleteDC(dc));
    EXPECT_FALSE(DeleteDC(dc));
    EXPECT_TRUE(DeleteObject(bitmap));
    EXPECT_TRUE(DeleteDC(other));
    EXPECT_EQ(CreateCompatibleBitmap(nullptr, 0, 10), nullptr);
    EXPECT_EQ(CreateCompatibleBitmap(nullptr, 10, -1), nullptr);
}

TEST(Text, SerifLabelIsBlackOnAnOpaqueWhiteCellAndTheSameEachTime)
{
    auto render = [](const char* text) {
        Canvas canvas(60, 16, RGB(0, 0, 255));
        HFONT font = CreateFontA(12, 6, 0, 0, 700, 1, 0, 0, 0, 1, 0, 2, 16, nullptr);
        EXPECT_NE(font, nullptr);
        HGDIOBJ old = SelectObject(canvas.dc, font);
        EXPECT_TRUE(TextOutA(canvas.dc, 2, 0, text, static_cast<int>(std::string(text).size())));
        SelectObject(canvas.dc, old);
        DeleteObject(font);
        return canvas.Pixels();
    };
    const Framebuffer label = render("00:24");
    int ink = 0;
    int paper = 0;
    int untouchedBelowCell = 0;
    for (int y = 0; y < label.height; ++y)
        for (int x = 0; x < label.width; ++x) {
            const uint32_t pixel = label.At(x, y);
            ink += pixel == 0x000000;
            paper += pixel == 0xFFFFFF;
            untouchedBelowCell += y >= 12 && pixel == 0x0000FF;
        }
    EXPECT_GT(ink, 20);
    EXPECT_GT(paper, 5 * 12);
    EXPECT_EQ(untouchedBelowCell, 60 * 4);
    for (int y = 0; y < 12; ++y)
        EXPECT_EQ(label.At(0, y), 0x0000FFu) << "left of the cell stays";
    EXPECT_EQ(render("00:24").pixels, label.pixels);
    EXPECT_NE(render("00:42").pixels, label.pixels);
}

TEST(Png, PixelsComeBackFromTheFile)
{
    Framebuffer picture(5, 3);
    for (size_t i = 0; i < picture.pixels.size(); ++i)
        picture.pixels[i] = static_cast<uint32_t>(i * 0x0F1E2D) & 0xFFFFFF;
    const std::string path = ::testing::TempDir() + "gdi_png_roundtrip.png";
    ASSERT_TRUE(platform::WritePng(path, picture));
    Framebuffer back;
    ASSERT_TRUE(platform::ReadPng(path, back));
    EXPECT_EQ(back.width, 5);
    EXPECT_EQ(back.pixels, picture.pixels);
    EXPECT_FALSE(platform::WritePng(path, Framebuffer()));
    EXPECT_FALSE(platform::WritePng("/nonexistent-folder/x.png", picture));
    std::remove(path.c_str());
}

}  // namespace
