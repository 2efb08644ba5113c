// Carries out the operator's commands, keys and mouse actions.
#include "ui/commands.h"

#include "actions/measurements.h"
#include "actions/settings.h"
#include "app/fatal.h"
#include "app/recovery.h"
#include "app/settings_line.h"
#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "camera/wide_view.h"
#include "door/door.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/click_positioning.h"
#include "mapping/map_rendering.h"
#include "mapping/map_saving.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_area.h"
#include "mapping/scan_area_view.h"
#include "mapping/scan_map.h"
#include "motion/focus_plane.h"
#include "motion/stage.h"
#include "motion/stage_connection.h"
#include "platform/clock.h"
#include "platform/messages.h"
#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "platform/viewer.h"
#include "platform/widen.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/data_folders.h"
#include "session/day_log.h"
#include "session/forced_end.h"
#include "session/journal.h"
#include "session/message_box.h"
#include "session/pause.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"
#include "ui/area_choice.h"
#include "ui/calibrate.h"
#include "ui/colours_dialog.h"
#include "ui/configuration.h"
#include "ui/continue_window.h"
#include "ui/devices_page.h"
#include "ui/fit_option.h"
#include "ui/list_window.h"
#include "ui/objective.h"
#include "ui/places_window.h"
#include "ui/scan_options_dialog.h"
#include "ui/scans_window.h"
#include "ui/set_up_dialog.h"
#include "ui/tool_windows.h"

#include <algorithm>
#include <cstdlib>

HandState handState;

