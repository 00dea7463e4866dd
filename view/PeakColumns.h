#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "view/TimeAxis.h"

// The lowest and highest sample of each channel in each column of the
// refined picture, found in one pass over the samples: a click one sample
// long still reaches its full height in its column, however many samples
// share the column.
//
// Pure computation over bytes in memory (the view's mapping); any thread.
namespace view {

// How the interleaved samples are stored.
struct SampleLayout {
    uint16_t channels = 0;
    uint16_t bitsPerSample = 0;  // 8 (unsigned), 16, 24, 32 (signed), or 32 float
    uint16_t blockAlign = 0;     // bytes of one frame, at least channels * bytes per sample
    bool isFloat = false;
};

// True for the layouts ReadPeakColumns reads.
bool CanReadSamples(const SampleLayout& layout);

// Per column and channel, as a share of full scale from -1 to 1: the
// entry of column c and channel ch is at c * channels + ch. A column that
// no frame begins in (a file of fewer frames than columns) shows the frame
// that sounds at its time, so the picture has no holes.
struct PeakColumns {
    int width = 0;
    int channels = 0;
    std::vector<float> low;
    std::vector<float> high;

    float Low(int column, int channel) const { return low[static_cast<size_t>(column) * channels + channel]; }
    float High(int column, int channel) const { return high[static_cast<size_t>(column) * channels + channel]; }
};

// `samples` holds axis.frames whole frames in `layout`. An axis of no
// width gives no columns; an unreadable layout or an empty file gives
// columns of silence.
PeakColumns ReadPeakColumns(const uint8_t* samples, const SampleLayout& layout, const TimeAxis& axis);

}  // namespace view
