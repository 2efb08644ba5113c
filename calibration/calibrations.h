// What the set-up measures of itself. Each is a process of its own that takes some of the set-up's
// lights, exposure and stage and gives all of it back, whatever comes, and says where it could not;
// it can be stopped at any time, and is refused while another process runs. Nothing is kept of it
// before keep() is called, which returns an empty text when that is done and written, and otherwise
// why not.
#pragma once

#include "calibration/borrowed.h"
#include "calibration/dark_value.h"
#include "calibration/matrix_fit.h"
#include "calibration/play.h"
#include "calibration/spot_centroid.h"
#include "session/outcome.h"

#include <cstdint>
#include <string>

// --- Camera and stage: how the picture lies on the sample ----------------------------------------

struct ScaleCalibration {
    Outcome outcome;
    MatrixFit fit; // without a matrix where the outcome says why
    std::string words() const;
    bool canKeep() const { return outcome.end == ProcessEnd::Finished && fit.isFound(); }
};

// Moves X and Y by growing ways about the present place until the picture has moved by up to a
// quarter of itself, then to 16 places. From 0.02 to 2 um per pixel, however the camera is turned
// or mirrored.
ScaleCalibration calibrateScale(const CalibrationProgress& progress = {});

// Of the objective in use. A scan area that was drawn before lies elsewhere now.
std::string keep(const ScaleCalibration& result);

// --- Play ----------------------------------------------------------------------------------------

struct PlayCalibration {
    Outcome outcome;
    AxisPlay x, y;
    int proposedRunInUm = 0; // of a scan
    std::string words() const;
    bool canKeep() const {
        return outcome.end == ProcessEnd::Finished && x.isFound() && y.isFound();
    }
};

// Comes to places of X and of Y from below and from above; up to 10 um of play. Believes the
// picture's scale. Its run-in is one of the scan options, for whoever keeps these.
PlayCalibration calibratePlay(const CalibrationProgress& progress = {});

// --- Laser spot ----------------------------------------------------------------------------------

struct SpotCalibration {
    Outcome outcome;
    SpotFound spot;
    double exposureUs = 0.0;      // at which it was seen
    int32_t proposedAperture = 0; // half the side of the spot's square, display pixels
    std::string words() const;
    bool canKeep() const { return outcome.end == ProcessEnd::Finished && spot.isFound(); }
};

// With the laser alone, at the intensity that is set; the stage stays where it is.
SpotCalibration calibrateSpot(const CalibrationProgress& progress = {});

// Place and aperture; into the set-up where the objective has a spot of its own. What was computed
// from the spot's place (the scan area) is for the caller to compute again.
std::string keep(const SpotCalibration& result);

// --- Dark value ----------------------------------------------------------------------------------

struct DarkCalibration {
    Outcome outcome;
    DarkValue dark;
    int32_t kind = 0;    // the instrument's (instruments/kinds.h)
    std::string unit;    // of its values
    std::string caution; // what the operator must know of it; empty without
    bool hidden = false; // by the dead zone of the board's input: the mean is not the offset
    std::string words() const;
    // Whether the set-up has an amplifier before this instrument, whose offset it is, and the
    // readings show it.
    bool canKeep() const;
};
constexpr int darkReadings = 50;

// Without light, of the selected instrument, at the bias as it stands.
DarkCalibration calibrateDark(const CalibrationProgress& progress = {},
                              int readings = darkReadings);

// The offset of the amplifier before the instrument.
std::string keep(const DarkCalibration& result);
