// Writes a curve's journal, and makes a curve of one.
#include "spectroscopy/sweep_journal.h"

#include "mapping/journal_values.h"
#include "mapping/scan_journal.h"
#include "platform/messages.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/data_folders.h"
#include "spectroscopy/iv_sweep.h"
#include "spectroscopy/time_evolution.h"

#include <cstdlib>

namespace {

// All that a journal keeps of a curve beside its samples: `room` is for how many there was memory,
// `folder` its session folder's name.
template <class Record, class Room, class Folder, class Visit>
void eachValue(Record& r, Room& room, Folder& folder, Visit& visit) {
    eachCondition(r.setUp, visit);
    visit("laser was on", r.laserWasOn);
    visit("was illuminated", r.wasIlluminated);
    visit("voltage range V", r.voltageRange);
    visit("voltage step V", r.voltageStep);
    visit("points per quarter", r.pointsPerQuarter);
    visit("on time s", r.onTime);
    visit("off time s", r.offTime);
    visit("repeats", r.repeatCount);
    visit("room", room);
    visit("folder", folder);
}

constexpr int32_t mostRoom = 200 * 20000 * 20; // of the longest series

std::string nameOf(const LeftJournal& left) {
    return left.kind == seriesJournalKind ? "A time evolution" : "An I-V curve";
}

// One whole line; false when it is none.
bool takeSample(const std::string& line, std::vector<float>& xs, SweepRecord& record) {
    std::vector<float> numbers;
    const char* at = line.c_str();
    for (char* end = nullptr;; at = end) {
        const float number = std::strtof(at, &end);
        if (end == at) break;
        numbers.push_back(number);
    }
    if (numbers.size() < 2 + record.channelValues.size()) return false;
    xs.push_back(numbers[0]);
    record.yValues.push_back(numbers[1]);
    for (size_t i = 0; i < record.channelValues.size(); ++i)
        record.channelValues[i].push_back(numbers[2 + i]);
    return true;
}

} // namespace

void beginSweepJournal(const SweepRecord& record) {
    if (!beginJournal(record.holdsSeries ? seriesJournalKind : sweepJournalKind)) return;
    const auto room = static_cast<int32_t>(record.yValues.size());
    const std::string folder = sessionFolderName(dataFolders);
    JournalLines lines;
    eachValue(record, room, folder, lines);
    for (const std::string& line : lines.ended()) journalLine(line);
    flushJournal();
}

void journalSample(float x, float y, std::span<const float> further) {
    if (journalIsBroken()) return;
    std::string line = formatted("%.9g %.9g", static_cast<double>(x), static_cast<double>(y));
    for (float value : further) line += formatted(" %.9g", static_cast<double>(value));
    journalLine(line);
}

bool endSweepJournal(SweepRecord& record, bool saved) {
    if (!onWindowThread()) return saved; // its writer may be in the middle of a line
    Outcome& outcome = record.outcome;
    const size_t before = outcome.troubles.size();
    if (journalIsBroken())
        outcome.troubles.emplace_back("Journal not written");
    else if (!saved)
        outcome.troubles.emplace_back("Kept: \"File\", \"Recover last scan\"");
    if (outcome.troubles.size() > before) showInformation(outcome.words().c_str());
    if (saved) removeJournal();
    leaveJournal();
    return saved;
}

std::optional<JournaledSweep> curveOfLines(const std::string& kind, const NextLine& next) {
    const bool series = kind == seriesJournalKind;
    if (!series && kind != sweepJournalKind) return {};
    JournalValues values(next);
    JournaledSweep sweep;
    SweepRecord& record = sweep.record;
    int32_t room = 0;
    eachValue(record, room, sweep.folder, values);
    if (!values.areWhole() || sweep.folder.empty() || room < 0 || room > mostRoom ||
        (!series && room != int64_t{4} * record.pointsPerQuarter))
        return {};
    record.holdsSeries = series;
    if (series) record.channelValues = emptyChannels(record.setUp);
    record.outcome.end = ProcessEnd::CutOff;
    std::vector<float>& xs = series ? record.extraValues : record.xValues;
    while (const std::optional<std::string_view> line = next()) {
        if (xs.size() == static_cast<size_t>(room)) return {};
        if (!takeSample(std::string(*line), xs, record)) break;
    }
    record.currentIndex = static_cast<int32_t>(xs.size());
    xs.resize(static_cast<size_t>(room));
    record.yValues.resize(static_cast<size_t>(room));
    return sweep;
}

std::string sweepNotice(const LeftJournal& left) {
    const std::optional<JournaledSweep> sweep = curveOfLines(left.kind, linesOfJournal(left));
    if (!sweep) return {};
    return nameOf(left) + formatted(" of %s was cut off or not saved: %d samples. \"File\", "
                                    "\"Recover last scan\"",
                                    startOf(sweep->record.setUp).c_str(),
                                    sweep->record.currentIndex);
}

bool recoverSweep(const LeftJournal& left) {
    std::optional<JournaledSweep> sweep = curveOfLines(left.kind, linesOfJournal(left));
    if (!sweep) return false;
    DataFolders folders = foldersIn(dataFolders, sweep->folder);
    const bool saved = sweep->record.holdsSeries ? saveRecoveredSeries(sweep->record, folders)
                                                 : saveRecoveredIvCurve(sweep->record, folders);
    if (saved) removeLeftJournal(left);
    showInformation(saved ? formatted("Recovered: %d samples", sweep->record.currentIndex).c_str()
                          : "Not all files written: the journal stays");
    return true;
}
