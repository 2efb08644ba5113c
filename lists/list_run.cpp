// Runs a list, row by row.
#include "lists/list_run.h"

#include "camera/camera.h"
#include "camera/live_view.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "lists/drift.h"
#include "mapping/focus_following.h"
#include "mapping/map_document.h"
#include "mapping/map_rendering.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_continuation.h"
#include "mapping/scan_journal.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "motion/travel.h"
#include "platform/clock.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/announce.h"
#include "session/day_log.h"
#include "session/document.h"
#include "session/main_title.h"
#include "session/message_box.h"
#include "session/pause.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"
#include "spectroscopy/iv_sweep.h"
#include "spectroscopy/time_evolution.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

ListProgress listProgress;

namespace {

// A row higher above the list's begin is a slip of the hand; by hand it is asked about.
constexpr double farthestUpUm = 2000.0;

std::string underWay;         // listUnderWay
std::optional<ListKind> kind; // of what is measured now

// As the operator counts.
int numberOf(size_t row) {
    return static_cast<int>(row + 1);
}

std::string nowText() {
    return timeText(localTime());
}

// Measured under another bias than the row's, or from another place; or it left one on.
bool isGrave(const std::string& trouble) {
    constexpr const char* beginnings[] = {"Bias not heard", "Bias refused",
                                          "The bias may still be on", "The stage did not come back",
                                          "Hysteresis not compensated"};
    return std::any_of(std::begin(beginnings), std::end(beginnings),
                       [&](const char* beginning) { return trouble.starts_with(beginning); });
}

// Whether somebody has to look at it: it did not end as it should, or most of it is in doubt.
bool hasFailed(const Outcome& outcome, double points) {
    if (outcome.end != ProcessEnd::Finished || !outcome.endedBy.empty()) return true;
    if (!outcome.notWritten.empty()) return true;
    if (std::any_of(outcome.troubles.begin(), outcome.troubles.end(), isGrave)) return true;
    return std::any_of(outcome.doubts.begin(), outcome.doubts.end(), [&](const Doubt& doubt) {
        return doubt.count > 0 && 2.0 * doubt.count >= (doubt.of > 0 ? doubt.of : points);
    });
}

// For the record's column and the window's: "finished", "declined, Not started: ...".
std::string howOf(const Outcome& outcome) {
    const std::string end = nameOf(outcome.end);
    if (!outcome.isSound()) return end + ", " + troubleLine(outcome);
    return outcome.end == ProcessEnd::Declined ? end + ", " + outcome.lastWords : end;
}

// What rows do not say of themselves, and another run of the program may have otherwise.
std::string measuredWith() {
    const ScanPlan plan = presentPlan();
    return formatted(
        "%s, confocal %s, focus plane %s", narrowed(instrumentKind(plan.ammeterKind).name).c_str(),
        plan.confocal ? "on" : "off", plan.focus.follows ? "followed" : "not followed");
}

bool askedByOperator(const Outcome& outcome) {
    return outcome.end == ProcessEnd::Stopped && outcome.endedBy.empty();
}

// Also behind the last point, while the stage drove home.
bool isStopAsked(const Outcome& outcome) {
    return askedByOperator(outcome) ||
           (session.stopRequested && processEnd() == ProcessEnd::Stopped);
}

// The program's own settings come back when it goes.
class OwnSettings {
public:
    OwnSettings() : plan(presentPlan()) {}
    ~OwnSettings() {
        putInForce(plan);
        useOperatorsOccasion();
        dataFolders = folders;
    }
    OwnSettings(const OwnSettings&) = delete;
    OwnSettings& operator=(const OwnSettings&) = delete;

    const ScanPlan plan;
    const DataFolders folders = dataFolders;
};

class ListRun {
public:
    ListRun(ListPlace toRun, bool wasCutOff, Consent consent)
        : place(std::move(toRun)), goesOnWithCutScan(wasCutOff),
          consented(consent == Consent::GivenBefore) {}

