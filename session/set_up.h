// KST_Data/Setup.ini: what is so of this laboratory's set-up, one "name = value" a line. It is read
// at the start; what does not stand there is as it has always been.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

// How far an axis may go, um by its controller's own count: neither "Set Zero" nor a restart of the
// program moves these places.
struct AxisRange {
    double lowest = -std::numeric_limits<double>::infinity();
    double highest = std::numeric_limits<double>::infinity();
};

struct SetUp {
    // The laser board's answer to "I" is asked for while the laser is to shine.
    bool boardHasInterlock = false;
    // s without a command after which the board switches the laser off; 0 never.
    int32_t boardKeepAliveS = 0;
    // Of the amplifier before a lock-in amplifier's voltage input, V/A; 0: not known.
    double amplifierVoltsPerAmpere = 0.0;
    // What a lock-in amplifier tells of its current input; otherwise it is volts behind its own
    // resistor, as the manual has it.
    bool lockInCurrentInAmperes = false;
    bool lockInCurrentTried = false; // the line is there: somebody has tried it
    std::array<AxisRange, 3> ranges; // of X, Y, Z

    bool asksTheBoard() const { return boardHasInterlock || boardKeepAliveS > 0; }
};

extern SetUp setUp;

// Reads the file where there is one, over the defaults. What cannot be taken is left out and
// returned: its line, and what it may be.
std::vector<std::string> readSetUp();

// Keeps the highest place of Z, um, for this run and in the file; false when that was not written.
bool keepHighestZ(double um);
