// The curve that a point measurement takes, and its settings; shared by the I-V sweep and the time
// evolution.
#pragma once

#include "platform/window_handle.h"

#include <cstdint>
#include <vector>

struct SweepRecord {
    WindowHandle valueEdit = nullptr; // the voltage range, or the on time
    WindowHandle offTimeEdit = nullptr;
    WindowHandle repeatEdit = nullptr;
    WindowHandle plotWindow = nullptr;
    float voltageRange = 0.5f; // V, to either side of 0
    wchar_t plotTitle[64] = L"Time Evolution Measurement X: Time(s) vs. Y: Photocurrent (uA)";
    int32_t pointsPerQuarter = 50;       // of the loop 0, +range, -range, 0
    int32_t repeatCount = 3;             // light cycles
    float onTime = 5.0f, offTime = 2.0f; // s, of one light cycle
    std::vector<float> xValues;          // V
    std::vector<float> yValues;          // uA, or what the selected instrument gives
    std::vector<float> extraValues;      // s
    bool holdsSeries = false;            // the arrays are those of a time evolution
    int32_t currentIndex = 0;
    char text[100] = {}; // status lines are formatted here
};

extern SweepRecord sweepRecord;

// Room for the four quarters of a sweep in all three arrays, zero-filled. What a sweep has left
// there is kept.
void allocateSweep(SweepRecord& record);

// Writes the end of a measurement into its plot.
// Ends the bias of a measurement. Says in the information text behind `name` how many of its
// readings nobody answered and what was wrong with the bias; nothing when all was well.
void endBias(const char* name, int32_t readings, int32_t unanswered);

void showEndMessage(const SweepRecord& record, const char* message);

// Writes `heading` and `count` lines "%f,%f" into the session folder. False when the file cannot be
// written; the operator is told unless `quietly`.
bool saveCurve(const char* fileName, const char* heading, const std::vector<float>& xs,
               const std::vector<float>& ys, int32_t count, bool quietly);
