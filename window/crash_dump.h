// What a crash leaves for those who look for its cause.
#pragma once

// Of _EXCEPTION_POINTERS.
struct _EXCEPTION_POINTERS;

struct Crash {
    _EXCEPTION_POINTERS* exception = nullptr;
    unsigned long thread = 0; // its id
};

// Says in the log of the day that the program has crashed, writes KST_Data/Log/
// crash-<date>-<time>.dmp with the stacks of all threads, and says that, or why not. To be called
// last, when the set-up is safe.
void writeCrashDump(const Crash& crash);
