// Runs one scan.
#include "mapping/raster_scan.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "camera/spot.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/focus_following.h"
#include "mapping/map_document.h"
#include "mapping/map_rendering.h"
#include "mapping/map_saving.h"
#include "mapping/point_reading.h"
#include "mapping/scan_area_view.h"
#include "mapping/scan_journal.h"
#include "mapping/scan_map.h"
#include "mapping/scan_pace.h"
#include "mapping/scan_report.h"
#include "motion/travel.h"
#include "platform/clock.h"
#include "platform/messages.h"
#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/forced_end.h"
#include "session/main_title.h"
#include "session/message_box.h"
#include "session/pause.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/stopwatch.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

std::function<SampleMoved()> lookBehindPause;

namespace {

NotThere notThere(const StageAxis& axis) {
    const bool told = axis.missed != Miss::Nothing;
    return {"XYZ"[indexOf(axis)], told ? axis.missed : Miss::Stalled};
}

bool swingXY(const ArrivalTiming& timing) {
    constexpr double swing[] = {20.0, -35.0, 25.0, -15.0, 5.0};
    for (double um : swing)
        if (!moveXYBy(um, um, motorSpeed, timing)) return false;
    return true;
}

bool swingZ(const ArrivalTiming& timing) {
    return moveBy(stageZ, 2.0, timing) && moveBy(stageZ, -2.0, timing);
}

// How a row begins.
struct RowStart {
    NotThere yMissed;
    double soundFromX = 0.0; // before that X has run less than the run-in
    NotThere xMissed;        // why
};

struct Point {
    int row, column; // in the order of the scan
    NotThere missed;
};

class Scan {
public:
    explicit Scan(const ScanPlan& toCarryOut)
        : plan(toCarryOut),
          // How far from a point the stage may stand, um.
          toleranceUm(std::min(area.scanStep / 2, 1.0)), timing{plan.options.looksEarly,
                                                                static_cast<uint32_t>(
                                                                    plan.options.settleMs),
                                                                toleranceUm},
          focus(plan.focus, timing), pace(0, 0, 0.0), homeX(currentPositionUm(stageX)),
          homeY(currentPositionUm(stageY)) {
        running = this;
    }
    ~Scan() { running = nullptr; }
    Scan(const Scan&) = delete;
    Scan& operator=(const Scan&) = delete;

    Outcome run(const LeftJournal* left);
    void refuseKeys() { refusedMs = std::max<uint64_t>(tickCountMs(), 1); }
    double remainingMs() const { return pace.remainingMs(); }
    void noteEnd(ProcessEnd end) const;
    ScanProgress progress() const { return {report.pointsDone, area.totalPoints}; }

    static Scan* running; // null without one

private:
    void begin();
    void continueFrom(const LeftJournal& left);
    void takeOverReport();
    void showFirstWindows();
    bool consentGiven(bool compensated);
    void scanAllRows();
    bool scanRow(int row);
    bool pauseIfAsked(PauseBehind justDone, int row, const std::string& behind);
    void comeBackTo(int row, double z);
    void lightUp() const;
    const StageAxis* axisThatIsOut() const;
    RowStart goToRow(double y);
    bool hasComeTo(StageAxis& axis, double targetUm);
    NotThere lookAtPoint(double x, double y, bool moved, bool looked, const RowStart& start);
    void waitForReading(uint64_t sinceMs);
    std::optional<PointReading> readPoint();
    bool measurePoint(const Point& point, int mapRow);
    void sampleColour(size_t column, size_t mapRow);
    void showPercentDone(int points) const;
    void showProgressAt(int point) const;
    void showRemaining() const;
    void showEnd() const;
    void markScanPoint(int row, int column) const;
    void lookAtFocus(const std::string& when);
    void lookAtSettings(int row, bool isLast);
    void takeSettings();
    void endIfAxisIsOut();
    bool canGoOn() const;
    bool isOver() const {
        return session.stopRequested || axisThatIsOut() || !report.endedBy.empty();
    }
    void endBy(const std::string& cause);
    void returnHome();
    int percentOf(int points) const {
        return static_cast<int>(int64_t{points} * 100 / area.totalPoints);
    }
    Outcome outcome() const { return report.outcome(end); }

