// Ends the program by force.
#include "session/forced_end.h"

#include "session/day_log.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

void (*makeSafeAtForcedEnd)() = [] {};

void endProgram(const char* reason) {
    std::fprintf(stderr, "%s\n", reason);
    makeSafeAtForcedEnd();
    logEvent(std::string("Ended by force: ") + reason);
    std::signal(SIGABRT, SIG_DFL);
    std::abort();
}
