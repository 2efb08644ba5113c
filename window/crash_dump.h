// What a crash leaves for those who look for its cause.
#pragma once

// Of _EXCEPTION_POINTERS; null where the program ended itself.
struct _EXCEPTION_POINTERS;

// Writes KST_Data/Log/crash-<date>-<time>.dmp with the stacks of all threads, and says so, or why
// not, on standard error. To be called last, when the set-up is safe.
void writeCrashDump(_EXCEPTION_POINTERS* exception);
