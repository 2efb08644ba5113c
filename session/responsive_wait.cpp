// Waits while the windows stay alive.
#include "session/responsive_wait.h"

#include "platform/clock.h"
#include "platform/messages.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/live_view_timer.h"
#include "session/message_box.h"
#include "session/process.h"

#include <algorithm>

int32_t stopRequested = 0;
StageHooks stageHooks;

namespace {

bool asksForStop(const Message& message) {
    // Deliberately broad: any message that carries the Start/Stop button's id, and a click
    // anywhere.
    return (message.wParam & 0xFFFF) == idStart || message.id == messageLeftButtonDown;
}

bool stopConfirmed() {
    return showMessageBox(mainWindow, "Do you want to stop process, now ?", "Warning",
                          BoxButtons::YesNo) == BoxAnswer::Yes;
}

// What one message makes of a wait, or that the wait goes on.
constexpr int goOn = -1;

// A key held down repeats inside the wait of its own move: those repeats are dropped.
int nudgeFocus(double um) {
    static bool nudging = false;
    if (nudging) return goOn;
    nudging = true;
    logEvent(um > 0.0 ? "Key: Z +1 um" : "Key: Z -1 um");
    const bool done = stageHooks.nudgeFocus(um);
    nudging = false;
    return done ? int{waitPassed} : goOn;
}

int handleWhileIdle(const Message& message) {
    if (message.id == messageLeftButtonDown) {
        stageHooks.stopAll();
        return waitClicked;
    }
    const bool open = mainWindow != nullptr;
    dispatchMessage(message);
    return open && !mainWindow ? int{waitClicked} : goOn; // closed: nobody is there to wait for
}

// The click that the question has held back. Its end went to the question, and is made up for.
void dispatchClick(const Message& message) {
    dispatchMessage(message);
    if (leftButtonIsDown()) return;
    dispatchMessage({message.window, messageLeftButtonUp, 0, message.lParam});
}

int handleWhileProcessRuns(const Message& message) {
    if (asksForStop(message) && stopConfirmed()) {
        stopRequested = 1;
        return waitStopped;
    }
    if (message.id == messageKeyDown && message.wParam == keyPageUp) return nudgeFocus(1.0);
    if (message.id == messageKeyDown && message.wParam == keyPageDown) return nudgeFocus(-1.0);
    const int32_t stopBefore = stopRequested;
    if (message.id == messageLeftButtonDown)
        dispatchClick(message);
    else
        dispatchMessage(message);
    // Closing the window stops the process too; what was asked for earlier has been seen already.
    return stopRequested && !stopBefore ? int{waitStopped} : goOn;
}

} // namespace

int waitResponsive(uint32_t durationMs) {
    const uint64_t start = tickCountMs();
    liveViewTimerOff();
    for (;;) {
        if (tickCountMs() - start >= durationMs) {
            if (!processRunning) liveViewTimerOn();
            return waitPassed;
        }
        Message message;
        while (takeMessage(message)) {
            const int result =
                processRunning ? handleWhileProcessRuns(message) : handleWhileIdle(message);
            if (result != goOn) return result;
        }
        waitForMessage(start + durationMs);
    }
}

int waitResponsiveSince(uint64_t startMs, uint32_t durationMs) {
    const uint64_t spentMs = tickCountMs() - startMs;
    if (spentMs < durationMs) return waitResponsive(durationMs - static_cast<uint32_t>(spentMs));
    return waitResponsive(std::min<uint32_t>(durationMs, 1));
}