    Outcome run();

private:
    Outcome measure(size_t row, int32_t repeat);
    ListRow lookAtDrift(size_t row, const std::string& when, const ListRow& otherwise,
                        Outcome& outcome);
    Outcome measureAtPlace(const ListRow& of, const std::string& where);
    Outcome measureMap(const ListRow& row, const std::string& where);
    std::optional<Outcome> continueMap(const ListRow& row, const std::string& where);
    Outcome measureCurve(const ListRow& row, const std::string& where);
    double heightOf(const ListRow& row) const;
    std::string whyOutOfFocus(const ListRow& row) const;
    std::string goTo(const ListRow& row);
    bool isConsented();
    std::string goToCutMap(const ListRow& row, const ScanArea& area);
    void placeFocus(const ListRow& row, ScanPlan& plan) const;
    bool waitFor(size_t row, int32_t repeat);
    bool pauseIfAsked();
    bool goesOn(size_t row, const Outcome& outcome);
    void endRow(size_t row, const Outcome& outcome);
    void darken(Outcome& told);
    void goHome(Outcome& told);
    void heed(bool written);
    void show(size_t row, const std::string& how) const {
        listProgress.hows.resize(place.list.rows.size());
        listProgress.hows[row] = how;
        listProgress.changed();
    }
    std::string endOfList() const;
    std::wstring folderOfRow(size_t row) const {
        if (!hasFolder) return {};
        const bool map = place.list.rows[row].kind == ListKind::Map && scanMap.conditions;
        return map && scanMap.conditions->occasion.list == underWay ? foldersOfMap().sessionFolder
                                                                    : dataFolders.sessionFolder;
    }

