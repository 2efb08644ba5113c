// Records the photocurrent over cycles of laser on and laser off.
#include "spectroscopy/time_evolution.h"

#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/map_document.h"
#include "mapping/map_planes.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "platform/typed_number.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/stopwatch.h"
#include "spectroscopy/curve_plot.h"
#include "spectroscopy/sweep_journal.h"
#include "spectroscopy/sweep_record.h"

#include <algorithm>
#include <new>
#include <span>
#include <string>

namespace {

constexpr double samplesPerSecond = 20; // what the arrays are made for
constexpr int samplesPerPlot = 10;
constexpr uint32_t settleMs = 10; // after each sample

float secondsIn(WindowHandle edit, float before) {
    const std::optional<int> typed = typedInteger(windowText(edit, editCapacity));
    if (!typed) return before;
    const auto seconds = static_cast<float>(std::clamp(*typed, 0, longestPhaseSeconds));
    setWindowText(edit, formatted("%f", static_cast<double>(seconds)).c_str());
    return seconds;
}

// What was used last where an edit holds no number.
SeriesPlan planFromEdits(const SweepRecord& record) {
    SeriesPlan plan{secondsIn(record.valueEdit, record.onTime),
                    secondsIn(record.offTimeEdit, record.offTime), record.repeatCount};
    const std::optional<int> typed = typedInteger(windowText(record.repeatEdit, editCapacity));
    if (!typed) return plan;
    plan.repeats = std::clamp(*typed, 0, mostLightCycles);
    setWindowText(record.repeatEdit, formatted("%d", plan.repeats).c_str());
    return plan;
}

double cycleSeconds(const SeriesPlan& plan) {
    return truncated(static_cast<double>(plan.onSeconds)) + static_cast<double>(plan.offSeconds);
}

// False when the system has no memory for so long a series.
bool allocateSeries(SweepRecord& record, const SeriesPlan& plan) {
    const auto samples =
        static_cast<size_t>(truncated(plan.repeats * cycleSeconds(plan) * samplesPerSecond));
    try {
        for (std::vector<float>* values : {&record.extraValues, &record.yValues}) {
            *values = {};
            values->assign(samples, 0.0f);
        }
        record.channelValues = emptyChannels(presentPlan());
        for (std::vector<float>& values : record.channelValues) values.reserve(samples);
    } catch (const std::bad_alloc&) {
        record.extraValues = record.yValues = {};
        record.channelValues = {};
        return false;
    }
    record.holdsSeries = true;
    return true;
}

void plot(const SweepRecord& record) {
    plotCurve(record.plotWindow, record.extraValues.data(), record.yValues.data(), 0,
              record.currentIndex);
}

enum class Phase { Lit, Dark };

// The samples of one phase. False when the series is over: stopped, or the arrays are full.
bool recordPhase(SweepRecord& record, Phase phase, float seconds, int32_t mostSamples,
                 uint64_t& offsetMs, Missed& missed) {
    for (int32_t sample = 0; sample < mostSamples; ++sample) {
        const auto i = static_cast<size_t>(record.currentIndex);
        if (i >= record.yValues.size()) return false;
        const Reading reading = readPhotocurrent();
        record.yValues[i] = reading.values[mainChannelOf(record.setUp)];
        const uint64_t ms = elapsedMs(false);
        record.extraValues[i] = static_cast<float>(static_cast<double>(ms + offsetMs) / 1000.0);
        waitResponsive(settleMs);
        if (session.stopRequested)
            return false; // this sample's time is not over, it does not count
        ++record.currentIndex;
        const std::span<const float> further(reading.values.data(), record.channelValues.size());
        for (size_t c = 0; c < further.size(); ++c) record.channelValues[c].push_back(further[c]);
        journalSample(record.extraValues[i], record.yValues[i], further);
        missed.count(reading);
        const bool auxCounts = record.setUp.options.auxChannel && !reading.overloaded;
        if (auxCounts && reading.auxAtLimit) ++missed.overloads;
        // As instrument it would not have answered.
        if (!selectedInstrument().overTheBoard && !laserLinkStands(laserLink)) ++missed.lights;
        if (phase == Phase::Lit && !laserIsOn()) ++missed.dark;
        if (static_cast<double>(ms) >= static_cast<double>(seconds) * 1000.0) {
            offsetMs += ms;
            return true;
        }
        if (record.currentIndex % samplesPerPlot == 0) plot(record);
    }
    return true; // the record is full: no time follows that this would offset
}

void recordCycles(SweepRecord& record, const SeriesPlan& plan, Missed& missed) {
    const int32_t most = truncated(cycleSeconds(plan) * samplesPerSecond);
    uint64_t offsetMs = 0;
    for (int32_t cycle = 0; cycle < plan.repeats; ++cycle) {
        elapsedMs(true);
        setLaserLevel(1);
        if (!recordPhase(record, Phase::Lit, plan.onSeconds, most, offsetMs, missed)) break;
        elapsedMs(true);
        setLaserLevel(0);
        if (!recordPhase(record, Phase::Dark, plan.offSeconds, most, offsetMs, missed)) break;
    }
    setLaserLevel(0);
}

// Whether somebody has set the instrument otherwise meanwhile.
void lookAtSettings(SweepRecord& record) {
    const InstrumentSettings& before = record.setUp.settings;
    if (before.kept.empty() || processEnd() == ProcessEnd::Asleep) return;
    std::vector<std::string>& troubles = record.outcome.troubles;
    if (!askSettings())
        troubles.emplace_back("The instrument did not say at the end what is set at it");
    else if (instrumentLink.settings.kept != before.kept)
        troubles.push_back("Settings changed: " +
                           settingsDifference(before.kept, instrumentLink.settings.kept));
}

} // namespace

