// What an instrument reads without light: its offset and its noise.
#pragma once

#include "instruments/reading.h"

#include <string>
#include <vector>

struct DarkValue {
    std::string refusal; // why there is none; empty when it was found
    // In the unit of the instrument.
    double mean = 0.0;
    double deviation = 0.0;     // of a single reading: the noise
    double standardError = 0.0; // of the mean
    int readings = 0;           // that were answered
    int unanswered = 0;
    std::vector<double> values; // of those that were answered

    bool isFound() const { return refusal.empty(); }
    // Three times the noise: what a single reading must show to be more than that.
    double smallestWorthMapping() const { return 3.0 * deviation; }
};
constexpr int leastReadings = 10;

// Of the readings' first channels. Refused with an overloaded one among them, and where fewer than
// ten, or than half of them, were answered.
DarkValue darkValueOf(const std::vector<Reading>& readings);
