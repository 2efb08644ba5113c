// Leaves the set-up safe before the program ends by force.
#include "app/fatal.h"

#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "motion/stage.h"
#include "session/day_log.h"
#include "session/forced_end.h"
#include "session/process.h"

#include <atomic>
#include <csignal>
#include <exception>

void (*leaveEvidence)() = [] {};

void makeSafe() {
    static std::atomic<bool> busy = false; // what is done here may fail in the same way
    if (busy.exchange(true)) return;
    darkenAtOnce(); // first, whatever the windows' thread waits for
    stopAllStages();
    saveUnfinishedProcess();
    logEvent("Ended by force: lights told to be off, stage to stop; the bias is next");
    stepBias(0.0, static_cast<double>(instrumentLink.currentLimit)); // last: it may take a time-out
    busy = false;
}

void makeSafeAtAbort() {
    makeSafeAtForcedEnd = [] {
        makeSafe();
        leaveEvidence();
    };
    std::set_terminate([] { endProgram("an exception that nobody caught"); });
    std::signal(SIGABRT, [](int) {
        std::signal(SIGABRT, SIG_DFL);
        makeSafeAtForcedEnd();
    });
}
