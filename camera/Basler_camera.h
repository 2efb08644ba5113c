// The camera's automatic adjustments. Each prints to standard output what it does; a camera without
// the function is told of there and left alone.
#pragma once

#include "camera/pylon.h"

// Continuous adjustment over the whole sensor towards a mean brightness of 0.3 (older cameras: 80
// of 255). Throw GenericException when the camera refuses.
void autoGainContinuous(CBaslerUniversalInstantCamera& camera);
void autoExposureContinuous(CBaslerUniversalInstantCamera& camera);
