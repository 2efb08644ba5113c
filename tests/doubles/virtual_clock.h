// Virtual time. It stands still while code runs and moves only when something waits.
#pragma once

#include "platform/clock.h"

double virtualNowMs();
void advanceVirtualTime(double ms); // runs what the script has due on the way
void setVirtualTime(double ms);     // jumps without running anything

double testTimeMs(); // since the test began

extern LocalTime wallTime; // what the program's clock shows; it stands still

// A test that is not over by then is ended by force: two hours after resetClock, unless set.
extern double deadlineMs;

extern bool systemKeptAwake; // as the program last asked

void resetClock();
