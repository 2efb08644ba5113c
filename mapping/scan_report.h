// What an operator who was away must know of a scan: which points are in doubt and why.
#pragma once

#include "mapping/scan_map.h"
#include "motion/axis_condition.h"
#include "session/outcome.h"

#include <array>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

// What spoils a point, in the order in which the operator is told of them.
enum class Spoilt : size_t {
    NotReached,
    Board,
    Unlit,
    Instrument,
    Overload,
    Unlocked,
    Unsettled,
    Camera
};
constexpr size_t spoiltCount = 8;

// Which axis does not stand at a point, and why.
struct NotThere {
    char axis = '-';
    Miss why = Miss::Nothing;
};

struct ScanReport {
    int pointsDone = 0;
    int pointsInDoubt = 0;                              // spoilt by any cause
    std::array<Doubt, spoiltCount> spoilt;              // by cause
    std::vector<std::pair<NotThere, int>> misses;       // why points were not reached, and how many
    std::vector<std::pair<std::string, int>> overloads; // of what, where the instrument says
    std::string whyUnsettled;                           // empty without such points
    std::string settings; // what became of the instrument's; empty when all was well
    // What ended it that was no operator: an axis and why, the computer's sleep.
    std::string endedBy;
    std::string focus;             // what befell Z, and in which row it was seen
    std::vector<std::string> bias; // what went wrong with it, as BiasWatch says it
    std::string whyUnlit;          // as the board says; empty when it does not
    bool swingFailed = false;      // before the first row
    bool stayedAway = false;       // the stage did not come back
    bool journalLost = false;      // at least in part
    double zShiftUm = 0.0;         // the Z of a scan that goes on, as its first start counts it

    // Counts a point of the scan (row 0 is scanned first) for each cause that has spoilt it, and
    // returns the mark of its cell: of several causes that which says least for the cell.
    PointMark take(const std::array<bool, spoiltCount>& causes, int scanRow, int column);

    // Counts why a point was not reached.
    void takeMiss(NotThere missed);

    // Counts what overloaded a point.
    void takeOverload(const char* cause);

    // Spoils a point that has been taken before, by one more cause; returns the mark of its cell.
    PointMark spoil(Spoilt cause, PointMark before, int scanRow, int column);

    // take() for a point of which only the mark is known.
    void takeMarked(PointMark mark, int scanRow, int column);

    // All that the operator is told behind "Mapping finished".
    Outcome outcome(ProcessEnd end) const;

private:
    std::string whyMissed() const; // "X limit switch: 10, Y stalled: 2"; empty without causes
};