    ListPlace place;
    DriftWatch drift{place};
    std::string driftWords; // of the present row
    bool hasFolder = false; // the present row
    int notFollowed = 0;    // rows
    bool goesOnWithCutScan;
    bool consented; // the operator was asked what "Start" asks
    const OwnSettings own;
    const CanPause canPause{PauseBehind::Row}; // its curves; its maps behind a point
    const double homeX = stageX.positionUm, homeY = stageY.positionUm, homeZ = stageZ.positionUm;
    std::optional<uint64_t> startedMs; // of the last repeat
    bool toldOfRecord = false;
    ProcessEnd end = ProcessEnd::Finished;
    std::string endedBy;
};

// The settings of a row, over those of the program.
ScanPlan planOf(const ListRow& row, const ScanList& list, const ScanPlan& own) {
    ScanPlan plan = own;
    plan.options.keepsBiasInAPause = list.keepsBiasInAPause;
    plan.laserLevel = row.laserUa / setUp.laserUaPerVolt;
    plan.laserPowerUw = powerUwAt(setUp.laserPower, row.laserUa).value_or(-1.0);
    plan.biasVoltage = static_cast<float>(row.biasVolts);
    plan.currentLimit = static_cast<float>(row.limitAmperes);
    plan.options.mainChannel = static_cast<int32_t>(row.channel);
    plan.homeXUm = stageX.positionUm;
    plan.homeYUm = stageY.positionUm;
    plan.homeZUm = stageZ.positionUm;
    plan.consent = Consent::GivenBefore;
    return plan;
}

// From where the stage stands to the row's place.
void placeArea(const ListRow& row, ScanPlan& plan) {
    ScanArea& area = plan.area;
    area = {.scanStep = row.stepUm, .placed = true, .mapMaxPx = area.mapMaxPx};
    area.cols = static_cast<int32_t>(row.columns);
    area.rows = static_cast<int32_t>(row.rows);
    area.offsetXUm = byProgram(stageX, row.xUm) - stageX.positionUm;
    area.offsetYUm = byProgram(stageY, row.yUm) - stageY.positionUm;
    computeScanArea(area);
}

Outcome declined(const std::string& why) {
    return {.end = ProcessEnd::Declined, .lastWords = "Not measured", .troubles = {why}};
}

// A part of the record, or of what a restart needs, that is not on the disk: once for all.
void ListRun::heed(bool written) {
    if (written || std::exchange(toldOfRecord, true)) return;
    announce(Severity::Trouble,
             "List: its record cannot be written; what is missing comes with its next line");
}

// A map follows a focus plane by itself.
double ListRun::heightOf(const ListRow& row) const {
    if (row.zUm) return byProgram(stageZ, *row.zUm);
    const FocusSlopes& slopes = own.plan.focus;
    if (row.kind == ListKind::Map || !slopes.follows) return homeZ;
    return homeZ +
           slopes.riseUm(byProgram(stageX, row.xUm) - homeX, byProgram(stageY, row.yUm) - homeY);
}

// Of a curve; empty when it can, and where its row has a Z of its own.
std::string ListRun::whyOutOfFocus(const ListRow& row) const {
    if (row.zUm) return {};
    ListRow point = row;
    point.rows = point.columns = 1.0;
    ScanPlan plan = planOf(point, place.list, own.plan);
    plan.homeZUm = homeZ;
    placeArea(point, plan);
    placeFocus(point, plan);
    return whyNotFollowed(plan);
}

// A map finds its own way in X and Y, but does not come nearer to the objective over another place.
std::string ListRun::goTo(const ListRow& row) {
    const double z = heightOf(row);
    if (z - homeZ >= farthestUpUm)
        return formatted("Z would rise %.0f um from where the list began, go there by hand first",
                         z - homeZ);
    if (row.kind == ListKind::Map && z <= stageZ.positionUm)
        return travelTo({stageX.positionUm, stageY.positionUm, z});
    const StagePlace place{byProgram(stageX, row.xUm), byProgram(stageY, row.yUm), z};
    if (row.kind == ListKind::Map) return travelTo(place); // its swing takes up Z's play
    bool fromBelow = false;
    std::string why = travelToFocus(place, fromBelow);
    if (fromBelow) logEvent("List: Z comes from below, its highest place leaves no room above");
    return why;
}

// The row's own Z is right at its first point, that of the program where the list began.
void ListRun::placeFocus(const ListRow& row, ScanPlan& plan) const {
    plan.focus.fromXUm = row.zUm ? plan.area.offsetXUm : homeX - stageX.positionUm;
    plan.focus.fromYUm = row.zUm ? plan.area.offsetYUm : homeY - stageY.positionUm;
}

// To where the points that a scan counts from there are those of the row.
std::string ListRun::goToCutMap(const ListRow& row, const ScanArea& area) {
    constexpr uint32_t restsMs = 200; // two axes arrive up to 3 um before it
    std::string missed = travelTo({byProgram(stageX, row.xUm) - area.offsetXUm,
                                   byProgram(stageY, row.yUm) - area.offsetYUm, heightOf(row)});
    waitResponsive(restsMs);
    for (StageAxis* axis : {&stageX, &stageY}) readPosition(*axis);
    return missed;
}

Outcome ListRun::measureMap(const ListRow& row, const std::string& where) {
    const RunningProcess running;
    setField(Field::StartButton, "Stop");
    std::string why = goTo(row);
    Outcome outcome = declined(why);
    if (session.stopRequested)
        outcome = {.end = processEnd(), .lastWords = "Not measured"};
    else if (why.empty()) {
        ScanPlan plan = planOf(row, place.list, own.plan);
        placeArea(row, plan);
        placeFocus(row, plan);
        plan.consent = consented ? Consent::GivenBefore : Consent::OfTheOperator;
        plan.occasion = {place.list.sample, place.list.note, where, driftWords};
        putInForce(plan);
        if (plan.confocal) connectMissingCamera();
        showMapWindow(channelPhotocurrent);
        outcome = runScan(plan);
        keepOutcome("Mapping", outcome);
        if (outcome.isRefused) end = ProcessEnd::Declined;
        consented |= outcome.end != ProcessEnd::Declined;
    }
    setField(Field::StartButton, "Start");
    refreshPositions();
    return outcome;
}

// The scan whose journal an earlier run has left at that place of the list; nothing without one.
std::optional<Outcome> ListRun::continueMap(const ListRow& row, const std::string& where) {
    for (const LeftJournal& left : leftJournals()) {
        std::optional<JournaledScan> scan = readScanJournal(left);
        if (!scan || scan->plan().occasion.list != where) continue;
        // Of the same row when the list ran before: another sample's, perhaps.
        if (timeText(scan->map.conditions->started) < place.begun) continue;
        if (firstMissingRow(scan->map) == scan->plan().area.rows) continue;
        const RunningProcess running;
        setField(Field::StartButton, "Stop");
        Outcome outcome{.end = ProcessEnd::Declined, .lastWords = "Not continued"};
        scan->map.conditions->consent = Consent::GivenBefore; // by whoever let the list go on
        scan->map.conditions->occasion.drift += "; going on: " + driftWords;
        if (std::string missed = goToCutMap(row, scan->plan().area); !missed.empty()) {
            outcome.troubles.push_back(missed);
            if (session.stopRequested) outcome.end = processEnd();
        } else if (takeOverScan(std::move(*scan))) {
            if (scanSettings.confocalEnabled) connectMissingCamera();
            showMapWindow(channelPhotocurrent);
            outcome = continueScan(left);
            keepOutcome("Mapping", outcome);
        } else {
            outcome.troubles.push_back(fieldText(Field::Information, 200));
        }
        setField(Field::StartButton, "Start");
        refreshPositions();
        return outcome;
    }
    return {};
}

// A map asks for itself; who begins with a curve must not be asked when nobody is there any more.
bool ListRun::isConsented() {
    if (!consented)
        consented = showMessageBox(
                        windows.main,
                        "Do you want to start the list? The stage goes from row to row by itself.",
                        "Scan list", BoxButtons::YesNo) == BoxAnswer::Yes;
    return consented;
}

Outcome ListRun::measureCurve(const ListRow& row, const std::string& where) {
    if (!isConsented()) {
        end = ProcessEnd::Declined;
        return {.end = end, .lastWords = "Not measured", .isRefused = true};
    }
    {
        const RunningProcess running;
        std::string why = whyOutOfFocus(row);
        if (why.empty()) why = goTo(row);
        if (session.stopRequested) return {.end = processEnd(), .lastWords = "Not measured"};
        if (!why.empty()) return declined(why);
    }
    ScanPlan plan = planOf(row, place.list, own.plan);
    plan.area = own.plan.area;
    putInForce(plan);
    if (row.kind == ListKind::IvCurve && !selectedInstrument().canSweep)
        return declined("the instrument is no source");
    occasion = {place.list.sample, place.list.note, where, driftWords};
    setLaserOutput(0); // as in the maps: the lamp's light would be measured, too
    Outcome outcome;
    if (row.kind == ListKind::IvCurve) {
        const auto points = static_cast<int32_t>(row.quarterPoints);
        const auto range = static_cast<float>(row.rangeVolts);
        outcome = runSweep({range, range / static_cast<float>(points), points});
        // No box holds the list up: its record says what is not written.
        if (!saveIvCurve(true)) outcome.notWritten.emplace_back("the curve");
    } else {
        outcome = runSeries({static_cast<float>(row.onSeconds), static_cast<float>(row.offSeconds),
                             static_cast<int32_t>(row.lightCycles)});
        if (outcome.end != ProcessEnd::Declined && !saveTimeEvolution(true))
            outcome.notWritten.emplace_back("the series");
    }
    setLaserOutput(1);
    useOperatorsOccasion();
    return outcome;
}

// "05:40" or "05:40 +1 d", by what a point takes as a rule.
std::string ListRun::endOfList() const {
    constexpr double pointsPerMinute = 500.0; // as the expected time of a scan has it
    double minutes = 0.0;
    for (size_t i = 0; i < place.list.rows.size(); ++i) {
        const ListRow& of = place.list.rows[i];
        if (!of.on) continue;
        double each = (of.onSeconds + of.offSeconds) * of.lightCycles / 60.0;
        if (of.kind == ListKind::Map)
            each = of.columns * of.rows * (own.plan.confocal ? 2 : 1) / pointsPerMinute + 0.5;
        if (of.kind == ListKind::IvCurve) each = 4.0 * of.quarterPoints / pointsPerMinute;
        minutes += (of.repeats - place.done[i]) * std::max(each, of.everyMinutes);
    }
    constexpr int minutesOfDay = 24 * 60;
    const LocalTime now = localTime();
    const int at = now.hour * 60 + now.minute + static_cast<int>(std::lround(minutes));
    const std::string time = formatted("%02d:%02d", at / 60 % 24, at % 60);
    return at < minutesOfDay ? time : time + formatted(" +%d d", at / minutesOfDay);
}

Outcome ListRun::measure(size_t row, int32_t repeat) {
    const XyOfScan xy; // a key would send the stage beside the row
    hasFolder = false;
    const ListRow& of = place.list.rows[row];
    const int number = numberOf(row), all = static_cast<int>(place.list.rows.size());
    const std::string where = place.list.name + formatted(", row %d of %d, repeat %d of %.0f",
                                                          number, all, repeat, of.repeats);
    underWay = where;
    titleList(formatted("row %d of %d, list ends %s", number, all, endOfList().c_str()));
    logEvent("List: " + where);
    startedMs = tickCountMs();
    session.stopRequested = 0;
    Outcome looked{.lastWords = "Not measured"};
    const std::string which = formatted("row %d, repeat %d", number, repeat);
    ListRow followed = lookAtDrift(row, which, of, looked);
    looked.end = processEnd();
    if (session.stopRequested) return looked;
    lookBehindPause = [&] {
        const ListRow before = followed;
        followed = lookAtDrift(row, which + " behind a pause", before, looked);
        return SampleMoved{{followed.xUm - before.xUm, followed.yUm - before.yUm},
                           "drift " + driftWords};
    };
    Outcome outcome = measureAtPlace(followed, where);
    lookBehindPause = {};
    outcome.troubles.insert(outcome.troubles.end(), looked.troubles.begin(), looked.troubles.end());
    return outcome;
}

// The row where it lies now, as far as the stage follows; `otherwise` where it cannot.
ListRow ListRun::lookAtDrift(size_t row, const std::string& when, const ListRow& otherwise,
                             Outcome& outcome) {
    const ListRow& of = place.list.rows[row];
    drift.look(place, outcome);
    driftWords = drift.words();
    ListRow followed = otherwise;
    if (place.list.followsDrift && !session.stopRequested) {
        std::string why = drift.follow(place);
        if (why.empty()) heed(keepFollowed(place));
        followed.xUm = of.xUm + place.followed.x;
        followed.yUm = of.yUm + place.followed.y;
        // A map that has begun stays where it is. A row that has not is declined: its part of the
        // sample lies where the stage must not go.
        if (const std::string beyond = kind ? whyNotMeasured(followed) : ""; !beyond.empty()) {
            why = "Drift not followed: " + beyond;
            followed = otherwise;
        }
        if (!why.empty()) outcome.troubles.push_back(why);
        notFollowed += !why.empty();
        driftWords += formatted(", followed by X %+.2f, Y %+.2f um", followed.xUm - of.xUm,
                                followed.yUm - of.yUm);
    }
    logEvent("Drift: " + driftWords);
    heed(recordEvent(place, when + ": drift " + driftWords));
    show(row, "runs, drift " + driftWords);
    return followed;
}

Outcome ListRun::measureAtPlace(const ListRow& of, const std::string& where) {
    if (std::exchange(goesOnWithCutScan, false) && of.kind == ListKind::Map) {
        kind = of.kind;
        const std::optional<Outcome> outcome = continueMap(of, where);
        kind.reset();
        hasFolder = outcome.has_value();
        if (outcome) return *outcome;
    }
    makeNewSessionFolder(dataFolders);
    hasFolder = true;
    if (const std::string why = whyNotMeasured(of); !why.empty()) return declined(why);
    kind = of.kind;
    Outcome outcome = of.kind == ListKind::Map ? measureMap(of, where) : measureCurve(of, where);
    kind.reset();
    return outcome;
}

// Until the repeat is due; false when a stop was asked for.
bool ListRun::waitFor(size_t row, int32_t repeat) {
    const ListRow& of = place.list.rows[row];
    const RunningProcess running;
    setField(Field::StartButton, "Stop");
    const bool waits = repeat > 1 && of.everyMinutes > 0.0 && startedMs;
    const double dueMs = waits ? static_cast<double>(*startedMs) + of.everyMinutes * 60000.0 : 0.0;
    pauseIfAsked();
    while (static_cast<double>(tickCountMs()) < dueMs && !session.stopRequested) {
        const double leftMs = dueMs - static_cast<double>(tickCountMs());
        showProgress(formatted("Next repeat in %.0f s", std::ceil(leftMs / 1000.0)).c_str());
        if (!pauseIfAsked()) break;
        waitResponsive(static_cast<uint32_t>(std::clamp(leftMs, 1.0, 1000.0)));
    }
    showProgress(""); // it waits no more
    setField(Field::StartButton, "Start");
    return !session.stopRequested;
}

// Between two rows, where all is as idle; false when the operator stops instead of resuming.
bool ListRun::pauseIfAsked() {
    if (!pauseIsDue(PauseBehind::Row)) return true;
    heed(recordEvent(place, "paused"));
    const bool resumed = waitWhilePaused("Scan list");
    heed(recordEvent(place, resumed ? "resumed" : "stopped in the pause"));
    return resumed;
}

// What becomes of the list behind a row.
bool ListRun::goesOn(size_t row, const Outcome& outcome) {
    if (end == ProcessEnd::Declined) return false;
    if (outcome.end == ProcessEnd::WindowClosed || outcome.end == ProcessEnd::Asleep) {
        end = outcome.end;
        return false;
    }
    const ListRow& of = place.list.rows[row];
    const bool failed = !askedByOperator(outcome) &&
                        hasFailed(outcome, of.kind == ListKind::Map ? of.columns * of.rows : 1e9);
    if (failed) {
        heed(keepFailed(place, row));
        announce(Severity::Trouble,
                 formatted("List: row %d failed, ", numberOf(row)) + outcome.words());
    }
    if (isStopAsked(outcome)) {
        // Laser off and the stage back: nothing is held up by the question.
        const bool whole =
            showMessageBox(windows.main,
                           "Does the whole list end?\n\nNo: only this row, the next one begins.",
                           "Scan list", BoxButtons::YesNo) != BoxAnswer::No;
        if (whole) end = ProcessEnd::Stopped;
        if (processEnd() != ProcessEnd::Stopped) { // it was closed, or sleeps, meanwhile
            end = processEnd();
            return false;
        }
        session.stopRequested = 0;
        return !whole;
    }
    if (!failed || place.list.goesOnAfterFailure) return true;
    endedBy = formatted("Row %d failed", numberOf(row));
    end = ProcessEnd::Stopped;
    return false;
}

// As the operator wishes, with the repeats that are left.
void ListRun::endRow(size_t row, const Outcome& outcome) {
    const auto repeats = static_cast<int32_t>(place.list.rows[row].repeats);
    if (outcome.end != ProcessEnd::Finished || place.done[row] < repeats)
        heed(keepFailed(place, row));
    if (place.done[row] < repeats)
        heed(recordEvent(place, formatted("row %d ended by the operator, %d repeats not measured",
                                          numberOf(row), repeats - place.done[row])));
    while (place.done[row] < repeats) heed(keepDone(place, row));
}

// Laser off and bias 0, with the lamp on unless the computer goes to sleep.
void ListRun::darken(Outcome& told) {
    setLaserOutput(end == ProcessEnd::Asleep ? 0 : 1);
    setLaserLevel(0);
    if (!applyBias(0.0, static_cast<double>(own.plan.currentLimit)).accepted())
        told.troubles.emplace_back("The bias may still be on");
    if (const std::string lit = lightLeftOn(); !lit.empty()) told.troubles.push_back(lit);
}

void ListRun::goHome(Outcome& told) {
    darken(told);
    if (end == ProcessEnd::Asleep) return;
    const RunningProcess running;
    if (!travelTo({homeX, homeY, homeZ}).empty())
        told.troubles.emplace_back("The stage did not come back");
    refreshPositions();
}

Outcome ListRun::run() {
    listProgress.hows.assign(place.list.rows.size(), "");
    for (size_t row = 0; row < place.done.size(); ++row)
        if (place.done[row] > 0)
            show(row, place.failed.contains(row) ? "failed before" : "measured before");
    Outcome told;
    darken(told); // a row that cannot begin would leave what the operator had on, for hours
    while (const std::optional<size_t> row = place.next()) {
        const int32_t repeat = place.done[*row] + 1;
        if (!waitFor(*row, repeat)) {
            const Outcome stopped{.end = processEnd()};
            if (!goesOn(*row, stopped)) break;
            endRow(*row, stopped);
            continue;
        }
        const std::string started = nowText();
        show(*row, "runs");
        const Outcome outcome = measure(*row, repeat);
        logEvent(formatted("List: row %d %s, \"", numberOf(*row), nameOf(outcome.end)) +
                 outcome.words() + "\"");
        const std::string how = howOf(outcome);
        heed(
            recordRow(place, *row, repeat, started, nowText(), fileNameOf(folderOfRow(*row)), how));
        show(*row, how + "; drift " + driftWords);
        const bool stopped = isStopAsked(outcome), ends = !goesOn(*row, outcome);
        const bool cutOff = ends && outcome.end != ProcessEnd::Finished;
        if (!cutOff) heed(keepDone(place, *row));
        if (stopped) endRow(*row, outcome);
        if (ends) break;
    }
    told.end = end;
    told.endedBy = endedBy;
    goHome(told);
    const auto lost = static_cast<int32_t>(place.failed.size());
    told.lastWords =
        formatted("Scan list %s: %d of %d rows", nameOf(end), place.measured(), place.toMeasure());
    if (lost > 0) told.troubles.push_back(formatted("Failed: %d, see the list's record", lost));
    if (notFollowed > 0) told.troubles.push_back(formatted("Drift not followed: %d", notFollowed));
    heed(recordEvent(place, told.words()));
    if (!place.waitingForRecord.empty()) told.notWritten.emplace_back("the list's record");
    // What the computer's sleep or a closed window has cut off is offered again.
    const bool isCutOff = end == ProcessEnd::WindowClosed || end == ProcessEnd::Asleep;
    if (isCutOff ? !place.waitingForUnfinished.empty() : !forgetUnfinishedList())
        told.notWritten.emplace_back("in Unfinished.txt where the list stands");
    if (end != ProcessEnd::Declined && end != ProcessEnd::Asleep) startProgramAtEnd(place);
    titleList("");
    underWay.clear();
    showInformation(told.words().c_str());
    return told;
}

} // namespace

