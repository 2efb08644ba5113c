// What is shown of a map: palette, range, legend. One value for its window and its saved image,
// which the operator chooses in "Colours" and Options.ini keeps.
#pragma once

#include "mapping/palettes.h"
#include "mapping/scan_map.h"

#include <cstdint>
#include <optional>
#include <string>

enum class RangeWay : int32_t {
    Whole,       // from the least to the most
    Percentiles, // from the 1st to the 99th per cent of the cells that are measured
    ByHand,
};
constexpr const wchar_t* rangeWays[] = {L"whole", L"1 to 99 %", L"by hand"};

struct MapLook {
    int32_t palette = 0; // by its place in the table
    RangeWay range = RangeWay::Whole;
    // By hand, in that unit of the SI; a plane in another unit has its whole range.
    double from = 0.0, to = 1e-6;
    std::string unit = "A";
    bool oneScale = false; // of all rows that a running scan has drawn; otherwise each has its own
    bool legend = false;   // in the saved image

    bool operator==(const MapLook&) const = default;
};
extern MapLook mapLook;

// From and into Options.ini; what cannot be taken is said, and its default holds. False, and said
// on standard output, when that was not written.
void readMapLook();
bool writeMapLook();

// How a plane's values become colours: the lowest is that of the least current, which behind an
// inverting amplifier is the highest of the volts.
struct MapScale {
    float lowest = 0.0f, highest = 0.0f;
    Colour (*colour)(int level) = colourOf;
    float up = 1.0f; // to a value that stands for more

    Colour of(float value) const; // those beyond the ends have the ends' colours
    bool operator==(const MapScale&) const = default;
};

// Of an instrument's plane, by its rows [first, end). An angle has a whole turn, whatever of it
// there is.
MapScale scaleOf(const ScanMap& map, size_t plane, size_t first, size_t end, const MapLook& look);
