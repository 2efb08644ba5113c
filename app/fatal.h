// The program's forced end.
#pragma once

// Laser off, stages stopped, what a running process has measured saved without asking, bias 0 V.
// Each step is tried whatever became of the others. From any thread; no window is touched from one
// that is not the windows'.
void makeSafe();

// What is done last when the program aborts, after the set-up was made safe; may be set at start.
extern void (*leaveEvidence)();

// Makes the set-up safe also when something else aborts the program.
void makeSafeAtAbort();