std::string otherSetUpOf(const ScanList& list) {
    return list.setUpInForce.empty() ? "" : setUpDifference(list.setUpInForce, setUpWords(setUp));
}

std::string listThatWasCutOff() {
    std::string fault;
    const std::optional<ListPlace> place = unfinishedList(fault);
    if (!fault.empty()) return "a list was cut off, whose file is damaged: " + fault;
    if (!place) return {};
    return formatted("a list of %d rows was cut off, %d are measured", place->toMeasure(),
                     place->measured());
}

std::string whyNotMeasured(const ListRow& row) {
    if (std::string why = faultIn(row); !why.empty()) return why;
    const double mostUa = setUp.highestLaserUa(), leastUa = setUp.lowestLaserUa();
    if (row.kind != ListKind::IvCurve && row.laserUa > mostUa * (1.0 + 1e-6))
        return formatted("the laser gives at most %.4g uA", mostUa);
    if (row.kind != ListKind::IvCurve && row.laserUa > 0.0 &&
        row.laserUa < leastUa * (1.0 - 1e-6)) // as by hand; 0 is dark
        return formatted("the laser gives at least %.4g uA", leastUa);
    const bool map = row.kind == ListKind::Map;
    const double x = byProgram(stageX, row.xUm), y = byProgram(stageY, row.yUm);
    const double left = map ? x - runInOf(scanSettings.options, row.stepUm) : x;
    const double right = map ? x + (row.columns - 1) * row.stepUm : x;
    const double top = map ? y + (row.rows - 1) * row.stepUm : y;
    for (const double to : {left, right, y, top})
        if (std::fabs(to) > xyLimitUm)
            return formatted("X and Y are within %d um of zero", xyLimitUm);
    if (row.zUm && std::fabs(byProgram(stageZ, *row.zUm)) > zLimitUm)
        return formatted("Z is within %d um of zero", zLimitUm);
    for (const double to : {left, right})
        if (std::string why = beyondLimit(stageX, to); !why.empty()) return why;
    for (const double to : {y, top})
        if (std::string why = beyondLimit(stageY, to); !why.empty()) return why;
    if (row.zUm) return beyondLimit(stageZ, byProgram(stageZ, *row.zUm));
    return {};
}