    const InstrumentKind& instrument = selectedInstrument();
    const ScanPlan plan;
    const ScanArea& area = plan.area;
    const double toleranceUm;
    const ArrivalTiming timing;
    std::vector<Plane> planes;
    ScanReport report;
    BiasWatch biasWatch;
    FocusFollower focus;
    ScanPace pace;
    const double homeX, homeY;         // where the stage stood, um
    double startX = 0.0, startY = 0.0; // the first point, where the sample lies now
    int firstRow = 0;                  // not 0 of a scan that goes on
    InstrumentSettings known;          // as the instrument is set by now
    int knownFrom = 0;                 // the first row since that was last asked for
    bool otherUnit = false;            // its values are no longer in the map's
    bool yPlayLeft = false;            // the last swing failed
    bool yAstray = false;              // behind a look Y stands where that need not count
    int swungAtRow = 0;                // before which that was
    uint64_t refusedMs = 0;            // when the operator last wanted to move X or Y; 0 never
    ProcessEnd end = ProcessEnd::Running;
    const XyOfScan xy;
};

Scan* Scan::running = nullptr;

void Scan::showPercentDone(int points) const {
    std::string text = formatted("Mapping: %d%% done", percentOf(points));
    // What was said of a failed move is gone with the next point.
    if (report.pointsInDoubt > 0) text += formatted(", %d in doubt", report.pointsInDoubt);
    if (journalIsBroken()) text += ", no journal";
    // The arrival at the next point has overwritten the word.
    constexpr uint64_t readableMs = 3000;
    if (refusedMs != 0 && tickCountMs() - refusedMs < readableMs) text += ", no keys for X and Y";
    showProgress(text.c_str());
}

void Scan::showProgressAt(int point) const {
    showPercentDone(point);
    const auto minutes = static_cast<int>(elapsedMs(false) / 1000 / 60);
    // The area's own estimate knows of no filter.
    const double settlingMs = known.poles == 0 ? 0.0 : readingDelayMs(plan.options, known);
    const double total = area.estimatedMinutes + area.totalPoints * settlingMs / 60000.0;
    setField(Field::Time, formatted("%dM/%dM ", minutes, static_cast<int>(total)).c_str());
}

// For somebody who looks from another desk, too.
void Scan::showRemaining() const {
    constexpr int minutesOfDay = 24 * 60;
    const double leftMs = pace.remainingMs();
    const auto minutes = static_cast<int>(std::lround(leftMs / 60000.0));
    const std::string left =
        minutes < 2 ? formatted("%d s left", static_cast<int>(std::lround(leftMs / 1000.0)))
                    : formatted("%d min left", minutes);
    const LocalTime now = localTime();
    const int at = now.hour * 60 + now.minute + minutes;
    std::string ends = formatted("ends %02d:%02d", at / 60 % 24, at % 60);
    if (at >= minutesOfDay) ends += formatted(" +%d d", at / minutesOfDay);
    setField(Field::Remaining, (left + "\n" + ends).c_str());
    titleProgress(formatted("%d%%, %s", percentOf(report.pointsDone), ends.c_str()));
    showTaskbarProgress(percentOf(report.pointsDone));
}

void Scan::showEnd() const {
    const LocalTime now = localTime();
    const auto minutes = static_cast<int>(elapsedMs(false) / 1000 / 60);
    setField(Field::Remaining,
             formatted("took %d min\nended %02d:%02d", minutes, now.hour, now.minute).c_str());
    titleProgress("");
    showTaskbarProgress(-1);
}

// Whether the axis stands where it was sent; it is given a short time for that. What has no
// controller has not moved.
bool Scan::hasComeTo(StageAxis& axis, double targetUm) {
    if (axis.axisNumber == 0) axis.missed = Miss::NoController;
    return axis.axisNumber != 0 && standsAt(axis, targetUm, toleranceUm, timing);
}

// Without one of those that it moves no further point is reached.
const StageAxis* Scan::axisThatIsOut() const {
    for (const StageAxis* axis : {&stageX, &stageY})
        if (axisIsOut(*axis)) return axis;
    return focus.follows() && axisIsOut(stageZ) ? &stageZ : nullptr;
}

RowStart Scan::goToRow(double y) {
    RowStart row;
    const double runIn = plan.runInUm();
    const double runInX = startX - runIn;
    const double lastX = startX + (area.cols - 1) * area.scanStep;
    if (!session.stopRequested) focus.withdrawForRow(startX, lastX, y);
    if (!moveXYTo(runInX, y, motorSpeed, timing)) showProgress("Motor range limited");
    if (!session.stopRequested) focus.goToRow(startX, lastX, y);
    biasWatch.read(
        readPhotocurrent()); // discarded: the instrument may still hold the value of the last row
    // A move of both axes ends up to 3 um before its target.
    const bool ranIn = hasComeTo(stageX, runInX);
    row.soundFromX = ranIn ? startX : stageX.positionUm + runIn;
    if (!ranIn) row.xMissed = notThere(stageX);
    // Every row is approached from the negative side, so that backlash is taken up the same way.
    if (processEnd() != ProcessEnd::Asleep) moveTo(stageX, startX, timing);
    refreshPositions();
    waitResponsive(plan.rowSettleMs);
    if (session.stopRequested || !hasComeTo(stageY, y))
        row.yMissed = notThere(stageY);
    else if (yPlayLeft && y - (startY + swungAtRow * area.scanStep) < runIn)
        row.yMissed = {'Y', Miss::PlayLeft};
    return row;
}

// In pieces: a filter may want hours, and a stop need not be a click.
void Scan::waitForReading(uint64_t sinceMs) {
    constexpr uint32_t pieceMs = 1000;
    uint32_t leftMs = readingDelayMs(plan.options, known);
    waitAfterMove(sinceMs, leftMs <= pieceMs ? leftMs : leftMs % pieceMs, timing);
    if (leftMs <= pieceMs) return;
    for (leftMs -= leftMs % pieceMs; leftMs > 0 && !session.stopRequested; leftMs -= pieceMs)
        waitResponsive(pieceMs);
}

// What is missed of the point (x, y) after the move to it; a move of X has looked where it ended.
// What was missed before is not waited for again at each point of the row.
NotThere Scan::lookAtPoint(double x, double y, bool moved, bool looked, const RowStart& start) {
    if (!moved) return notThere(stageX);
    if (start.yMissed.why != Miss::Nothing) return start.yMissed;
    if (x < start.soundFromX) return start.xMissed;
    if (!looked && !hasComeTo(stageX, x)) return notThere(stageX);
    if (stageY.axisNumber == 0) stageY.missed = Miss::NoController;
    if (stageY.axisNumber == 0 || !stillStandsAt(stageY, y, toleranceUm, timing))
        return notThere(stageY);
    return {focus.missed() == Miss::Nothing ? '-' : 'Z', focus.missed()};
}

// Nothing when a stop came before the last reading.
std::optional<PointReading> Scan::readPoint() {
    PointReadings readings(instrument);
    constexpr uint64_t longestDeafMs = 100;
    uint64_t heard = tickCountMs();
    for (int count = 0; count < plan.options.readingsPerPoint; ++count) {
        // Many slow readings must not deafen the windows.
        if (count > 0 && tickCountMs() - heard >= longestDeafMs) {
            waitResponsive(1);
            heard = tickCountMs();
        }
        if (session.stopRequested) return {};
        const Reading reading = readPhotocurrent();
        biasWatch.read(reading);
        if (!readings.take(reading)) break;
    }
    return readings.result();
}

void Scan::sampleColour(size_t column, size_t mapRow) {
    grabFrames(cameraState, 1);
    const Colour colour = sampleSpotColour(plan.laserSpot, plan.aperturePx);
    showSpotColour(colour);
    const uint32_t parts[] = {redOf(colour), greenOf(colour), blueOf(colour)};
    for (size_t i = 0; i < std::size(parts); ++i)
        scanMap.maps[planeRed + i][column][mapRow] = static_cast<float>(parts[i]);
}

// False, and the cell stays unmeasured, when a stop came in the middle.
bool Scan::measurePoint(const Point& point, int mapRow) {
    const auto c = static_cast<size_t>(point.column);
    const auto m = static_cast<size_t>(mapRow);
    if (c >= scanMap.marks.size() || m >= scanMap.marks[c].size())
        endProgram("the map has changed in its own scan");
    const std::optional<PointReading> reading = readPoint();
    if (!reading) return false;
    for (const Plane& plane : planes) {
        float& cell = scanMap.maps[plane.map][c][m];
        if (plane.of == Plane::Of::Channel) cell = reading->means[plane.channel];
        if (plane.of == Plane::Of::Deviation) cell = reading->deviations[plane.channel];
    }
    // Under the unit of the first channel, whichever the map shows.
    const Unit unit = unitBehind(plan.amplifier, mainChannel());
    setField(Field::MeasuredValue,
             formatted("%.5f", unit.shown(static_cast<double>(reading->means.front()))).c_str());
    std::array<bool, spoiltCount> causes{};
    const auto spoils = [&](Spoilt cause, bool yes) { causes[static_cast<size_t>(cause)] |= yes; };
    const bool boardIsInstrument = selectedInstrument().overTheBoard;
    // The laser hangs on it.
    const bool boardStands = boardIsInstrument ? reading->answered : laserLinkStands(laserLink);
    spoils(Spoilt::Board, !boardStands);
    spoils(Spoilt::Instrument, !boardIsInstrument && !reading->answered);
    spoils(Spoilt::Overload, reading->overloaded);
    if (reading->overload) report.takeOverload(reading->overload);
    if (plan.options.auxChannel && reading->auxAtLimit) {
        spoils(Spoilt::Overload, true);
        report.takeOverload("aux input");
    }
    spoils(Spoilt::Unlocked, reading->unlocked);
    spoils(Spoilt::Unsettled, reading->unsettled);
    if (reading->unsettled && report.whyUnsettled.empty())
        report.whyUnsettled = "its filter changed by itself";
    spoils(Spoilt::NotReached, point.missed.why != Miss::Nothing);
    if (point.missed.why != Miss::Nothing) report.takeMiss(point.missed);
    if (plan.confocal) {
        sampleColour(c, m);
        spoils(Spoilt::Camera, cameraState.connected == 0 || !cameraState.fresh);
    }
    // Asked at each point, since the one before.
    const bool unlit = !onlyTheLaserShone() && boardStands;
    spoils(Spoilt::Board, laserBoardKeepsSilent());
    spoils(Spoilt::Unlit, unlit);
    if (unlit && !whyLaserIsDark().empty()) report.whyUnlit = whyLaserIsDark();
    scanMap.marks[c][m] = report.take(causes, point.row, point.column);
    journalPoint(c, m);
    return true;
}

void Scan::markScanPoint(int row, int column) const {
    const WindowContext view(windows.main);
    if (!view.context) return;
    const PixelPoint point = pointOnPresentView(area, column, row);
    markPoint(view.context, point.x, point.y);
}

// Without a plane nothing here moves Z: only a look tells that it is lost or in an alarm.
void Scan::lookAtFocus(const std::string& when) {
    readPosition(stageZ);
    const std::string trouble = axisTrouble(stageZ);
    if (report.focus.empty() && !trouble.empty()) report.focus = trouble + when;
}

// Settings that have changed, by hand or by themselves, spoil the points since they were last asked
// for. One answer that does not come is waited for until the next row's end.
void Scan::lookAtSettings(int row, bool isLast) {
    if (!instrument.settings) return;
    const std::optional<InstrumentSettings> now = instrument.settings();
    if (!now && !isLast) return;
    const bool sound = now && now->kept == known.kept;
    for (int r = knownFrom; r <= row && !sound; ++r)
        for (int column = 0; column < area.cols; ++column) {
            const auto c = static_cast<size_t>(column), m = static_cast<size_t>(area.rows - 1 - r);
            PointMark& mark = scanMap.marks[c][m];
            if (mark != PointMark::Measured && mark != PointMark::NoColour) continue;
            mark = report.spoil(Spoilt::Unsettled, mark, r, column);
            journalPoint(c, m);
        }
    knownFrom = row + 1;
    if (sound) return;
    report.whyUnsettled = now ? settingsDifference(known.kept, now->kept) : "it did not say";
    logEvent("Settings changed: " + report.whyUnsettled);
    if (now) known = *now; // the next rows wait for what it is
    otherUnit = instrumentLink.inVolts != plan.inVolts;
}

// The light in which the points are taken, from here on.
void Scan::lightUp() const {
    setLaserOutput(0);
    setLaserLevel(1);
    onlyTheLaserShone();
}

// Where a pause is due: laser off, and the bias unless it is to stay, until the operator resumes
// it; then the play is shaken out again, and the row must be begun anew. False when nothing was
// held up, or the scan stops instead.
bool Scan::pauseIfAsked(PauseBehind justDone, int row, const std::string& behind) {
    if (!pauseIsDue(justDone) || report.pointsDone == area.totalPoints) return false;
    const uint64_t sinceMs = tickCountMs();
    const std::string since = timeText(localTime());
    flushJournal();
    setLaserLevel(0);
    const auto limit = static_cast<double>(plan.currentLimit);
    const bool keepsBias = plan.options.keepsBiasInAPause || plan.biasVoltage == 0.0f;
    if (!keepsBias && !applyBias(0.0, limit).accepted())
        report.bias.emplace_back("The bias may have been on in the pause");
    const bool goesOn = waitWhilePaused("Mapping");
    const auto tookMs = static_cast<double>(tickCountMs() - sinceMs);
    std::string words = since + behind + formatted(", %.1f min", tookMs / 60000.0);
    const double z = stageZ.positionUm;
    SampleMoved moved;
    if (goesOn && lookBehindPause) moved = lookBehindPause();
    if (!moved.words.empty()) words += ", " + moved.words;
    notePause(*scanMap.conditions, words);
    journalPause(words);
    if (!goesOn || session.stopRequested) return false;
    startX += moved.byUm.x;
    startY += moved.byUm.y;
    focus.moveWith(moved.byUm);
    if (lookBehindPause) comeBackTo(row, z);
    if (isOver()) return false;
    if (!keepsBias) {
        const auto volts = static_cast<double>(plan.biasVoltage);
        biasWatch.told(volts, applyBias(volts, limit));
    }
    if (plan.confocal) {
        controlCamera(cameraState, cameraManual);
        grabFrames(cameraState, 1);
    }
    lightUp();
    const bool swung = swingXY(timing) && swingZ(timing);
    report.swingFailed |= !swung;
    yPlayLeft = !swung || std::exchange(yAstray, false);
    waitResponsive(500);
    return true;
}

// From wherever a look has left the stage, by the road on which a scan begins: to the row's first
// point, where the swing then shakes the play out. From elsewhere the row itself might be come to
// from above.
void Scan::comeBackTo(int row, double z) {
    const double y = startY + row * area.scanStep;
    const std::string missed = travelTo({startX, y, z});
    // All that is left would be measured out of focus.
    const bool zIsThere = stageZ.axisNumber == 0 || std::fabs(stageZ.positionUm - z) <= 0.5;
    if (!zIsThere && !session.stopRequested)
        endBy("Z did not come back behind the pause: " + missed);
    if (!missed.empty()) showProgress("Motor range limited");
    yAstray = std::fabs(stageY.positionUm - y) > 3.0; // as a move of both axes ends before it
}

// One row from left to right; false when a stop was asked for or an axis is out.
bool Scan::scanRow(int row) {
    const int mapRow = area.rows - 1 - row;
    double y = startY + row * area.scanStep;
    pace.rowBegins(tickCountMs());
    RowStart start = goToRow(y);
    pace.rowReached(tickCountMs());
    if (session.stopRequested || axisThatIsOut()) return false;
    for (int column = 0; column < area.cols; ++column) {
        const double x = startX + column * area.scanStep;
        const uint64_t beganMs = tickCountMs();
        const bool looked = stageX.axisNumber != 0 && stageX.positionUm != x;
        const bool moved = moveTo(stageX, x, timing);
        if (!moved) showProgress("Motor motion failure");
        if (!session.stopRequested) focus.goToPoint(x, y);
        showProgressAt(report.pointsDone + 1);
        refreshPositions();
        if (session.stopRequested) return false; // a filter may want minutes
        if (instrument.beginPoint) instrument.beginPoint();
        waitForReading(std::max(beganMs, lastSettledMs()));
        if (session.stopRequested) return false;
        const NotThere missed = lookAtPoint(x, y, moved, looked, start);
        if (session.stopRequested || axisThatIsOut()) return false;
        markScanPoint(row, column);
        if (!measurePoint({row, column, missed}, mapRow)) return false;
        ++report.pointsDone;
        pace.pointDone(tickCountMs());
        showRemaining();
        if (column + 1 == area.cols) continue; // behind the row
        if (pauseIfAsked(PauseBehind::Point, row,
                         formatted(" behind row %d, point %d", row + 1, column + 1))) {
            swungAtRow = row;
            y = startY + row * area.scanStep;
            start = goToRow(y);
            pace.goesOn(tickCountMs());
        }
        if (isOver()) return false;
    }
    lookAtFocus(formatted(" in row %d", row + 1));
    lookAtSettings(row, row == area.rows - 1);
    flushJournal();
    if (otherUnit) return false;
    setLiveRows(mapRow);
    drawLiveRow(mapRow);
    if (plan.confocal) drawConfocalRow(windows.confocal, mapRow);
    if (pauseIfAsked(PauseBehind::Row, row, formatted(" behind row %d", row + 1)))
        swungAtRow = row + 1;
    return true;
}

// The area on a fresh picture, and the operator's word where it is wanted.
bool Scan::consentGiven(bool compensated) {
    checkRadio(idLaserView, idSampleView, idSampleView);
    waitResponsive(1000);
    switchLiveView(LiveView::FreshFrame);
    showScanArea();
    if (display.wideView) grabFrames(cameraState, 1); // what is on the screen was seen earlier
    keepScanPicture();
    // Whoever has stopped or closed meanwhile is asked nothing.
    if (session.stopRequested || plan.consent == Consent::GivenBefore) return true;
    const char* const question =
        compensated ? "Hysteresis compensated. Is it okay?"
                    : "Hysteresis not compensated: the stage did not arrive. Is it okay?";
    return showMessageBox(windows.main, question, "Scan area checking", BoxButtons::YesNo) ==
               BoxAnswer::Yes ||
           session.stopRequested;
}

void Scan::scanAllRows() {
    if (plan.confocal) {
        controlCamera(cameraState, cameraManual);
        scanMap.conditions->takenGain = cameraState.takenGain;
        scanMap.conditions->takenExposureUs = cameraState.takenExposureUs;
        grabFrames(cameraState, 1);
    }
    lightUp();
    const double rowUm = (area.cols - 1) * area.scanStep;
    focus.withdrawForRow(startX, startX + rowUm, startY + firstRow * area.scanStep);
    if (!moveXYTo(startX, startY, motorSpeed, timing)) showProgress("Motor range limited");
    // A move of both axes ends up to 3 um before its target.
    const bool yIsThere = std::fabs(stageY.positionUm - startY) <= 3.0;
    const bool swung = swingXY(timing);
    report.swingFailed = !swung || !swingZ(timing);
    yPlayLeft = !yIsThere || !swung; // the first row may then be come to from above
    swungAtRow = firstRow;
    const CanPause canPause(PauseBehind::Point);
    elapsedMs(true);
    waitResponsive(500);

    pace = ScanPace(area.cols, area.rows - firstRow,
                    rowUm / (speedOf(stageX, motorSpeed) * umPerStepOf(stageX)) * 1000.0);
    for (int row = firstRow; row < area.rows && !isOver(); ++row)
        if (!scanRow(row)) {
            if (knownFrom <= row) lookAtSettings(row, true);
            break;
        }
    flushJournal(); // of a row that was not finished
    logEvent(formatted("Mapping: %d of %d points, %d in doubt", report.pointsDone, area.totalPoints,
                       report.pointsInDoubt));
    showEnd();
}

void Scan::returnHome() {
    // By the time the computer wakes somebody may have a hand at the sample.
    const bool asleep = processEnd() == ProcessEnd::Asleep;
    const std::optional<double> homeZ = axisIsOut(stageZ) ? std::nullopt : focus.homeUm();
    report.stayedAway = asleep || (homeZ ? !travelTo({homeX, homeY, *homeZ}).empty()
                                         : !moveXYTo(homeX, homeY, motorSpeed, timing));
    controlCamera(cameraState, cameraAutomatic);
    setLaserOutput(asleep ? 0 : 1);
    setLaserLevel(0);
    switchLiveView(LiveView::Off);
    refreshPositions();
    if (report.pointsInDoubt > 0) showPercentDone(report.pointsDone); // over the move's own text
    const Outcome told = outcome();
    showInformation(told.lastWords.c_str());
    if (told.isSound()) return;
    showInformation(told.words().c_str());
    std::printf("%s\n", told.words().c_str());
}

void Scan::noteEnd(ProcessEnd how) const {
    scanMap.outcome = {.end = how,
                       .ended = localTime(),
                       .zUm = stageZ.positionUm + report.zShiftUm,
                       .laserLevel = laserLink.laserLevel,
                       .laserPowerUw = presentLaserPowerUw(),
                       .gain = cameraState.takenGain,
                       .exposureUs = cameraState.takenExposureUs,
                       .blueOnly = cameraState.blueOnly != 0,
                       .trouble = troubleLine(outcome())};
}

// What is told of the points that an earlier run has measured.
void Scan::takeOverReport() {
    report.pointsDone = firstRow * area.cols;
    for (int row = 0; row < firstRow; ++row)
        for (int column = 0; column < area.cols; ++column)
            report.takeMarked(scanMap.marks[static_cast<size_t>(column)]
                                           [static_cast<size_t>(area.rows - 1 - row)],
                              row, column);
}

// By an earlier run the rest may have been measured otherwise.
void Scan::takeSettings() {
    ScanPlan asked = plan;
    if (!askSettings(asked)) return;
    known = asked.settings;
    report.settings = known.warning;
    if (known.kept != plan.settings.kept)
        report.settings = "The instrument is set otherwise than before: " +
                          settingsDifference(plan.settings.kept, known.kept);
}

void Scan::begin() {
    setField(Field::UnitLabel, unitLabel()); // the input may have been changed
    known = plan.settings;
    report.settings = known.warning;
    if (!known.words.empty()) logEvent("Instrument: " + known.words);
    beginMap(conditionsOf(plan));
    ensureSessionFolder(foldersOfMap());
    beginScanJournal();
}

void Scan::continueFrom(const LeftJournal& left) {
    firstRow = firstMissingRow(scanMap);
    takeSettings();
    ScanConditions& conditions = *scanMap.conditions;
    report.zShiftUm = conditions.homeZUm - stageZ.positionUm;
    noteHome(conditions); // the operator has brought the sample there
    if (!conditions.continued.empty()) conditions.continued += "; ";
    conditions.continued += timeText(localTime()) + formatted(" after row %d", firstRow);
    if (known.kept != plan.settings.kept) conditions.continued += ", with " + known.words;
    takeOverReport();
    continueScanJournal(left);
    logEvent("Continued: " + conditions.continued);
}

// Whether a scan may be continued that its stage has ended, or the closed window in the middle of a
// list, which goes on as a whole.
bool Scan::canGoOn() const {
    const bool inList = end == ProcessEnd::WindowClosed && !plan.occasion.list.empty();
    return (inList || !report.endedBy.empty()) && report.pointsDone > 0 && !report.journalLost;
}

void Scan::endBy(const std::string& cause) {
    report.endedBy = cause;
    report.journalLost = journalIsBroken();
    if (canGoOn()) report.endedBy += ", \"Continue last scan\" goes on";
}

// Without X or Y the rest would be measured at one spot, for hours in the light of the laser.
void Scan::endIfAxisIsOut() {
    const StageAxis* out = axisThatIsOut();
    if (!out || report.pointsDone == area.totalPoints) return;
    setLaserLevel(0);
    endBy(axisTrouble(*out));
}

void Scan::showFirstWindows() {
    placePictureWindows();
    logEvent(formatted("Mapping: %d x %d points, step %.1f um, from X %.1f, Y %.1f um", area.cols,
                       area.rows, area.scanStep, homeX, homeY));
    logOccasion(plan.occasion);
    if (focus.follows()) logEvent("Focus plane: " + wordsOf(plan.focus));
    startLiveRows();
    if (firstRow == 0) return;
    setLiveRows(area.rows - firstRow);
    repaintMapWindow();
    repaintConfocalWindow();
}

Outcome Scan::run(const LeftJournal* left) {
    showInformation("Moving to starting point");
    setField(Field::Remaining, "");
    const auto limit = static_cast<double>(plan.currentLimit);
    const auto volts = static_cast<double>(plan.biasVoltage);
    biasWatch.told(volts, applyBias(volts, limit));
    if (left)
        continueFrom(*left);
    else
        begin();
    planes = planesOf(scanMap);
    showFirstWindows();
    startX = homeX + area.offsetXUm;
    startY = homeY + area.offsetYUm;
    showInformation("scanning ...");
    setLaserOutput(1);
    setLaserLevel(0);
    const bool compensated = compensateHysteresis(timing);
    const bool declined = !session.stopRequested && !consentGiven(compensated);
    const bool goes = !declined && !session.stopRequested;
    if (goes && !axisThatIsOut()) scanAllRows();
    if (goes) endIfAxisIsOut();
    if (otherUnit) endBy("The instrument's values are in another unit by now");
    if (processEnd() == ProcessEnd::Asleep) endBy("The computer went to sleep");
    for (const std::string& trouble : biasWatch.troubles()) // while it is on
        report.bias.push_back(trouble);
    report.journalLost = journalIsBroken();
    end = declined                                            ? ProcessEnd::Declined
          : !report.endedBy.empty() && !session.stopRequested ? ProcessEnd::Stopped
                                                              : processEnd();
    noteEnd(end);
    returnHome();
    lookAtFocus(" at the end");
    scanMap.outcome.zUm = stageZ.positionUm + report.zShiftUm;
    scanMap.outcome.trouble = troubleLine(outcome());
    setLiveRows(-1);
    // Before what may ask: nobody may be there to answer.
    if (!applyBias(0.0, limit).accepted()) {
        report.bias.emplace_back("The bias may still be on");
        scanMap.outcome.trouble = troubleLine(outcome());
    }
    const SavedFiles saved = saveScan(Asking::WithBoxes);
    // One that was to go on and did not can still go on, and one that the stage has ended.
    const bool wentOn = report.pointsDone > firstRow * area.cols;
    if (saved.numbers && !canGoOn() && (!left || wentOn)) removeJournal();
    scanMap.onlyInJournal = !saved.numbers && !canGoOn();
    leaveJournal(); // what is only there is offered again
    Outcome told = outcome();
    told.notWritten = saved.notWritten;
    told.isRefused = declined;
    if (!told.isSound()) showInformation(told.words().c_str()); // over what the saving had to say
    return told;
}

} // namespace

