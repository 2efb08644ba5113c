// Switches the timer of the live camera view.
#include "session/live_view_timer.h"

#include "screen/control_ids.h"
#include "screen/screen.h"

namespace {

bool live = false;

} // namespace

void liveViewTimerOn() {
    checkRadio(idLiveOn, idLiveOff, idLiveOn);
    startTimer(Timer::LiveView, liveViewPeriodMs);
    live = true;
}

void liveViewTimerOff() {
    stopTimer(Timer::LiveView);
    checkRadio(idLiveOn, idLiveOff, idLiveOff);
    live = false;
}

bool liveViewIsOn() {
    return live;
}
