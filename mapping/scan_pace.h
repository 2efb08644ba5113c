// How long a scan will still take, by what it has taken so far.
#pragma once

#include <cstdint>

// A scan is rows of points; each row begins with the way to its first point. Times are tick counts
// in milliseconds.
class ScanPace {
public:
    // `wayBackMs`: how long the stage travels from the end of a row to the beginning of the next.
    // The first row's way is shorter by that.
    ScanPace(int columns, int rows, double wayBackMs);

    void rowBegins(uint64_t nowMs);
    void rowReached(uint64_t nowMs); // at its first point
    void pointDone(uint64_t nowMs);

    void goesOn(uint64_t nowMs); // what was before is no part of a point: a pause

    // Until the last point is done; 0 before the first one.
    double remainingMs() const;

private:
    int columns, rows;
    double wayBackMs;
    int rowsBegun = 0, pointsDone = 0;
    uint64_t lastMs = 0;
    double firstRowMs = 0.0, laterRowsMs = 0.0; // on the ways to the rows
    double pointsMs = 0.0;
};
