// Dark value: readings without light.
#include "calibration/calibrations.h"
#include "calibration/keep.h"
#include "instruments/ammeter.h"
#include "instruments/lights.h"
#include "platform/text_format.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr char processName[] = "Calibration of the dark value";
constexpr uint32_t darkenMs = 2000, betweenReadingsMs = 20;

CurrentAmplifier* amplifierOf(int32_t kind, SetUp& of) {
    if (kind == kindArduino) return &of.boardAmplifier;
    return kind == kindOscilloscope ? &of.scopeAmplifier : nullptr;
}

std::string measureDark(const BorrowedSetUp& borrowed, int count, DarkCalibration& result) {
    borrowed.light(Lights::Dark);
    if (std::string left = lightLeftOn(); !left.empty()) return left;
    borrowed.tell("Waiting in the dark", 0, count);
    if (!waitUnlessStopped(darkenMs)) return {}; // what the light has made decays
    std::vector<Reading> readings;
    for (int i = 0; i < count; ++i) {
        borrowed.tell(formatted("Reading %d of %d", i + 1, count), i, count);
        readings.push_back(readPhotocurrent());
        if (!waitUnlessStopped(betweenReadingsMs)) return {};
    }
    result.dark = darkValueOf(readings);
    if (result.dark.isFound() && result.dark.mean == 0.0 && result.dark.deviation == 0.0)
        result.caution = "every reading was 0: the instrument does not show what is less";
    if (result.dark.unanswered > 0)
        result.caution = formatted("%d readings not answered", result.dark.unanswered);
    return result.dark.refusal;
}

Outcome measure(const CalibrationProgress& progress, int count, DarkCalibration& result) {
    BorrowedSetUp borrowed(progress);
    result.kind = instrumentLink.ammeterKind;
    result.unit = mainChannel().unit->name;
    const std::string endedBy = measureDark(borrowed, count, result);
    Outcome outcome = calibrationOutcome(processName, endedBy);
    borrowed.giveBack(outcome);
    return outcome;
}

} // namespace

DarkCalibration calibrateDark(const CalibrationProgress& progress, int readings) {
    DarkCalibration result;
    result.dark.refusal = "Not measured";
    result.outcome = runCalibration(
        processName, [&] { return measure(progress, std::max(readings, 1), result); });
    return result;
}

std::string DarkCalibration::words() const {
    if (outcome.end != ProcessEnd::Finished || !dark.isFound()) return outcome.words();
    std::string text = formatted(
        "Dark value %.4g %s (+- %.2g), noise %.3g, smallest value worth mapping %.3g (%d readings)",
        dark.mean, unit.c_str(), dark.standardError, dark.deviation, dark.smallestWorthMapping(),
        dark.readings);
    if (!caution.empty()) text += "; " + caution;
    return text + outcome.trouble();
}

bool DarkCalibration::canKeep() const {
    SetUp any;
    return outcome.end == ProcessEnd::Finished && dark.isFound() && amplifierOf(kind, any);
}

std::string keep(const DarkCalibration& result) {
    if (!result.canKeep()) return "There is nothing to keep";
    SetUp changed = setUp;
    amplifierOf(result.kind, changed)->offsetVolts = result.dark.mean;
    return keepMeasured(changed);
}
