// What an operator who was away must know of a scan: which points are in doubt and why.
#pragma once

#include "mapping/scan_map.h"
#include "motion/axis_condition.h"

#include <array>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

// What spoils a point, in the order in which the operator is told of them.
enum class Spoilt : size_t { NotReached, Board, Unlit, Instrument, Overload, Camera };
constexpr size_t spoiltCount = 6;

// The points that one cause has spoilt.
struct SpoiltPoints {
    int points = 0;
    int row = 0, column = 0; // of the first, counted from 1; row 1 is scanned first
};

// Which axis does not stand at a point, and why.
struct NotThere {
    char axis = '-';
    Miss why = Miss::Nothing;
};

struct ScanReport {
    int pointsDone = 0;
    int pointsInDoubt = 0; // spoilt by any cause
    std::array<SpoiltPoints, spoiltCount> spoilt;
    std::vector<std::pair<NotThere, int>> misses; // why points were not reached, and how many
    std::string
        endedBy;       // what ended it that was no operator: an axis and why, the computer's sleep
    std::string focus; // what befell Z, and in which row it was seen
    std::string bias;  // what went wrong with it, as BiasWatch::words() says it
    bool swingFailed = false; // before the first row
    bool stayedAway = false;  // the stage did not come back
    bool journalLost = false; // at least in part
    double zShiftUm = 0.0;    // the Z of a scan that goes on, as its first start counts it

    // Counts a point of the scan (row 0 is scanned first) for each cause that has spoilt it, and
    // returns the mark of its cell: of several causes that which says least for the cell.
    PointMark take(const std::array<bool, spoiltCount>& causes, int scanRow, int column);

    // Counts why a point was not reached.
    void takeMiss(NotThere missed);

    // take() for a point of which only the mark is known.
    void takeMarked(PointMark mark, int scanRow, int column);

    // Behind "Mapping finished", each part after ". "; empty when all went well. `documentLost`:
    // the map's .gwy file could not be written.
    std::string words(bool documentLost) const;

private:
    std::string whyMissed() const; // " (X limit switch: 10, Y stalled: 2)"; empty without causes
};
