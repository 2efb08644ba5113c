// Draws a map's scale and legend.
#include "mapping/map_legend.h"

#include "camera/display.h"
#include "instruments/kinds.h"
#include "mapping/map_document.h"
#include "mapping/map_place.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "platform/widen.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr Colour black = 0;
constexpr int lineHeight = 16, letterWidth = 8; // pixels of the system's font

std::vector<std::string> legendLines(const char* title) {
    if (!shownMap().conditions) return {};
    const ScanConditions& scan = *shownMap().conditions;
    const double step = scan.area.scanStep;
    const auto along = [step](const char* axis, double first, int count) {
        return formatted("%s %.1f to %.1f um, ", axis, first, first + (count - 1) * step);
    };
    const std::string name = *title ? title + std::string(", ") : std::string();
    return {name + narrowed(instrumentKind(scan.ammeterKind).name),
            "Bias " + biasText(scan) + ", laser " + quantity(scan.laserUa(), "uA"),
            along("X", scan.firstXUm(), scan.area.cols) +
                along("Y", scan.firstYUm(), scan.area.rows) + formatted("step %g um", step),
            timeText(scan.started)};
}

} // namespace

void drawMapScale(ContextHandle target) {
    constexpr int leastHeight = 140, fromBar = 34, barWidth = 5, top = 28;
    const ScanArea& area = shownArea();
    if (area.mapHeightPx < leastHeight || area.cellPx <= 0) return;
    const double umPerPixel = area.scanStep / area.cellPx;
    const double length = roundLengthUm(umPerPixel * area.mapHeightPx * 0.35);
    const int left = area.mapWidthPx + fromBar, pixels = truncated(length / umPerPixel + 0.5);
    drawFilledRectangle(target, left, top, left + barWidth, top + pixels, black, black);
    const auto say = [&](int y, const std::string& text) {
        drawText(target, left, y, text.c_str(), black, true);
    };
    say(top + pixels + 2, formatted("%g um", length));
    const int sizeTop = area.mapHeightPx - 3 * lineHeight - 4;
    say(sizeTop, formatted("%.4g x", area.cols * area.scanStep));
    say(sizeTop + lineHeight, formatted("%.4g", area.rows * area.scanStep));
    say(sizeTop + 2 * lineHeight, "um");
}

Extent legendExtent() {
    size_t longest = 0;
    const std::vector<std::string> lines = legendLines("Photocurrent");
    for (const std::string& line : lines) longest = std::max(longest, line.size());
    return {static_cast<int>(longest) * letterWidth, static_cast<int>(lines.size()) * lineHeight};
}

void drawLegend(ContextHandle target, int top, const char* title) {
    for (const std::string& line : legendLines(title)) {
        drawText(target, 4, top, line.c_str(), black, true);
        top += lineHeight;
    }
}
