#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_TRUETYPE_TABLES_H

#include <cmath>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Gdi.h"
#include "platform/GdiInternal.h"

struct LoadedFont {
    FT_Face face = nullptr;
    int ascentPixels = 0;
    int cellHeight = 0;
    ~LoadedFont();
};

namespace platform {
namespace {

// FreeType's library object is not safe for concurrent use; all text goes
// through this one lock, which is cheap next to the rasterising.
std::mutex& FontLock()
{
    static std::mutex* lock = new std::mutex;
    return *lock;
}

FT_Library Library()
{
    static FT_Library library = [] {
        FT_Library made = nullptr;
        if (FT_Init_FreeType(&made) != 0)
            return static_cast<FT_Library>(nullptr);
        return made;
    }();
    return library;
}

const char* FamilyFor(BYTE pitchAndFamily)
{
    switch (pitchAndFamily & 0xF0) {
    case FF_ROMAN: return "serif";
    case FF_MODERN: return "monospace";
    default: return "sans-serif";
    }
}

// One configuration for the process, held here so that it stays reachable.
FcConfig* FontConfiguration()
{
    static FcConfig* config = FcInitLoadConfigAndFonts();
    return config;
}

// The file fontconfig picks for the description, or empty when none.
std::string MatchFontFile(const FontDescription& description, const std::string& faceName, int& index)
{
    FcConfig* config = FontConfiguration();
    if (config == nullptr)
        return std::string();
    FcPattern* pattern = FcPatternCreate();
    const std::string family = faceName.empty() ? FamilyFor(description.family) : faceName;
    FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(family.c_str()));
    FcPatternAddInteger(pattern, FC_WEIGHT, description.weight >= 600 ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
    FcPatternAddInteger(pattern, FC_SLANT, description.italic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
    FcPatternAddBool(pattern, FC_SCALABLE, FcTrue);
    FcConfigSubstitute(config, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern* match = FcFontMatch(config, pattern, &result);
    std::string path;
    if (match != nullptr) {
        FcChar8* file = nullptr;
        if (FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch && file != nullptr)
            path = reinterpret_cast<const char*>(file);
        if (FcPatternGetInteger(match, FC_INDEX, 0, &index) != FcResultMatch)
            index = 0;
        FcPatternDestroy(match);
    }
    FcPatternDestroy(pattern);
    return path;
}

// Cell height as the whole of ascent and descent, and the width of an
// average character, both scaled from the face's own units.
std::shared_ptr<LoadedFont> LoadFont(const FontDescription& description, const std::string& faceName)
{
    if (Library() == nullptr)
        return nullptr;
    int index = 0;
    const std::string path = MatchFontFile(description, faceName, index);
    if (path.empty())
        return nullptr;
    auto font = std::make_shared<LoadedFont>();
    if (FT_New_Face(Library(), path.c_str(), index, &font->face) != 0) {
        font->face = nullptr;
        return nullptr;
    }
    FT_Face face = font->face;
    const double unitsPerEm = face->units_per_EM > 0 ? face->units_per_EM : 2048;
    const double fullHeight = face->ascender - face->descender > 0 ? face->ascender - face->descender : unitsPerEm;
    const int height = description.height == 0 ? 16 : description.height;
    const double pixelsPerEmY = height > 0 ? height * unitsPerEm / fullHeight : -height;
    double pixelsPerEmX = pixelsPerEmY;
    const auto* os2 = static_cast<const TT_OS2*>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2));
    if (description.width > 0 && os2 != nullptr && os2->xAvgCharWidth > 0)
        pixelsPerEmX = description.width * unitsPerEm / os2->xAvgCharWidth;
    if (FT_Set_Char_Size(face, std::lround(pixelsPerEmX * 64), std::lround(pixelsPerEmY * 64), 72, 72) != 0)
        return nullptr;
    font->ascentPixels = static_cast<int>(face->size->metrics.ascender >> 6);
    font->cellHeight = height > 0 ? height
                                  : static_cast<int>((face->size->metrics.ascender - face->size->metrics.descender) >> 6);
    return font;
}

std::vector<uint32_t> DecodeUtf8(const char* text, int length)
{
    std::vector<uint32_t> codes;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    int i = 0;
    while (i < length) {
        const unsigned char lead = bytes[i];
        int extra = lead >= 0xF0 && lead < 0xF8 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
        if (lead >= 0xF8 || i + extra >= length + (extra == 0 ? 1 : 0))
            extra = 0;
        uint32_t code = extra == 0 ? lead : lead & (0x3F >> extra);
        bool valid = true;
        for (int k = 1; k <= extra; ++k) {
            if ((bytes[i + k] & 0xC0) != 0x80) {
                valid = false;
                break;
            }
            code = (code << 6) | (bytes[i + k] & 0x3F);
        }
        // A broken sequence shows its first byte as a Latin-1 character.
        if (!valid) {
            code = lead;
            extra = 0;
        }
        codes.push_back(code);
        i += extra + 1;
    }
    return codes;
}

}  // namespace
}  // namespace platform