bool compensateHysteresis(const ArrivalTiming& timing) {
    return swingXY(timing) && swingZ(timing);
}

double remainingScanMs() {
    return Scan::running ? Scan::running->remainingMs() : 0.0;
}

std::optional<ScanProgress> scanProgress() {
    if (!Scan::running) return {};
    return Scan::running->progress();
}

namespace {

int holdersOfXy = 0;

} // namespace

XyOfScan::XyOfScan() {
    ++holdersOfXy;
}

XyOfScan::~XyOfScan() {
    --holdersOfXy;
}

bool scanMovesTheStage() {
    return holdersOfXy > 0;
}

void refuseForScan() {
    if (Scan::running) Scan::running->refuseKeys();
    showInformation("Not while a mapping runs");
}

void saveScanAtForcedEnd() {
    if (Scan::running && scanMap.conditions && scanMap.outcome.end == ProcessEnd::Running)
        Scan::running->noteEnd(ProcessEnd::Forced);
    const bool saved = saveMapFilesQuietly().numbers;
    // What is missing can still be measured. On another thread its writer may be in the middle of a
    // line.
    const bool whole =
        scanMap.conditions && firstMissingRow(scanMap) == scanMap.conditions->area.rows;
    if (saved && whole && onWindowThread()) removeJournal();
}

