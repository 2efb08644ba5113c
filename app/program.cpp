// Starts everything in a fixed order and ends it in another.
#include "app/program.h"

#include "app/fatal.h"
#include "app/recovery.h"
#include "app/settings_line.h"
#include "camera/camera.h"
#include "camera/live_view.h"
#include "camera/wide_view.h"
#include "door/door.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/map_look.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "mapping/scan_options.h"
#include "motion/stage.h"
#include "motion/stage_connection.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "platform/surface.h"
#include "screen/screen.h"
#include "session/announce.h"
#include "session/data_folders.h"
#include "session/day_log.h"
#include "session/main_title.h"
#include "session/message_box.h"
#include "session/options.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"
#include "spectroscopy/sweep_record.h"

namespace {

void connectDevices() {
    connectStagesAndTell(nullptr);
    if (!connectLaserBoard(windows.main))
        showMessageBox(nullptr, "No Arduino devices found", "Laser Error", BoxButtons::Ok);
    readBiasLeftOn();
    connectInstrumentAtStart();
    connectCamera();
}

// Its own, where it has one, and not the last one of whichever objective.
void takeSpotOfObjective() {
    const Objective& objective = setUp.objective();
    if (objective.hasSpot()) cameraState.laserOffset = {objective.spotColumn, objective.spotRow};
}

// Somebody meant to change something that stays as it was.
// The settings that are there are not known, and must not give way to the defaults at the end.
void keepUnread(std::vector<std::string>& unread) {
    if (!fileExists(dataFolders.configPath)) return;
    dataFolders.configPath.clear();
    unread.emplace_back("Config.txt cannot be read: it is not written in this run");
}

void tellRefused(const std::vector<std::string>& lines) {
    if (lines.empty()) return;
    std::string text;
    for (const std::string& line : lines) {
        announce(Severity::Failure, line);
        text += line + "\n";
    }
    showMessageBox(windows.main, (text + "Without these lines the defaults hold.").c_str(),
                   "Setup.ini", BoxButtons::Ok);
}

} // namespace

void connectFloors() {
    session.stageHooks.stopAll = stopAllStages;
    session.stageHooks.nudgeFocus = [](double um) {
        if (nudgeAfterMove(stageZ, um)) return;
        moveBy(stageZ, um);
        refreshPositions();
    };
    liveViewState.onStart = [] { computeScanArea(scanArea); };
}

bool startUp(int showCommand) {
    connectFloors();
    makeSafeAtAbort();
    prepareDataFolders(dataFolders);
    logEvent("Lumascan " LUMASCAN_VERSION " starts");
    const std::vector<std::string> refused = readSetUp();
    prepareOffCommands();
    if (const std::string words = setUpWords(setUp); words != "default")
        logEvent("Set-up: " + words);
    std::vector<std::string> unread;
    if (!optionsCanBeRead()) unread.emplace_back("Options.ini cannot be read");
    allocateMaps();
    allocateSweep(sweepRecord);
    registerWindowClasses();
    startImaging();
    instrumentLink.ammeterKind = kindArduino;
    showStartupNotice();
    if (readSettingsFile(dataFolders.configPath)) {
        takeSpotOfObjective();
        computeScanArea(scanArea);
        allocateMaps();
    } else {
        takeSpotOfObjective();
        keepUnread(unread);
    }
    connectDevices();
    if (!createMainWindow(showCommand)) return false;
    readScanOptions();
    readOccasion();
    readDoorSettings();
    readMapLook();
    followLaserBoard();
    showMainTitle();
    if (pictureMemoryMissing()) setMainTitle("error in HeapAlloc");
    setLaserLevel(0);
    switchLiveView(LiveView::On);
    setLaserOutput(1);
    closeStartupNotice();
    tellRefused(refused);
    for (const std::string& line : unread) announce(Severity::Trouble, line);
    if (const std::string left = leftNotice(); !left.empty()) {
        logEvent(left);
        showInformation(left.c_str());
        liveViewState.noticeStands = true;
    }
    followDoorSettings();
    return true;
}

void shutDown() {
    closeDoor();
    writeSettingsFile(dataFolders.configPath);
    setLaserOutput(0);
    setLaserLevel(0);
    switchLiveView(LiveView::Off);
    releaseWideView();
    stopImaging();
    closeLaserLink(laserLink);
    releaseCamera(cameraState);
    stopAllStages();
    keepPlaces();
    closeAllStages();
    disconnectInstrument();
    for (const std::string& left : {lightLeftOn(), biasLeftOn()})
        if (!left.empty()) showMessageBox(nullptr, left.c_str(), "Lumascan", BoxButtons::Ok);
    logEvent("Lumascan ends");
}

int runProgram(int showCommand) {
    if (!startUp(showCommand)) return 0;
    const int exitCode = runMessageLoop();
    shutDown();
    return exitCode;
}
