// The journal of a scan: its conditions and each point as it is measured, and the way back.
#pragma once

#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "session/journal.h"

#include <optional>
#include <string>
#include <vector>

constexpr char scanJournalKind[] = "scan";
constexpr char unreadableJournal[] =
    "A journal was left that cannot be read; it stays in KST_Data/Journal";

// For scanMap, whose conditions are frozen. Failures are said on standard output and
// by journalIsBroken.
void beginScanJournal();
void journalPoint(size_t column, size_t mapRow); // of scanMap

// A pause that has ended, in words of one line; goes to the disk at once.
void journalPause(const std::string& words);
void notePause(ScanConditions& scan, const std::string& words); // in the conditions

// The same for a scan that goes on: the journal that it was read from becomes its own, with the
// points of the map and all that follow.
void continueScanJournal(const LeftJournal& left);

// The camera's last picture, of the place where the scan starts; not that of another scan, which
// goes on here. Nothing without a camera.
void keepScanPicture();

// The picture that was kept, as smallPicture makes it; empty when there is none.
std::vector<uint32_t> scanPicture(const LeftJournal& journal);

// A scan as its journal has it.
struct JournaledScan {
    ScanMap map;        // with its conditions; what the journal has no point for is not measured
    std::string folder; // its session folder's name
    int points = 0;     // that the journal has
    size_t valuesPerPoint = 0; // in a line of it
    const ScanPlan& plan() const { return *map.conditions; }
};

// Nothing when it is no scan's or does not hold the conditions whole.
std::optional<JournaledScan> readScanJournal(const LeftJournal& journal);

// The same of the lines behind the first.
std::optional<JournaledScan> scanOfLines(const NextLine& next, int version = journalVersion);

// Whether it is still there and of the scan that was taken with these conditions: journals change
// their places.
bool isJournalOf(const LeftJournal& left, const ScanConditions& scan);

// The first row in the order of the scan, from 0, of which a point is missing; the number of rows
// when none is.
int firstMissingRow(const ScanMap& map);

// "2026-11-25 12:30"
std::string startOf(const ScanConditions& measurement);

// "A scan of 2026-11-25 12:30 was cut off ...", with the number of points by the place of the last
// one: only the journal's beginning and end are read. Empty when it cannot be read.
std::string scanNotice(const LeftJournal& left);
