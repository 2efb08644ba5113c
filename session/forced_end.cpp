// Ends the program by force.
#include "session/forced_end.h"

#include "platform/clock.h"
#include "session/day_log.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

ForcedEnd forcedEnd;

void endProgram(const char* reason) {
    if (forcedEnd.makeSafe) forcedEnd.makeSafe(); // first: standard error may be locked
    std::fprintf(stderr, "%s\n", reason);
    logEvent(std::string("Ended by force: ") + reason);
    std::signal(SIGABRT, SIG_DFL);
    std::abort();
}

void stayWhereTheProgramEnds() {
    while (forcedEnd.begun) sleepMs(1000);
}
