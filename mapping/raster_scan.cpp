// Runs one mapping.
#include "mapping/raster_scan.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "camera/spot.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/map_document.h"
#include "mapping/map_rendering.h"
#include "mapping/point_reading.h"
#include "mapping/scan_area.h"
#include "mapping/scan_area_view.h"
#include "mapping/scan_journal.h"
#include "mapping/scan_map.h"
#include "mapping/scan_options.h"
#include "mapping/scan_pace.h"
#include "mapping/scan_report.h"
#include "motion/stage.h"
#include "platform/clock.h"
#include "platform/messages.h"
#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/data_folders.h"
#include "session/day_log.h"
#include "session/forced_end.h"
#include "session/main_title.h"
#include "session/message_box.h"
#include "session/responsive_wait.h"
#include "session/stopwatch.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>

namespace {

// Where the scan starts and ends, um.
struct ScanPlace {
    double homeX, homeY;   // where the stage stood
    double startX, startY; // the first point
    int firstRow = 0;      // not 0 of a scan that goes on
};

ScanReport report;
BiasWatch biasWatch;
ScanPace pace(0, 0, 0.0);

bool movesTheStage = false;
uint64_t refusedMs = 0; // when the operator last wanted to; 0 never in this scan

std::string whatFailed() {
    return report.words(scanMap.documentLost);
}

void showReport() {
    const std::string failed = whatFailed();
    if (!failed.empty()) showInformation(("Mapping finished" + failed).c_str());
}

int percentOf(int count) {
    return static_cast<int>(int64_t{count} * 100 / scanArea.totalPoints);
}

void showPercentDone(int count) {
    const int percent = percentOf(count);
    std::string text = formatted("Mapping: %d%% done", percent);
    // What was said of a failed move is gone with the next point.
    if (report.pointsInDoubt > 0) text += formatted(", %d in doubt", report.pointsInDoubt);
    if (journalIsBroken()) text += ", no journal";
    // The arrival at the next point has overwritten the word.
    constexpr uint64_t readableMs = 3000;
    if (refusedMs != 0 && tickCountMs() - refusedMs < readableMs) text += ", no keys for X and Y";
    showProgress(text.c_str());
}

// How far from a point the stage may stand, um.
double placeTolerance() {
    return std::min(scanArea.scanStep / 2, 1.0);
}

// Whether the axis stands where it was sent, by one of the two looks; it is given a short time for
// that. What has no controller has not moved.
bool hasComeTo(StageAxis& axis, double targetUm,
               bool (*look)(StageAxis&, double, double) = standsAt) {
    if (axis.axisNumber == 0) axis.missed = Miss::NoController;
    return axis.axisNumber != 0 && look(axis, targetUm, placeTolerance());
}

NotThere notThere(const StageAxis& axis) {
    const bool told = axis.missed != Miss::Nothing;
    return {"XYZ"[indexOf(axis)], told ? axis.missed : Miss::Stalled};
}

// Without one of the two no further point is reached.
const StageAxis* axisThatIsOut() {
    for (const StageAxis* axis : {&stageX, &stageY})
        if (axisIsOut(*axis)) return axis;
    return nullptr;
}

// How a row begins.
struct RowStart {
    NotThere yMissed;
    double soundFromX = 0.0; // before that X has run less than the run-in
    NotThere xMissed;        // why
};

RowStart goToRow(const ScanPlace& place, double y) {
    RowStart row;
    const double runIn = runInOf(scanMap.conditions->options, scanArea.scanStep);
    const double runInX = place.startX - runIn;
    if (!moveXYTo(runInX, y, motorSpeed)) showProgress("Motor range limited");
    biasWatch.read(
        readPhotocurrent()); // discarded: the instrument may still hold the value of the last row
    // A move of both axes ends up to 3 um before its target.
    const bool ranIn = hasComeTo(stageX, runInX);
    row.soundFromX = ranIn ? place.startX : stageX.positionUm + runIn;
    if (!ranIn) row.xMissed = notThere(stageX);
    // Every row is approached from the negative side, so that backlash is taken up the same way.
    moveTo(stageX, place.startX);
    refreshPositions();
    waitResponsive(rowSettleMs);
    if (stopRequested || !hasComeTo(stageY, y)) row.yMissed = notThere(stageY);
    return row;
}

// What is missed of the point (x, y) after the move to it; a move of X has looked where it ended.
// What was missed before is not waited for again at each point of the row.
NotThere lookAtPoint(double x, double y, bool moved, bool looked, const RowStart& start) {
    if (!moved) return notThere(stageX);
    if (start.yMissed.why != Miss::Nothing) return start.yMissed;
    if (x < start.soundFromX) return start.xMissed;
    if (!looked && !hasComeTo(stageX, x)) return notThere(stageX);
    return hasComeTo(stageY, y, stillStandsAt) ? NotThere{} : notThere(stageY);
}

struct Point {
    int row, column; // in the order of the scan
    NotThere missed;
};

// Nothing when a stop came before the last reading.
std::optional<PointReading> readPoint() {
    PointReadings readings;
    constexpr uint64_t longestDeafMs = 100;
    uint64_t heard = tickCountMs();
    for (int count = 0; count < scanOptions.readingsPerPoint; ++count) {
        // Many slow readings must not deafen the windows.
        if (count > 0 && tickCountMs() - heard >= longestDeafMs) {
            waitResponsive(1);
            heard = tickCountMs();
        }
        if (stopRequested) return {};
        const Reading reading = readPhotocurrent();
        biasWatch.read(reading);
        if (!readings.take(reading)) break;
    }
    return readings.result();
}

// False, and the cell stays unmeasured, when a stop came in the middle.
bool measurePoint(const Point& point, int mapRow) {
    const auto c = static_cast<size_t>(point.column);
    const auto m = static_cast<size_t>(mapRow);
    const bool inMap = c < scanMap.marks.size() && m < scanMap.marks[c].size() &&
                       scanArea.cols == scanMap.conditions->cols &&
                       scanArea.rows == scanMap.conditions->rows;
    if (!inMap) endProgram("the scan area has changed in its own scan");
    const std::optional<PointReading> reading = readPoint();
    if (!reading) return false;
    for (const Plane& plane : planesOf(scanMap))
        if (plane.of == Plane::Of::Channel)
            scanMap.maps[plane.map][c][m] = reading->means[plane.channel];
        else if (plane.of == Plane::Of::Deviation)
            scanMap.maps[plane.map][c][m] = reading->deviations[plane.channel];
    setField(Field::MeasuredValue,
             formatted("%.5f", static_cast<double>(reading->means[0])).c_str());
    std::array<bool, spoiltCount> causes{};
    const auto spoils = [&](Spoilt cause, bool yes) { causes[static_cast<size_t>(cause)] |= yes; };
    const bool boardIsInstrument = selectedInstrument().overTheBoard;
    // The laser hangs on it.
    const bool boardStands = boardIsInstrument ? reading->answered : laserLinkStands(laserLink);
    spoils(Spoilt::Board, !boardStands);
    spoils(Spoilt::Instrument, !boardIsInstrument && !reading->answered);
    spoils(Spoilt::Overload, reading->overloaded);
    spoils(Spoilt::NotReached, point.missed.why != Miss::Nothing);
    if (point.missed.why != Miss::Nothing) report.takeMiss(point.missed);
    if (mapIsConfocal()) {
        grabFrames(cameraState, 1);
        spoils(Spoilt::Camera, cameraState.connected == 0 || !cameraState.fresh);
        const Colour colour = sampleSpotColour(laserOffset, cameraAperture);
        showSpotColour(colour);
        scanMap.maps[planeRed][c][m] = static_cast<float>(redOf(colour));
        scanMap.maps[planeGreen][c][m] = static_cast<float>(greenOf(colour));
        scanMap.maps[planeBlue][c][m] = static_cast<float>(blueOf(colour));
    }
    // Asked at each point, since the one before.
    spoils(Spoilt::Unlit, !onlyTheLaserShone() && boardStands);
    scanMap.marks[c][m] = report.take(causes, point.row, point.column);
    journalPoint(c, m);
    return true;
}

void showScanProgress(int count) {
    showPercentDone(count);
    const auto minutes = static_cast<int>(elapsedMs(false) / 1000 / 60);
    setField(Field::Time, formatted("%dM/%dM ", minutes, scanArea.estimatedMinutes).c_str());
}

// For who looks from another desk, too.
void showRemaining(int count) {
    constexpr int minutesOfDay = 24 * 60;
    const double leftMs = pace.remainingMs();
    const auto minutes = static_cast<int>(std::lround(leftMs / 60000.0));
    const std::string left =
        minutes < 2 ? formatted("%d s left", static_cast<int>(std::lround(leftMs / 1000.0)))
                    : formatted("%d min left", minutes);
    const LocalTime now = localTime();
    const int end = now.hour * 60 + now.minute + minutes;
    std::string ends = formatted("ends %02d:%02d", end / 60 % 24, end % 60);
    if (end >= minutesOfDay) ends += formatted(" +%d d", end / minutesOfDay);
    setField(Field::Remaining, (left + "\n" + ends).c_str());
    titleProgress(formatted("%d%%, %s", percentOf(count), ends.c_str()));
    showTaskbarProgress(percentOf(count));
}

void showEnd() {
    const LocalTime now = localTime();
    const auto minutes = static_cast<int>(elapsedMs(false) / 1000 / 60);
    setField(Field::Remaining,
             formatted("took %d min\nended %02d:%02d", minutes, now.hour, now.minute).c_str());
    titleProgress("");
    showTaskbarProgress(-1);
}

void markScanPoint(const WindowContext& view, int row, int column) {
    const PixelPoint point =
        onPresentView(scanArea,
                      static_cast<double>(static_cast<float>(scanArea.rectLeft) +
                                          static_cast<float>(column) * scanArea.stepPx),
                      static_cast<double>(static_cast<float>(scanArea.rectBottom) -
                                          static_cast<float>(row + 1) * scanArea.stepPx));
    markPoint(view.context, point.x, point.y);
}

// Nothing here moves Z: only a look tells that it is lost or in an alarm.
void lookAtFocus(const std::string& when) {
    readPosition(stageZ);
    const std::string trouble = axisTrouble(stageZ);
    if (report.focus.empty() && !trouble.empty()) report.focus = trouble + when;
}

// One row from left to right; false when a stop was asked for or an axis is out.
bool scanRow(const ScanPlace& place, const WindowContext& view, int row, int& count) {
    const int mapRow = scanArea.rows - 1 - row;
    const double y = place.startY + row * scanArea.scanStep;
    pace.rowBegins(tickCountMs());
    const RowStart start = goToRow(place, y);
    pace.rowReached(tickCountMs());
    if (stopRequested || axisThatIsOut()) return false;
    for (int column = 0; column < scanArea.cols; ++column) {
        const double x = place.startX + column * scanArea.scanStep;
        const uint64_t beganMs = tickCountMs();
        const bool looked = stageX.axisNumber != 0 && stageX.positionUm != x;
        const bool moved = moveTo(stageX, x);
        if (!moved) showProgress("Motor motion failure");
        showScanProgress(count + 1);
        refreshPositions();
        waitAfterMove(std::max(beganMs, lastSettledMs()),
                      static_cast<uint32_t>(scanOptions.beforeReadingMs));
        if (stopRequested) return false;
        const NotThere missed = lookAtPoint(x, y, moved, looked, start);
        if (stopRequested || axisThatIsOut()) return false;
        markScanPoint(view, row, column);
        if (!measurePoint({row, column, missed}, mapRow)) return false;
        ++count;
        pace.pointDone(tickCountMs());
        showRemaining(count);
    }
    lookAtFocus(formatted(" in row %d", row + 1));
    flushJournal();
    setLiveRows(mapRow);
    drawMapRow(mapWindow, scanMap.maps[planePhotocurrent], mapRow);
    if (mapIsConfocal()) drawConfocalRow(confocalWindow, mapRow);
    return true;
}

void showScanAreaForConsent() {
    checkRadio(idLaserView, idSampleView, idSampleView);
    waitResponsive(1000);
    switchLiveView(LiveView::FreshFrame);
    showScanArea();
    if (wideView) grabFrames(cameraState, 1); // what is on the screen was seen earlier
    keepScanPicture();
}

bool consentGiven(bool compensated) {
    const char* const question =
        compensated ? "Hysteresis compensated. Is it okay?"
                    : "Hysteresis not compensated: the stage did not arrive. Is it okay?";
    return showMessageBox(mainWindow, question, "Scan area checking", BoxButtons::YesNo) ==
           BoxAnswer::Yes;
}

void scanAllRows(const ScanPlace& place) {
    if (mapIsConfocal()) {
        controlCamera(cameraState, cameraManual);
        scanMap.conditions->takenGain = cameraState.takenGain;
        scanMap.conditions->takenExposureUs = cameraState.takenExposureUs;
        grabFrames(cameraState, 1);
    }
    setLaserOutput(0);
    setLaserLevel(1);
    onlyTheLaserShone(); // from here on
    if (!moveXYTo(place.startX, place.startY, motorSpeed)) showProgress("Motor range limited");
    report.swingFailed = !compensateHysteresis();
    elapsedMs(true);
    waitResponsive(500);

    const double rowUm = (scanArea.cols - 1) * scanArea.scanStep;
    pace = ScanPace(scanArea.cols, scanArea.rows - place.firstRow,
                    rowUm / (motorSpeed * umPerFullStep) * 1000.0);
    const WindowContext view(mainWindow); // the scan's own, for its markers
    int count = place.firstRow * scanArea.cols;
    for (int row = place.firstRow; row < scanArea.rows && !stopRequested && !axisThatIsOut(); ++row)
        if (!scanRow(place, view, row, count)) break;
    flushJournal(); // of a row that was not finished
    report.pointsDone = count;
    logEvent(formatted("Mapping: %d of %d points, %d in doubt", count, scanArea.totalPoints,
                       report.pointsInDoubt));
    showEnd();
}

void returnHome(const ScanPlace& place) {
    report.stayedAway = !moveXYTo(place.homeX, place.homeY, motorSpeed);
    controlCamera(cameraState, cameraAutomatic);
    setLaserOutput(processEnd() == ProcessEnd::Asleep ? 0 : 1);
    setLaserLevel(0);
    switchLiveView(LiveView::Off);
    refreshPositions();
    if (report.pointsInDoubt > 0) showPercentDone(report.pointsDone); // over the move's own text
    showInformation("Mapping finished");
    showReport();
    if (const std::string failed = whatFailed(); !failed.empty())
        std::printf("Mapping finished%s\n", failed.c_str());
}

void saveConfocalImage(int channel, const char* label) {
    drawMap(confocalWindow, channel);
    saveMapImage(confocalWindow, channel, label);
}

void saveImages() {
    placePictureWindows(); // they may have been closed since
    drawMapWithScale(channelPhotocurrent);
    for (const Plane& plane : planesOf(scanMap)) {
        if (plane.of == Plane::Of::Channel)
            saveMapImage(mapWindow, channelOf(plane), plane.pictureName);
        if (plane.of == Plane::Of::Colour) saveConfocalImage(channelOf(plane), plane.pictureName);
    }
    if (mapIsConfocal()) saveConfocalImage(channelConfocal, "CONFOCAL");
}

// Whether every number is in a file.
bool saveEverything(bool (*saveFiles)()) {
    const bool saved = saveFiles() && !scanMap.documentLost;
    saveImages();
    return saved;
}

void noteEnd(ProcessEnd end) {
    scanMap.outcome = {.end = end,
                       .ended = localTime(),
                       .zUm = stageZ.positionUm + report.zShiftUm,
                       .laserLevel = laserLevel,
                       .gain = cameraState.takenGain,
                       .exposureUs = cameraState.takenExposureUs,
                       .blueOnly = blueOnly != 0,
                       .trouble = whatFailed()};
}

} // namespace

