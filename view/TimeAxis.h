#pragma once
#include <cstdint>

// The one time axis of the refined view: the picture, the ruler, the caret,
// the selection and the marks all place a time with it, so what is drawn
// at a column is what is heard when the caret stands there.
//
// The file's `frames` (one frame holds a sample of every channel) at
// `samplesPerSec` span `width` columns. Column c covers the frames from
// FirstFrameOfColumn(c) up to FirstFrameOfColumn(c + 1); a frame belongs to
// the column ColumnOfFrame gives, and the two agree exactly. Times are in
// milliseconds of the file, as the engine tells the time heard.
//
// Plain arithmetic on integers (no rounding drift between the ruler and the
// picture); any thread.
namespace view {

struct TimeAxis {
    uint64_t frames = 0;
    uint32_t samplesPerSec = 0;
    int width = 0;

    bool IsEmpty() const { return frames == 0 || samplesPerSec == 0 || width <= 0; }
    // The file's length in milliseconds, truncated.
    uint64_t DurationMs() const;
    // The column a frame falls in: floor(frame * width / frames).
    int ColumnOfFrame(uint64_t frame) const;
    // The first frame of column c: ceil(c * frames / width). Column `width`
    // gives `frames`, the end.
    uint64_t FirstFrameOfColumn(int column) const;
    // The column of a time: the column of the frame that sounds then
    // (floor(ms * samplesPerSec / 1000)); a time past the end gives `width`.
    int ColumnOfMs(uint64_t ms) const;
    // The time at which a column's first frame sounds, truncated to the
    // millisecond.
    uint64_t MsOfColumn(int column) const;
};

}  // namespace view
