// The raster scan: moves the sample point by point and builds the maps.
#pragma once

#include "mapping/scan_plan.h"
#include "motion/stage.h"
#include "session/journal.h"
#include "session/outcome.h"
#include "session/picture_scale.h"

#include <functional>
#include <optional>
#include <string>

// Scans by a plan whose settings are in force and whose instrument is selected: to its first point,
// backlash taken up, the operator's consent where the plan asks for it, row by row, and back to
// where the stage stood. Saves the map files and images also of a scan that was stopped or
// declined.
Outcome runScan(const ScanPlan& plan);

// Why such a scan would not begin, as far as that is known before; empty when it would.
std::string whyNotScanned(const ScanPlan& plan);

// The same by the present plan. Always returns 1.
int runMapping();

// Goes on with the map in memory, whose plan is in force (takeOverScan), from its first missing row
// on, as if the scan had started where the stage stands. `left`, its journal, becomes that of this
// scan; when this one is declined the journal stays, so that it can go on another time.
Outcome continueScan(const LeftJournal& left);

// What somebody has found before a scan goes on behind a pause.
struct SampleMoved {
    StageVector byUm;  // the points that are left move with it
    std::string words; // of it, for what is written of the pause; empty without any
};

// Asked then, with the laser off; may send the whole stage elsewhere, which the scan brings back
// to the row's begin. Empty: nobody looks.
extern std::function<SampleMoved()> lookBehindPause;

// In this object's block X and Y are a scan's: from the command to its last move.
class XyOfScan {
public:
    XyOfScan();
    ~XyOfScan();
    XyOfScan(const XyOfScan&) = delete;
    XyOfScan& operator=(const XyOfScan&) = delete;
};
bool scanMovesTheStage();

// Tells the operator that a key or a command does not move X or Y meanwhile.
void refuseForScan();

// Milliseconds until the last point of the running scan, by what it has taken so far: within a
// tenth from the fiftieth point on. 0 without one.
double remainingScanMs();

// How many points of the scan that is under way are measured; nothing without one.
struct ScanProgress {
    int done = 0, of = 0;
};
std::optional<ScanProgress> scanProgress();

// A damped swing that ends where it started, approached from the positive side; then Z up and down.
// Ends early, and returns false, when a move fails.
bool compensateHysteresis(const ArrivalTiming& timing = {});

// Saves what the scan that is under way has measured, without asking.
void saveScanAtForcedEnd();
