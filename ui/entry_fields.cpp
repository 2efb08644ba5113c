// What Enter does in the edits of the control column: parse, clamp, apply, write back.
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

constexpr int32_t zLimitUm = 5000;
constexpr double farFocusMoveUm = 2000.0;
constexpr int gainLowest = 1;
constexpr int gainHighest = 36;
constexpr int commandedGainHighest = 20;
constexpr int exposureLowestUs = 100;
constexpr int exposureHighestUs = 500000;

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

void applyCameraSettings() {
    showCameraSettings();
    logEvent(formatted("Camera by hand: gain %d, exposure %.0f us", cameraState.gain,
                       cameraState.exposureUs));
    controlCamera(cameraState, cameraManual);
    grabFrames(cameraState, 1);
}

void takeGain(int highest) {
    if (const std::optional<int> typed = typedInteger(Field::Gain))
        cameraState.gain = std::clamp(*typed, gainLowest, highest);
    applyCameraSettings();
}

} // namespace

void showScanSettings() {
    setField(Field::ScanStep, formatted("%.1f", scanArea.scanStep).c_str());
    setField(Field::LaserIntensity,
             formatted("%.1f", laserLink.laserLevel * setUp.laserUaPerVolt).c_str());
}

void showCameraSettings() {
    setField(Field::Gain, formatted("%d", cameraState.gain).c_str());
    setField(Field::Exposure, formatted("%ld", std::lround(cameraState.exposureUs)).c_str());
}

void enterScanStep() {
    // A running process keeps the grid that its maps are made for.
    if (processUnderWay()) return showScanSettings();
    const double typed = typedNumber(Field::ScanStep).value_or(0.0f);
    scanArea.scanStep = std::clamp(typed, scanStepLowest, scanStepHighest);
    showScanSettings();
    logEvent(formatted("Scan step %.1f um", scanArea.scanStep));
    computeScanArea(scanArea);
    allocateMaps();
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
    const int32_t target = std::clamp(*typed, -zLimitUm, zLimitUm);
    switchLiveView(LiveView::Off);
    if (farFocusMoveAccepted(target)) moveTyped(stageZ, target, setUp.focusSpeed);
}

bool farFocusMoveAccepted(double targetUm) {
    if (targetUm - stageZ.positionUm < farFocusMoveUm) return true;
    // The question would hold the process where it is, with the laser on.
    if (processUnderWay()) return refuseForProcess(), false;
    const std::string question =
        formatted("Are you sure the distance from objective lens to sample greater than %dmm.",
                  truncated(targetUm) / 1000);
    return showMessageBox(windows.main, question.c_str(), "Warning!", BoxButtons::YesNo) ==
           BoxAnswer::Yes;
}

void enterLaserIntensity() {
    // 1 to 20 uA where a volt makes 4.
    const auto highest = static_cast<float>(setUp.laserUaPerVolt * setUp.laserFullScaleVolts);
    if (const std::optional<float> typed = typedNumber(Field::LaserIntensity))
        laserLink.laserLevel = static_cast<double>(std::clamp(*typed, highest / 20.0f, highest)) /
                               setUp.laserUaPerVolt;
    showScanSettings();
    logEvent("Laser intensity " + laserIntensityWords());
    focusMainWindow();
    if (laserIsOn()) setLaserLevel(1);
}

void enterGain() {
    takeGain(gainHighest);
}

void takeCommandedGain() {
    takeGain(commandedGainHighest);
}

void enterExposure() {
    if (const std::optional<int> typed = typedInteger(Field::Exposure))
        cameraState.exposureUs = std::clamp(*typed, exposureLowestUs, exposureHighestUs);
    applyCameraSettings();
}
