// How a scan takes its points: what the operator chooses in "Scan options" and Options.ini keeps.
#pragma once

#include <cstdint>

struct ScanOptions {
    bool looksEarly = false; // at the stage: as soon as it can be there
    int32_t settleMs = 10;   // after the arrival at a point
    int32_t beforeReadingMs = 2;
    int32_t readingsPerPoint = 1; // the map holds their mean
    bool writesUnitFile = true;   // the file with units beside the text files
    int32_t runInUm = 0; // to a row's first point, from the left, takes up the play; 0: one step

    bool operator==(const ScanOptions&) const = default;
};

// Of the next scan.
struct ScanSettings {
    ScanOptions options;
    int32_t confocalEnabled = 1; // it also samples the spot's colour at every point
};
extern ScanSettings scanSettings;

// The numbers among them, in the order of the dialog.
struct ScanNumber {
    const char* option; // in Options.ini
    const char* label;  // for the operator
    int32_t ScanOptions::*value;
    int32_t lowest, highest;
    bool allows(int32_t number) const { return number >= lowest && number <= highest; }
};
constexpr ScanNumber scanNumbers[] = {
    {"wait after arrival (ms)", "Wait after arrival (ms)", &ScanOptions::settleMs, 0, 10000},
    {"wait before reading (ms)", "Wait before the reading (ms)", &ScanOptions::beforeReadingMs, 0,
     10000},
    {"readings per point", "Readings per point", &ScanOptions::readingsPerPoint, 1, 1000},
    {"run-in (um)", "Run-in (um), 0 for one step", &ScanOptions::runInUm, 0, 100},
};

// The run-in of a scan with that step, um.
double runInOf(const ScanOptions& options, double stepUm);

// From Options.ini. A value that is none of its own is said, in the information text and on
// standard output, and the default takes its place; a line that is not there means the default.
void readScanOptions();

// Into Options.ini; false, and said on standard output, when that failed.
bool writeScanOptions();
