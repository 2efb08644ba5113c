// The one wait of all long work. It keeps the windows alive and lets the operator ask for a stop.
#pragma once

#include <cstdint>

// 1 once the operator has confirmed a stop or closed the main window; a process clears it when it
// starts and ends its loop when it finds it 1.
extern int32_t stopRequested;

// What the wait does to the stage, which knows the wait; set at start-up.
struct StageHooks {
    void (*stopAll)() = [] {};
    // Moves Z by `um` and shows where it is, at once or behind a move of Z that is under way.
    void (*nudgeFocus)(double um) = [](double) {};
};
extern StageHooks stageHooks;

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

// The same until `durationMs` after `startMs` of tickCountMs(), but for a millisecond at least
// unless it is 0: what was done since counts as waiting.
int waitResponsiveSince(uint64_t startMs, uint32_t durationMs);
