// Lets one long process run at a time.
#include "app/process.h"

#include "app/responsive_wait.h"
#include "platform/clock.h"
#include "ui/screen.h"

namespace {

bool underWay = false;
bool closeWanted = false;

} // namespace

bool runProcess(void (*work)()) {
    if (underWay) return false;
    underWay = true;
    keepSystemAwake(true);
    work();
    keepSystemAwake(false);
    underWay = false;
    if (closeWanted) destroyMainWindow();
    closeWanted = false;
    return true;
}

bool processUnderWay() {
    return underWay;
}

void stopAndClose() {
    stopRequested = 1;
    closeWanted = true;
}
