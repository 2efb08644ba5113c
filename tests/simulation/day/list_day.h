// A day on which the operator lets a list of scans run instead of single ones: one in five, and in
// the laboratory as built, drawn apart from all else, so that the other days stay as they are.
#pragma once

#include "tests/doubles/script.h"
#include "tests/simulation/day/dice.h"
#include "tests/simulation/judge/lists.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

class Judge;
struct Swarm;

class ListDay {
public:
    ListDay(uint32_t seed, bool asBuilt)
        : dice(seed ^ 0x4c697374), happens(dice.percent(30) && asBuilt) {}

    // The list begins at the first moment, and again where it ended early; pauses and stops come
    // until the last.
    void plan(double firstMs, double lastMs, const Swarm& swarm, Judge& judge);

    // His answer to a box that is about the list.
    std::optional<BoxAnswer> answers(const ShownBox& box);

private:
    ListAtWork drawn(const Swarm& swarm);
    ListRow drawnRow(const Swarm& swarm);
    void begins(const Swarm& swarm, Judge& judge);
    void pauses(Judge& judge);
    void stops(Judge& judge);

    Dice dice;
    bool stopWanted = false; // by the click that comes

public:
    const bool happens;
};

// A list that a power cut has left on the desktop goes on at the next start.
class ListAfterCut {
public:
    bool isLeft() const; // whole

    // What the operator does, to be called before the program starts; `ended` comes once the list
    // has.
    void goOn(double atMs, const Action& ended);

    // The record, and the maps of rows that were measured since, against the truth. Of one of the
    // lists that have begun, by its rows.
    std::vector<std::string> wrong(const std::vector<ListAtWork>& begun, int kind, bool takesUpPlay,
                                   std::map<std::string, uint64_t>& counts) const;

private:
    std::string wrongMap(const std::string& name, const ListRow& row, int kind) const;

    std::string left;       // what the next start goes on by
    std::string record;     // its name
    double counted[2] = {}; // by X's and Y's controllers at the laboratory's zero, um
};
