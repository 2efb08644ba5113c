// "Measurement > Calibrate": what the set-up measures of itself, shown, and kept if the operator
// wants. What was stopped is not shown.
#pragma once

void calibrateCameraAndStage();
void calibratePlayOfStage();
void calibrateLaserSpot();
void calibrateDarkValue();