std::string listUnderWay() {
    return underWay;
}

Outcome runScanList(ListPlace place, Consent consent) {
    return ListRun(std::move(place), false, consent).run();
}

Outcome continueScanList(ListPlace place) {
    session.stopRequested = 0;
    if (const std::string other = otherSetUpOf(place.list); !other.empty()) {
        Outcome told{.end = ProcessEnd::Declined,
                     .lastWords = "Not continued: the set-up is another one, " + other};
        showInformation(told.lastWords.c_str());
        return told;
    }
    if (const std::string now = measuredWith();
        !place.measuredWith.empty() && place.measuredWith != now) {
        Outcome told{.end = ProcessEnd::Declined,
                     .lastWords = "Not continued: the list was measured with " +
                                  place.measuredWith + ", set is " + now};
        showInformation(told.lastWords.c_str());
        return told;
    }
    bool there = false;
    {
        const RunningProcess running;
        showInformation("Moving to where the list began");
        there = travelTo({byProgram(stageX, place.homeX), byProgram(stageY, place.homeY),
                          byProgram(stageZ, place.homeZ)})
                    .empty();
    }
    if (!there) {
        Outcome told{.end = ProcessEnd::Declined,
                     .lastWords = "Not continued: the stage did not come to where the list "
                                  "began"};
        showInformation(told.lastWords.c_str());
        return told;
    }
    recordContinuation(place); // what is not written waits for the next line
    return ListRun(std::move(place), true, Consent::GivenBefore).run();
}

