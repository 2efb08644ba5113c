// The program's forced end, as every floor can call for it.
#pragma once

// Makes the set-up safe; set at start-up to what knows all devices.
extern void (*makeSafeAtForcedEnd)();

// Prints the reason to standard error, makes the set-up safe and aborts. For what must not happen:
// a reply or a command that no instrument of this set-up can mean.
[[noreturn]] void endProgram(const char* reason);
