// Makes a map's scale, and keeps what the operator wants to see.
#include "mapping/map_look.h"

#include "mapping/map_place.h"
#include "platform/truncate.h"
#include "platform/widen.h"
#include "session/options.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <utility>
#include <vector>

MapLook mapLook;

namespace {

constexpr char paletteName[] = "map palette", rangeName[] = "map range",
               fromName[] = "map range from", toName[] = "map range to",
               unitName[] = "map range unit", oneScaleName[] = "one scale while scanning",
               legendName[] = "map image with legend";

// Takes the value of that name, where there is one, by `take`, which says whether it could.
template <class Take> void takeBy(const char* name, Take take) {
    const std::string text = readOption(name);
    if (!text.empty() && !take(text)) tellUnknownOption(name, text);
}

bool takeNumber(const std::string& text, double& value) {
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (*end != '\0' || !std::isfinite(number)) return false;
    value = number;
    return true;
}

std::string shortest(double value) {
    char text[64];
    return {text, std::to_chars(text, std::end(text), value).ptr};
}

// The ends that leave out a hundredth of the measured cells on either side.
std::optional<Extremes> percentilesOf(const ScanMap& map, size_t plane, size_t first, size_t end) {
    std::vector<float> values;
    for (size_t column = 0; column < map.marks.size(); ++column)
        for (size_t row = first; row < end; ++row)
            if (!isMasked(map, column, row, plane)) values.push_back(map.maps[plane][column][row]);
    if (values.empty()) return {};
    const auto at = [&](double part) {
        const auto place = std::lround(part * static_cast<double>(values.size() - 1));
        std::nth_element(values.begin(), values.begin() + place, values.end());
        return values[static_cast<size_t>(place)];
    };
    const float lowest = at(0.01);
    return Extremes{lowest, at(0.99)};
}

} // namespace

void readMapLook() {
    mapLook = {};
    takeBy(paletteName, [](const std::string& text) {
        const auto all = palettes();
        const auto found = std::find_if(all.begin(), all.end(),
                                        [&](const Palette& each) { return text == each.name; });
        if (found == all.end()) return false;
        mapLook.palette = static_cast<int32_t>(found - all.begin());
        return true;
    });
    takeBy(rangeName, [](const std::string& text) {
        for (size_t i = 0; i < std::size(rangeWays); ++i)
            if (narrowed(rangeWays[i]) == text) return mapLook.range = RangeWay(i), true;
        return false;
    });
    takeBy(fromName, [](const std::string& text) { return takeNumber(text, mapLook.from); });
    takeBy(toName, [](const std::string& text) { return takeNumber(text, mapLook.to); });
    takeBy(unitName, [](const std::string& text) { return mapLook.unit = text, true; });
    takeOption(oneScaleName, mapLook.oneScale);
    takeOption(legendName, mapLook.legend);
    if (mapLook.from == mapLook.to && mapLook.range == RangeWay::ByHand)
        mapLook.range = RangeWay::Whole;
}

bool writeMapLook() {
    const auto yesNo = [](bool yes) { return std::string(yes ? "yes" : "no"); };
    return writeOptions({{paletteName, palettes()[static_cast<size_t>(mapLook.palette)].name},
                         {rangeName, narrowed(rangeWays[static_cast<size_t>(mapLook.range)])},
                         {fromName, shortest(mapLook.from)},
                         {toName, shortest(mapLook.to)},
                         {unitName, mapLook.unit},
                         {oneScaleName, yesNo(mapLook.oneScale)},
                         {legendName, yesNo(mapLook.legend)}});
}

Colour MapScale::of(float value) const {
    const float level = (value - lowest) * 1023.0f / (highest - lowest);
    return colour(std::clamp(truncated(static_cast<double>(level)), 0, highestLevel));
}

MapScale scaleOf(const ScanMap& map, size_t plane, size_t first, size_t end, const MapLook& look) {
    const std::optional<Unit> unit = unitOfPlane(map, plane);
    if (unit && unit->closes) return {-180.0f, 180.0f, circleColourOf};
    MapScale scale;
    scale.colour = palettes()[static_cast<size_t>(look.palette)].colourOf;
    if (look.range == RangeWay::ByHand && unit && unit->si == look.unit) {
        // Back from the SI's unit to the map's numbers.
        const auto valueOf = [&](double si) {
            return static_cast<float>(unit->zero + si / unit->perValue);
        };
        scale.lowest = valueOf(look.from);
        scale.highest = valueOf(look.to);
        return scale;
    }
    Extremes found = extremesOf(map, plane, first, end);
    if (look.range == RangeWay::Percentiles)
        found = percentilesOf(map, plane, first, end).value_or(found);
    scale.lowest = found.lowest;
    scale.highest = found.highest;
    if (unit && unit->falls()) {
        std::swap(scale.lowest, scale.highest);
        scale.up = -1.0f;
    }
    return scale;
}
