// The file that analysis programs open as an image with units: Gwyddion's native format, GWY.
// Written from its public description: a tree of named components, little endian, no padding.
#pragma once

#include "session/document.h"

#include <cstdint>
#include <string>
#include <vector>

// The frame that all channels share. Metres; the reader's Y axis runs down, so that `top` is minus
// the height of the upper edge.
struct GwyFrame {
    int32_t columns = 0, rows = 0;
    double width = 0.0, height = 0.0;
    double left = 0.0, top = 0.0;
};

struct GwyChannel {
    std::string title;
    std::string palette;             // a gradient's name: "Viridis", "RGB-Red"
    std::string unit;                // SI without a prefix: "A", "V", "" for a plain number
    std::vector<double> values;      // row by row, the top one first; all finite
    std::vector<uint8_t> unmeasured; // as `values`, 1 where the cell means nothing
    Conditions conditions;           // what the channel was taken with, UTF-8
};

// The whole file, channels numbered from 0. Throws std::length_error when it would be longer than
// the format's 32-bit lengths allow.
std::string gwyFile(const GwyFrame& frame, const std::vector<GwyChannel>& channels);
