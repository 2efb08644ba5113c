// The live camera view: timer 1 of the main window and the radio pair 2112/2113.
#pragma once

constexpr unsigned liveViewPeriodMs = 100;

// Timer and radio button only; the responsive wait uses these around every wait.
void liveViewTimerOn();
void liveViewTimerOff();

// mode 1: leave the wide view, look for a missing camera when the next search is due, compute the
// scan geometry, timer on.
// mode 0: timer off. mode 2: back to the state before the last mode 0 or 1.
// mode 7: timer off and one fresh frame on the screen, or the wide view, on which the scan area is
// judged.
void switchLiveView(int mode);

bool liveViewIsOn();

// Connects the camera and opens it with automatic gain and exposure; silent when there is none but
// for the camera's own status text.
void connectCamera();

// The same, at once, where the camera has been lost or released; nothing while it is there. The
// live view by itself looks again only ten times as long after the last search as that took, two
// seconds at least.
void connectMissingCamera();

// Grabs one frame and draws it in place of whatever the window shows.
void grabAndDraw();

// One tick of timer 1: counts the idle time, switches the light sources and the camera off after
// 50 s without input, and otherwise shows a fresh frame, the spot's colour and its mean value.
void liveViewTick();

// Operator input: the idle time starts anew.
void resetIdle();
