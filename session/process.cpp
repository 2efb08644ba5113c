// Lets one long process run at a time.
#include "session/process.h"

#include "platform/clock.h"
#include "screen/screen.h"
#include "session/responsive_wait.h"

#include <cassert>

int32_t processRunning = 0;

namespace {

bool underWay = false;
void (*saveUnfinished)() = nullptr;
bool closeWanted = false;
int movesUnderWay = 0;

} // namespace

bool runProcess(void (*work)(), void (*saveQuietly)()) {
    if (stageIsTaken()) return false;
    underWay = true;
    saveUnfinished = saveQuietly;
    keepSystemAwake(true);
    work();
    assert(processRunning == 0 && movesUnderWay == 0); // it ends as it began
    keepSystemAwake(false);
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

void stopAndClose() {
    stopRequested = 1;
    closeWanted = true;
}
