#pragma once
#include "platform/Gdi.h"
#include "view/PeakColumns.h"

// The refined wave band as two off-screen pictures of the same columns:
// one plain, one in the selection's colours. A paint copies columns of one
// or the other to the window, so painting never reads a sample, and a
// selection keeps its trace visible under the tint.
//
// Each channel has a lane of equal height, the first on top; a sample of
// full scale reaches the lane's edge and silence lies on its centre row.
// Host's thread only; owns its contexts and bitmaps.
class CPeakPicture {
public:
    // Colours of the band and its trace, plain and selected.
    static constexpr COLORREF kBackground = RGB(0, 0, 0);
    static constexpr COLORREF kCentreLine = RGB(45, 45, 45);
    static constexpr COLORREF kTrace = RGB(64, 156, 255);
    static constexpr COLORREF kSelectedBackground = RGB(34, 96, 52);
    static constexpr COLORREF kSelectedCentreLine = RGB(70, 130, 85);
    static constexpr COLORREF kSelectedTrace = RGB(150, 230, 255);

    CPeakPicture() = default;
    ~CPeakPicture();
    CPeakPicture(const CPeakPicture&) = delete;
    CPeakPicture& operator=(const CPeakPicture&) = delete;

    // Draws the columns into pictures of columns.width x height. False
    // (and no picture) for a size of nothing or when bitmaps can't be made.
    bool Build(const view::PeakColumns& columns, int height);
    void Release();
    bool Matches(int width, int height) const { return m_width == width && m_height == height && m_plain.bitmap; }

    // Copies columns [left, right) of the plain or the selected picture to
    // `dest` at row `top`; columns outside the picture are left alone.
    void CopyColumns(HDC dest, int top, int left, int right, bool selected) const;

    // The row of a value (-1 to 1) in lane `lane` of `lanes`, inside a band
    // of `height` rows: lanes split the band evenly, the centre is the
    // lane's middle row and full scale reaches its first or last row.
    static int RowOf(float value, int lane, int lanes, int height);

private:
    struct Surface {
        HDC dc = nullptr;
        HBITMAP bitmap = nullptr;
        HGDIOBJ oldBitmap = nullptr;
    };
    static bool Make(Surface& surface, int width, int height);
    static void Free(Surface& surface);
    static void Draw(Surface& surface, const view::PeakColumns& columns, int height, COLORREF background,
                     COLORREF centre, COLORREF trace);

    Surface m_plain;
    Surface m_selected;
    int m_width = 0;
    int m_height = 0;
};
