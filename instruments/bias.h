// The bias on the sample: what the selected source is told and takes, and what is said while one
// may be on that nobody means.
#pragma once

#include "instruments/kinds.h"

#include <string>
#include <vector>

// Puts a bias (V) with a current limit (A) on the sample; does nothing for kinds without a source,
// and takes it for heard. A source that did not take 0 V is told of in title and information text
// until it has, and kept in Options.ini for the next start.
SourceAnswer applyBias(double voltage, double limit);

// The same for one of many, the points of a sweep: the log of the day does not list it.
SourceAnswer stepBias(double voltage, double limit);

// "Bias not heard" or "Bias refused: ..."; empty when the source took all.
std::string wordsOf(const SourceAnswer& answer);

// What a measurement learns of its bias on the way.
class BiasWatch {
public:
    void told(double voltage, const SourceAnswer& answer);
    void read(const Reading& reading);

    // What the operator must know of it, a sentence each: that the source did not hear it or
    // refused it, that the current limit cut it at a reading or, as the source says, now. To be
    // asked after the last reading, while the bias is still on: at 0 V a source has nothing to
    // limit. Empty when all was well.
    std::vector<std::string> troubles() const;

private:
    SourceAnswer worst{.heard = true};
    bool limited = false;      // at a reading
    bool lastAnswered = false; // a source that no longer answers would only cost another time-out
};

// A current limit (A) as instruments are told it: "%f" or, where that would be another one by more
// than a tenth, in powers of ten. A tenth of a microampere would otherwise go out as 0, which a
// source does not take and which leaves it the limit of before.
std::string limitText(double amperes);

// What the operator may set: what the Keithley 2450 can source, and its limits of compliance.
constexpr double largestBiasTyped = 210.0;  // V, to either side
constexpr double smallestLimitTyped = 1e-9; // A
constexpr double largestLimitTyped = 1.05;

// Takes over which sources an earlier run may have left with a bias. Before they are opened.
void readBiasLeftOn();

// What is said while a source may have a bias that nobody means, because it has not taken what it
// was last told or is no longer the selected one; empty otherwise.
std::string biasLeftOn();

// The selected source, and what becomes of the state of its bias when another one is selected.
Place selectedPlace();
void followSelection(const Place& before);
