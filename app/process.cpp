// Lets one long process run at a time.
#include "app/process.h"

#include "app/responsive_wait.h"
#include "motion/stage.h"
#include "platform/clock.h"
#include "ui/screen.h"

namespace {

bool underWay = false;
void (*saveUnfinished)() = nullptr;
bool closeWanted = false;

} // namespace

bool runProcess(void (*work)(), void (*saveQuietly)()) {
    if (stageIsTaken()) return false;
    underWay = true;
    saveUnfinished = saveQuietly;
    keepSystemAwake(true);
    work();
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

bool stageIsTaken() {
    return processUnderWay() || stageIsMoving();
}

void sayNotInProcess() {
    showInformation("Not while a process runs");
}

void saveUnfinishedProcess() {
    if (saveUnfinished) saveUnfinished();
}

void stopAndClose() {
    stopRequested = 1;
    closeWanted = true;
}