bool compensateHysteresis() {
    constexpr double swing[] = {20.0, -35.0, 25.0, -15.0, 5.0};
    for (double um : swing)
        if (!moveXYBy(um, um, motorSpeed)) return false;
    return moveBy(stageZ, 2.0) && moveBy(stageZ, -2.0);
}

double remainingScanMs() {
    return pace.remainingMs();
}

// The stage is looked at as the operator chose, in this object's block.
struct ScanTiming {
    ScanTiming() {
        arrivalTiming = {scanOptions.looksEarly, static_cast<uint32_t>(scanOptions.settleMs),
                         placeTolerance()};
    }
    ~ScanTiming() { arrivalTiming = {}; }
    ScanTiming(const ScanTiming&) = delete;
    ScanTiming& operator=(const ScanTiming&) = delete;
};

// In this object's block X and Y are the scan's.
struct OwnStage {
    OwnStage() {
        movesTheStage = true;
        refusedMs = 0;
    }
    ~OwnStage() { movesTheStage = false; }
    OwnStage(const OwnStage&) = delete;
    OwnStage& operator=(const OwnStage&) = delete;
};

bool scanMovesTheStage() {
    return movesTheStage;
}

void refuseForScan() {
    refusedMs = std::max<uint64_t>(tickCountMs(), 1);
    showInformation("Not while a mapping runs");
}

