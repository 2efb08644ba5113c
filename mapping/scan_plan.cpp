// Takes a scan's plan from the program's settings, and puts it back.
#include "mapping/scan_plan.h"

#include "camera/camera.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "motion/axis.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>

namespace {

// Waits before a reading at the beginning of a row.
constexpr uint32_t waitAtRowMs = 10;

} // namespace

ScanPlan presentPlan() {
    return {.area = presentArea(),
            .homeXUm = stageX.positionUm,
            .homeYUm = stageY.positionUm,
            .homeZUm = stageZ.positionUm,
            .zeroKnown = stageX.axisNumber != 0 && stageY.axisNumber != 0,
            .zeroXUm = ofController(stageX, 0.0),
            .zeroYUm = ofController(stageY, 0.0),
            .laserLevel = laserLink.laserLevel,
            .laserUaPerVolt = setUp.laserUaPerVolt,
            .laserFullScaleVolts = setUp.laserFullScaleVolts,
            .laserPowerUw = presentLaserPowerUw(),
            .biasVoltage = instrumentLink.biasVoltage,
            .currentLimit = instrumentLink.currentLimit,
            .ammeterKind = instrumentLink.ammeterKind,
            .inVolts = instrumentLink.inVolts,
            .amplifier = amplifierOf(instrumentLink.ammeterKind),
            .settings = instrumentLink.settings,
            .confocal = scanSettings.confocalEnabled != 0,
            .gain = cameraState.gain,
            .exposureUs = cameraState.exposureUs,
            .aperturePx = cameraState.cameraAperture,
            .laserSpot = cameraState.laserOffset,
            .options = scanSettings.options,
            .focus = slopesToFollow(),
            .axisOrder = controllers.axisOrder,
            .rowSettleMs = waitAtRowMs,
            .setUpInForce = setUpWords(setUp),
            .occasion = occasion};
}

uint32_t readingDelayMs(const ScanOptions& options, const InstrumentSettings& settings) {
    const auto least = static_cast<double>(options.beforeReadingMs);
    if (options.settledTenths == 0) return static_cast<uint32_t>(least);
    const double settled = std::ceil(settlingMs(settings, options.settledTenths / 10.0));
    return static_cast<uint32_t>(std::max(least, settled));
}

uint32_t ScanPlan::beforeReadingMs() const {
    return readingDelayMs(options, settings);
}

bool askSettings(ScanPlan& plan) {
    const bool says = askSettings();
    plan.inVolts = instrumentLink.inVolts;
    plan.settings = instrumentLink.settings;
    return says;
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

StageVector lightOf(const ScanPlan& plan) {
    const ScanArea& area = plan.area;
    return lightPlace(area.picture, area.correctionXUm, area.correctionYUm, plan.laserSpot);
}

void noteHome(ScanConditions& conditions) {
    conditions.home = {countOf(stageX, stageX.positionUm), countOf(stageY, stageY.positionUm),
                       lightOf(conditions), presentObjective()};
}

ScanConditions conditionsOf(const ScanPlan& plan) {
    ScanConditions now{plan};
    now.program = "Lumascan " LUMASCAN_VERSION;
    now.started = localTime();
    if (const auto identity = instrumentKind(plan.ammeterKind).identity)
        now.instrumentIdentity = identity();
    now.blueOnly = cameraState.blueOnly != 0;
    noteHome(now);
    return now;
}
