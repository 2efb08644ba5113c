// Draws a curve through a bitmap in memory, so that it grows without flicker.
#include "spectroscopy/curve_plot.h"

#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "platform/truncate.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace {

constexpr int left = 10, top = 10, width = 400, height = 300; // pixels
constexpr int labelledHeight = 332;                           // with the labels below

constexpr Colour black = 0;
constexpr Colour white = colourRgb(255, 255, 255);
constexpr Colour blue = colourRgb(0, 0, 255);
constexpr Colour red = colourRgb(255, 0, 0);

struct Range {
    float lowest, highest;
};

Range rangeOf(const float* values, int first, int end) {
    float lowest = std::numeric_limits<float>::infinity(), highest = -lowest;
    for (const float* value = values + first; value != values + end; ++value) {
        if (!std::isfinite(*value)) continue; // an overflow of the instrument is off every scale
        lowest = std::min(lowest, *value);
        highest = std::max(highest, *value);
    }
    if (lowest > highest) lowest = highest = 0.0f;
    return {lowest, highest == lowest ? highest + 0.1f : highest};
}

// Far from 0 a tenth may be too little to make a range.
float scaled(float value, Range range, int pixels) {
    const float span = range.highest - range.lowest;
    const auto full = static_cast<float>(pixels);
    if (span == 0.0f) return full / 2;
    const float place = (value - range.lowest) * full / span;
    // What is no number goes to the edge: nothing leaves the plot.
    return std::isnan(place) ? 0.0f : std::clamp(place, 0.0f, full);
}

// Points in one column of pixels cover the same pixels as the first, the lowest, the highest and
// the last of them: a curve of any length is drawn with a few points per column.
void addColumn(std::vector<PixelPoint>& line, const std::vector<PixelPoint>& column) {
    line.push_back(column.front());
    if (column.size() > 2) {
        const auto byHeight = [](PixelPoint a, PixelPoint b) { return a.y < b.y; };
        auto [turn, lastTurn] = std::minmax_element(column.begin() + 1, column.end() - 1, byHeight);
        // A line leaves out its last pixel: the end must not be reached before its turn.
        if (lastTurn->y == column.back().y) std::swap(turn, lastTurn);
        line.push_back(*turn);
        line.push_back(*lastTurn);
    }
    if (column.size() > 1) line.push_back(column.back());
}

std::vector<PixelPoint> lineThrough(const float* xs, const float* ys, int first, int end, Range x,
                                    Range y) {
    std::vector<PixelPoint> line, column;
    for (int i = first; i < end; ++i) {
        const PixelPoint point{truncated(double{1} * (left + scaled(xs[i], x, width))),
                               truncated(double{1} * (top + height - scaled(ys[i], y, height)))};
        if (!column.empty() && column.back().x != point.x) {
            addColumn(line, column);
            column.clear();
        }
        column.push_back(point);
    }
    addColumn(line, column);
    return line;
}

void label(ContextHandle context, int x, int y, const char* format, float value) {
    drawText(context, x, y, formatted(format, static_cast<double>(value)).c_str(), black, false);
}

void drawPlot(ContextHandle context, const float* xs, const float* ys, int first, int end,
              Colour colour) {
    drawFilledRectangle(context, left - 1, top - 1, left + width + 1, top + height + 1, black,
                        white);
    label(context, 15, 15, "X=%.3f", xs[end - 1]);
    label(context, 15, 30, "Y=%.3f", ys[end - 1]);
    const Range x = rangeOf(xs, first, end);
    const Range y = rangeOf(ys, first, end);
    const std::vector<PixelPoint> line = lineThrough(xs, ys, first, end, x, y);
    drawLines(context, line.data(), static_cast<int>(line.size()), colour);
    // The last two stand a margin off the plot's corners, as in every plot saved so far.
    label(context, left, 313, "%.1f     ", x.lowest);
    label(context, left + width / 2, 313, "%.1f     ", (x.highest + x.lowest) / 2);
    label(context, width, 313, "%.1f      ", x.highest);
    label(context, 413, height, "%.3f     ", y.lowest);
    label(context, 413, top, "%.3f     ", y.highest);
}

} // namespace

void drawCurve(WindowHandle window, const float* xs, const float* ys, int first, int end,
               Colour colour) {
    if (end <= first) return;
    const WindowContext target(window);
    if (!target.context) return;
    const int visibleWidth = clientExtent(window).width;
    MemoryBitmap memory;
    if (!memory.make(target.context, visibleWidth, labelledHeight)) {
        drawPlot(target.context, xs, ys, first, end, colour);
        return;
    }
    fillArea(memory.context, visibleWidth, labelledHeight, white);
    drawPlot(memory.context, xs, ys, first, end, colour);
    copyArea(target.context, visibleWidth, labelledHeight, memory.context);
}

int plotCurve(WindowHandle window, const float* xs, const float* ys, int first, int end) {
    static bool odd = false;
    if (end <= first) return 1;
    const Colour colour = odd ? red : blue;
    odd = !odd;
    drawCurve(window, xs, ys, first, end, colour);
    return 1;
}
