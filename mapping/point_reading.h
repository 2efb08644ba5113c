// The readings of one point, by the channels of the instrument.
#pragma once

#include "instruments/kinds.h"

#include <array>

struct PointReading {
    // Of the sound readings; of an overload its own values: with others they would look like good
    // ones.
    std::array<float, mostChannels> means{};
    std::array<float, mostChannels> deviations{}; // standard deviation of one reading; 0 of one
    bool answered = true;                         // each of them
    bool overloaded = false;                      // one of them
    const char* overload = nullptr;               // what was too much, where that is known
    bool unlocked = false;                        // one of them
    bool unsettled = false;                       // likewise
    bool auxAtLimit = false;
};

// Takes readings one by one. The first that is none ends the point: silent ones would cost a
// time-out each.
class PointReadings {
public:
    // Of an instrument of that kind.
    explicit PointReadings(const InstrumentKind& of) : kind(of) {}

    // False when no further one is of use.
    bool take(const Reading& reading);
    PointReading result() const;

private:
    const InstrumentKind& kind;
    int count = 0;
    std::array<double, mostChannels> mean{}, squares{}; // so far; of their distances from it
    bool answered = true;
    Reading overload; // while there is one
    bool unlocked = false, unsettled = false, auxAtLimit = false;
};
