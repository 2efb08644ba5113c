// Gain and exposure as the camera has them, for whoever changes them and gives them back.
#pragma once

#include "camera/camera.h"

struct CameraAdjustment {
    bool known = false;
    bool automaticGain = false, automaticExposure = false;
    double exposureUs = 0.0;
};

// A camera that does not answer is disconnected and said, as by every failure of it.
CameraAdjustment adjustmentOf(CameraState& state);

// From here on gain and exposure stay as they are; the exposure time becomes `us`, or the camera's
// nearest. Returns what the camera has made of it; 0 without a camera.
double holdExposure(CameraState& state, double us);

// False when the camera did not take it.
bool giveBack(CameraState& state, const CameraAdjustment& before);
