// Adds up what a scan's points and the ways to its rows take.
#include "mapping/scan_pace.h"

ScanPace::ScanPace(int columnsOfScan, int rowsOfScan, double travelBackMs)
    : columns(columnsOfScan), rows(rowsOfScan), wayBackMs(travelBackMs) {}

void ScanPace::rowBegins(uint64_t nowMs) {
    lastMs = nowMs;
    ++rowsBegun;
}

void ScanPace::rowReached(uint64_t nowMs) {
    (rowsBegun == 1 ? firstRowMs : laterRowsMs) += static_cast<double>(nowMs - lastMs);
    lastMs = nowMs;
}

void ScanPace::pointDone(uint64_t nowMs) {
    pointsMs += static_cast<double>(nowMs - lastMs);
    lastMs = nowMs;
    ++pointsDone;
}

void ScanPace::goesOn(uint64_t nowMs) {
    lastMs = nowMs;
}

double ScanPace::remainingMs() const {
    if (pointsDone == 0) return 0.0;
    const double eachRow = rowsBegun > 1 ? laterRowsMs / (rowsBegun - 1) : firstRowMs + wayBackMs;
    return (columns * rows - pointsDone) * (pointsMs / pointsDone) + (rows - rowsBegun) * eachRow;
}
