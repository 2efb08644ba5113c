// The planes of a map, in one table: what its instrument measures, the colour of the spot, and how
// the readings of a point scatter. Whatever is written, read, drawn or saved of a map goes through
// it.
#pragma once

#include "instruments/channel.h"
#include "instruments/reading.h"
#include "mapping/scan_plan.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The first maps of every scan; those of further channels and of deviations come behind them.
enum MapPlane : int { planePhotocurrent = 0, planeRed = 1, planeGreen = 2, planeBlue = 3 };
constexpr size_t firstFurtherMap = 4;
constexpr size_t mostMaps = firstFurtherMap + 2 * mostChannels;

struct Plane {
    enum class Of { Channel, Colour, Deviation };
    Of of = Of::Channel;
    size_t map = 0;               // its place among the maps of a scan
    size_t channel = 0;           // of the instrument's kind; meaningless for a colour
    std::string name;             // "red", "X"; empty for the only channel
    std::string title;            // in the .gwy file
    const char* palette = "";     // by Gwyddion's name
    std::optional<Unit> unit;     // none: a plain number, 0..255
    const char* filePrefix = "";  // of its text file; empty where it has none
    const char* pictureName = ""; // of its numbered picture; empty where it has none

    bool ofCamera() const { return of == Of::Colour; }
};

// Those that a scan by that plan fills, in the order of the maps: the first one is of the channel
// that the options name. A scan that is not confocal leaves the maps of the colours 0. Several
// readings a point scatter.
std::vector<Plane> planesOf(const ScanPlan& plan);

// How many maps such a scan has, confocal or not.
size_t mapCountOf(const ScanPlan& plan);

// Of the instrument's channels, the one that its map shows.
size_t mainChannelOf(const ScanPlan& plan);