// GCC says it builds for AddressSanitizer with a macro, clang with a feature.
#if defined(__SANITIZE_ADDRESS__)
#define TEMPVOX_LEAK_CHECKED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TEMPVOX_LEAK_CHECKED 1
#endif
#endif

#if defined(TEMPVOX_LEAK_CHECKED)
// Fontconfig keeps caches for the life of the process that only FcFini
// frees, and FcFini can't run while other users of fontconfig in the
// process (a toolkit) may still hold its objects; so the leak checker is
// told about them instead.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig.so\n";
}
#endif

LoadedFont::~LoadedFont()
{
    if (face != nullptr) {
        std::lock_guard lock(platform::FontLock());
        FT_Done_Face(face);
    }
}

HFONT CreateFontA(int height, int width, int, int, int weight, DWORD italic, DWORD, DWORD, DWORD, DWORD, DWORD,
                  DWORD, DWORD pitchAndFamily, const char* faceName)
{
    auto* font = new GdiObject;
    font->kind = GdiKind::Font;
    font->font.height = height;
    font->font.width = width;
    font->font.weight = weight == 0 ? FW_NORMAL : weight;
    font->font.italic = italic != 0;
    font->font.family = static_cast<BYTE>(pitchAndFamily);
    {
        std::lock_guard lock(platform::FontLock());
        font->loadedFont = platform::LoadFont(font->font, faceName != nullptr ? faceName : "");
    }
    return platform::RegisterObject(font);
}

BOOL GetTextExtentPoint32A(HDC dc, const char* text, int length, SIZE* size)
{
    using namespace platform;
    if (!IsLiveDC(dc) || text == nullptr || length < 0 || size == nullptr)
        return FALSE;
    std::lock_guard lock(FontLock());
    GdiObject& fontObject = *dc->font;
    if (!fontObject.loadedFont)
        fontObject.loadedFont = LoadFont(fontObject.font, "");
    const LoadedFont* font = fontObject.loadedFont.get();
    if (font == nullptr)
        return FALSE;
    int advance = 0;
    for (uint32_t code : DecodeUtf8(text, length))
        if (FT_Load_Char(font->face, code, FT_LOAD_TARGET_MONO) == 0)
            advance += static_cast<int>(font->face->glyph->advance.x >> 6);
    size->cx = advance;
    size->cy = font->cellHeight;
    return TRUE;
}

BOOL TextOutA(HDC dc, int x, int y, const char* text, int length)
{
    using namespace platform;
    if (!IsLiveDC(dc) || text == nullptr || length < 0)
        return FALSE;
    std::lock_guard lock(FontLock());
    GdiObject& fontObject = *dc->font;
    if (!fontObject.loadedFont)
        fontObject.loadedFont = LoadFont(fontObject.font, "");
    const LoadedFont* font = fontObject.loadedFont.get();
    if (font == nullptr)
        return FALSE;
    FT_Face face = font->face;
    const std::vector<uint32_t> codes = DecodeUtf8(text, length);
    const RECT drawable = DrawableArea(*dc);
    Framebuffer& surface = *dc->surface;

    // Two passes: the advance of the whole run sizes the background first.
    int totalAdvance = 0;
    for (uint32_t code : codes)
        if (FT_Load_Char(face, code, FT_LOAD_TARGET_MONO) == 0)
            totalAdvance += static_cast<int>(face->glyph->advance.x >> 6);
    if (dc->backgroundMode == OPAQUE) {
        RECT cell = Intersect(RECT{x, y, x + totalAdvance, y + font->cellHeight}, drawable);
        if (!IsEmpty(cell))
            FillMasked(surface, cell, 0, PixelOf(dc->backgroundColor));
    }
    const uint32_t ink = PixelOf(dc->textColor);
    const int baseline = y + font->ascentPixels;
    int penX = x;
    for (uint32_t code : codes) {
        if (FT_Load_Char(face, code, FT_LOAD_RENDER | FT_LOAD_TARGET_MONO | FT_LOAD_MONOCHROME) != 0)
            continue;
        const FT_GlyphSlot glyph = face->glyph;
        const FT_Bitmap& bitmap = glyph->bitmap;
        if (bitmap.pixel_mode == FT_PIXEL_MODE_MONO) {
            for (unsigned row = 0; row < bitmap.rows; ++row) {
                const int py = baseline - glyph->bitmap_top + static_cast<int>(row);
                if (py < drawable.top || py >= drawable.bottom)
                    continue;
                const unsigned char* bits = bitmap.buffer + static_cast<ptrdiff_t>(row) * bitmap.pitch;
                for (unsigned column = 0; column < bitmap.width; ++column) {
                    if ((bits[column >> 3] & (0x80 >> (column & 7))) == 0)
                        continue;
                    const int px = penX + glyph->bitmap_left + static_cast<int>(column);
                    if (px >= drawable.left && px < drawable.right)
                        surface.At(px, py) = ink;
                }
            }
        }
        penX += static_cast<int>(glyph->advance.x >> 6);
    }
    return TRUE;
}
