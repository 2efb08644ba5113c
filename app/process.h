// The long processes (a mapping, a sweep, a series, autofocus, the wide view): one at a time.
#pragma once

// Runs `work` and keeps the system awake meanwhile; false, and nothing happens, while another
// process is under way. Closes the main window afterwards when that was asked for.
bool runProcess(void (*work)());

// From the first step of a process to its last, also where it does not hold `processRunning`.
bool processUnderWay();

// Asks the process that is under way to stop, and closes the main window when it has ended.
void stopAndClose();
