// The program's forced end, as every floor can call for it.
#pragma once

#include <atomic>

// Makes the set-up safe; set at start-up to what knows all devices, null before.
struct ForcedEnd {
    void (*makeSafe)() = nullptr;
    std::atomic<bool> begun = false; // by another thread than the windows', for good
};
extern ForcedEnd forcedEnd;

// Makes the set-up safe, prints the reason to standard error and aborts. For what must not happen:
// a reply or a command that no instrument of this set-up can mean.
[[noreturn]] void endProgram(const char* reason);

// Never returns then: the windows' thread must not move, bias or measure what has been made safe.
void stayWhereTheProgramEnds();
