#include "view/TimeAxis.h"

#include <algorithm>

namespace view {

namespace {

// Products of a frame count (up to 2^32 frames of a 4 GiB chunk), a rate and
// a width need more than 64 bits.
using Wide = unsigned __int128;

}  // namespace

uint64_t TimeAxis::DurationMs() const
{
    if (samplesPerSec == 0)
        return 0;
    return static_cast<uint64_t>(Wide(frames) * 1000 / samplesPerSec);
}

int TimeAxis::ColumnOfFrame(uint64_t frame) const
{
    if (IsEmpty())
        return 0;
    frame = std::min(frame, frames);
    return static_cast<int>(Wide(frame) * static_cast<unsigned>(width) / frames);
}

uint64_t TimeAxis::FirstFrameOfColumn(int column) const
{
    if (IsEmpty() || column <= 0)
        return 0;
    column = std::min(column, width);
    const Wide product = Wide(static_cast<unsigned>(column)) * frames;
    return static_cast<uint64_t>((product + static_cast<unsigned>(width) - 1) / static_cast<unsigned>(width));
}

int TimeAxis::ColumnOfMs(uint64_t ms) const
{
    if (IsEmpty())
        return 0;
    const Wide frame = Wide(ms) * samplesPerSec / 1000;
    if (frame >= frames)
        return width;
    return ColumnOfFrame(static_cast<uint64_t>(frame));
}

uint64_t TimeAxis::MsOfColumn(int column) const
{
    if (IsEmpty())
        return 0;
    return static_cast<uint64_t>(Wide(FirstFrameOfColumn(column)) * 1000 / samplesPerSec);
}

}  // namespace view