Outcome startScanList(const ScanList& list, Consent consent) {
    session.stopRequested = 0;
    if (stageZ.placeLost) { // it asks before its first move, when nobody may be there
        Outcome told{.end = ProcessEnd::Declined,
                     .lastWords = "Not started: stage Z has lost its place, move it once"};
        showInformation(told.lastWords.c_str());
        return told;
    }
    for (StageAxis* axis : {&stageX, &stageY, &stageZ}) readPosition(*axis);
    ScanList ofNow = list;
    ofNow.setUpInForce = setUpWords(setUp);
    ListPlace place{.list = std::move(ofNow),
                    .done = std::vector<int32_t>(list.rows.size()),
                    .homeX = ofController(stageX, stageX.positionUm),
                    .homeY = ofController(stageY, stageY.positionUm),
                    .homeZ = ofController(stageZ, stageZ.positionUm),
                    .measuredWith = measuredWith()};
    if (!beginListRecord(place)) {
        Outcome told{.end = ProcessEnd::Declined,
                     .lastWords = "Not started: the list's record cannot be written"};
        showInformation(told.lastWords.c_str());
        return told;
    }
    return runScanList(std::move(place), consent);
}

void saveRowAtForcedEnd() {
    if (kind == ListKind::Map) saveScanAtForcedEnd();
    if (kind == ListKind::IvCurve) saveIvCurve(true);
    if (kind == ListKind::Series) saveTimeEvolution(true);
}
