// Drives the live camera view.
#include "camera/live_view.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "camera/spot.h"
#include "camera/wide_view.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "platform/clock.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/live_view_timer.h"
#include "session/process.h"
#include "session/responsive_wait.h"

#include <algorithm>

LiveViewState liveViewState;

namespace {

constexpr int idleLimitTicks = 500; // 50 s without input

// A search may hold the window for seconds. At most a tenth of the time goes into those that nobody
// has asked for.
constexpr uint64_t searchPauseFactor = 10;
constexpr uint64_t searchPauseLeastMs = 2000;

bool cameraWantsConnecting() {
    return !cameraState.connected || cameraState.needsInit;
}

void rememberSearch(uint64_t beganMs) {
    cameraState.searchedMs = tickCountMs();
    cameraState.searchTookMs = cameraState.searchedMs - beganMs;
}

bool searchIsDue() {
    const uint64_t pauseMs =
        std::max(searchPauseFactor * cameraState.searchTookMs, searchPauseLeastMs);
    return cameraWantsConnecting() && tickCountMs() - cameraState.searchedMs >= pauseMs;
}

void switchEverythingOff() {
    switchLiveView(LiveView::Off);
    releaseCamera(cameraState);
    setLaserLevel(0);
    setLaserOutput(0);
}

void showSpot() {
    const Colour colour = sampleSpotColour(cameraState.laserOffset, cameraState.cameraAperture);
    showSpotColour(colour);
    const double mean = (redOf(colour) + greenOf(colour) + blueOf(colour)) / 3.0;
    setField(Field::MeasuredValue, formatted("%.3f", mean).c_str());
}

} // namespace

void connectCamera() {
    const uint64_t beganMs = tickCountMs();
    if (initCamera(cameraState)) controlCamera(cameraState, cameraAutomatic);
    rememberSearch(beganMs);
}

void connectMissingCamera() {
    if (cameraWantsConnecting()) connectCamera();
}

void grabAndDraw() {
    leaveWideView(); // what is on the screen decides what a click means
    grabFrames(cameraState, 1);
    drawCameraFrame(cameraImage.pixels.get(), 0);
    ++liveViewState.framesShown;
    liveViewState.onFreshFrame();
}

void leaveStaleWideView() {
    if (display.wideView && !processUnderWay() && wideViewIsElsewhere()) grabAndDraw();
}

void switchLiveView(LiveView to) {
    if (to == LiveView::AsBefore)
        to = liveViewState.wasOn ? LiveView::On : LiveView::Off;
    else if (to != LiveView::FreshFrame)
        liveViewState.wasOn = liveViewIsOn();
    if (to == LiveView::On) {
        leaveWideView();
        if (searchIsDue()) connectCamera();
        liveViewState.onStart();
        liveViewTimerOn();
        return;
    }
    liveViewTimerOff();
    if (to != LiveView::FreshFrame) return;
    if (display.wideView)
        drawWideView();
    else
        grabAndDraw();
}

void resetIdle() {
    liveViewState.idleTicks = 0;
    liveViewState.noticeStands = false;
}

void liveViewTick() {
    if (!liveViewIsOn()) return; // a tick that was waiting when the timer was stopped
    const uint64_t beganMs = tickCountMs();
    const bool searched = liveViewState.idleTicks == 0 && searchIsDue();
    if (searched) connectCamera();
    if (++liveViewState.idleTicks == idleLimitTicks) {
        switchEverythingOff();
        return;
    }
    if (session.processRunning || display.wideView) return;
    grabAndDraw();
    // One that connects and then gives no frame has cost as much as one that is not there.
    if (searched && !cameraState.connected) rememberSearch(beganMs);
    showSpot();
    setField(Field::Time, formatted("idle:%d", liveViewState.idleTicks).c_str());
}
