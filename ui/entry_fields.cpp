// What Enter does in the edits of the control column: parse, clamp, apply, write back.
#include "actions/measurements.h"
#include "actions/settings.h"
#include "camera/camera.h"
#include "camera/live_view.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/message_box.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"
#include "ui/commands.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

constexpr int commandedGainHighest = 20;

std::optional<int> typedInteger(Field field) {
    return ::typedInteger(fieldText(field, editCapacity));
}

std::optional<float> typedNumber(Field field) {
    return ::typedNumber(fieldText(field, editCapacity));
}

// While a typed move is under way its edit shows where the stage is: Enter would send it there.
bool typedMoveUnderWay = false;

void moveTyped(StageAxis& axis, int32_t targetUm, int32_t speed) {
    typedMoveUnderWay = true;
    setSpeed(axis, speed);
    waitResponsive(50);
    moveTo(axis, targetUm);
    typedMoveUnderWay = false;
    if (!windows.main) return;
    switchLiveView(LiveView::On);
    readPosition(axis);
    refreshPositions();
}

void enterXyPosition(Field field, StageAxis& axis) {
    const std::optional<int> typed = typedInteger(field);
    if (scanMovesTheStage()) {
        refreshPositions(); // over what was typed
        return refuseForScan();
    }
    if (!typed || typedMoveUnderWay || stageIsMoving()) return;
    switchLiveView(LiveView::Off);
    moveTyped(axis, std::clamp(*typed, -xyLimitUm, xyLimitUm), speedOf(axis, motorSpeed));
}

void takeGain(int highest) {
    setGain(std::clamp(typedInteger(Field::Gain).value_or(cameraState.gain), gainLowest, highest));
}

} // namespace

void enterScanStep() {
    // A running process keeps the grid that its maps are made for.
    if (processUnderWay()) return showScanSettings();
    const double typed = typedNumber(Field::ScanStep).value_or(0.0f);
    setScanStep(std::clamp(typed, scanStepLowest, scanStepHighest));
    focusMainWindow();
}

void enterPositionX() {
    enterXyPosition(Field::PositionX, stageX);
}

void enterPositionY() {
    enterXyPosition(Field::PositionY, stageY);
}

void enterPositionZ() {
    const std::optional<int> typed = typedInteger(Field::PositionZ);
    if (!typed || typedMoveUnderWay || stageIsMoving()) return;
    if (!mayMoveByHand(stageZ)) return;
    const int32_t target = std::clamp(*typed, -zLimitUm, zLimitUm);
    switchLiveView(LiveView::Off);
    if (farFocusMoveAccepted(target)) moveTyped(stageZ, target, setUp.focusSpeed);
}

bool farFocusMoveAccepted(double targetUm) {
    const std::string question = farFocusQuestion(targetUm);
    if (question.empty()) return true;
    // The question would hold the process where it is, with the laser on.
    if (processUnderWay()) return refuseForProcess(), false;
    return showMessageBox(windows.main, question.c_str(), "Warning!", BoxButtons::YesNo) ==
           BoxAnswer::Yes;
}

void enterLaserIntensity() {
    // 1 to 20 uA where a volt makes 4.
    const std::optional<float> typed = typedNumber(Field::LaserIntensity);
    if (typed)
        setLaserIntensity(
            std::clamp(static_cast<double>(*typed), setUp.lowestLaserUa(), setUp.highestLaserUa()));
    showScanSettings();
    focusMainWindow();
}

void enterGain() {
    takeGain(gainHighest);
}

void takeCommandedGain() {
    takeGain(commandedGainHighest);
}

void enterExposure() {
    const std::optional<int> typed = typedInteger(Field::Exposure);
    setExposure(
        std::clamp(typed ? *typed : cameraState.exposureUs, exposureLowestUs, exposureHighestUs));
}
