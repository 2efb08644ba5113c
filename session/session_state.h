// What a process and the wait inside it have in common.
#pragma once

#include <cstdint>

// What the wait does to the stage, which knows the wait; set at start-up.
struct StageHooks {
    void (*stopAll)() = [] {};
    // Moves Z by `um` and shows where it is, at once or behind a move of Z that is under way.
    void (*nudgeFocus)(double um) = [](double) {};
};

struct SessionState {
    // 1 while a long process holds the program: waits then ask before they stop it, and the live
    // view stays off. RunningProcess sets it.
    int32_t processRunning = 0;
    // 1 once the operator has confirmed a stop or closed the main window; a process clears it when
    // it starts and ends its loop when it finds it 1.
    int32_t stopRequested = 0;
    // 1 once a script has stopped a move of the stage outside of a process: the wait of the move
    // ends as at a click.
    int32_t moveStopRequested = 0;
    // How often somebody has stopped a move outside of a process: what goes in several moves looks
    // whether it is more than at its begin.
    int32_t moveStops = 0;
    // From the news that the computer goes to sleep or Windows ends the session on, until it is
    // awake again: nobody lights up or moves any more.
    bool goesToSleep = false;
    StageHooks stageHooks;
    void (*atProcessBegin)() = [] {}; // what the mouse is in the middle of on a map ends
};

extern SessionState session;
