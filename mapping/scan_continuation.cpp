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

// Whether the instrument is selected and gives a reading. It is opened where it has not been, or
// does not answer: one that is only selected may be switched off.
bool instrumentAnswers(int32_t kind) {
    const auto answers = [kind] {
        const bool open = instrumentLink.opened || !instrumentKind(kind).open;
        return instrumentLink.ammeterKind == kind && open && readPhotocurrent().answered;
    };
    if (answers()) return true;
    connectInstrument(kind);
    return answers();
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
    if (!instrumentAnswers(conditions.ammeterKind))
        return refuse("the scan's instrument does not answer: " +
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
