// Waits while the windows stay alive.
#include "session/responsive_wait.h"

#include "platform/clock.h"
#include "platform/messages.h"
#include "platform/tcp_server.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/live_view_timer.h"
#include "session/message_box.h"
#include "session/process.h"

#include <algorithm>
#include <utility>

namespace {

bool asksForStop(const Message& message) {
    // Deliberately broad: any message that carries the Start/Stop button's id, and a click
    // anywhere. What a script sends may carry any number, and is none of the operator's.
    if (isOfTcpServer(message)) return false;
    return (message.wParam & 0xFFFF) == idStart || message.id == messageLeftButtonDown;
}

bool stopConfirmed() {
    return showMessageBox(windows.main, "Do you want to stop process, now ?", "Warning",
                          BoxButtons::YesNo) == BoxAnswer::Yes;
}

// What one message makes of a wait, or that the wait goes on; behind a key that has moved the focus
// and one of a script's connection it looks at the time: a key that is held down, or a script that
// sends without end, does not hold the wait.
constexpr int goOn = -1, lookAtTime = -2;

// A key held down repeats inside the wait of its own move: those repeats are dropped.
void nudgeFocus(double um) {
    static bool nudging = false;
    if (nudging) return;
    nudging = true;
    logEvent(um > 0.0 ? "Key: Z +1 um" : "Key: Z -1 um");
    session.stageHooks.nudgeFocus(um);
    nudging = false;
}

int handleWhileIdle(const Message& message) {
    if (message.id == messageLeftButtonDown) {
        session.stageHooks.stopAll();
        ++session.moveStops;
        return waitInterrupted;
    }
    const bool open = windows.main != nullptr;
    session.moveStopRequested = 0;
    dispatchMessage(message);
    if (std::exchange(session.moveStopRequested, 0) != 0) {
        ++session.moveStops;
        return waitInterrupted;
    }
    if (open && !windows.main) return waitInterrupted; // closed: nobody is there to wait for
    return isOfTcpServer(message) ? lookAtTime : goOn;
}

// The click that the question has held back. Its end went to the question, and is made up for.
void dispatchClick(const Message& message) {
    dispatchMessage(message);
    if (leftButtonIsDown()) return;
    dispatchMessage({message.window, messageLeftButtonUp, 0, message.lParam});
}

int handleWhileProcessRuns(const Message& message) {
    const bool pauses = isMainControl(message.window, idPause); // its click is no wish to stop
    if (!pauses && asksForStop(message) && stopConfirmed()) {
        stopAsAsked(); // whatever was asked for before
        return waitStopped;
    }
    const int32_t stopBefore = session.stopRequested;
    const bool up = message.wParam == keyPageUp, down = message.wParam == keyPageDown;
    const bool nudge = message.id == messageKeyDown && (up || down);
    if (nudge)
        nudgeFocus(up ? 1.0 : -1.0);
    else if (message.id == messageLeftButtonDown && !pauses)
        dispatchClick(message);
    else
        dispatchMessage(message);
    // Closing the window stops the process too; what was asked for earlier has been seen already.
    if (session.stopRequested && !stopBefore) return waitStopped;
    return nudge || isOfTcpServer(message) ? lookAtTime : goOn;
}

int waits = 0; // one inside another

struct CountedWait {
    CountedWait() { ++waits; }
    ~CountedWait() { --waits; }
    CountedWait(const CountedWait&) = delete;
    CountedWait& operator=(const CountedWait&) = delete;
};

} // namespace

bool waitIsUnderWay() {
    return waits > 0;
}

int waitResponsive(uint32_t durationMs) {
    const CountedWait counted;
    const uint64_t start = tickCountMs();
    liveViewTimerOff();
    for (;;) {
        if (tickCountMs() - start >= durationMs) {
            if (!session.processRunning) liveViewTimerOn();
            return waitPassed;
        }
        Message message;
        while (takeMessage(message)) {
            const OperatorActs mayBeAsked;
            const int result =
                session.processRunning ? handleWhileProcessRuns(message) : handleWhileIdle(message);
            if (result == lookAtTime) break;
            if (result != goOn) return result;
        }
        waitForMessage(start + durationMs);
    }
}

int waitResponsiveSince(uint64_t startMs, uint32_t durationMs) {
    const uint64_t now = tickCountMs(), due = startMs + durationMs;
    const uint64_t leftMs = due > now ? due - now : 0; // may begin later than now
    return waitResponsive(
        static_cast<uint32_t>(std::max(leftMs, std::min<uint64_t>(durationMs, 1))));
}
