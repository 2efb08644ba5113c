// The window with the result of a calibration: a picture with marks, what was found, "Keep".
#pragma once

#include "session/picture_scale.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// Drawn over the picture. Places are display pixels, columns from the left, rows from the bottom.
struct CalibrationMark {
    PixelVector from, to; // a line; none where both are the same
    double radius = 0.0;  // of a circle about `from`, pixels; 0 none
    std::string text;     // at `to`
};

struct CalibrationView {
    std::string caption;
    std::vector<std::string> lines;
    std::vector<uint32_t> picture; // as smallPicture makes it (camera/picture.h); empty: the
                                   // marks are a plot
    std::vector<CalibrationMark> marks;
    std::function<void()> keep; // empty: there is nothing to keep
};

// Shows it until "Keep", which calls its function, or "Cancel". Not while a process runs.
void showCalibration(CalibrationView view);

// An arrow with that name from a place, so many pixels long, the way that the stage's vector has on
// the picture.
std::vector<CalibrationMark> arrowAlong(const PictureScale& scale, StageVector way,
                                        PixelVector from, double lengthPx, const std::string& name);
