// Sets what window and scripts may set.
#include "actions/settings.h"

#include "camera/camera.h"
#include "instruments/ammeter.h"
#include "instruments/bias.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area_view.h"
#include "mapping/scan_map.h"
#include "motion/axis.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/set_up.h"

#include <cmath>
#include <optional>

namespace {

std::string notWithin(const char* what, double lowest, double highest, const char* unit) {
    return formatted("%s %g to %g %s", what, lowest, highest, unit);
}

// The last one of setScanRectangle and where it was laid.
struct {
    StageRectangle rectangle;
    ScanArea area;
} placed;

int32_t pointsAlong(double um, double step) {
    constexpr double rounding = 1e-6; // 0.3 um are three steps of 0.1 um
    return truncated(um / step + rounding) + 1;
}

ScanArea areaOf(const StageRectangle& of, double step) {
    ScanArea area{.scanStep = step, .placed = true, .mapMaxPx = scanArea.mapMaxPx};
    area.cols = pointsAlong(of.width, step);
    area.rows = pointsAlong(of.height, step);
    area.offsetXUm = of.left - stageX.positionUm;
    area.offsetYUm = of.bottom - stageY.positionUm;
    computeScanArea(area);
    return area;
}

} // namespace

bool scanRectangleIsInForce() {
    return scanArea.placed && placed.area.placed && scanArea.cols == placed.area.cols &&
           scanArea.rows == placed.area.rows && scanArea.offsetXUm == placed.area.offsetXUm &&
           scanArea.offsetYUm == placed.area.offsetYUm;
}

std::string setScanStep(double um) {
    if (!(um >= scanStepLowest && um <= scanStepHighest))
        return notWithin("step", scanStepLowest, scanStepHighest, "um");
    if (scanRectangleIsInForce()) {
        const ScanArea area = areaOf(placed.rectangle, um);
        if (area.isTooLarge) return "more than 36 million points, take a larger step";
        scanArea = placed.area = area;
    } else {
        takeStep(scanArea, um);
        computeScanArea(scanArea);
    }
    showScanSettings();
    logEvent(formatted("Scan step %g um", scanArea.scanStep));
    allocateMaps();
    return {};
}

std::string setScanRectangle(const StageRectangle& rectangle) {
    const ScanArea area = areaOf(rectangle, scanArea.scanStep);
    if (area.isTooLarge) return "more than 36 million points, take a larger step";
    placed = {rectangle, area};
    scanArea = area;
    logEvent(
        formatted("Scan area: %d x %d points, step %g um", area.cols, area.rows, area.scanStep));
    allocateMaps();
    showInformation(formatted("%d min. expected", area.estimatedMinutes).c_str());
    return {};
}

StageRectangle scanRectangle() {
    if (scanRectangleIsInForce()) return placed.rectangle;
    if (scanArea.part) {
        const StageVector first = stageFor(scanArea.part->from);
        return {first.x, first.y, scanArea.part->widthUm, scanArea.part->heightUm};
    }
    return {stageX.positionUm + scanArea.offsetXUm, stageY.positionUm + scanArea.offsetYUm,
            (scanArea.cols - 1) * scanArea.scanStep, (scanArea.rows - 1) * scanArea.scanStep};
}

void placeScanRectangle() {
    if (!scanRectangleIsInForce()) return;
    scanArea = placed.area = areaOf(placed.rectangle, scanArea.scanStep);
}

std::string setLaserIntensity(double uA) {
    const double highest = setUp.highestLaserUa(), lowest = setUp.lowestLaserUa();
    if (!(uA >= lowest && uA <= highest)) return notWithin("laser", lowest, highest, "uA");
    laserLink.laserLevel = uA / setUp.laserUaPerVolt;
    showScanSettings();
    logEvent("Laser intensity " + laserIntensityWords());
    if (laserIsOn()) setLaserLevel(1);
    return {};
}

std::string setBias(float volts, float limitAmperes) {
    if (!(std::fabs(static_cast<double>(volts)) <= largestBiasTyped))
        return notWithin("bias", -largestBiasTyped, largestBiasTyped, "V");
    if (!(limitAmperes >= static_cast<float>(smallestLimitTyped) &&
          limitAmperes <= static_cast<float>(largestLimitTyped)))
        return notWithin("limit", smallestLimitTyped, largestLimitTyped, "A");
    const SourceAnswer answer =
        applyBias(static_cast<double>(volts), static_cast<double>(limitAmperes));
    if (!answer.accepted()) {
        showInformation(wordsOf(answer).c_str());
        return wordsOf(answer);
    }
    instrumentLink.biasVoltage = volts;
    instrumentLink.currentLimit = limitAmperes;
    return {};
}

namespace {

std::string applyCamera() {
    showCameraSettings();
    logEvent(formatted("Camera by hand: gain %d, exposure %.0f us", cameraState.gain,
                       cameraState.exposureUs));
    controlCamera(cameraState, cameraManual);
    grabFrames(cameraState, 1);
    return cameraState.connected ? "" : "No camera detected";
}

} // namespace

std::string setGain(int gain) {
    if (gain < gainLowest || gain > gainHighest)
        return notWithin("gain", gainLowest, gainHighest, "dB");
    cameraState.gain = gain;
    return applyCamera();
}

std::string setExposure(double us) {
    if (!(us >= exposureLowestUs && us <= exposureHighestUs))
        return notWithin("exposure", exposureLowestUs, exposureHighestUs, "us");
    cameraState.exposureUs = us;
    return applyCamera();
}

void showScanSettings() {
    setField(Field::ScanStep, formatted("%.1f", scanArea.scanStep).c_str());
    setField(Field::LaserIntensity,
             formatted("%.1f", laserLink.laserLevel * setUp.laserUaPerVolt).c_str());
}

void showCameraSettings() {
    setField(Field::Gain, formatted("%d", cameraState.gain).c_str());
    setField(Field::Exposure, formatted("%ld", std::lround(cameraState.exposureUs)).c_str());
}
