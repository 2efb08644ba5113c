// Reads a map along a line.
#include "mapping/map_profile.h"

#include "platform/decimal_point.h"
#include "platform/si_prefix.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "session/data_folders.h"
#include "session/document.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

double meanOfColours(const ScanMap& map, MapCell cell) {
    double sum = 0.0;
    for (size_t plane = planeRed; plane <= planeBlue; ++plane)
        sum += static_cast<double>(map.maps[plane][cell.column][cell.row]);
    return sum / 3.0;
}

} // namespace

MapProfile profileAlong(MapPoint from, MapPoint to, int channel) {
    const ScanMap& map = shownMap();
    if (map.marks.empty() || map.marks.front().empty()) return {};
    const size_t plane = planeShown(map, channel);
    const std::optional<Unit> unit = unitOfPlane(map, plane);
    const double dx = to.column - from.column, dy = to.row - from.row;
    const double cells = std::hypot(dx, dy), step = shownArea().scanStep;
    const int steps = std::max(static_cast<int>(std::lround(cells)), 1);
    const bool placed = whyNoPlace().empty();

    MapProfile profile{.scan = nameOfScan()};
    std::vector<double> numbers;
    double largest = 0.0;
    for (int i = 0; i <= steps; ++i) {
        const double part = double{1} * i / steps;
        const MapPoint at{from.column + part * dx, from.row + part * dy};
        const MapCell cell = cellAt(at);
        const bool masked = isMasked(map, cell.column, cell.row, plane);
        const auto number = static_cast<double>(map.maps[plane][cell.column][cell.row]);
        numbers.push_back(channel == channelConfocal ? meanOfColours(map, cell)
                          : unit                     ? unit->inSi(number)
                                                     : number);
        if (!masked) largest = std::max(largest, std::fabs(numbers.back()));
        profile.placesUm.push_back(static_cast<float>(part * cells * step));
        const char* const words = wordsOf(map.marks[cell.column][cell.row]);
        const bool isNone = !map.file.empty() && std::isnan(number); // masked there
        profile.notes.emplace_back(!masked  ? ""
                                   : *words ? words
                                   : isNone ? "no value"
                                            : "overloaded");
        if (placed) profile.stageUm.push_back(stageFor(placeOf(at)));
    }
    const PrefixedUnit shown = prefixedUnit(largest, unit ? unit->si : "");
    profile.unit = shown.name;
    for (const double number : numbers)
        profile.values.push_back(static_cast<float>(number / shown.factor));
    profile.title = channel == channelConfocal ? "Mean of red, green and blue" : "Value";
    for (const Plane& each : planesOf(map))
        if (each.map == plane && channel != channelConfocal) profile.title = each.title;
    return profile;
}

std::string textOf(const MapProfile& profile) {
    keepDecimalPoint();
    const bool placed = !profile.stageUm.empty();
    const std::string unit = profile.unit.empty() ? "" : "(" + profile.unit + ")";
    std::string text = "Scan: " + profile.scan + "\nPlace(um)," + (placed ? "X(um),Y(um)," : "") +
                       profile.title + unit + ",Note\n";
    for (size_t i = 0; i < profile.values.size(); ++i) {
        text += formatted("%.3f,", static_cast<double>(profile.placesUm[i]));
        if (placed) text += formatted("%.3f,%.3f,", profile.stageUm[i].x, profile.stageUm[i].y);
        text += formatted("%.7g,%s\n", static_cast<double>(profile.values[i]),
                          profile.notes[i].c_str());
    }
    return text;
}

std::string saveProfile(const MapProfile& profile) {
    ensureSessionFolder(dataFolders);
    int32_t number = 0;
    std::string name = nextFreeName(dataFolders.sessionFolder, "profile", number, L".txt") + ".txt";
    const std::wstring path = dataFolders.sessionFolder + L"\\" + widened(name);
    if (logFile(path, writeDocument(path, textOf(profile), L"w"))) return name;
    reportUnwritten(path, "the profile");
    return "";
}