namespace {

constexpr double focusStepUm = 1.0;
constexpr double focusFastStepUm = 5.0;
constexpr double focusKeyStepUm = 50.0;
double xyKeyStep = 100.0; // um

void moveAndShow(StageAxis& axis, double um) {
    if (!mayMoveByHand(axis)) return;
    // A held Ctrl+arrow repeats inside the move's wait, as a plain arrow that means another move.
    const int busyBefore = handState.keyBusy;
    handState.keyBusy = 1;
    moveBy(axis, um);
    handState.keyBusy = busyBefore;
    refreshPositions();
}

void readPositions() {
    for (StageAxis* axis : {&stageX, &stageY, &stageZ}) readPosition(*axis);
    refreshPositions();
}

void reconnectStages() {
    stopAllStages();
    keepPlaces();
    closeAllStages();
    connectStagesAndTell("Standa device found");
    refreshPositions();
}

void showLaserView() {
    connectMissingCamera();
    checkRadio(idLaserView, idSampleView, idLaserView);
    setLaserOutput(0);
    setLaserLevel(1);
    controlCamera(cameraState, cameraManual);
    switchLiveView(LiveView::On);
}

void showSampleView() {
    checkRadio(idLaserView, idSampleView, idSampleView);
    setLaserOutput(1);
    setLaserLevel(0);
    connectMissingCamera();
    controlCamera(cameraState, cameraAutomatic);
    switchLiveView(LiveView::On);
}

Outcome makeWideView() {
    connectMissingCamera();
    switchLiveView(LiveView::Off);
    return imageWideView();
}

void setCameraAutomatic() {
    cameraState.blueOnly = 0;
    connectMissingCamera();
    controlCamera(cameraState, cameraAutomatic);
    grabFrames(cameraState, 1);
    waitResponsive(50);
    showCameraSettings();
}

void saveOptics() {
    saveShownPicture("optics");
}

void saveCameraImage() {
    ensureSessionFolder(dataFolders);
    if (display.wideView)
        saveShownPicture("wide");
    else
        drawCameraFrame(cameraImage.pixels.get(), 1);
}

void saveMaps() {
    ensureSessionFolder(dataFolders);
    if (!processUnderWay()) return static_cast<void>(saveMapsAgain());
    // A box would hold the process where it is, with the laser on; a scan saves at its end again.
    if (!saveMapFilesQuietly().textFiles)
        showInformation("File saving error. New folder will be made.");
}

void showLiveView() {
    connectMissingCamera();
    switchLiveView(LiveView::On);
}

void endLiveView() {
    releaseCamera(cameraState);
    switchLiveView(LiveView::Off);
}

void showLog() {
    logEvent("Command: Show log"); // there is a file to show then
    const std::wstring path = dayLogPath();
    if (!openInViewer(path)) showInformation(("The log does not open: " + narrowed(path)).c_str());
}

// The area and the step of a recovered scan are the present ones from then on.
void recoverAndShow() {
    recoverLast();
    showScanSettings();
}

void drawScanArea() {
    switchLiveView(LiveView::Off);
    showScanArea();
}

// The objective must not touch the sample: from here on Z goes no higher.
void setHighestZ() {
    if (stageZ.axisNumber == 0 || axisIsOut(stageZ))
        return showInformation("Not set: stage Z has no controller that answers");
    readPosition(stageZ);
    const double place = ofController(stageZ, stageZ.positionUm);
    if (place <= setUp.ranges[2].lowest)
        return showInformation("Not set: Z stands at its lowest place of the set-up, or below");
    const bool written = keepHighestZ(place);
    const std::string words = formatted("Highest Z: %.1f um", stageZ.positionUm) +
                              (written ? "" : ", for this run only: Setup.ini was not written");
    logEvent(words);
    showInformation(words.c_str());
}

// Scans that start from here on, and until the program ends, follow the plane.
void followFocusPlane() {
    if (!planeInUse.plane)
        return showInformation("There is no focus plane: \"Stage\", \"Places...\" makes one");
    planeInUse.follows = toggleCheckMark(idFollowFocus);
    const std::string words = planeInUse.follows
                                  ? "Scans follow the focus plane, " + wordsOf(slopesToFollow())
                                  : "Scans do not follow the focus plane";
    logEvent(words);
    showInformation(words.c_str());
}

// The map of a lock-in amplifier's channel, by its number.
void showChannel(size_t channel) {
    for (const Plane& plane : planesOf(scanMap))
        if (plane.of == Plane::Of::Channel && plane.channel == channel && !plane.name.empty())
            return showMapWindow(channelOf(plane));
    showInformation("The map has no such channel");
}

// What an operator's command meets while something else is under way.
constexpr Meanwhile allowed = Meanwhile::Allowed, refused = Meanwhile::Refused,
                    ignored = Meanwhile::Ignored, notInScan = Meanwhile::NotInScan;

// Whether it is done now; where it is refused, says why.
bool mayHappen(Meanwhile duringProcess, Meanwhile duringMove) {
    const bool process = processUnderWay();
    Meanwhile answer = process ? duringProcess : allowed;
    if (answer == notInScan) {
        if (scanMovesTheStage()) return refuseForScan(), false;
        answer = allowed;
    }
    const bool moves = answer == allowed && stageIsMoving();
    if (moves) answer = duringMove;
    if (answer == refused && moves) showInformation("Not while the stage moves");
    if (answer == refused && !moves) refuseForProcess();
    return answer == allowed;
}

// clang-format off: one line a command
constexpr Command commands[] = {
    // A modal box would hold the process where it is, with the laser on.
    {idAbout, showAbout, refused, allowed},
    {idDevices, [] { showDevices(devicesPage().c_str()); }, refused, allowed},
    {idShowLog, showLog, allowed, allowed},
    {idExit, onClose, allowed, allowed, "Exit"},
    // While one runs, the click is the question whether to stop it.
    {idStart, [] { startMapping(Consent::OfTheOperator); }, ignored, refused},
    {idWideView, [] { runProcess("Wide View", makeWideView); }, ignored, refused},
    {idFocus, [] { startFocus(); }, ignored, refused},
    {idIvMeasurement, [] { openTool(Tool::IvCurve); }, allowed, allowed},
    {idTimeEvolution, [] { openTool(Tool::TimeEvolution); }, allowed, allowed},
    // A move inside another one would never find its target.
    {idMoveXPlus, [] { moveAndShow(stageX, xyKeyStep); }, notInScan, ignored, "X +100 um"},
    {idMoveXMinus, [] { moveAndShow(stageX, -xyKeyStep); }, notInScan, ignored, "X -100 um"},
    {idMoveYPlus, [] { moveAndShow(stageY, xyKeyStep); }, notInScan, ignored, "Y +100 um"},
    {idMoveYMinus, [] { moveAndShow(stageY, -xyKeyStep); }, notInScan, ignored, "Y -100 um"},
    {idFocusUp, [] { moveAndShow(stageZ, focusStepUm); }, allowed, ignored, "Z +1 um"},
    {idFocusDown, [] { moveAndShow(stageZ, -focusStepUm); }, allowed, ignored, "Z -1 um"},
    {idFocusUpFast, [] { moveAndShow(stageZ, focusFastStepUm); }, allowed, ignored, "Z +5 um"},
    {idFocusDownFast, [] { moveAndShow(stageZ, -focusFastStepUm); }, allowed, ignored, "Z -5 um"},
    {idReadPositions, readPositions, allowed, allowed},
    {idRefreshPositions, refreshPositions, allowed, allowed},
    // A new zero in the middle of a move would send it, or the next one, to another place.
    {idReconnectStages, reconnectStages, refused, refused, "Reconnect Stages"},
    {idSetHighestZ, setHighestZ, refused, refused, "Set highest Z here"},
    {idRememberPlace, rememberPlace, refused, refused, "Remember place"},
    {idPlaces, openPlacesWindow, allowed, allowed},
    {idFollowFocus, followFocusPlane, refused, refused, "Follow focus plane"},
    {idConfiguration, configure, refused, refused, "Configuration"},
    {idScanList, openListWindow, allowed, allowed},
    {idPause, switchPause, allowed, allowed},
    {idPauseBehindRow, [] { askForPause(PauseBehind::Row); }, allowed, allowed},
    {idSetUp, changeSetUp, refused, refused, "Set-up"},
    {idObjective, [] { chooseObjective(1); }, refused, refused, "Objective 1"},
    {idObjective + 1, [] { chooseObjective(2); }, refused, refused, "Objective 2"},
    {idObjective + 2, [] { chooseObjective(3); }, refused, refused, "Objective 3"},
    {idObjective + 3, [] { chooseObjective(4); }, refused, refused, "Objective 4"},
    {idObjective + 4, [] { chooseObjective(5); }, refused, refused, "Objective 5"},
    {idObjective + 5, [] { chooseObjective(6); }, refused, refused, "Objective 6"},
    {idObjective + 6, [] { chooseObjective(7); }, refused, refused, "Objective 7"},
    {idObjective + 7, [] { chooseObjective(8); }, refused, refused, "Objective 8"},
    {idCalibrateCamera, calibrateCameraAndStage, refused, refused, "Calibrate camera and stage"},
    {idCalibratePlay, calibratePlayOfStage, refused, refused, "Calibrate play"},
    {idCalibrateSpot, calibrateLaserSpot, refused, refused, "Calibrate laser spot"},
    {idCalibrateDark, calibrateDarkValue, refused, refused, "Calibrate dark value"},
    {idScanOptions, chooseScanOptions, refused, refused, "Scan options"},
    {idIlluminationOn, [] { setLaserOutput(1); }, allowed, allowed, "illuminate On"},
    {idIlluminationOff, [] { setLaserOutput(0); }, allowed, allowed, "illuminate Off"},
    {idLaserOn, [] { setLaserLevel(1); }, allowed, allowed, "Laser On"},
    {idLaserOff, [] { setLaserLevel(0); }, allowed, allowed, "Laser Off"},
    {idLaserView, showLaserView, allowed, allowed, "Laser view"},
    {idSampleView, showSampleView, allowed, allowed, "Sample view"},
    {idLiveOn, showLiveView, allowed, allowed, "Video On"},
    {idLiveOff, endLiveView, allowed, allowed, "Video Off"},
    {idGain, takeCommandedGain, allowed, allowed},
    {idCameraAuto, setCameraAutomatic, allowed, allowed, "Camera auto setting"},
    {idCameraAutoSetting, setCameraAutomatic, allowed, allowed, "Camera auto setting"},
    {idBlueOnly, [] { cameraState.blueOnly = 1; }, allowed, allowed},
    {idPickLaserSpot, [] { handState.picksLaserSpot = toggleCheckMark(idPickLaserSpot); }, allowed,
     allowed},
    {idDrawScanArea, drawScanArea, allowed, allowed},
    {idShowMap, [] { showMapWindow(channelPhotocurrent); }, allowed, allowed},
    {idShowConfocal,
     [] {
         if (scanSettings.confocalEnabled) showMapWindow(channelConfocal);
     },
     allowed, allowed},
    {idShowConfocalMenu, [] { showMapWindow(channelConfocal); }, allowed, allowed},
    {idShowRed, [] { showMapWindow(channelRed); }, allowed, allowed},
    {idShowGreen, [] { showMapWindow(channelGreen); }, allowed, allowed},
    {idShowBlue, [] { showMapWindow(channelBlue); }, allowed, allowed},
    // A running scan draws its rows into the same window.
    {idShowChannel, [] { showChannel(0); }, refused, allowed},
    {idShowChannel + 1, [] { showChannel(1); }, refused, allowed},
    {idShowChannel + 2, [] { showChannel(2); }, refused, allowed},
    {idShowChannel + 3, [] { showChannel(3); }, refused, allowed},
    {idShowChannel + 4, [] { showChannel(4); }, refused, allowed},
    {idFitToScreen, toggleFit, allowed, allowed},
    {idColours, chooseColours, refused, allowed, "Colours"},
    {idSaveWindowImage, saveOptics, allowed, allowed, "Save Window Image"},
    {idSaveCameraImage, saveCameraImage, allowed, allowed, "Save Camera Image"},
    {idSaveMaps, saveMaps, allowed, allowed, "Save Maps"},
    {idRecoverScan, recoverAndShow, refused, refused, "Recover last scan"},
    {idContinueScan, openContinueWindow, refused, refused, "Continue last scan"},
    // Reads folders, which may lie far away.
    {idScans, openScansWindow, refused, refused},
    {idContinueList, continueLastList, refused, refused, "Continue last list"},
};
// clang-format on

void redrawPicture() {
    if (display.wideView)
        drawWideView();
    else
        drawCameraFrame(cameraImage.pixels.get(), 0);
}

void invertDrag() {
    const WindowContext view(windows.main);
    if (!view.context) return;
    PictureRectangle& drag = display.drawnRectangle;
    drag.viewScale = display.wideView ? display.wideFactor : 1;
    invertRectangle(view.context, std::min(drag.x1, drag.x2), std::min(drag.y1, drag.y2),
                    std::max(drag.x1, drag.x2), std::max(drag.y1, drag.y2));
}

// The button went up where this window did not hear of it: no selection, no click.
void endLostDrag() {
    handState.dragging = false;
    redrawPicture();
}

bool drawnAreaConfirmed(int widthPx, int heightPx) {
    const Objective& objective = setUp.objective();
    const int32_t scale = display.drawnRectangle.viewScale;
    return areaConfirmed(widthPx * (objective.umPerColumn() * scale),
                         heightPx * (objective.umPerRow() * scale));
}

void takeDrawnArea() {
    const PictureRectangle& drag = display.drawnRectangle;
    ScanArea area = scanArea;
    area.placed = false;
    area.part.reset();
    area.viewScale = drag.viewScale;
    area.rectX1 = drag.x1;
    area.rectY1 = drag.y1;
    area.rectX2 = drag.x2;
    area.rectY2 = drag.y2;
    takeScanArea(area);
}

} // namespace

