// Runs one mapping.
#include "mapping/raster_scan.h"

#include "app/data_folders.h"
#include "app/responsive_wait.h"
#include "app/stopwatch.h"
#include "camera/camera.h"
#include "camera/display.h"
#include "camera/spot.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "mapping/map_rendering.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "platform/message_box.h"
#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "ui/commands.h"
#include "ui/control_ids.h"
#include "ui/live_view.h"
#include "ui/screen.h"

namespace {

// Where the scan starts and ends, um.
struct ScanPlace {
    double homeX, homeY;   // where the stage stood
    double startX, startY; // the first point
};

void goToRow(const ScanPlace& place, double y) {
    if (!moveXYTo(place.startX - scanArea.scanStep, y, motorSpeed))
        showProgress("Motor range limited");
    readPhotocurrent(); // discarded: the instrument may still hold the value of the last row
    // Every row is approached from the negative side, so that backlash is taken up the same way.
    moveTo(stageX, place.startX);
    refreshPositions();
    waitResponsive(10);
}

void measurePoint(int column, int mapRow) {
    const auto c = static_cast<size_t>(column);
    const auto m = static_cast<size_t>(mapRow);
    const float value = readPhotocurrent();
    scanMap.maps[planePhotocurrent][c][m] = value;
    setField(Field::MeasuredValue, formatted("%.5f", static_cast<double>(value)).c_str());
    if (!confocalEnabled) return;
    grabFrames(cameraState, 1);
    const Colour colour = sampleSpotColour(laserOffset, cameraAperture);
    showSpotColour(colour);
    scanMap.maps[planeRed][c][m] = static_cast<float>(redOf(colour));
    scanMap.maps[planeGreen][c][m] = static_cast<float>(greenOf(colour));
    scanMap.maps[planeBlue][c][m] = static_cast<float>(blueOf(colour));
}

void showScanProgress(int count) {
    const auto percent = static_cast<int>(int64_t{count} * 100 / scanArea.totalPoints);
    showProgress(formatted("Mapping: %d%% done", percent).c_str());
    const auto minutes = static_cast<int>(elapsedMs(false) / 1000 / 60);
    setField(Field::Time, formatted("%dM/%dM ", minutes, scanArea.estimatedMinutes).c_str());
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

// One row from left to right; false when a stop was asked for.
bool scanRow(const ScanPlace& place, const WindowContext& view, int row, int& count) {
    const int mapRow = scanArea.rows - 1 - row;
    goToRow(place, place.startY + row * scanArea.scanStep);
    if (stopRequested) return false;
    for (int column = 0; column < scanArea.cols; ++column) {
        if (!moveTo(stageX, place.startX + column * scanArea.scanStep))
            showProgress("Motor motion failure");
        showScanProgress(++count);
        refreshPositions();
        waitResponsive(2);
        if (stopRequested) return false;
        markScanPoint(view, row, column);
        measurePoint(column, mapRow);
    }
    setLiveRows(mapRow);
    drawMapRow(mapWindow, scanMap.maps[planePhotocurrent], mapRow);
    if (confocalEnabled) drawConfocalRow(confocalWindow, mapRow);
    return true;
}

void showScanAreaForConsent() {
    checkRadio(idLaserView, idSampleView, idSampleView);
    waitResponsive(1000);
    switchLiveView(7);
    showScanArea();
}

bool consentGiven() {
    return showMessageBox(mainWindow, "Hysteresis compensated. Is it okay?", "Scan area checking",
                          BoxButtons::YesNo) == BoxAnswer::Yes;
}

void scanAllRows(const ScanPlace& place) {
    if (confocalEnabled) {
        controlCamera(cameraState, cameraManual);
        grabFrames(cameraState, 1);
    }
    setLaserOutput(0);
    setLaserLevel(1);
    if (!moveXYTo(place.startX, place.startY, motorSpeed)) showProgress("Motor range limited");
    compensateHysteresis();
    elapsedMs(true);
    waitResponsive(500);

    const WindowContext view(mainWindow); // the scan's own, for its markers
    int count = 0;
    for (int row = 0; row < scanArea.rows && !stopRequested; ++row)
        if (!scanRow(place, view, row, count)) break;
}

void returnHome(const ScanPlace& place) {
    moveXYTo(place.homeX, place.homeY, motorSpeed);
    controlCamera(cameraState, cameraAutomatic);
    setLaserOutput(1);
    setLaserLevel(0);
    switchLiveView(0);
    refreshPositions();
    showInformation("Mapping finished");
}

void saveConfocalImage(int channel, const char* label) {
    drawMap(confocalWindow, channel);
    saveWindowImage(dataFolders, confocalWindow, 0, label);
}

void saveEverything() {
    saveMapFiles();
    placePictureWindows(); // they may have been closed since
    drawMapWithScale(channelPhotocurrent);
    saveWindowImage(dataFolders, mapWindow, 0, "KST");
    if (!confocalEnabled) return;
    saveConfocalImage(channelRed, "CONF_R");
    saveConfocalImage(channelGreen, "CONF_G");
    saveConfocalImage(channelBlue, "CONF_B");
    saveConfocalImage(channelConfocal, "CONFOCAL");
}

} // namespace

void compensateHysteresis() {
    constexpr double swing[] = {20.0, -35.0, 25.0, -15.0, 5.0};
    for (double um : swing)
        if (!moveXYBy(um, um, motorSpeed)) return;
    if (moveBy(stageZ, 2.0)) moveBy(stageZ, -2.0);
}

int runMapping() {
    showInformation("Moving to starting point");
    ScanPlace place{currentPositionUm(stageX), currentPositionUm(stageY), 0.0, 0.0};
    const auto limit = static_cast<double>(instrumentLink.currentLimit);
    applyBias(static_cast<double>(instrumentLink.biasVoltage), limit);
    placePictureWindows();
    allocateMaps();
    ensureSessionFolder(dataFolders);
    setLiveRows(scanArea.rows);
    place.startX = place.homeX + scanArea.offsetXUm;
    place.startY = place.homeY + scanArea.offsetYUm;
    showInformation("scanning ...");
    setLaserOutput(1);
    setLaserLevel(0);
    compensateHysteresis();
    if (!stopRequested) {
        showScanAreaForConsent();
        if (consentGiven() && !stopRequested) scanAllRows(place);
    }
    returnHome(place);
    setLiveRows(-1);
    applyBias(0.0, limit); // before what may ask: nobody may be there to answer
    saveEverything();
    return 1;
}
