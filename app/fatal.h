// The program's forced end.
#pragma once

// Laser off, stages stopped, what a running process has measured saved without asking, bias 0 V.
// Each step is tried whatever became of the others. From any thread; no window is touched from one
// that is not the windows', and that one then does nothing to the set-up any more.
void makeSafe();

// Tries the next of these steps; false when all have been tried. For the thread that goes on where
// another one's step has failed or hangs.
bool tryNextSafetyStep();

// Makes the set-up safe at endProgram and when something else aborts the program: by makeSafe, or
// by what forcedEnd.makeSafe has been set to before.
void makeSafeAtAbort();
