// The program's forced end.
#pragma once

// Laser off, stages stopped, what a running process has measured saved without asking, bias 0 V.
// Each step is tried whatever became of the others. From any thread; no window is touched from one
// that is not the windows'.
void makeSafe();

// Prints the reason to standard error, makes the set-up safe and aborts. For what must not happen:
// a reply or a command that no instrument of this set-up can mean.
[[noreturn]] void endProgram(const char* reason);

// Makes the set-up safe also when something else aborts the program.
void makeSafeAtAbort();
