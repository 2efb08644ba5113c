// The one wait of all long work. It keeps the windows alive and lets the operator ask for a stop.
#pragma once

#include "session/session_state.h"

#include <cstdint>

enum WaitResult : int {
    waitStopped = 0, // the operator confirmed a stop of the running process
    waitPassed = 1,  // the time passed
    waitInterrupted =
        3, // a click while no process ran (all axes were stopped), or the window was closed
};

// Dispatches messages until `durationMs` has passed, however long the system is up. Page Up and
// Page Down nudge the focus while a process runs, and what they take of the time counts. The live
// view is off during the wait and comes back after it unless a process runs.
int waitResponsive(uint32_t durationMs);

// Whether the caller was called from inside such a wait.
bool waitIsUnderWay();

// The same until `durationMs` after `startMs` of tickCountMs(), but for a millisecond at least
// unless it is 0: what was done since counts as waiting.
int waitResponsiveSince(uint64_t startMs, uint32_t durationMs);