std::span<const Command> commandTable() {
    return commands;
}

void onCommand(int id) {
    liveViewState.noticeStands = false;
    for (const Command& command : commands) {
        if (command.id != id || !mayHappen(command.duringProcess, command.duringMove)) continue;
        if (command.logged) logEvent(std::string("Command: ") + command.logged);
        command.carryOut();
    }
    leaveStaleWideView();
    // So that the arrow keys go on working; into a tool window the operator types.
    constexpr int typedInto[] = {idIvMeasurement, idTimeEvolution, idContinueScan, idScanList,
                                 idRememberPlace, idPlaces,        idScans};
    if (std::find(std::begin(typedInto), std::end(typedInto), id) == std::end(typedInto))
        focusMainWindow();
}

namespace {

// Whether a key would move X or Y.
bool isArrow(uintptr_t virtualKey) {
    return virtualKey == keyLeft || virtualKey == keyUp || virtualKey == keyRight ||
           virtualKey == keyDown;
}

} // namespace

void onKeyDown(uintptr_t virtualKey) {
    resetIdle();
    // Between two readings of a point it would stay at another place.
    if (isArrow(virtualKey) && scanMovesTheStage()) return refuseForScan();
    if (handState.keyBusy || stageIsMoving()) return;
    handState.keyBusy = 1;
    switch (virtualKey) {
    case keyPageUp:
        moveBy(stageZ, focusKeyStepUm);
        break;
    case keyPageDown:
        moveBy(stageZ, -focusKeyStepUm);
        break;
    case keyLeft:
        moveBy(stageX, -xyKeyStep);
        break;
    case keyUp:
        moveBy(stageY, xyKeyStep);
        break;
    case keyRight:
        moveBy(stageX, xyKeyStep);
        break;
    case keyDown:
        moveBy(stageY, -xyKeyStep);
        break;
    default:
        return; // the move keys stay blocked until the next click: whoever types is not steering
    }
    if (!windows.main) return;
    refreshPositions();
    grabAndDraw();
    if (handState.dragging) invertDrag();
    handState.keyBusy = 0;
}

