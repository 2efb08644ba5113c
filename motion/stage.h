// Moves of the stage and their arrival.
#pragma once

#include "motion/axis.h"

// How a move looks for its own end. A scan may have its own for its moves.
struct ArrivalTiming {
    // Every 50 ms from the start on; or first when the stage can be there at its speed, and then
    // every 2 ms. Tolerances, limits and time-outs are the same.
    bool looksEarly = false;
    uint32_t settleMs = 10; // after the arrival of one axis
    // Not 0: a move of one axis has only succeeded when the axis then stands so near, and settles
    // from the look that found it standing.
    double standsWithinUm = 0.0;
};

enum ArrivalCode : int { notArrived = 0, arrived = 1, leftLimit = 2, rightLimit = 3 };
int waitForArrival(StageAxis& axis, double targetUm, uint64_t timeoutMs,
                   const ArrivalTiming& timing = {});

// When the last arrival of one axis was over, its settling included, by tickCountMs(): the end of
// the wait that was due, however late that woke up.
uint64_t lastSettledMs();

// waitResponsive behind a move. Where moves look early, what was done since `sinceMs` of
// tickCountMs() counts as waiting: the texts of an arrival are a part of it.
void waitAfterMove(uint64_t sinceMs, uint32_t durationMs, const ArrivalTiming& timing);

// Whether the axis is at rest at the target by what its controller says now: moves end within 1 um
// of it (of two axes 3 um) and take it for reached. An axis on its way, or one that stands beside
// it, is given a short time; false after that, at a stop and at once for a lost axis. An axis
// without a controller stands where its number says. Micrometres.
bool standsAt(StageAxis& axis, double targetUm, double toleranceUm,
              const ArrivalTiming& timing = {});

// The same for an axis that stood there at an earlier look and was not sent anywhere since: a
// single call, as long as it does.
bool stillStandsAt(StageAxis& axis, double targetUm, double toleranceUm,
                   const ArrivalTiming& timing = {});

bool moveTo(StageAxis& axis, double um, const ArrivalTiming& timing = {}); // starts and waits
bool moveBy(StageAxis& axis, double deltaUm, const ArrivalTiming& timing = {});

// While a move of the axis is under way: moves it by `um` once that has arrived (one such nudge at
// a time; none is left of a move that does not arrive). False, and nothing happens, otherwise.
bool nudgeAfterMove(const StageAxis& axis, double um);

// Both axes arrive together: the longer distance runs at `speed` (clamped to 10..800). False when
// one of them did not arrive; the positions are then what was read.
bool moveTwoAxesTo(StageAxis& a, StageAxis& b, double targetA, double targetB, int32_t speed,
                   const ArrivalTiming& timing = {});
bool moveTwoAxesBy(StageAxis& a, StageAxis& b, double deltaA, double deltaB, int32_t speed,
                   const ArrivalTiming& timing = {});
bool moveXYTo(double x, double y, int32_t speed, const ArrivalTiming& timing = {});
bool moveXYBy(double dx, double dy, int32_t speed, const ArrivalTiming& timing = {});

// missedText of X or Y, whichever such a move has missed.
std::string missedXyText();

// Writes the cached positions of the three axes into their read-outs.
void refreshPositions();
