// Looks the cells of the shown map up.
#include "mapping/map_place.h"

#include "instruments/ammeter.h"
#include "mapping/scan_journal.h"
#include "motion/stage.h"
#include "platform/si_prefix.h"
#include "platform/text_format.h"
#include "session/document.h"

#include <algorithm>
#include <cmath>

namespace {

int columnsOf(const ScanMap& map) {
    return static_cast<int>(map.marks.size());
}

int rowsOf(const ScanMap& map) {
    return map.marks.empty() ? 0 : static_cast<int>(map.marks.front().size());
}

MapPoint middleOf(MapCell cell) {
    return {static_cast<double>(cell.column), static_cast<double>(cell.row)};
}

} // namespace

const ScanArea& shownArea() {
    const ScanMap& map = shownMap();
    return map.conditions ? map.conditions->area : scanArea;
}

std::optional<MapPoint> clampedMapPointAt(int x, int y) {
    const ScanMap& map = shownMap();
    const int cell = shownArea().cellPx;
    if (cell <= 0 || columnsOf(map) == 0 || rowsOf(map) == 0) return {};
    const auto along = [cell](int pixel, int cells) {
        return std::clamp((pixel + 0.5) / cell, 0.0, double{1} * cells) - 0.5;
    };
    return MapPoint{along(x, columnsOf(map)), along(y, rowsOf(map))};
}

std::optional<MapPoint> mapPointAt(int x, int y) {
    const ScanMap& map = shownMap();
    const int cell = shownArea().cellPx;
    if (x < 0 || y < 0 || x >= columnsOf(map) * cell || y >= rowsOf(map) * cell) return {};
    return clampedMapPointAt(x, y);
}

MapCell cellAt(MapPoint point) {
    const ScanMap& map = shownMap();
    const auto nearest = [](double at, int cells) {
        return static_cast<size_t>(std::clamp(std::floor(at + 0.5), 0.0, double{1} * cells - 1.0));
    };
    return {nearest(point.column, columnsOf(map)), nearest(point.row, rowsOf(map))};
}

std::string whyNoPlace() {
    const ScanMap& map = shownMap();
    if (!map.conditions) return "No scan has made this map";
    const SamplePlace& home = map.conditions->home;
    if (!home.isKnown())
        return map.file.empty() ? "Where this map was taken is not known"
                                : "The map's file does not say where on the stage it was taken";
    const std::string why = whyLost(home);
    return why.empty() ? why : "The map's place: " + why;
}

SamplePlace placeOf(MapPoint point) {
    const ScanConditions& scan = *shownMap().conditions;
    const ScanArea& area = scan.area;
    return scan.home.by({area.offsetXUm + point.column * area.scanStep,
                         area.offsetYUm + (area.rows - 1 - point.row) * area.scanStep});
}

size_t planeShown(const ScanMap& map, int channel) {
    if (channel == channelConfocal) return planeRed;
    const size_t plane = channel < channelFurther
                             ? static_cast<size_t>(channel)
                             : firstFurtherMap + static_cast<size_t>(channel - channelFurther);
    return plane < map.maps.size() ? plane : size_t{planePhotocurrent};
}

std::optional<Unit> unitOfPlane(const ScanMap& map, size_t plane) {
    for (const Plane& each : planesOf(map))
        if (each.map == plane) return each.unit;
    return {};
}

std::string valueText(MapCell cell, int channel) {
    const ScanMap& map = shownMap();
    const PointMark mark = map.marks[cell.column][cell.row];
    std::string words = wordsOf(mark);
    if (mark == PointMark::NotMeasured) return words;
    const size_t plane = planeShown(map, channel);
    const auto numberIn = [&](size_t of) {
        return static_cast<double>(map.maps[of][cell.column][cell.row]);
    };
    if (!map.file.empty() && std::isnan(numberIn(plane))) return "no value"; // masked there
    std::string text;
    if (channel == channelConfocal) {
        text = formatted("R %.0f, G %.0f, B %.0f", numberIn(planeRed), numberIn(planeGreen),
                         numberIn(planeBlue));
    } else if (const std::optional<Unit> unit = unitOfPlane(map, plane)) {
        const double number = unit->inSi(numberIn(plane));
        const PrefixedUnit shown = prefixedUnit(number, unit->si);
        text = formatted("%.4g %s", number / shown.factor, shown.name.c_str());
        if (isOverload(map.maps[plane][cell.column][cell.row])) return "overloaded";
    } else {
        const bool isColour = plane > planePhotocurrent && plane < firstFurtherMap;
        text = formatted(isColour ? "%.0f" : "%.4g", numberIn(plane));
    }
    const bool toBeSaid = !words.empty() && isMasked(map, cell.column, cell.row, plane);
    return toBeSaid ? text + " (" + words + ")" : text;
}

std::string cellText(MapCell cell, int channel) {
    const int row = rowsOf(shownMap()) - static_cast<int>(cell.row);
    std::string text = valueText(cell, channel) +
                       formatted(", column %d, row %d", static_cast<int>(cell.column) + 1, row);
    const char* const ending = shownMap().file.empty() ? "" : " - file";
    if (!whyNoPlace().empty()) return text + ", place not known" + ending;
    const StageVector at = stageFor(placeOf(middleOf(cell)));
    return text + formatted(", X %.1f, Y %.1f um", at.x, at.y) + ending;
}

std::string nameOfScan() {
    if (!shownMap().conditions) return "no scan";
    if (!shownMap().file.empty()) return shownMap().file;
    const ScanConditions& scan = *shownMap().conditions;
    const std::string file = fileNameOf(mapPath(scan, "Kestrel", "", "", "txt"));
    return file.substr(0, file.rfind('.')) + " of " + startOf(scan);
}
