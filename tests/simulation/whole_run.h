// One run of the whole program over the virtual laboratory: what the operator does in it, and the
// truth that its maps are measured against.
#pragma once

#include "lists/scan_list.h"
#include "tests/doubles/doubles.h"

#include <functional>
#include <string>
#include <vector>

class WholeRunTest : public LabTest {
protected:
    // The desk's settings: the laser spot where it is, the given step, confocal imaging on or off.
    void writeSettings(double step, bool confocal);

    // Starts the program, drags a rectangle of width x height um around the picture's centre,
    // confirms it, presses Start, answers the hysteresis question, and closes the window once
    // "Mapping finished" has been shown.
    void runProgramOver(double widthUm, double heightUm, BoxAnswer hysteresis = BoxAnswer::Yes);

    // Calls `action` once `points` cells have been read (and a row's discarded reading with each
    // row); to be called before runProgramOver.
    void afterReadings(size_t readings, std::function<void()> action);

    static int readingsIn(int cols, int rows) { return cols * rows + rows; }
};

// A row of a scan list: 6 x 4 points of 3 um, the first one so far from where the stage stands, um.
ListRow mapRowAt(double dx, double dy, double biasVolts);

// Sample point of a map cell, um; row 0 is the top of the map.
LabPoint placeOfCell(int column, int mapRow);

// True when `value` is what `truth` says within 0.02 um of the place, but for the tolerance.
bool isNear(double value, double tolerance, LabPoint place,
            const std::function<double(double x, double y)>& truth);

// True when `volts` is what the landscape gives within 0.02 um of the cell's place, but for the
// converter's step and noise; readings below 10 steps count as 0.
bool agreesWithLandscape(double volts, LabPoint place, double zUm);

// The numbers of a saved map file, [row][column].
std::vector<std::vector<double>> numbersOf(const std::string& text);

// The one file of the session whose name begins with `prefix`, below the desktop; in the folder
// whose path holds `folder`. Conditions beside a curve do not count.
std::string sessionFile(const std::string& prefix, const std::string& folder = "");
