// How a scan takes its points: what the operator chooses in "Scan options" and Options.ini keeps.
#pragma once

#include <cstdint>

constexpr int32_t longestScanWaitMs = 10000;
constexpr int32_t mostReadingsPerPoint = 1000;

struct ScanOptions {
    bool looksEarly = false;      // at the stage: as soon as it can be there
    int32_t settleMs = 10;        // after the arrival at a point; 0..longestScanWaitMs
    int32_t beforeReadingMs = 2;  // 0..longestScanWaitMs
    int32_t readingsPerPoint = 1; // 1..mostReadingsPerPoint; the map holds their mean
    bool writesUnitFile = true;   // the file with units beside the text files

    bool operator==(const ScanOptions&) const = default;
};

extern ScanOptions scanOptions;

// From Options.ini. A value that is none of its own is said, in the information text and on
// standard output, and the default takes its place; a line that is not there means the default.
void readScanOptions();

// Into Options.ini; false, and said on standard output, when that failed.
bool writeScanOptions();
