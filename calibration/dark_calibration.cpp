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

// What the figures do not say of themselves.
void takeCautions(DarkCalibration& result) {
    const std::vector<double>& values = result.dark.values;
    const auto zeros = static_cast<int>(std::count(values.begin(), values.end(), 0.0));
    const auto warn = [&](const std::string& words) {
        result.caution += (result.caution.empty() ? "" : "; ") + words;
    };
    // The board shows fewer counts than that as 0 V.
    result.hidden = result.kind == kindArduino && setUp.inputDeadCounts > 0 && zeros > 0;
    if (result.hidden)
        warn(formatted("%d readings lie in the dead zone of the board's input, which hides the "
                       "offset",
                       zeros));
    else if (result.dark.deviation == 0.0)
        warn("every reading was the same: the noise is less than the instrument shows");
    if (result.dark.unanswered > 0)
        warn(formatted("%d readings not answered", result.dark.unanswered));
    if (instrumentLink.biasVoltage != 0.0f)
        warn(formatted("at a bias of %.3g V", static_cast<double>(instrumentLink.biasVoltage)));
}

std::string measureDark(BorrowedSetUp& borrowed, int count, DarkCalibration& result) {
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
    if (result.dark.isFound()) takeCautions(result);
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
    return outcome.end == ProcessEnd::Finished && dark.isFound() && !hidden &&
           amplifierOf(kind, any);
}

std::string keep(const DarkCalibration& result) {
    if (!result.canKeep()) return "There is nothing to keep";
    SetUp changed = setUp;
    amplifierOf(result.kind, changed)->offsetVolts = result.dark.mean;
    return keepMeasured(changed);
}
