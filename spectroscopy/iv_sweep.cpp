// Sweeps the bias and reads the current.
#include "spectroscopy/iv_sweep.h"

#include "instruments/ammeter.h"
#include "instruments/usb_sourcemeter.h"
#include "mapping/map_document.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "screen/screen.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "spectroscopy/curve_plot.h"
#include "spectroscopy/sweep_journal.h"
#include "spectroscopy/sweep_record.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr auto rangeLowest = static_cast<float>(sweepRangeLowest);
constexpr auto rangeHighest = static_cast<float>(sweepRangeHighest);
constexpr float stepWithoutRange = 0.01f; // V, when the typed range is no number
constexpr uint32_t settleMs = 10;         // between bias and reading

// What was typed last, without a number in the edit.
SweepPlan planFromEdit(SweepRecord& record) {
    const std::optional<float> typed = typedNumber(windowText(record.valueEdit, editCapacity));
    if (!typed) return {record.voltageRange, stepWithoutRange, record.pointsPerQuarter};
    const float range = std::clamp(*typed, rangeLowest, rangeHighest);
    setWindowText(record.valueEdit, formatted("%.2f", static_cast<double>(range)).c_str());
    return {range, range / static_cast<float>(record.pointsPerQuarter), record.pointsPerQuarter};
}

float voltageAt(const SweepPlan& plan, int32_t index) {
    const int32_t quarter = plan.pointsPerQuarter;
    const auto steps = [&](int32_t count) { return static_cast<float>(count) * plan.stepVolts; };
    if (index < quarter) return steps(index);
    if (index < 3 * quarter) return plan.rangeVolts - steps(index - quarter);
    return -plan.rangeVolts + steps(index - 3 * quarter);
}

// False when a stop was asked for.
bool measurePoint(SweepRecord& record, float voltage, Missed& missed) {
    const auto i = static_cast<size_t>(record.currentIndex);
    record.xValues[i] = voltage;
    const auto volts = static_cast<double>(voltage);
    missed.bias.told(volts, stepBias(volts, static_cast<double>(record.setUp.currentLimit)));
    waitResponsive(settleMs);
    if (session.stopRequested) return false;
    const Reading reading = readInstrument(instrumentKind(kindUsbSourcemeter));
    missed.count(reading);
    record.yValues[i] = reading;
    journalSample(voltage, record.yValues[i]);
    formatInto(record.text, "V=%f,I=%f", static_cast<double>(voltage),
               static_cast<double>(record.yValues[i]));
    showInformation(record.text);
    return true;
}

void plot(const SweepRecord& record, int32_t points) {
    plotCurve(record.plotWindow, record.xValues.data(), record.yValues.data(), 0, points);
}

} // namespace

Outcome runSweep(const SweepPlan& plan) {
    SweepRecord& record = sweepRecord;
    record.voltageRange = plan.rangeVolts;
    record.voltageStep = plan.stepVolts;
    record.pointsPerQuarter = plan.pointsPerQuarter;
    allocateSweep(record); // a time evolution leaves arrays of its own length
    const int32_t points = 4 * plan.pointsPerQuarter;
    Missed missed;
    session.stopRequested = 0;
    const RunningProcess running;
    noteStart(record);
    usbSourcemeterBeginAnew();
    beginSweepJournal(record);
    for (record.currentIndex = 0; record.currentIndex < points; ++record.currentIndex) {
        if (!measurePoint(record, voltageAt(plan, record.currentIndex), missed)) break;
        if (record.currentIndex % 2 == 1) plot(record, record.currentIndex + 1);
    }
    if (!session.stopRequested) plot(record, points);
    endMeasurement(record, "I-V curve measurement finished", missed);
    showEndMessage(record, "I-V curve measurement finished.        ");
    return record.outcome;
}

void measureIvCurve() {
    runSweep(planFromEdit(sweepRecord));
}

namespace {

bool save(SweepRecord& record, int32_t& number, bool quietly, DataFolders& folders = dataFolders) {
    const int32_t points = 4 * record.pointsPerQuarter;
    const auto volts = [](float value) { return quantity(static_cast<double>(value), "V"); };
    return saveCurve(record,
                     {"I-V",
                      number,
                      "V(V), I(uA)",
                      record.xValues,
                      {&record.yValues},
                      points,
                      {{"Current read from", "USB Sourcemeter"},
                       {"Voltage range", volts(record.voltageRange) + " to either side of 0"},
                       {"Voltage step", volts(record.voltageStep)},
                       {"Settle time of a point", formatted("%u ms", settleMs)},
                       {"Points", formatted("%d", points)},
                       {"Points measured", formatted("%d, the first lines", record.currentIndex)},
                       {"Units of the text file", "V, uA"}},
                      folders},
                     quietly);
}

} // namespace

bool saveIvCurve(bool quietly) {
    SweepRecord& record = sweepRecord;
    if (quietly && record.outcome.end == ProcessEnd::Running) noteEnd(record, ProcessEnd::Forced);
    return endSweepJournal(record, save(record, record.sweepsSaved, quietly));
}

bool saveRecoveredIvCurve(SweepRecord& record, DataFolders& folders) {
    int32_t number = 0; // the first that is free
    return save(record, number, false, folders);
}
