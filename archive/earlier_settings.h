// The settings of an earlier scan, as its file tells them, taken for the next one.
#pragma once

#include "mapping/gwy_reading.h"

#include <string>
#include <vector>

// What became of them, for the operator.
struct EarlierSettings {
    std::vector<std::string> taken, notTaken; // "bias 0.5 V (limit 0.0001 A)", "area: why not"
};

// Area (at its place on the stage, where the controllers still count from the same zero), step,
// laser intensity, bias with its current limit where the selected instrument is a source, and scan
// options become those of the program; nothing is moved or switched. Each is taken whole or not at
// all. Options.ini is written.
EarlierSettings takeEarlierSettings(const GwyContents& contents);
