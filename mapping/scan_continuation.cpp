// Puts the program's settings back to those of a scan.
#include "mapping/scan_continuation.h"

#include "camera/camera.h"
#include "camera/spot.h"
#include "instruments/ammeter.h"
#include "instruments/lights.h"
#include "mapping/scan_options.h"
#include "motion/axis.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/day_log.h"

#include <utility>

namespace {

bool instrumentSelected(int32_t kind) {
    if (instrumentLink.ammeterKind != kind) connectInstrument(kind);
    return instrumentLink.ammeterKind == kind;
}

bool refuse(const std::string& why) {
    showInformation(("Not continued: " + why).c_str());
    logEvent("Not continued: " + why);
    return false;
}

} // namespace

bool takeOverScan(JournaledScan scan) {
    const ScanConditions& conditions = *scan.map.conditions;
    // The rows would lie across those that are there.
    if (axisOrder != conditions.axisOrder)
        return refuse("the axis order is not that of the scan (Configuration)");
    if (!instrumentSelected(conditions.ammeterKind))
        return refuse("the scan's instrument is not connected: " +
                      narrowed(instrumentKind(conditions.ammeterKind).name));
    instrumentLink.biasVoltage = conditions.biasVoltage;
    instrumentLink.currentLimit = conditions.currentLimit;
    laserLevel = conditions.laserLevel;
    laserOffset = conditions.laserSpot;
    cameraState.gain = conditions.gain;
    cameraState.exposureUs = conditions.exposureUs;
    cameraAperture = conditions.aperturePx;
    confocalEnabled = conditions.confocal ? 1 : 0;
    scanOptions = conditions.options;
    scanArea = scan.area;
    scan.map.saveCount = scanMap.saveCount;
    scanMap = std::move(scan.map);
    return true;
}