void onKeyUp() {
    resetIdle();
}

void onMouseMove(int x, int y, bool leftButtonHeld) {
    // A window that comes or goes under the pointer sends one, too: nobody has read anything yet.
    const bool noticeStands = liveViewState.noticeStands;
    resetIdle();
    liveViewState.noticeStands = noticeStands;
    if (!handState.dragging) return;
    if (!leftButtonHeld) return endLostDrag();
    if (!inPicture(x, y)) return;
    invertDrag();
    display.drawnRectangle.x2 = x;
    display.drawnRectangle.y2 = y;
    invertDrag();
}

void onLeftButtonDown(int x, int y) {
    handState.keyBusy = 0;
    resetIdle();
    switchLiveView(LiveView::Off);
    // A process keeps the scan area that it works on.
    if (!inPicture(x, y) || handState.dragging || processUnderWay()) return;
    drawCircleMark(windows.main, x, y, 2, markRed);
    display.drawnRectangle = {x, y, x, y};
    handState.dragging = true;
    invertDrag();
}

namespace {

// What the live picture does not show cannot be chosen: of a sensor that is smaller than it. False
// when nothing of the drag is left.
bool keepDragInSight() {
    PictureRectangle& drag = display.drawnRectangle;
    const PictureArea& seen = cameraImage.seen;
    if (drag.viewScale != 1 || seen == PictureArea()) return true;
    const auto clip = [](int32_t& from, int32_t& to, int32_t least, int32_t extent) {
        const int32_t most = least + extent;
        if (std::max(from, to) < least || std::min(from, to) > most) return false;
        from = std::clamp(from, least, most);
        to = std::clamp(to, least, most);
        return true;
    };
    return clip(drag.x1, drag.x2, seen.left, seen.width) &&
           clip(drag.y1, drag.y2, imageHeight - seen.bottom - seen.height, seen.height);
}

} // namespace

