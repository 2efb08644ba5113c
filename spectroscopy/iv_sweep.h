// The current-voltage curve at the present place of the stage.
#pragma once

#include "spectroscopy/sweep_record.h"

// Of the range, V.
constexpr double sweepRangeLowest = 0.01, sweepRangeHighest = 10.0;

struct SweepPlan {
    float rangeVolts;         // to either side of 0
    float stepVolts;          // between two points
    int32_t pointsPerQuarter; // of the loop 0, +range, -range, 0
};

// Sweeps the bias and reads the USB sourcemeter at each of the steps, whatever instrument is
// selected, under the present current limit. The curve grows in the plot window. A stop ends it
// between two points; the bias is 0 V afterwards.
Outcome runSweep(const SweepPlan& plan);

// The same with the range that stands in its edit.
void measureIvCurve();

// Writes all points of the loop to the next "I-V(n).txt"; the points that a stopped sweep did not
// reach as they were before. `quietly`, at a forced end: without telling of a failure. Whether it
// and its conditions were written; then its journal goes, otherwise it stays.
bool saveIvCurve(bool quietly);

// The same of a curve that was cut off, to the next name that is free there.
bool saveRecoveredIvCurve(SweepRecord& record, DataFolders& folders);
