// Keeps and saves the curve of a point measurement.
#include "spectroscopy/sweep_record.h"

#include "instruments/ammeter.h"
#include "instruments/lights.h"
#include "mapping/map_document.h"
#include "mapping/occasion.h"
#include "platform/decimal_point.h"
#include "platform/files.h"
#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/message_box.h"
#include "session/process.h"

#include <algorithm>
#include <utility>

SweepRecord sweepRecord;

void allocateSweep(SweepRecord& record) {
    const auto points = 4 * static_cast<size_t>(record.pointsPerQuarter);
    for (std::vector<float>* values : {&record.xValues, &record.yValues, &record.extraValues})
        if (record.holdsSeries || values->size() != points) values->assign(points, 0.0f);
    record.holdsSeries = false;
}

void showEndMessage(const SweepRecord& record, const char* message) {
    constexpr Colour black = 0;
    const WindowContext plot(record.plotWindow);
    if (plot.context) drawText(plot.context, 15, 45, message, black, false);
}

void Missed::count(const Reading& reading) {
    bias.read(reading);
    readings += !reading.answered;
    overloads += reading.overloaded;
    unlocked += reading.unlocked;
    unsettled += reading.unsettled;
}

void endMeasurement(SweepRecord& record, const char* lastWords, const Missed& missed) {
    noteEnd(record, processEnd());
    Outcome& outcome = record.outcome;
    outcome.lastWords = lastWords;
    for (auto [count, cause] : {std::pair(missed.lights, "No laser board"),
                                {missed.dark, "Laser off"},
                                {missed.readings, "No reading"},
                                {missed.overloads, "Overload"},
                                {missed.unlocked, "Reference unlocked"},
                                {missed.unsettled, "Settings changed"}})
        outcome.doubts.push_back({cause, count, record.currentIndex});
    if (outcome.end == ProcessEnd::Asleep)
        outcome.troubles.emplace_back("The computer went to sleep");
    const std::vector<std::string> ofBias = missed.bias.troubles(); // before it goes
    outcome.troubles.insert(outcome.troubles.end(), ofBias.begin(), ofBias.end());
    if (!applyBias(0.0, static_cast<double>(record.setUp.currentLimit)).accepted())
        outcome.troubles.emplace_back("The bias may still be on");
    if (!outcome.isSound()) showInformation(outcome.words().c_str());
}

namespace {

bool writeCurve(FILE* file, const CurveFile& curve) {
    keepDecimalPoint();
    if (std::fprintf(file, "%s\n", curve.heading.c_str()) < 0) return false;
    size_t points = std::min(static_cast<size_t>(curve.count), curve.xs.size());
    for (const std::vector<float>* column : curve.columns)
        points = std::min(points, column->size());
    const char* const value = curve.columns.size() > 1 ? ",%.7g" : ",%f";
    for (size_t i = 0; i < points; ++i) {
        if (std::fprintf(file, "%f", static_cast<double>(curve.xs[i])) < 0) return false;
        for (const std::vector<float>* column : curve.columns)
            if (std::fprintf(file, value, static_cast<double>((*column)[i])) < 0) return false;
        if (std::fputc('\n', file) == EOF) return false;
    }
    return flushToDisk(file); // the journal goes next
}

std::wstring pathOf(const CurveFile& curve, const std::string& name, const wchar_t* ending) {
    return curve.folders.sessionFolder + L"\\" + widened(name) + ending;
}

constexpr char conditionsWords[] = "the curve's .meta.txt";

bool saveConditions(SweepRecord& record, const CurveFile& curve, const std::string& name) {
    Conditions lines = setUpOf(record.setUp);
    lines.emplace_back("Laser at the start", record.laserWasOn ? "on" : "off");
    lines.emplace_back("Illumination at the start", record.wasIlluminated ? "on" : "off");
    lines.insert(lines.end(), curve.conditions.begin(), curve.conditions.end());
    lines.emplace_back("Outcome", nameOf(record.outcome.end));
    if (record.outcome.end != ProcessEnd::CutOff) {
        lines.emplace_back("Ended", timeText(record.ended));
        lines.emplace_back("Trouble", troubleLine(record.outcome));
    }
    lines.emplace_back("Text file", name + ".txt");
    const std::wstring path = pathOf(curve, name, L".meta.txt");
    if (writeDocument(path, linesOf(lines), L"w")) return true;
    reportUnwritten(path, conditionsWords);
    record.outcome.notWritten.emplace_back(conditionsWords);
    return false;
}

} // namespace

void noteStart(SweepRecord& record) {
    logOccasion(occasion);
    record.setUp = conditionsOf(presentPlan());
    record.laserWasOn = laserIsOn();
    record.wasIlluminated = illuminationIsOn();
    record.outcome = {.end = ProcessEnd::Running};
}

void noteEnd(SweepRecord& record, ProcessEnd end) {
    record.outcome.end = end;
    record.ended = localTime();
}

bool saveCurve(SweepRecord& record, const CurveFile& curve, bool quietly) {
    ensureSessionFolder(curve.folders);
    const std::string name =
        nextFreeName(curve.folders.sessionFolder, curve.kind, curve.number, L".txt");
    const std::wstring path = pathOf(curve, name, L".txt");
    File file = openFile(path, L"w");
    if (logFile(path, file && writeCurve(file.get(), curve))) {
        file.reset();
        return saveConditions(record, curve, name);
    }
    if (std::exchange(file, nullptr)) removeFile(path); // a part of a curve looks like one
    if (!quietly)
        showMessageBox(windows.main, "File saving error", "I-V save Process", BoxButtons::Ok);
    return false;
}
