// Starts everything in a fixed order and ends it in another.
#include "app/program.h"

#include "app/data_folders.h"
#include "app/fatal.h"
#include "app/settings_line.h"
#include "camera/camera.h"
#include "camera/wide_view.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "motion/stage_connection.h"
#include "platform/message_box.h"
#include "platform/messages.h"
#include "platform/surface.h"
#include "spectroscopy/sweep_record.h"
#include "ui/live_view.h"
#include "ui/screen.h"

namespace {

void connectDevices() {
    connectStagesAndTell(nullptr);
    if (!connectLaserBoard(mainWindow))
        showMessageBox(nullptr, "No Arduino devices found", "Laser Error", BoxButtons::Ok);
    connectInstrumentAtStart();
    connectCamera();
}

} // namespace

bool startUp(int showCommand) {
    makeSafeAtAbort();
    prepareDataFolders(dataFolders);
    allocateMaps();
    allocateSweep(sweepRecord);
    registerWindowClasses();
    startImaging();
    instrumentLink.ammeterKind = kindArduino;
    showStartupNotice();
    if (readSettingsFile(dataFolders.configPath)) {
        computeScanArea(scanArea);
        allocateMaps();
    }
    connectDevices();
    if (!createMainWindow(showCommand)) return false;
    if (pictureMemoryMissing()) setMainTitle("error in HeapAlloc");
    setLaserLevel(0);
    switchLiveView(1);
    setLaserOutput(1);
    closeStartupNotice();
    return true;
}

void shutDown() {
    writeSettingsFile(dataFolders.configPath);
    setLaserOutput(0);
    setLaserLevel(0);
    switchLiveView(0);
    releaseWideView();
    stopImaging();
    closeLaserLink(laserLink);
    releaseCamera(cameraState);
    stopAllStages();
    closeAllStages();
    disconnectInstrument();
}

int runProgram(int showCommand) {
    if (!startUp(showCommand)) return 0;
    const int exitCode = runMessageLoop();
    shutDown();
    return exitCode;
}
