// Lets one long process run at a time.
#include "session/process.h"

#include "platform/clock.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/responsive_wait.h"
#include "session/stay_awake.h"

#include <cassert>
#include <cstddef>

int32_t processRunning = 0;

namespace {

bool underWay = false;
void (*saveUnfinished)() = nullptr;
bool closeWanted = false;
int movesUnderWay = 0;
ProcessEnd stopReason = ProcessEnd::Stopped;

// How it ended, and what the operator is told of it.
void logEnd(const char* name, uint64_t tookMs) {
    constexpr int longestText = 400;
    const char* how = stopRequested ? nameOf(processEnd()) : "ended"; // or was declined
    logEvent(formatted("%s: %s after %.1f s, \"%s\"", name, how,
                       static_cast<double>(tookMs) / 1000.0,
                       fieldText(Field::Information, longestText).c_str()));
}

} // namespace

bool runProcess(const char* name, void (*work)(), void (*saveQuietly)()) {
    if (stageIsTaken()) return false;
    logEvent(std::string(name) + ": begins");
    const uint64_t start = tickCountMs();
    underWay = true;
    stopReason = ProcessEnd::Stopped;
    saveUnfinished = saveQuietly;
    stayAwakeFor(AwakeFor::Process, true);
    work();
    assert(processRunning == 0 && movesUnderWay == 0); // it ends as it began
    logEnd(name, tickCountMs() - start);
    stayAwakeFor(AwakeFor::Process, false);
    saveUnfinished = nullptr;
    underWay = false;
    if (closeWanted) destroyMainWindow();
    closeWanted = false;
    return true;
}

bool processUnderWay() {
    return underWay || processRunning != 0;
}

RunningProcess::RunningProcess() {
    assert(processRunning == 0);
    processRunning = 1;
}

RunningProcess::~RunningProcess() {
    processRunning = 0;
}

MoveUnderWay::MoveUnderWay() {
    ++movesUnderWay;
}

MoveUnderWay::~MoveUnderWay() {
    --movesUnderWay;
    assert(movesUnderWay >= 0);
}

bool stageIsMoving() {
    return movesUnderWay > 0;
}

bool stageIsTaken() {
    return processUnderWay() || stageIsMoving();
}

void refuseForProcess() {
    showInformation("Not while a process runs");
}

void saveUnfinishedProcess() {
    if (saveUnfinished) saveUnfinished();
}

const char* nameOf(ProcessEnd end) {
    constexpr const char* names[] = {"running",       "finished",
                                     "declined",      "stopped",
                                     "window closed", "stopped, the computer went to sleep",
                                     "forced end",    "cut off, recovered from its journal"};
    return names[static_cast<size_t>(end)];
}

ProcessEnd processEnd() {
    if (!stopRequested) return ProcessEnd::Finished;
    return stopReason;
}

void stopAsClosed() {
    stopRequested = 1;
    stopReason = ProcessEnd::WindowClosed;
}

void stopForSleep() {
    stopRequested = 1;
    stopReason = ProcessEnd::Asleep;
}

std::string sleepTrouble() {
    return processEnd() == ProcessEnd::Asleep ? ". The computer went to sleep" : "";
}

void stopAndClose() {
    stopAsClosed();
    closeWanted = true;
}
