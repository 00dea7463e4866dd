#include "view/RulerScale.h"

#include <algorithm>

namespace view {

namespace {

// The candidate steps in seconds, in growing order, up to a span no file
// of a 32-bit data chunk reaches.
std::vector<uint64_t> CandidateSteps()
{
    std::vector<uint64_t> steps = {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800};
    for (uint64_t hours = 1; hours <= 100000; hours *= 10)
        for (uint64_t factor : {1, 2, 5})
            steps.push_back(hours * factor * 3600);
    return steps;
}

// The time of a tick's column: a tick that falls on the very end moves one
// column left, so that it is drawn.
int TickColumn(const TimeAxis& axis, uint64_t seconds)
{
    return std::min(axis.ColumnOfMs(seconds * 1000), axis.width - 1);
}

// The whole seconds of the file: the last tick that can stand.
uint64_t LastSecond(const TimeAxis& axis)
{
    return axis.DurationMs() / 1000;
}

}  // namespace

std::string RulerLabelText(uint64_t seconds)
{
    std::string minutes = std::to_string(seconds / 60);
    std::string rest = std::to_string(seconds % 60);
    if (minutes.size() < 2)
        minutes.insert(0, "0");
    if (rest.size() < 2)
        rest.insert(0, "0");
    return minutes + ":" + rest;
}

RulerLayout LayOutRuler(const TimeAxis& axis, const std::function<int(const std::string&)>& textWidth)
{
    RulerLayout layout;
    if (axis.IsEmpty())
        return layout;
    const uint64_t lastSecond = LastSecond(axis);
    const std::vector<uint64_t> steps = CandidateSteps();
    // Labels grow with the time they tell, so the last one is the widest.
    const int widest = textWidth(RulerLabelText(lastSecond));
    const double columnsPerSecond = double(axis.width) * 1000.0 / double(std::max<uint64_t>(axis.DurationMs(), 1));

    layout.stepSeconds = steps.back();
    for (uint64_t step : steps) {
        // Tick columns are truncated, so two ticks may stand one column
        // closer than the exact spacing.
        if (double(step) * columnsPerSecond - 1.0 >= widest + kRulerLabelGap) {
            layout.stepSeconds = step;
            break;
        }
    }

    for (uint64_t t = 0; t <= lastSecond; t += layout.stepSeconds)
        layout.majorTicks.push_back(TickColumn(axis, t));

    // The finest step that divides the labelled one and leaves room.
    for (uint64_t minor : steps) {
        if (minor >= layout.stepSeconds)
            break;
        if (layout.stepSeconds % minor != 0 || double(minor) * columnsPerSecond < kMinorTickSpacing)
            continue;
        for (uint64_t t = minor; t <= lastSecond; t += minor)
            if (t % layout.stepSeconds != 0)
                layout.minorTicks.push_back(TickColumn(axis, t));
        break;
    }

    int firstFree = 0;  // the first column a next label may use
    for (size_t i = 0; i < layout.majorTicks.size(); ++i) {
        RulerLabel label;
        label.tick = layout.majorTicks[i];
        label.text = RulerLabelText(i * layout.stepSeconds);
        label.width = textWidth(label.text);
        label.left = std::min(label.tick + kRulerLabelGap / 3, axis.width - label.width - kRulerLabelGap / 3);
        if (label.left < firstFree || label.left < 0)
            continue;
        firstFree = label.left + label.width + kRulerLabelGap;
        layout.labels.push_back(label);
    }
    return layout;
}

}  // namespace view
