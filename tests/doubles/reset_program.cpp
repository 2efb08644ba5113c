// The program's records as its static initialisation leaves them, whatever a test did before.
#include "tests/doubles/doubles.h"

#include "actions/measurements.h"
#include "app/program.h"
#include "camera/autofocus.h"
#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "camera/wide_view.h"
#include "door/door.h"
#include "instruments/ammeter.h"
#include "instruments/analyzer.h"
#include "instruments/gpib.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "instruments/tektronics.h"
#include "mapping/map_look.h"
#include "mapping/map_rendering.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "motion/focus_plane.h"
#include "motion/stage.h"
#include "session/data_folders.h"
#include "session/device_report.h"
#include "session/live_view_timer.h"
#include "session/main_title.h"
#include "session/process.h"
#include "session/refusals.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"
#include "session/stopwatch.h"
#include "spectroscopy/sweep_record.h"
#include "ui/commands.h"
#include "ui/map_window.h"

#include <cstring>

static void releaseDevices() {
    gpibTakeOffline();
    if (instrumentLink.visaResourceManager) scopeClose(instrumentLink.visaResourceManager);
    paClose(analyzerNetwork);
    releaseCamera(cameraState);
    for (StageAxis* axis : {&stageX, &stageY, &stageZ}) closeStage(*axis);
}

// Over a board that hears it: the program remembers a light that nobody could switch off.
static void forgetLights() {
    closeLaserLink(laserLink);
    applyLabFaults("");
    resetSerial();
    laserLink = {};
    laserLink.portHandle = openSerialPort("\\\\.\\COM10");
    // Twice, because the state before the last one is remembered too.
    for (int i = 0; i < 2; i++) {
        setLaserOutput(0);
        setLaserLevel(0);
    }
    closeLaserLink(laserLink);
}

void resetProgram() {
    dataFolders = {}; // what is let go of here belongs into no log
    closeDoor();
    doorSettings = {};
    resetClient();
    forgetOutcomes();
    releaseDevices();
    forgetLights();
    session = {};
    handState = {};
    leaveMap();
    liveViewState = {};
    connectFloors();
    liveViewTimerOff();
    elapsedMs(true);
    for (auto* title : {titleLoss, titleBias, titleScript, titleProgress}) title("");
    scanSettings = {};
    setUp = {};
    prepareOffCommands();
    stageX = stageY = stageZ = {};
    controllers = {};
    planeInUse = {};
    laserLink = {};
    instrumentLink = {};
    cameraState = CameraState();
    shapeFrames(cameraImage, 2 * imageWidth, 2 * imageHeight, Mosaic::RG);
    std::memset(cameraImage.pixels.get(), 0, cameraImage.byteCount);
    display = {};
    releaseWideView();
    scanArea = {};
    mapLook = {};
    scanMap = {};
    forgetFileMap();
    sweepRecord = {};
    forgetAllRefusals();
    forgetDeviceReports();
    prepareDataFolders(dataFolders);
}
