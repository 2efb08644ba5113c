// One day of an operator who presses anything at any time while anything breaks, and a judge who
// looks on whenever the program waits: what the screen says of lights, bias and stage must be true
// of the laboratory, and nothing moves that nobody has sent.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

enum class Rule {
    Lights,  // the lamps on the screen are those of the board
    Bias,    // the sample has the bias that the dialog's link says, or none
    Place,   // at rest the stage is where the program takes it to be
    Watch,   // while it moves the program waits for it
    Cause,   // it is moved by a process, a key, a click, a command: along their axes
    OneMove, // and not in the middle of another move
    Cell,    // a cell of the map that counts as measured holds what was measured there
    Light,   // in the laser's light alone, and within the instrument's range
    Sound,   // where nothing has broken every point counts
    Lost,    // an axis is lost only by what takes it away; no scan goes on without X or Y
    View,    // a wide view on the screen is of the present place
    Alive,   // the program looks at its windows
    Focus,   // a search for the focus that has come to its end has moved Z
    Named,   // of what spoilt a scan the screen says why
    Files,   // no file is overwritten, and none stays that is not whole
    Kept,    // what was on the disk when the power was cut is recovered, and nothing else
    Box,     // no box holds a process that has not asked it; none asks after a stop
    List,    // each row of a list has its own place, settings and folder, and is done once
    Limit,   // no axis goes beyond its limits in the set-up
    Asked,   // Z, whose controller has lost its place, goes nowhere before the operator was asked
    Picture, // a map lies where the picture showed it, which knows the true part of the sensor
    Gone,    // what a script had switched on goes off behind it
    End,     // the program ends, light and bias off and nothing leaked
};

// What the program has logged, below the desktop, until that is removed.
constexpr const char* logOfRandomDay = "KST_Data/Log/2026-03-07.txt";

struct RandomDay {
    uint32_t seed = 0;
    int kind = 0;                           // of its instrument, until another one is chosen
    std::vector<std::string> history;       // actions, faults, boxes, each with its time in ms
    std::vector<std::string> findings;      // what the judge saw; each kind once
    std::set<std::string> broken;           // the rules that these break
    std::map<std::string, uint64_t> counts; // of what happened, by kind
};

// Lives through the day of a seed in a world of its own (prepareWorld). The same seed is the same
// day.
RandomDay liveRandomDay(uint32_t seed);

// The day as text: the findings, then what led to the last of them.
std::string told(const RandomDay& day);
