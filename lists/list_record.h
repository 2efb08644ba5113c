// What is on disk of a list that runs: its record for the operator, and what the next start needs
// to go on with it after a power cut. Both lie in KST_Data/Scan lists.
#pragma once

#include "lists/scan_list.h"
#include "session/picture_scale.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

std::wstring scanListPath(const std::string& name);

// A list's own file. Reading: nothing, and `fault` says why, where it cannot be.
bool writeScanList(const ScanList& list);
std::optional<ScanList> readScanList(const std::string& name, std::string& fault);

// Where a list stands: how many of its rows' repeats are done.
struct ListPlace {
    ScanList list;
    std::vector<int32_t> done;                    // by row
    std::set<size_t> failed;                      // rows of which a repeat failed
    std::string record;                           // the record's file name
    std::string begun;                            // when, "2026-11-27 09:00:00"
    double homeX = 0.0, homeY = 0.0, homeZ = 0.0; // um by the controllers' own count
    std::string measuredWith;                     // what no row says of itself; empty: not known
    StageVector followed; // by how much the stage has followed the sample's drift, um
    // Lines that their file has not taken yet: they go out with its next one.
    std::string waitingForRecord, waitingForUnfinished;

    // The next one that is to be measured; nothing at the end.
    std::optional<size_t> next() const;
    // Rows that are switched on and done with all their repeats, without those that failed.
    int32_t measured() const;
    int32_t toMeasure() const;
};

// Begins the record and what a restart needs; `place.record` is named here. False when one of them
// cannot be written: a night that cannot be recorded does not begin.
bool beginListRecord(ListPlace& place);

// One line of the record: a row and repeat that has ended. It goes to the disk at once; false when
// it did not, and then it waits for the next one.
bool recordRow(ListPlace& place, size_t row, int32_t repeat, const std::string& started,
               const std::string& ended, const std::string& folder, const std::string& how);

// A line of the record that is about no row: a pause, a continuation, the end.
bool recordEvent(ListPlace& place, const std::string& words);

// That a list that was cut off goes on; both its files may have been cut in the middle of a line.
bool recordContinuation(ListPlace& place);

// `row` has one repeat more; goes to the disk at once.
bool keepDone(ListPlace& place, size_t row);

// A repeat of `row` has failed; goes to the disk at once.
bool keepFailed(ListPlace& place, size_t row);

// The same of `place.followed`.
bool keepFollowed(ListPlace& place);

// Of the list's first picture, beside its record.
std::wstring firstPicturePath(const ListPlace& place);

// The list has ended, as its record says: nothing is left to go on with. False when what it has
// left is still there: another program holds it.
bool forgetUnfinishedList();

// The program of the operator's that a list's end starts, with the record's path as its argument:
// its path, kept in Options.ini; empty: none. Keeping: false when that was not written.
std::string programAtEnd();
bool keepProgramAtEnd(const std::string& path);

// Starts it; a failure is logged, and is the list's no more.
void startProgramAtEnd(const ListPlace& place);

// What an earlier run has left; nothing where it left none or `fault` says why it cannot be read.
std::optional<ListPlace> unfinishedList(std::string& fault);
