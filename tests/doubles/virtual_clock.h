// Virtual time. It stands still while code runs and moves only when something waits.
#pragma once

#include "platform/clock.h"

double virtualNowMs();
void advanceVirtualTime(double ms); // runs what the script has due on the way
void setVirtualTime(double ms);     // jumps without running anything
void setLocalTime(const LocalTime& now);

// Milliseconds since the test began.
double testTimeMs();

// Virtual time at which a test that has not come to an end is ended by force; default 2 hours.
void setTestDeadline(double testMs);

void resetClock();
