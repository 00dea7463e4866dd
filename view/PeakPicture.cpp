#include "view/PeakPicture.h"

#include <algorithm>
#include <cmath>

CPeakPicture::~CPeakPicture()
{
    Release();
}

void CPeakPicture::Release()
{
    Free(m_plain);
    Free(m_selected);
    m_width = 0;
    m_height = 0;
}

bool CPeakPicture::Make(Surface& surface, int width, int height)
{
    surface.dc = CreateCompatibleDC(nullptr);
    surface.bitmap = surface.dc != nullptr ? CreateCompatibleBitmap(surface.dc, width, height) : nullptr;
    if (surface.bitmap == nullptr) {
        Free(surface);
        return false;
    }
    surface.oldBitmap = SelectObject(surface.dc, surface.bitmap);
    return true;
}

void CPeakPicture::Free(Surface& surface)
{
    if (surface.dc != nullptr) {
        if (surface.oldBitmap != nullptr)
            SelectObject(surface.dc, surface.oldBitmap);
        DeleteDC(surface.dc);
    }
    if (surface.bitmap != nullptr)
        DeleteObject(surface.bitmap);
    surface = Surface{};
}

bool CPeakPicture::Build(const view::PeakColumns& columns, int height)
{
    Release();
    if (columns.width <= 0 || height <= 0)
        return false;
    if (!Make(m_plain, columns.width, height) || !Make(m_selected, columns.width, height)) {
        Release();
        return false;
    }
    m_width = columns.width;
    m_height = height;
    Draw(m_plain, columns, height, kBackground, kCentreLine, kTrace);
    Draw(m_selected, columns, height, kSelectedBackground, kSelectedCentreLine, kSelectedTrace);
    return true;
}

int CPeakPicture::RowOf(float value, int lane, int lanes, int height)
{
    const int top = height * lane / lanes;
    const int bottom = height * (lane + 1) / lanes;
    const int rows = bottom - top;
    const int centre = top + rows / 2;
    // The reach either way that keeps full scale inside the lane.
    const int half = (rows - 1) / 2;
    return centre - static_cast<int>(std::lround(std::clamp(value, -1.0f, 1.0f) * half));
}

void CPeakPicture::Draw(Surface& surface, const view::PeakColumns& columns, int height, COLORREF background,
                        COLORREF centre, COLORREF trace)
{
    RECT all{0, 0, columns.width, height};
    HBRUSH fill = CreateSolidBrush(background);
    FillRect(surface.dc, &all, fill);
    DeleteObject(fill);

    HBRUSH centreBrush = CreateSolidBrush(centre);
    HBRUSH traceBrush = CreateSolidBrush(trace);
    for (int lane = 0; lane < columns.channels; ++lane) {
        const int centreRow = RowOf(0.0f, lane, columns.channels, height);
        RECT line{0, centreRow, columns.width, centreRow + 1};
        FillRect(surface.dc, &line, centreBrush);
        for (int x = 0; x < columns.width; ++x) {
            // High values stand higher: the top row is the high one.
            const int top = RowOf(columns.High(x, lane), lane, columns.channels, height);
            const int bottom = RowOf(columns.Low(x, lane), lane, columns.channels, height);
            RECT column{x, top, x + 1, bottom + 1};
            FillRect(surface.dc, &column, traceBrush);
        }
    }
    DeleteObject(centreBrush);
    DeleteObject(traceBrush);
}

void CPeakPicture::CopyColumns(HDC dest, int top, int left, int right, bool selected) const
{
    left = std::max(left, 0);
    right = std::min(right, m_width);
    const Surface& source = selected ? m_selected : m_plain;
    if (source.dc == nullptr || right <= left)
        return;
    BitBlt(dest, left, top, right - left, m_height, source.dc, left, 0, SRCCOPY);
}