namespace {

// Nowhere may it have to stop half-way; empty when all of it can be reached.
std::string beyondLimit(const ScanPlan& plan) {
    const double lastX = plan.firstXUm() + (plan.area.cols - 1) * plan.area.scanStep;
    const double lastY = plan.firstYUm() + (plan.area.rows - 1) * plan.area.scanStep;
    for (const double x : {plan.firstXUm() - plan.runInUm(), lastX})
        if (std::string why = beyondLimit(stageX, x); !why.empty()) return why;
    for (const double y : {plan.firstYUm(), lastY})
        if (std::string why = beyondLimit(stageY, y); !why.empty()) return why;
    return {};
}

// Empty when it can be; takes over what is set at the instrument.
std::string whyNotStarted(ScanPlan& plan) {
    if (std::string why = whyNotScanned(plan); !why.empty()) return why;
    return askSettings(plan) ? "" : "the instrument does not say what is set at it";
}

} // namespace

std::string whyNotScanned(const ScanPlan& plan) {
    if (plan.area.isTooLarge) return "more than 36 million points, take a larger step";
    if (plan.area.part)
        if (std::string why = whyLost(*plan.area.part); !why.empty()) return why;
    if (std::string why = beyondLimit(plan); !why.empty()) return why;
    return whyNotFollowed(plan);
}

Outcome runScan(const ScanPlan& plan) {
    ScanPlan asked = plan;
    const std::string why = whyNotStarted(asked);
    if (why.empty()) return Scan(asked).run(nullptr);
    Outcome told{.end = ProcessEnd::Declined, .lastWords = "Not started: " + why};
    showInformation(told.lastWords.c_str());
    return told;
}

int runMapping() {
    runScan(presentPlan());
    return 1;
}

Outcome continueScan(const LeftJournal& left) {
    return Scan(*scanMap.conditions).run(&left);
}