void onLeftButtonUp(int x, int y) {
    if (!handState.dragging) return;
    handState.dragging = false;
    if (processUnderWay()) return redrawPicture(); // started while the button was held
    const PictureRectangle& drag = display.drawnRectangle;
    const auto width = [&] { return std::abs(drag.x1 - drag.x2); };
    const auto height = [&] { return std::abs(drag.y1 - drag.y2); };
    if (std::max(width(), height()) > largestClickPx) {
        if (!keepDragInSight()) {
            showInformation("The camera does not see that place");
            return redrawPicture();
        }
        const bool selected = drawnAreaConfirmed(width(), height()) && !processUnderWay();
        redrawPicture(); // erases the dragged rectangle
        if (selected) takeDrawnArea();
    } else if (handState.picksLaserSpot) {
        pickLaserSpot(x, y);
    } else if (!mayHappen(refused, refused)) {
        redrawPicture(); // erases the mark
    } else {
        moveToClickedPoint(x, y);
    }
}

void onPaint() {
    redrawPicture();
    repaintScanArea();
    if (handState.dragging) invertDrag();
}

void saveShownPicture(const char* label) {
    const bool isDrawnOver = display.marks || display.overlay || display.pointer;
    const auto show = [&](bool plain) {
        display.isPlain = plain;
        if (isDrawnOver) onPaint();
    };
    show(true);
    saveWindowImage(dataFolders, windows.main, 1, label);
    show(false);
}

