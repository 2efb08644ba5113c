// The camera's automatic adjustments. Each prints to standard output what it does; a camera without
// the function is told of there and left alone.
#pragma once

#include "camera/pylon.h"

// How long the routines and the single-frame mode wait for a frame.
constexpr uint32_t grabOneTimeoutMs = 5000;

// The whole sensor as picture, and for the automatic functions.
void useWholeSensor(CBaslerUniversalInstantCamera& camera);

// Continuous adjustment over the whole sensor towards a mean brightness of 0.3 (older cameras: 80
// of 255). Throw GenericException when the camera refuses.
void autoGainContinuous(CBaslerUniversalInstantCamera& camera);
void autoExposureContinuous(CBaslerUniversalInstantCamera& camera);

// One adjustment of the open camera towards 0.2 (gain of older cameras: 80 of 255), within the
// widest limits. The gain is left to settle in the frames to come; the other two grab frames
// meanwhile and throw TimeoutException after a hundred. Exposure refuses older cameras.
void autoGainOnce(CBaslerUniversalInstantCamera& camera);
void autoExposureOnce(CBaslerUniversalInstantCamera& camera);
void autoWhiteBalanceOnce(CBaslerUniversalInstantCamera& camera);
