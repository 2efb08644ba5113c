// What came of asking an instrument for a value, and of telling a source a bias.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

constexpr size_t mostChannels = 6;

struct Reading {
    // By the channels of the instrument's kind, all of one moment; 0 where no number came.
    std::array<float, mostChannels> values{};
    bool answered = false; // the instrument was reached and its reply held a number
    bool limited = false;  // the current was at the source's limit
    // Beyond what the instrument can measure: the value is its sign for that.
    bool overloaded = false;
    const char* overload = nullptr; // what was too much, where the instrument says; a literal
    bool unlocked = false;          // a lock-in amplifier without its reference
    bool unsettled = false;         // its filter has changed by itself since the point began
    bool auxAtLimit = false;        // its auxiliary input is at the end of its range

    float value() const { return values[0]; }
    operator float() const { return value(); }
};

// What somebody has set at an instrument, as it says.
struct InstrumentSettings {
    std::string words; // "sensitivity 1 mV, time constant 30 ms, ..."
    std::string kept;  // the same without what changes by itself, as a measured frequency
    // Of the low-pass filter behind which its values come: equal poles.
    double timeConstantMs = 0.0;
    int poles = 0;       // 1 to 4; 0 without one
    double syncMs = 0.0; // a period of the reference where it averages over that; otherwise 0
    std::string warning; // what of it makes the values others than they look; not kept
};

struct SourceAnswer {
    bool heard = false;  // all of it went out
    std::string refusal; // in the source's words, or by what its manual says that it takes; empty
                         // when it took all
    bool accepted() const { return heard && refusal.empty(); }
};

// What a SCPI instrument answers beyond its range: 9.9E37 (Keithley 2450, Tektronix TDS) or 9.91E37
// (Keithley 2400 and the standard's not-a-number).
constexpr float overloadReading = 9.9e37f;

inline bool isOverload(float value) {
    return !(std::fabs(value) < overloadReading); // what is no number, too
}

// Whether a current is at a limit, both in amperes. A source's limit and its meter's reading
// together are accurate to better than two per cent.
inline bool isAtLimit(float amperes, float limit) {
    return limit > 0.0f && std::fabs(amperes) >= 0.98f * limit && !isOverload(amperes);
}
