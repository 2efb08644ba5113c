// Carries out the operator's commands, keys and mouse actions.
#include "ui/commands.h"

#include "app/data_folders.h"
#include "app/fatal.h"
#include "app/process.h"
#include "app/responsive_wait.h"
#include "app/settings_line.h"
#include "camera/autofocus.h"
#include "camera/camera.h"
#include "camera/display.h"
#include "camera/wide_view.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "mapping/click_positioning.h"
#include "mapping/map_rendering.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "motion/stage_connection.h"
#include "platform/clock.h"
#include "platform/message_box.h"
#include "platform/messages.h"
#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "ui/configuration.h"
#include "ui/control_ids.h"
#include "ui/live_view.h"
#include "ui/screen.h"
#include "ui/tool_windows.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr double focusStepUm = 1.0;
constexpr double focusFastStepUm = 5.0;
constexpr double focusKeyStepUm = 50.0;
constexpr int largestClickPx = 10; // a smaller drag is a click

double xyKeyStep = 100.0; // um
int keyBusy = 0;
bool picksLaserSpot = false; // a click sets the laser spot; what item 2111 toggles
bool dragging = false;
bool scanAreaShown = false;

void moveAndShow(StageAxis& axis, double um) {
    if (stageIsMoving()) return; // that move would never find its target
    // A held Ctrl+arrow repeats inside the move's wait, as a plain arrow that means another move.
    const int busyBefore = keyBusy;
    keyBusy = 1;
    moveBy(axis, um);
    keyBusy = busyBefore;
    refreshPositions();
}

void mapSample() {
    stopRequested = 0; // before the question: the window may be closed while it is asked
    if (!partialStageAccepted() || stopRequested) return;
    processRunning = 1;
    setField(Field::StartButton, "Stop");
    showInformation("Writing...");
    waitResponsive(10);
    if (confocalEnabled) connectMissingCamera();
    showMapWindow(channelPhotocurrent);
    runMapping();
    processRunning = 0;
    setField(Field::StartButton, "Start");
    refreshPositions();
}

void readPositions() {
    for (StageAxis* axis : {&stageX, &stageY, &stageZ}) readPosition(*axis);
    refreshPositions();
}

void reconnectStages() {
    // A new zero in the middle of a move would send it, or the next one, to another place.
    if (stageIsTaken()) return;
    stopAllStages();
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
    switchLiveView(1);
}

void showSampleView() {
    checkRadio(idLaserView, idSampleView, idSampleView);
    setLaserOutput(1);
    setLaserLevel(0);
    connectMissingCamera();
    controlCamera(cameraState, cameraAutomatic);
    switchLiveView(1);
}

void focusLaser() {
    connectMissingCamera();
    checkRadio(idLaserView, idSampleView, idLaserView);
    const bool laserWasOn = laserIsOn();
    setLaserLevel(1);
    setLaserOutput(0);
    // After a stop nobody watches over the light that the search has switched on.
    if (!autoFocus(focusState) && !laserWasOn) setLaserLevel(0);
}

void makeWideView() {
    connectMissingCamera();
    switchLiveView(0);
    wideViewImaging();
}

void setCameraAutomatic() {
    blueOnly = 0;
    connectMissingCamera();
    controlCamera(cameraState, cameraAutomatic);
    grabFrames(cameraState, 1);
    waitResponsive(50);
    showCameraSettings();
}

void saveOptics() {
    saveWindowImage(dataFolders, mainWindow, 1, "optics");
}

void saveCameraImage() {
    ensureSessionFolder(dataFolders);
    if (wideView)
        saveWindowImage(dataFolders, mainWindow, 1, "wide");
    else
        drawCameraFrame(cameraImage.pixels.get(), 1);
}

void saveMaps() {
    ensureSessionFolder(dataFolders);
    if (!processUnderWay()) return saveMapFiles();
    // A box would hold the process where it is, with the laser on; a scan saves at its end again.
    if (!saveMapFilesQuietly()) showInformation("File saving error. New folder will be made.");
}

// What would send the stage elsewhere, or hold up who waits for it, is not done now; says why.
bool refusedWhileStageIsTaken() {
    if (processUnderWay())
        sayNotInProcess();
    else if (stageIsMoving())
        showInformation("Not while the stage moves");
    return stageIsTaken();
}

void startProcess(void (*work)(), void (*saveQuietly)()) {
    // While a process runs, its button is the question whether to stop.
    if (!runProcess(work, saveQuietly) && !processUnderWay()) refusedWhileStageIsTaken();
}

