// Power that is cut on one random day in three: the disk as it was then, and what the next start
// makes of it.
#pragma once

#include "mapping/scan_map.h"
#include "tests/simulation/day/laboratory.h"
#include "tests/simulation/day/list_day.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

class PowerCut {
public:
    // Cuts while the program waits or in the middle of its files. Watches the disk (diskWatch).
    // A list is cut off later, and at any of the files that end a row.
    PowerCut(uint32_t seed, bool dayOfList);
    ~PowerCut();
    PowerCut(const PowerCut&) = delete;
    PowerCut& operator=(const PowerCut&) = delete;

    void look(); // the program waits
    bool hasHappened() const { return !folder.empty(); }

    // The next start, on that disk and in a world in order (prepareWorld): the scan that was cut
    // off is recovered. What is wrong then; adds to the day's counts.
    std::vector<std::string> startAgain(std::map<std::string, uint64_t>& counts,
                                        Laboratory& laboratory);

    // Whether that went on with a list.
    const ListAfterCut* listGoneOn() const { return listGoesOn ? &list : nullptr; }

private:
    void cut();

    double cutMs;
    bool inFiles; // at the first of them then
    std::string folder;
    // Of the journal, when it was flushed last: its name, its length, and what it has.
    std::string journal;
    size_t flushedSize = 0;
    ScanMap flushed;
    ScanMap scanThen; // at the cut
    uint32_t luck;
    int filesLeft = 0; // until the cut, once it is due
    ListAfterCut list;
    bool listGoesOn = false;
};
