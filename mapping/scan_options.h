// How a scan takes its points: what the operator chooses in "Scan options" and Options.ini keeps.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct ScanOptions {
    bool looksEarly = false; // at the stage: as soon as it can be there
    int32_t settleMs = 10;   // after the arrival at a point
    int32_t beforeReadingMs = 2;
    int32_t readingsPerPoint = 1; // the map holds their mean
    bool writesUnitFile = true;   // the file with units beside the text files
    int32_t runInUm = 0; // to a row's first point, from the left, takes up the play; 0: one step
    // Of a lock-in amplifier: which of its channels, by number, the map shows; whether its first
    // auxiliary input is one; how much of a step its filter is to have let through at a reading, in
    // tenths of a per cent, 0 for no longer wait than beforeReadingMs.
    int32_t mainChannel = 0;
    bool auxChannel = false;
    int32_t settledTenths = 990;
    bool keepsBiasInAPause = false; // otherwise it is 0 V meanwhile

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
    bool inTenths = false; // told and typed as "99.9"
    bool allows(int32_t number) const { return number >= lowest && number <= highest; }
    std::string textOf(int32_t number) const;
    std::optional<int32_t> typed(const std::string& text) const; // nothing where it is none of them
};
constexpr ScanNumber scanNumbers[] = {
    {"wait after arrival (ms)", "Wait after arrival (ms)", &ScanOptions::settleMs, 0, 10000},
    {"wait before reading (ms)", "Wait before the reading (ms)", &ScanOptions::beforeReadingMs, 0,
     10000},
    {"readings per point", "Readings per point", &ScanOptions::readingsPerPoint, 1, 1000},
    {"run-in (um)", "Run-in (um), 0 for one step", &ScanOptions::runInUm, 0, 100},
    {"lock-in settles to (%)", "Lock-in: % of the step, 0 for the wait above",
     &ScanOptions::settledTenths, 0, 999, true},
};

// What a map of a lock-in amplifier may show: the names of its channels, in their order.
constexpr const char* mainChannels[] = {"R", "X", "Y", "theta"};

// The run-in of a scan with that step, um.
double runInOf(const ScanOptions& options, double stepUm);

// From Options.ini. A value that is none of its own is said, in the information text and on
// standard output, and the default takes its place; a line that is not there means the default.
void readScanOptions();

// Into Options.ini; false, and said on standard output, when that failed.
bool writeScanOptions();
