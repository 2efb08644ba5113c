// Takes a scan's plan from the program's settings, and puts it back.
#include "mapping/scan_plan.h"

#include "camera/camera.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "motion/axis.h"

namespace {

// Waits before a reading at the beginning of a row.
constexpr uint32_t waitAtRowMs = 10;

} // namespace

ScanPlan presentPlan() {
    return {.area = scanArea,
            .homeXUm = stageX.positionUm,
            .homeYUm = stageY.positionUm,
            .homeZUm = stageZ.positionUm,
            .laserLevel = laserLink.laserLevel,
            .biasVoltage = instrumentLink.biasVoltage,
            .currentLimit = instrumentLink.currentLimit,
            .ammeterKind = instrumentLink.ammeterKind,
            .confocal = scanSettings.confocalEnabled != 0,
            .gain = cameraState.gain,
            .exposureUs = cameraState.exposureUs,
            .aperturePx = cameraState.cameraAperture,
            .laserSpot = cameraState.laserOffset,
            .options = scanSettings.options,
            .axisOrder = controllers.axisOrder,
            .rowSettleMs = waitAtRowMs};
}

void putInForce(const ScanPlan& plan) {
    instrumentLink.biasVoltage = plan.biasVoltage;
    instrumentLink.currentLimit = plan.currentLimit;
    laserLink.laserLevel = plan.laserLevel;
    cameraState.laserOffset = plan.laserSpot;
    cameraState.gain = plan.gain;
    cameraState.exposureUs = plan.exposureUs;
    cameraState.cameraAperture = plan.aperturePx;
    scanSettings.confocalEnabled = plan.confocal ? 1 : 0;
    scanSettings.options = plan.options;
    scanArea = plan.area;
}

ScanConditions conditionsOf(const ScanPlan& plan) {
    ScanConditions now{plan};
    now.program = "Lumascan " LUMASCAN_VERSION;
    now.started = localTime();
    if (const auto identity = instrumentKind(plan.ammeterKind).identity)
        now.instrumentIdentity = identity();
    now.blueOnly = cameraState.blueOnly != 0;
    return now;
}