std::vector<std::vector<float>> emptyChannels(const ScanPlan& plan) {
    const size_t count = channelsOf(plan.ammeterKind, plan.inVolts).size();
    return std::vector<std::vector<float>>(count > 1 ? count : 0);
}

Outcome runSeries(const SeriesPlan& plan) {
    SweepRecord& record = sweepRecord;
    record.onTime = plan.onSeconds;
    record.offTime = plan.offSeconds;
    record.repeatCount = plan.repeats;
    record.currentIndex = 0;
    if (!allocateSeries(record, plan)) {
        record.outcome = {.end = ProcessEnd::Declined,
                          .lastWords = "Not enough memory for so long a series"};
        showInformation(record.outcome.words().c_str());
        return record.outcome;
    }
    session.stopRequested = 0;
    const RunningProcess running;
    const bool saysWhatIsSet = askSettings();
    noteStart(record);
    if (!saysWhatIsSet)
        record.outcome.troubles.emplace_back("The instrument did not say what is set at it");
    else if (!record.setUp.settings.warning.empty())
        record.outcome.troubles.push_back(record.setUp.settings.warning);
    if (!record.setUp.settings.words.empty())
        logEvent("Instrument: " + record.setUp.settings.words);
    beginSweepJournal(record);
    showEndMessage(record, "Time Evolution Measurement has started.   ");
    // A source that is off gives the meter nothing to read.
    const auto volts = static_cast<double>(record.setUp.biasVoltage);
    Missed missed;
    missed.bias.told(volts, applyBias(volts, static_cast<double>(record.setUp.currentLimit)));
    // What it has noticed so far is no sample's.
    if (selectedInstrument().beginPoint) selectedInstrument().beginPoint();
    recordCycles(record, plan, missed);
    lookAtSettings(record);
    endMeasurement(record, "Time Evolution Measurement has completed", missed);
    showEndMessage(record, "Time Evolution Measurement has completed.        ");
    return record.outcome;
}

bool measureTimeEvolution() {
    return runSeries(planFromEdits(sweepRecord)).end != ProcessEnd::Declined;
}

namespace {

// The columns of its file: the components, what follows from them, and what was wished for.
struct Columns {
    std::string heading = "Time(sec)", units = "s";
    std::vector<const std::vector<float>*> values;
};

Columns columnsOf(const SweepRecord& record) {
    const std::span<const Channel> channels =
        channelsOf(record.setUp.ammeterKind, record.setUp.inVolts);
    if (record.channelValues.empty())
        return {"Time(sec), I(uA)",
                std::string("s, ") + channels.front().unit->name,
                {&record.yValues}};
    std::vector<size_t> order;
    const auto add = [&](bool averaged, bool onWish) {
        for (size_t i = 0; i < channels.size(); ++i)
            if (channels[i].averaged == averaged && channels[i].onWish == onWish)
                order.push_back(i);
    };
    add(true, false);
    add(false, false);
    if (record.setUp.options.auxChannel) add(true, true);
    Columns columns;
    for (size_t i : order) {
        const Channel& channel = channels[i];
        columns.heading += formatted(", %s(%s)", channel.name, channel.unit->name);
        columns.units += std::string(", ") + channel.unit->name;
        columns.values.push_back(&record.channelValues[i]);
    }
    return columns;
}

bool save(SweepRecord& record, int32_t& number, bool quietly, DataFolders& folders = dataFolders) {
    const auto seconds = [](float value) { return quantity(static_cast<double>(value), "s"); };
    const Columns columns = columnsOf(record);
    return saveCurve(record,
                     {"TimeEvo",
                      number,
                      columns.heading,
                      record.extraValues,
                      columns.values,
                      record.currentIndex,
                      {{"Bias", biasText(record.setUp)},
                       {"Laser on for", seconds(record.onTime)},
                       {"Laser off for", seconds(record.offTime)},
                       {"Repeats", formatted("%d", record.repeatCount)},
                       {"Wait after a sample", formatted("%u ms", settleMs)},
                       {"Samples", formatted("%d", record.currentIndex)},
                       {"Room for samples", std::to_string(record.yValues.size())},
                       {"Units of the text file", columns.units}},
                      folders},
                     quietly);
}

} // namespace

bool saveTimeEvolution(bool quietly) {
    SweepRecord& record = sweepRecord;
    if (quietly && record.outcome.end == ProcessEnd::Running) noteEnd(record, ProcessEnd::Forced);
    return endSweepJournal(record, save(record, record.seriesSaved, quietly));
}

bool saveRecoveredSeries(SweepRecord& record, DataFolders& folders) {
    int32_t number = 0; // the first that is free
    return save(record, number, false, folders);
}
