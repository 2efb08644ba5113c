// The curve that a point measurement takes, and its settings; shared by the I-V sweep and the time
// evolution.
#pragma once

#include "instruments/bias.h"
#include "mapping/scan_plan.h"
#include "platform/clock.h"
#include "platform/window_handle.h"
#include "session/data_folders.h"
#include "session/document.h"
#include "session/outcome.h"

#include <cstdint>
#include <string>
#include <vector>

struct SweepRecord {
    WindowHandle valueEdit = nullptr; // the voltage range, or the on time
    WindowHandle offTimeEdit = nullptr;
    WindowHandle repeatEdit = nullptr;
    WindowHandle plotWindow = nullptr;
    float voltageRange = 0.5f; // V, to either side of 0
    wchar_t plotTitle[64] = L"Time Evolution Measurement X: Time(s) vs. Y: Photocurrent (uA)";
    float voltageStep = 0.0f;            // V, of the last sweep
    int32_t pointsPerQuarter = 50;       // of the loop 0, +range, -range, 0
    int32_t repeatCount = 3;             // light cycles
    float onTime = 5.0f, offTime = 2.0f; // s, of one light cycle
    std::vector<float> xValues;          // V
    std::vector<float> yValues;          // uA, or what the selected instrument gives
    std::vector<float> extraValues;      // s
    // Of a time evolution with an instrument of several channels, by channel; yValues has the one
    // that the maps show. Otherwise empty.
    std::vector<std::vector<float>> channelValues;
    bool holdsSeries = false; // the arrays are those of a time evolution
    int32_t currentIndex = 0;
    char text[100] = {};  // status lines are formatted here
    ScanConditions setUp; // as the measurement started
    bool laserWasOn = false, wasIlluminated = false;
    Outcome outcome{.end = ProcessEnd::Running};
    LocalTime ended;
    int32_t sweepsSaved = 0, seriesSaved = 0; // since the program's start: the next file's numbers
};

extern SweepRecord sweepRecord;

// Room for the four quarters of a sweep in all three arrays, zero-filled. What a sweep has left
// there is kept.
void allocateSweep(SweepRecord& record);

// What a measurement lacks, in samples, and what it learns of its bias.
struct Missed {
    int32_t readings = 0;  // that nobody answered
    int32_t overloads = 0; // beyond the instrument's range
    int32_t lights = 0;    // with no board that could have switched the laser
    int32_t dark = 0;      // while the laser was to shine and did not
    int32_t unlocked = 0;  // a lock-in amplifier without its reference
    int32_t unsettled = 0; // whose filter had just changed by itself
    BiasWatch bias;
    void count(const Reading& reading);
};

// Ends a measurement and its bias: keeps how it ended, what it lacks and what was wrong with the
// bias, and shows that behind `lastWords`; nothing when all was well.
void endMeasurement(SweepRecord& record, const char* lastWords, const Missed& missed);

// Writes the end of a measurement into its plot.
void showEndMessage(const SweepRecord& record, const char* message);

// What is on record of a measurement at its start, and at an end that it does not see itself.
void noteStart(SweepRecord& record);
void noteEnd(SweepRecord& record, ProcessEnd end);

// A curve on its way to its file.
struct CurveFile {
    const char* kind;
    int32_t& number; // of the file; counted on past those that are there already
    std::string heading;
    const std::vector<float>& xs;
    std::vector<const std::vector<float>*> columns; // to the right of it
    int32_t count;                                  // of lines "%f,%f"
    Conditions conditions;                          // of this kind of curve, to those that all have
    DataFolders& folders = dataFolders;
};

// Writes the curve into the session folder as "<kind>(<number>).txt", and beside it ".meta.txt"
// with what it was taken with. Nothing is overwritten: a program that was started again within a
// minute finds the files of the one before it there. False when one of the two cannot be written;
// the operator is told, of the curve unless `quietly`, at a forced end.
bool saveCurve(SweepRecord& record, const CurveFile& curve, bool quietly);
