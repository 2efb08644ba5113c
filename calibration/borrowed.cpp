// Borrows lights, exposure and the stage's place.
#include "calibration/borrowed.h"

#include "camera/live_view.h"
#include "instruments/lights.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/live_view_timer.h"
#include "session/process.h"
#include "session/responsive_wait.h"

#include <cmath>
#include <numeric>
#include <utility>

BorrowedSetUp::BorrowedSetUp(CalibrationProgress tellProgress)
    : progress(std::move(tellProgress)), laserWasOn(laserIsOn()), lampWasOn(illuminationIsOn()),
      adjustment(adjustmentOf(cameraState)) {}

void BorrowedSetUp::light(Lights lights) {
    if (laserIsOthers()) lights = lights == Lights::Laser ? Lights::Dark : lights;
    // What is to be dark first.
    if (lights != Lights::Laser) setLaserLevel(0);
    if (lights != Lights::Lamp) setLaserOutput(0);
    if (lights == Lights::Laser && !laserIsOthers()) setLaserLevel(1);
    if (lights == Lights::Lamp) setLaserOutput(1);
    laserByUs = laserIsOn();
}

// Somebody else has switched it meanwhile: the operator, or the board's interlock.
bool BorrowedSetUp::laserIsOthers() const {
    return laserIsOn() != laserByUs || !whyLaserIsDark().empty();
}

bool BorrowedSetUp::letExposureSettle() const {
    if (adjustment.automaticGain || adjustment.automaticExposure) {
        constexpr int mostFrames = 40, steadyFrames = 3;
        double last = -1.0;
        for (int i = 0, steady = 0; i < mostFrames && steady < steadyFrames; ++i) {
            const GreyPicture picture = takePicture();
            if (picture.at.empty()) return true; // whoever takes the next one says so
            const double mean = std::accumulate(picture.at.begin(), picture.at.end(), 0.0) /
                                static_cast<double>(picture.at.size());
            steady = std::fabs(mean - last) < 0.01 * mean + 0.1 ? steady + 1 : 0;
            last = mean;
            if (!waitUnlessStopped(50)) return false;
        }
    }
    if (const double us = adjustmentOf(cameraState).exposureUs; us > 0.0)
        holdExposure(cameraState, us);
    return waitUnlessStopped(1);
}

void BorrowedSetUp::stageWillMove(double runInUm) {
    x = stageX.positionUm;
    y = stageY.positionUm;
    runIn = runInUm;
    stageMoves = true;
}

void BorrowedSetUp::tell(const std::string& words, int done, int of) const {
    showInformation(words.c_str());
    if (progress) progress(words, done, of);
}

// Coming from below it stands where it stood also by its play, if it had come so.
bool BorrowedSetUp::goBack() {
    const bool out = axisIsOut(stageX) || axisIsOut(stageY);
    ranIn = out || session.stopRequested || moveXYTo(x - runIn, y - runIn, motorSpeed);
    return moveXYTo(x, y, motorSpeed);
}

void BorrowedSetUp::giveBack(Outcome& outcome) {
    // Nobody may be there, or he has a hand at the sample by the time the computer wakes.
    const bool asleep = outcome.end == ProcessEnd::Asleep;
    const bool relights = laserWasOn && outcome.end == ProcessEnd::Finished && !laserIsOthers();
    setLaserOutput(lampWasOn && !asleep ? 1 : 0);
    setLaserLevel(relights ? 1 : 0);
    if (!::giveBack(cameraState, adjustment))
        outcome.troubles.emplace_back("The camera did not take its exposure back");
    if (stageMoves && asleep) outcome.troubles.emplace_back("The stage stayed where it was");
    if (!stageMoves || asleep) return;
    const bool back = goBack();
    refreshPositions();
    if (back && !ranIn)
        outcome.troubles.emplace_back("The stage came back without its run-in, by its play it may "
                                      "stand beside");
    if (back) return;
    std::string words = "The stage did not come back";
    for (const StageAxis* axis : {&stageX, &stageY})
        if (axis->missed != Miss::Nothing) words += ", " + missedText(*axis);
    outcome.troubles.push_back(words);
}

bool waitUnlessStopped(uint32_t ms) {
    waitResponsive(ms);
    return !session.stopRequested;
}

Outcome runCalibration(const char* name, const std::function<Outcome()>& work) {
    const auto process = [&] {
        const bool wasLive = liveViewIsOn();
        switchLiveView(LiveView::Off);
        session.stopRequested = 0;
        Outcome outcome;
        {
            const RunningProcess running;
            outcome = work();
        }
        if (windows.main && wasLive) switchLiveView(LiveView::On);
        showInformation(outcome.words().c_str());
        return outcome;
    };
    if (const std::optional<Outcome> outcome = runProcess(name, process)) return *outcome;
    refuseForProcess();
    return {.end = ProcessEnd::Declined, .lastWords = "Not while a process runs"};
}

Outcome calibrationOutcome(const std::string& name, const std::string& endedBy) {
    Outcome outcome{.end = processEnd(), .lastWords = name + " finished"};
    if (outcome.end != ProcessEnd::Finished)
        outcome.lastWords = name + " stopped";
    else if (!endedBy.empty())
        outcome.lastWords = name + " failed";
    if (outcome.end == ProcessEnd::Finished) outcome.endedBy = endedBy;
    return outcome;
}

GreyPicture takePicture() {
    grabAndDraw();
    if (!cameraState.fresh || !cameraImage.pixels) return {};
    return greyPicture(cameraImage.pixels.get(), imageWidth, seenPart());
}

PicturePart seenPart() {
    const PictureArea& seen = cameraImage.seen;
    return {seen.left, seen.bottom, seen.width, seen.height};
}
