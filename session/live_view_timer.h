// The live camera view's switch: timer 1 of the main window and the radio pair 2112/2113.
#pragma once

constexpr unsigned liveViewPeriodMs = 100;

// Timer and radio button only; the responsive wait uses these around every wait.
void liveViewTimerOn();
void liveViewTimerOff();

bool liveViewIsOn();