void runCommand(int id) {
    switch (id) {
    case idAbout: // a modal box would hold the process where it is, with the laser on
        return processUnderWay() ? sayNotInProcess() : showAbout();
    case idExit:
        return onClose();
    case idShowMap:
        return showMapWindow(channelPhotocurrent);
    case idStart:
        return startProcess(mapSample, [] { static_cast<void>(saveMapFilesQuietly()); });
    case idReadPositions:
        return readPositions();
    case idMoveXPlus:
        return moveAndShow(stageX, xyKeyStep);
    case idMoveXMinus:
        return moveAndShow(stageX, -xyKeyStep);
    case idMoveYPlus:
        return moveAndShow(stageY, xyKeyStep);
    case idMoveYMinus:
        return moveAndShow(stageY, -xyKeyStep);
    case idShowConfocal:
        if (confocalEnabled) showMapWindow(channelConfocal);
        return;
    case idIlluminationOn:
    case idIlluminationOff:
        setLaserOutput(id == idIlluminationOn ? 1 : 0);
        return;
    case idWideView:
        return startProcess(makeWideView, nullptr);
    case idFocus:
        return startProcess(focusLaser, nullptr);
    case idPickLaserSpot:
        picksLaserSpot = toggleCheckMark(idPickLaserSpot);
        return;
    case idLiveOn:
        connectMissingCamera();
        return switchLiveView(1);
    case idLiveOff:
        releaseCamera(cameraState);
        return switchLiveView(0);
    case idGain:
        return takeCommandedGain();
    case idCameraAuto:
    case idCameraAutoSetting:
        return setCameraAutomatic();
    case idLaserOn:
    case idLaserOff:
        setLaserLevel(id == idLaserOn ? 1 : 0);
        return;
    case idLaserView:
        return showLaserView();
    case idSampleView:
        return showSampleView();
    case idFocusUp:
        return moveAndShow(stageZ, focusStepUm);
    case idFocusDown:
        return moveAndShow(stageZ, -focusStepUm);
    case idFocusUpFast:
        return moveAndShow(stageZ, focusFastStepUm);
    case idFocusDownFast:
        return moveAndShow(stageZ, -focusFastStepUm);
    case idSaveWindowImage:
        return saveOptics();
    case idReconnectStages:
        return reconnectStages();
    case idBlueOnly:
        blueOnly = 1;
        return;
    case idConfiguration:
        if (!refusedWhileStageIsTaken()) configure();
        return;
    case idIvMeasurement:
        return openTool(Tool::IvCurve);
    case idSaveCameraImage:
        return saveCameraImage();
    case idTimeEvolution:
        return openTool(Tool::TimeEvolution);
    case idRefreshPositions:
        return refreshPositions();
    case idSaveMaps:
        return saveMaps();
    case idShowConfocalMenu:
        return showMapWindow(channelConfocal);
    case idShowRed:
        return showMapWindow(channelRed);
    case idShowGreen:
        return showMapWindow(channelGreen);
    case idShowBlue:
        return showMapWindow(channelBlue);
    case idDrawScanArea:
        switchLiveView(0);
        return showScanArea();
    default:
        return;
    }
}

void redrawPicture() {
    if (wideView)
        drawWideView();
    else
        drawCameraFrame(cameraImage.pixels.get(), 0);
}

void invertDrag() {
    const WindowContext view(mainWindow);
    if (!view.context) return;
    PictureRectangle& drag = drawnRectangle;
    drag.viewScale = wideView ? wideFactor : 1;
    invertRectangle(view.context, std::min(drag.x1, drag.x2), std::min(drag.y1, drag.y2),
                    std::max(drag.x1, drag.x2), std::max(drag.y1, drag.y2));
}

// The button went up where this window did not hear of it: no selection, no click.
void endLostDrag() {
    dragging = false;
    redrawPicture();
}

bool areaConfirmed(int widthPx, int heightPx) {
    const double umPerPixel = fieldWidthUm / fieldWidthPx * drawnRectangle.viewScale;
    const std::string caption =
        formatted("Area: %.1f um x %.1f um", widthPx * umPerPixel, heightPx * umPerPixel);
    return showMessageBox(mainWindow, "Do you want to set it for next scan area", caption.c_str(),
                          BoxButtons::YesNo) == BoxAnswer::Yes;
}

