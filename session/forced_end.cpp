// Ends the program by force.
#include "session/forced_end.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

void (*makeSafeAtForcedEnd)() = [] {};

void endProgram(const char* reason) {
    std::fprintf(stderr, "%s\n", reason);
    makeSafeAtForcedEnd();
    std::signal(SIGABRT, SIG_DFL);
    std::abort();
}
