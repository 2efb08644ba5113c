// Writes a curve's journal, and makes a curve of one.
#include "spectroscopy/sweep_journal.h"

#include "mapping/journal_values.h"
#include "mapping/map_document.h"
#include "mapping/scan_journal.h"
#include "platform/messages.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/data_folders.h"
#include "spectroscopy/iv_sweep.h"
#include "spectroscopy/time_evolution.h"

#include <cstdio>
#include <utility>

namespace {

// All that a journal keeps of a curve beside its samples.
template <class Sweep, class Visit> void eachValue(Sweep& sweep, Visit& visit) {
    auto& r = sweep.record;
    eachCondition(r.setUp, visit);
    visit("laser was on", r.laserWasOn);
    visit("was illuminated", r.wasIlluminated);
    visit("voltage range V", r.voltageRange);
    visit("voltage step V", r.voltageStep);
    visit("points per quarter", r.pointsPerQuarter);
    visit("on time s", r.onTime);
    visit("off time s", r.offTime);
    visit("repeats", r.repeatCount);
    visit("room", sweep.room);
    visit("folder", sweep.folder);
}

// The conditions alone, without the samples of another curve.
struct SweepHead {
    SweepRecord record;
    std::string folder;
    int32_t room = 0; // for samples
};

constexpr int32_t mostRoom = 200 * 20000 * 20; // of the longest series

std::string nameOf(const LeftJournal& left) {
    return left.kind == seriesJournalKind ? "A time evolution" : "An I-V curve";
}

} // namespace

void beginSweepJournal(const SweepRecord& record) {
    if (!beginJournal(record.holdsSeries ? seriesJournalKind : sweepJournalKind)) return;
    SweepHead head{.folder = sessionFolderName(dataFolders),
                   .room = static_cast<int32_t>(record.yValues.size())};
    SweepRecord& r = head.record;
    r.setUp = record.setUp;
    r.laserWasOn = record.laserWasOn;
    r.wasIlluminated = record.wasIlluminated;
    r.voltageRange = record.voltageRange;
    r.voltageStep = record.voltageStep;
    r.pointsPerQuarter = record.pointsPerQuarter;
    r.onTime = record.onTime;
    r.offTime = record.offTime;
    r.repeatCount = record.repeatCount;
    JournalLines lines;
    eachValue(head, lines);
    for (const std::string& line : lines.ended()) journalLine(line);
    flushJournal();
}

void journalSample(float x, float y) {
    if (journalIsBroken()) return;
    journalLine(formatted("%.9g %.9g", static_cast<double>(x), static_cast<double>(y)));
}

bool endSweepJournal(bool saved) {
    if (!onWindowThread()) return saved; // its writer may be in the middle of a line
    constexpr int longestText = 400;
    const std::string before = fieldText(Field::Information, longestText);
    if (journalIsBroken())
        showInformation((before + ". Journal not written").c_str());
    else if (!saved)
        showInformation((before + ". Kept: \"File\", \"Recover last scan\"").c_str());
    if (saved) removeJournal();
    leaveJournal();
    return saved;
}

std::optional<JournaledSweep> readSweepJournal(const LeftJournal& journal) {
    const bool series = journal.kind == seriesJournalKind;
    if (!series && journal.kind != sweepJournalKind) return {};
    JournalValues values(journal);
    SweepHead head;
    eachValue(head, values);
    SweepRecord& record = head.record;
    const size_t samples = journal.lines.size() - values.firstPoint();
    if (!values.areWhole() || head.folder.empty() || head.room < 0 || head.room > mostRoom ||
        samples > static_cast<size_t>(head.room) ||
        (!series && head.room != int64_t{4} * record.pointsPerQuarter))
        return {};
    record.holdsSeries = series;
    record.end = ProcessEnd::CutOff;
    std::vector<float>& xs = series ? record.extraValues : record.xValues;
    xs.assign(static_cast<size_t>(head.room), 0.0f);
    record.yValues.assign(static_cast<size_t>(head.room), 0.0f);
    for (size_t i = 0; i < samples; ++i, ++record.currentIndex)
        if (std::sscanf(journal.lines[values.firstPoint() + i].c_str(), "%f %f", &xs[i],
                        &record.yValues[i]) != 2)
            break;
    return JournaledSweep{std::move(record), head.folder};
}

std::string sweepNotice(const LeftJournal& left) {
    const std::optional<JournaledSweep> sweep = readSweepJournal(left);
    if (!sweep) return unreadableJournal;
    return nameOf(left) + formatted(" of %.16s was cut off or not saved: %d samples. \"File\", "
                                    "\"Recover last scan\"",
                                    timeText(sweep->record.setUp.started).c_str(),
                                    sweep->record.currentIndex);
}

void recoverSweep(const LeftJournal& left) {
    std::optional<JournaledSweep> sweep = readSweepJournal(left);
    if (!sweep) return showInformation(unreadableJournal);
    const OtherSessionFolder folder(sweep->folder);
    const bool saved = sweep->record.holdsSeries ? saveRecoveredSeries(sweep->record)
                                                 : saveRecoveredIvCurve(sweep->record);
    if (saved) removeLeftJournal(left);
    showInformation(saved ? formatted("Recovered: %d samples", sweep->record.currentIndex).c_str()
                          : "Not all files written: the journal stays");
}
