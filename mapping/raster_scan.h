// The raster scan: moves the sample point by point and builds the maps.
#pragma once

#include "session/journal.h"

#include <cstdint>
#include <string>

// Waits before a reading: at the beginning of a row and at each point.
constexpr uint32_t rowSettleMs = 10;

// Scans the scan area: to its start, backlash taken up, the operator's consent, row by row, and
// back to where the stage stood. Saves the map files and images also of a scan that was stopped or
// declined. Always returns 1.
int runMapping();

// Goes on with the map in memory, whose settings are in force (takeOverScan), from its first
// missing row on, as if the scan had started where the stage stands. All is saved into `folder`,
// the scan's session folder, and `left`, its journal, becomes that of this scan; when this one is
// declined the journal stays, so that it can go on another time. Always returns 1.
int continueMapping(const LeftJournal& left, const std::string& folder);

// Writes the files and images of the map in memory without asking; whether every number is in a
// file.
bool saveScan();

// From its first move to its last: X and Y are the scan's.
bool scanMovesTheStage();

// Tells the operator that a key or a command does not move X or Y meanwhile.
void refuseForScan();

// The same for "Save Maps", with the box where that fails. A journal that was left because a file
// could not be written goes when all are.
bool saveMapsAgain();

// Milliseconds until the last point of the running scan, by what it has taken so far: within a
// tenth from the fiftieth point on. 0 without one.
double remainingScanMs();

// A damped swing that ends where it started, approached from the positive side; then Z up and down.
// Ends early, and returns false, when a move fails.
bool compensateHysteresis();

// Saves what the scan that is under way has measured, without asking.
void saveScanAtForcedEnd();