void onTimer(Timer timer) {
    if (timer == Timer::LiveView) liveViewTick();
    if (timer == Timer::Journal) journalTick();
    if (timer == Timer::Board) watchLaserBoard();
    if (timer == Timer::Scans) scansTick();
    if (timer == Timer::Door) onDoorTimer();
}

void onClose() {
    logEvent("The main window is closed");
    if (processUnderWay()) return stopAndClose();
    // A move may be under way, and what called it comes back only after its time-out.
    stopAllStages();
    setLaserLevel(0);
    destroyMainWindow();
}

void onSessionEnd() {
    session.stopRequested = 1;
    session.goesToSleep = true;
    // Before any file: a desktop that lies elsewhere may not answer any more.
    darkenAtOnce();
    stopAllStages();
    logEvent("Windows ends the session");
    // The system waits a few seconds: the settings are quick, an instrument may be stuck.
    writeSettingsFile(dataFolders.configPath);
    makeSafe();
    // A scan would drive home and switch the lamp on while another program holds the end up.
    if (processUnderWay()) forcedEnd.begun = true;
}

void onSuspend() {
    session.goesToSleep = true;
    const bool dark = darkenAtOnce();
    stopAllStages();
    flushJournal();
    logEvent(std::string("The computer goes to sleep: lights off") +
             (dark ? "" : ", but the board did not take it") +
             (processUnderWay() ? ", the process is stopped" : ""));
    if (processUnderWay()) stopForSleep();
}

void onResume() {
    session.goesToSleep = false;
    logEvent("The computer is awake again");
    renewLaserBoard();
    const std::string lit = lightLeftOn();
    std::string words = "The computer was asleep: " + (lit.empty() ? "the lights are off" : lit);
    if (instrumentLink.bias.state != BiasState::Off) words += ", a bias is still on";
    showInformation(words.c_str());
}

void fillControlColumn() {
    handState.picksLaserSpot = false; // a new window's menu has no check mark
    planeInUse.follows = false;       // nor here
    showScanSettings();
    showCameraSettings();
    setField(Field::UnitLabel, unitLabel());
    checkRadio(idLaserView, idSampleView, idSampleView);
    refreshPositions();
    focusMainWindow();
}
