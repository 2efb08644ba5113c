// What window and scripts may set. Each function does it and shows it, or answers why not in words,
// for a box or for an error; empty when it has done it.
#pragma once

#include "mapping/scan_area.h"

#include <cstdint>
#include <string>

constexpr int gainLowest = 1, gainHighest = 36; // dB
constexpr double exposureLowestUs = 100.0, exposureHighestUs = 500000.0;

// The distance of points; the area of a script keeps its place and size.
std::string setScanStep(double um);

// A scan area by its place on the stage: the first point at (left, bottom), um, wherever the stage
// stands; points a step apart as far as width and height reach.
struct StageRectangle {
    double left = 0.0, bottom = 0.0, width = 0.0, height = 0.0;
};
std::string setScanRectangle(const StageRectangle& rectangle);

// That of the scan area, whoever chose it: as it would be scanned from where the stage stands.
StageRectangle scanRectangle();

// The area of setScanRectangle, while it is the one in force, back to its place: the stage may have
// been moved since.
void placeScanRectangle();

// Nobody has chosen another area since setScanRectangle.
bool scanRectangleIsInForce();

// As the window shows it, uA; at once where the laser is on.
std::string setLaserIntensity(double uA);

// On the sample at once, and of scans once the source has taken it.
std::string setBias(float volts, float limitAmperes);

// Of the camera, which no longer adjusts them by itself then.
std::string setGain(int gain);
std::string setExposure(double us);

// In the edits of the control column.
void showScanSettings();
void showCameraSettings();