void selectScanArea() {
    const PictureRectangle& drag = drawnRectangle;
    scanArea.viewScale = drag.viewScale;
    scanArea.rectX1 = drag.x1;
    scanArea.rectY1 = drag.y1;
    scanArea.rectX2 = drag.x2;
    scanArea.rectY2 = drag.y2;
    const int32_t minutes = computeScanArea(scanArea);
    allocateMaps();
    showInformation(formatted("%d min. expected", minutes).c_str());
    showProgress("New scan area was selected.");
    showScanArea();
    ensureSessionFolder(dataFolders);
    saveOptics();
}

} // namespace

void onCommand(int id) {
    runCommand(id);
    // So that the arrow keys go on working; into a tool window the operator types.
    if (id != idIvMeasurement && id != idTimeEvolution) focusMainWindow();
}

void onKeyDown(uintptr_t virtualKey) {
    resetIdle();
    if (keyBusy || stageIsMoving()) return;
    keyBusy = 1;
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
        return; // the move keys stay blocked until the next click, and that is meant
    }
    if (!mainWindow) return;
    refreshPositions();
    grabAndDraw();
    if (dragging) invertDrag();
    keyBusy = 0;
}

void onKeyUp() {
    resetIdle();
}

void onMouseMove(int x, int y, bool leftButtonHeld) {
    resetIdle();
    if (!dragging) return;
    if (!leftButtonHeld) return endLostDrag();
    if (!inPicture(x, y)) return;
    invertDrag();
    drawnRectangle.x2 = x;
    drawnRectangle.y2 = y;
    invertDrag();
}

void onLeftButtonDown(int x, int y) {
    keyBusy = 0;
    resetIdle();
    switchLiveView(0);
    // A process keeps the scan area that it works on.
    if (!inPicture(x, y) || dragging || processUnderWay()) return;
    drawCircleMark(mainWindow, x, y, 2, markRed);
    drawnRectangle = {x, y, x, y};
    dragging = true;
    invertDrag();
}

void onLeftButtonUp(int x, int y) {
    if (!dragging) return;
    dragging = false;
    if (processUnderWay()) return redrawPicture(); // started while the button was held
    const int width = std::abs(drawnRectangle.x1 - drawnRectangle.x2);
    const int height = std::abs(drawnRectangle.y1 - drawnRectangle.y2);
    if (std::max(width, height) > largestClickPx) {
        const bool selected = areaConfirmed(width, height) && !processUnderWay();
        redrawPicture(); // erases the dragged rectangle
        if (selected) selectScanArea();
    } else if (picksLaserSpot) {
        pickLaserSpot(x, y);
    } else if (refusedWhileStageIsTaken()) {
        redrawPicture(); // erases the mark
    } else {
        moveToClickedPoint(x, y);
    }
}

void onPaint() {
    redrawPicture();
    if (scanAreaShown) showScanArea();
    if (dragging) invertDrag();
}

void showScanArea() {
    scanAreaShown = true;
    const WindowContext view(mainWindow);
    if (!view.context) return;
    const PixelPoint from = onPresentView(scanArea, scanArea.rectX1, scanArea.rectY1);
    const PixelPoint to = onPresentView(scanArea, scanArea.rectX2, scanArea.rectY2);
    drawRectangle(view.context, from.x, from.y, to.x, to.y, markGreen);
}

void forgetShownScanArea() {
    scanAreaShown = false;
}

void onClose() {
    if (processUnderWay()) return stopAndClose();
    // A move may be under way, and what called it comes back only after its time-out.
    stopAllStages();
    setLaserLevel(0);
    destroyMainWindow();
}

void onSessionEnd() {
    stopRequested = 1;
    // The system waits a few seconds: the settings are quick, an instrument may be stuck.
    writeSettingsFile(dataFolders.configPath);
    makeSafe();
}

void refreshPositions() {
    setField(Field::PositionX, formatted("%.1lf", stageX.positionUm).c_str());
    setField(Field::PositionY, formatted("%.1lf", stageY.positionUm).c_str());
    setField(Field::PositionZ, formatted("%.1lf", stageZ.positionUm).c_str());
}

void fillControlColumn() {
    picksLaserSpot = false; // a new window's menu has no check mark
    showScanSettings();
    showCameraSettings();
    setField(Field::UnitLabel, unitLabel());
    checkRadio(idLaserView, idSampleView, idSampleView);
    refreshPositions();
    focusMainWindow();
}
