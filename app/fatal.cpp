// Leaves the set-up safe before the program ends by force.
#include "app/fatal.h"

#include "instruments/ammeter.h"
#include "instruments/lights.h"
#include "motion/stage.h"
#include "platform/messages.h"
#include "session/day_log.h"
#include "session/forced_end.h"
#include "session/process.h"

#include <atomic>
#include <csignal>
#include <cstddef>
#include <exception>
#include <iterator>

namespace {

// The first two take nothing from the heap as long as the devices obey: whoever crashed may have it
// locked.
constexpr void (*steps[])() = {
    [] {
        if (!onWindowThread()) forcedEnd.begun = true;
        darkenAtOnce(); // first, whatever the windows' thread waits for
    },
    stopAllStages,
    saveUnfinishedProcess,
    [] { logEvent("Ended by force: lights told to be off, stage to stop; the bias is next"); },
    // Last: it may take a time-out.
    [] { stepBias(0.0, static_cast<double>(instrumentLink.currentLimit)); },
};

std::atomic<size_t> nextStep = 0;

void endAtAbort(int) {
    std::signal(SIGABRT, endAtAbort); // another thread may follow; it must not end the process yet
    forcedEnd.makeSafe();
    std::signal(SIGABRT, SIG_DFL);
}

} // namespace

bool tryNextSafetyStep() {
    const size_t step = nextStep++; // taken before it is tried: it may fail, and call for the rest
    if (step >= std::size(steps)) return false;
    steps[step]();
    return true;
}

void makeSafe() {
    while (tryNextSafetyStep()) {
    }
    nextStep = 0; // the system has ended the session, and may take it back
}

void makeSafeAtAbort() {
    if (!forcedEnd.makeSafe) forcedEnd.makeSafe = makeSafe;
    std::set_terminate([] { endProgram("an exception that nobody caught"); });
    std::signal(SIGABRT, endAtAbort);
}
