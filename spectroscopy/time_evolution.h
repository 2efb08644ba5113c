// The photocurrent against time while the laser goes on and off, at the present place of the stage.
#pragma once

#include "spectroscopy/sweep_record.h"

constexpr int longestPhaseSeconds = 10000, mostLightCycles = 200;

struct SeriesPlan {
    float onSeconds, offSeconds; // of one light cycle
    int32_t repeats;
};

// Records that many light cycles under the present bias; the trace grows in the plot window. Ends
// between two samples when a stop is asked for, and when the arrays are full, which are made for 20
// samples a second. The laser is off afterwards. Declined, and nothing was measured, when the
// system has no memory for so long a series.
Outcome runSeries(const SeriesPlan& plan);

// The same with what stands in its edits, whole seconds. False when it was declined.
bool measureTimeEvolution();

// One for each channel of an instrument that has several, without samples.
std::vector<std::vector<float>> emptyChannels(const ScanPlan& plan);

// Writes the samples to the next "TimeEvo(n).txt". `quietly`, at a forced end: without telling of a
// failure. Whether they and their conditions were written; then their journal goes, otherwise it
// stays.
bool saveTimeEvolution(bool quietly);

// The same of a series that was cut off, to the next name that is free there.
bool saveRecoveredSeries(SweepRecord& record, DataFolders& folders);
