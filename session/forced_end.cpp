// Ends the program by force.
#include "session/forced_end.h"

#include "platform/clock.h"
#include "session/day_log.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

void (*makeSafeAtForcedEnd)() = nullptr;

std::atomic<bool> endsByForce = false;

void endProgram(const char* reason) {
    if (makeSafeAtForcedEnd) makeSafeAtForcedEnd(); // first: standard error may be locked
    std::fprintf(stderr, "%s\n", reason);
    logEvent(std::string("Ended by force: ") + reason);
    std::signal(SIGABRT, SIG_DFL);
    std::abort();
}

void stayWhereTheProgramEnds() {
    while (endsByForce) sleepMs(1000);
}
