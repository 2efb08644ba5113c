// A script at the door, who sends anything at any time beside the operator: on one day in four,
// drawn apart from all else, so that the other days stay as they are.
#pragma once

#include "tests/simulation/day/dice.h"

#include <cstdint>
#include <string>

class Judge;

class ScriptClient {
public:
    explicit ScriptClient(uint32_t seed) : dice(seed ^ 0x53435049), happens(dice.percent(25)) {}

    // Beside what Options.ini says otherwise.
    std::string options() const;

    // He connects after the first moment, and acts until the last.
    void plan(double firstMs, double lastMs, Judge& onlooker);

private:
    void acts();
    void sends(const std::string& text);
    void asks();
    void sets();
    void begins();
    void beginsScan();
    void switches();
    void sendsBadText();
    void vanishes();

    Dice dice;

public:
    const bool happens;

private:
    Judge* judge = nullptr;
};
