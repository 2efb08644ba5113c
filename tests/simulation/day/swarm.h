// What a day is made of. Each seed draws which kinds of actions and of faults its day knows at all,
// and how often they come (swarm testing, after Groce et al. 2012): where everything may happen at
// any time, nothing comes far.
#pragma once

#include "tests/simulation/day/dice.h"

#include <cstdint>
#include <map>
#include <string>

// What the operator does.
enum class Act : size_t {
    Key,
    Click,
    Drag,
    Type,
    BreakOrMend, // not the operator: things break by themselves
    Scan,
    NewArea,
    Focus,
    WideView,
    Configuration,
    Tool,
    Light, // by hand
    AnyCommand,
    Count,
};

int gpibAddressOf(int kind); // at which the laboratory has such an instrument

struct Swarm {
    explicit Swarm(Dice& dice);

    // The set-up and its scans.
    int kind; // EquipmentKind
    double stepUm;
    int cols, rows;
    bool confocal;
    double biasVolts, limitAmperes;
    bool biasLeft; // by an earlier run
    int readingsPerPoint, settleMs, beforeReadingMs, runInUm;
    bool looksEarly;

    // The operator.
    Weights acts;
    int longestPauseMs;
    int stopsPercent, contraryPercent; // of the answers: to the question for a stop, to others

    // What breaks.
    bool devicesBreak, filesBreak;
    bool brokenAtStart;
    Weights faults; // by their place in the list
    int mendPercent, pairPercent;
    int callPercent, boardPercent;

    // The run-in of any row of a map takes up the play of a stage in order, 2 um.
    bool takesUpPlay() const { return runInUm >= 5; }

    // "days with ...", for the campaign's table.
    void count(std::map<std::string, uint64_t>& counts) const;

    std::string settingsLine() const; // of Config.txt
    std::string options() const;      // Options.ini

private:
    void drawSetup(Dice& dice);
    void drawScan(Dice& dice);
    void drawOperator(Dice& dice);
    void drawFaults(Dice& dice);
};