bool saveScan() {
    return saveEverything(saveMapFilesQuietly);
}

bool saveMapsAgain() {
    const bool wasLost = scanMap.documentLost;
    if (!saveMapFiles() || scanMap.documentLost) return false;
    if (scanMap.onlyInJournal)
        for (const LeftJournal& left : leftJournals())
            if (isJournalOf(left, *scanMap.conditions)) removeLeftJournal(left);
    scanMap.onlyInJournal = false;
    if (wasLost) showInformation("Saved"); // over what was said of the file
    return true;
}

void saveScanAtForcedEnd() {
    if (scanMap.conditions && scanMap.outcome.end == ProcessEnd::Running)
        noteEnd(ProcessEnd::Forced);
    const bool saved = saveMapFilesQuietly() && !scanMap.documentLost;
    if (saved && onWindowThread())
        removeJournal(); // else its writer may be in the middle of a line
}

namespace {

// What is told of the points that an earlier run has measured.
void takeOverReport(int firstRow) {
    report.pointsDone = firstRow * scanArea.cols;
    for (int row = 0; row < firstRow; ++row)
        for (int column = 0; column < scanArea.cols; ++column)
            report.takeMarked(scanMap.marks[static_cast<size_t>(column)]
                                           [static_cast<size_t>(scanArea.rows - 1 - row)],
                              row, column);
}

void beginScan() {
    allocateMaps();
    scanMap.conditions = presentConditions();
    ensureSessionFolder(dataFolders);
    beginScanJournal();
}

void beginContinuation(ScanPlace& place, const LeftJournal& left) {
    place.firstRow = firstMissingRow(scanMap);
    ScanConditions& conditions = *scanMap.conditions;
    report.zShiftUm = conditions.homeZUm - stageZ.positionUm;
    if (!conditions.continued.empty()) conditions.continued += "; ";
    conditions.continued += timeText(localTime()) + formatted(" after row %d", place.firstRow);
    takeOverReport(place.firstRow);
    continueScanJournal(left);
    logEvent("Continued: " + conditions.continued);
}

// Whether a scan that its stage has ended may be continued.
bool canGoOn() {
    return !report.endedBy.empty() && report.pointsDone > 0 && !report.journalLost;
}

void endBy(const std::string& cause) {
    report.endedBy = cause;
    report.journalLost = journalIsBroken();
    if (canGoOn()) report.endedBy += ", \"Continue last scan\" goes on";
}

// Without X or Y the rest would be measured at one spot, for hours in the light of the laser.
void endIfAxisIsOut() {
    const StageAxis* out = axisThatIsOut();
    if (!out || report.pointsDone == scanArea.totalPoints) return;
    setLaserLevel(0);
    endBy(axisTrouble(*out));
}

void scanFrom(const LeftJournal* left) {
    const ScanTiming timing;
    const OwnStage own;
    showInformation("Moving to starting point");
    setField(Field::Remaining, "");
    report = {};
    biasWatch = {};
    pace = ScanPace(0, 0, 0.0);
    ScanPlace place{currentPositionUm(stageX), currentPositionUm(stageY), 0.0, 0.0};
    const auto limit = static_cast<double>(instrumentLink.currentLimit);
    const auto volts = static_cast<double>(instrumentLink.biasVoltage);
    biasWatch.told(volts, applyBias(volts, limit));
    if (left)
        beginContinuation(place, *left);
    else
        beginScan();
    placePictureWindows();
    logEvent(formatted("Mapping: %d x %d points, step %.1f um, from X %.1f, Y %.1f um",
                       scanArea.cols, scanArea.rows, scanArea.scanStep, place.homeX, place.homeY));
    startLiveRows();
    if (place.firstRow > 0) {
        setLiveRows(scanArea.rows - place.firstRow);
        repaintMapWindow();
        repaintConfocalWindow();
    }
    place.startX = place.homeX + scanArea.offsetXUm;
    place.startY = place.homeY + scanArea.offsetYUm;
    showInformation("scanning ...");
    setLaserOutput(1);
    setLaserLevel(0);
    const bool compensated = compensateHysteresis();
    if (!stopRequested) showScanAreaForConsent();
    // Who has stopped or closed meanwhile is asked nothing.
    const bool declined = !stopRequested && !consentGiven(compensated) && !stopRequested;
    const bool goes = !declined && !stopRequested;
    if (goes && !axisThatIsOut()) scanAllRows(place);
    if (goes) endIfAxisIsOut();
    if (processEnd() == ProcessEnd::Asleep) endBy("The computer went to sleep");
    report.bias = biasWatch.words(); // while it is on
    report.journalLost = journalIsBroken();
    noteEnd(declined                                    ? ProcessEnd::Declined
            : !report.endedBy.empty() && !stopRequested ? ProcessEnd::Stopped
                                                        : processEnd());
    returnHome(place);
    lookAtFocus(" at the end");
    scanMap.outcome.zUm = stageZ.positionUm + report.zShiftUm;
    scanMap.outcome.trouble = whatFailed();
    setLiveRows(-1);
    applyBias(0.0, limit); // before what may ask: nobody may be there to answer
    const bool saved = saveEverything(saveMapFiles);
    // One that was to go on and did not can still go on, and one that the stage has ended.
    const bool wentOn = report.pointsDone > place.firstRow * scanArea.cols;
    if (saved && !canGoOn() && (!left || wentOn)) removeJournal();
    scanMap.onlyInJournal = !saved && !canGoOn();
    leaveJournal(); // what is only there is offered again
    showReport();   // over what the saving had to say
}

} // namespace

int runMapping() {
    scanFrom(nullptr);
    return 1;
}

int continueMapping(const LeftJournal& left, const std::string& folder) {
    const OtherSessionFolder scansOwn(folder);
    scanFrom(&left);
    return 1;
}
