#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "view/TimeAxis.h"

// Where the refined ruler puts its ticks and labels. The step between
// labelled ticks is the first of 1, 2, 5, 10, 15, 30 s, 1, 2, 5, 10, 15,
// 30 min, 1, 2, 5, 10 h ... at which the widest label of the file, with a
// gap, fits between two ticks; so labels never overlap, whatever the width.
// Every label stands right of its tick and inside the view: one that would
// cross the right edge moves left, and is left out if it would then cover
// the label before it.
//
// Pure computation; any thread.
namespace view {

// "MM:SS", minutes with at least two digits ("00:05", "01:30", "125:00").
std::string RulerLabelText(uint64_t seconds);

struct RulerLabel {
    int tick = 0;  // the tick's column
    int left = 0;  // the text's first column
    int width = 0; // the text's width in pixels
    std::string text;
};

struct RulerLayout {
    uint64_t stepSeconds = 0;      // between labelled ticks; 0 for an empty axis
    std::vector<int> majorTicks;   // columns of the labelled step
    std::vector<int> minorTicks;   // columns of a finer step between them, when it leaves room
    std::vector<RulerLabel> labels;
};

// The gap, in pixels, that stands at least between two labels.
constexpr int kRulerLabelGap = 8;
// Minor ticks are drawn only when they stand at least this far apart.
constexpr int kMinorTickSpacing = 6;

// `textWidth` measures a label in pixels with the ruler's font. Ticks
// stand at the column of their time; a tick at the very end of the file
// moves one column left, into the view.
RulerLayout LayOutRuler(const TimeAxis& axis, const std::function<int(const std::string&)>& textWidth);

}  // namespace view
