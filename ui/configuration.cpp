// The rules of the Configuration dialog.
#include "ui/configuration.h"

#include "actions/settings.h"
#include "camera/camera.h"
#include "camera/live_view.h"
#include "camera/spot.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "mapping/scan_options.h"
#include "motion/stage.h"
#include "motion/stage_connection.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "screen/control_ids.h"
#include "screen/dialog.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/live_view_timer.h"
#include "session/message_box.h"
#include "session/process.h"
#include "ui/commands.h"

#include <algorithm>
#include <iterator>

namespace {

// With the terminating zero.
constexpr int dialogEditCapacity = 10;

constexpr const wchar_t* axisOrderNames[] = {L"XYZ", L"XZY", L"YXZ", L"YZX", L"ZXY", L"ZYX"};

constexpr int octetIds[] = {idAddressOctet1, idAddressOctet2, idAddressOctet3, idAddressOctet4};

constexpr int32_t highestGpibAddress = 30; // IEEE 488
constexpr int32_t highestTcpPort = 65535;
constexpr int32_t highestComPort = 256;  // of Windows
constexpr int32_t largestAperture = 500; // pixels: about the picture's height across

struct {
    bool isOpen = false;
    bool busy = false;
} dialog;

std::string typedText(int id) {
    return dialogText(id, dialogEditCapacity);
}

std::optional<int> integerIn(int id) {
    return typedInteger(typedText(id));
}

void showInteger(int id, int32_t value) {
    setDialogText(id, formatted("%d", value).c_str());
}

std::string numberText(float value) {
    return formatted("%f", static_cast<double>(value));
}

// Takes what was typed over where it is a number within the bounds, and shows what is in force.
void takeInteger(int id, int32_t& value, int32_t lowest, int32_t highest) {
    const std::optional<int> typed = integerIn(id);
    if (typed && *typed >= lowest && *typed <= highest) value = *typed;
    showInteger(id, value);
}

void takeNumber(int id, float& value, double lowestTyped, double highestTyped) {
    const auto lowest = static_cast<float>(lowestTyped);
    const auto highest = static_cast<float>(highestTyped);
    const std::string text = typedText(id);
    // Six decimals may be less than the value has: only what was typed changes it.
    if (text == numberText(value).substr(0, dialogEditCapacity - 1)) return;
    const std::optional<float> typed = typedNumber(text);
    if (typed && *typed >= lowest && *typed <= highest) value = *typed;
    setDialogText(id, numberText(value).c_str());
}

void showPositions() {
    setDialogText(idDialogPositionX, formatted("%.1f", stageX.positionUm).c_str());
    setDialogText(idDialogPositionY, formatted("%.1f", stageY.positionUm).c_str());
}

void showSettings() {
    const InstrumentLink& link = instrumentLink;
    selectInDialogList(idInstrumentList, link.ammeterKind);
    selectInDialogList(idAxisOrderList, controllers.axisOrder);
    showPositions();
    showInteger(idLaserComPort, laserLink.comPort);
    for (int i = 0; i < 4; i++) showInteger(octetIds[i], link.ipAddress[i]);
    showInteger(idAnalyzerPort, link.kxciPort);
    checkInDialog(idConnectLaser, laserLink.disconnected == 0);
    checkInDialog(idConnectStages, stageX.axisNumber != 0);
    checkInDialog(idConnectCamera, cameraState.connected != 0);
    checkInDialog(idConfocalCheck, scanSettings.confocalEnabled == 1);
    showInteger(idLaserOffsetX, cameraState.laserOffset.x);
    showInteger(idLaserOffsetY, cameraState.laserOffset.y);
    setDialogText(idBias, numberText(link.biasVoltage).c_str());
    setDialogText(idCurrentLimit, numberText(link.currentLimit).c_str());
    showInteger(idCameraAperture, cameraState.cameraAperture);
    showInteger(idGpibAddress, link.gpibAddress);
}

// --- Instrument ----------------------------------------------------------------------------------

int32_t chosenKind() {
    const int chosen = selectedInDialogList(idInstrumentList);
    return chosen < 0 ? instrumentLink.ammeterKind : chosen;
}

void connectChosenInstrument() {
    InstrumentLink& link = instrumentLink;
    takeInteger(idGpibAddress, link.gpibAddress, 0, highestGpibAddress);
    if (instrumentKind(chosenKind()).usesNetworkAddress) {
        for (int i = 0; i < 4; i++) takeInteger(octetIds[i], link.ipAddress[i], 0, 255);
        takeInteger(idAnalyzerPort, link.kxciPort, 1, highestTcpPort);
    }
    connectInstrument(chosenKind());
    selectInDialogList(idInstrumentList, link.ammeterKind); // the previous one after a failure
    setDialogText(idBias, numberText(link.biasVoltage).c_str());
}

void apply() {
    InstrumentLink& link = instrumentLink;
    takeNumber(idBias, link.biasVoltage, -largestBiasTyped, largestBiasTyped);
    takeNumber(idCurrentLimit, link.currentLimit, smallestLimitTyped, largestLimitTyped);
    takeInteger(idCameraAperture, cameraState.cameraAperture, 1, largestAperture);
    computeScanArea(scanArea);
    logEvent(formatted("Camera aperture %d pixels", cameraState.cameraAperture));
    // The label stays as it was with a new kind, until "Set" confirms that the new one is used.
    if (chosenKind() != link.ammeterKind) return connectChosenInstrument();
    const SourceAnswer answer =
        applyBias(static_cast<double>(link.biasVoltage), static_cast<double>(link.currentLimit));
    if (!answer.accepted()) showInformation(wordsOf(answer).c_str());
    setField(Field::UnitLabel, unitLabel());
}

// --- Devices -------------------------------------------------------------------------------------

void connectLaser() {
    // The old board would go on with what it has, and nobody could tell it anything any more. It is
    // told over its own port, before another one is taken.
    const bool wasIlluminated = illuminationIsOn();
    setLaserLevel(0);
    setLaserOutput(0);
    takeInteger(idLaserComPort, laserLink.comPort, 1, highestComPort);
    const bool connected = connectLaserBoard(windows.main) != 0; // closes the old link first
    if (connected && wasIlluminated) setLaserOutput(1);
    if (!connected)
        showMessageBox(windows.main, "Error: not connected", "Warning: Serial Communication",
                       BoxButtons::Ok);
    checkInDialog(idConnectLaser, connected);
}

void takeAxisOrder() {
    const int chosen = selectedInDialogList(idAxisOrderList);
    if (chosen >= 0) controllers.axisOrder = chosen;
}

void connectStages() {
    takeAxisOrder();
    stopAllStages();
    keepPlaces();
    closeAllStages();
    const bool connected = connectStagesAndTell(nullptr);
    checkInDialog(idConnectStages, connected);
    showPositions();
    refreshPositions();
}

void reconnectCamera() {
    connectCamera();
    checkInDialog(idConnectCamera, cameraState.connected != 0);
}

void takeConfocal() {
    scanSettings.confocalEnabled = isCheckedInDialog(idConfocalCheck) ? 1 : 0;
}

// --- Stage ---------------------------------------------------------------------------------------

// A step that would leave the range ends at its edge; one from outside leads no further out.
double stepWithin(const StageAxis& axis, double stepUm) {
    const double lowest = std::min<double>(-xyLimitUm, axis.positionUm);
    const double highest = std::max<double>(xyLimitUm, axis.positionUm);
    return std::clamp(axis.positionUm + stepUm, lowest, highest) - axis.positionUm;
}

// Moves by the typed step in the directions given as -1, 0 or 1.
void moveByHand(int x, int y) {
    if (typedText(idHandStep).empty()) return;
    if (const std::optional<int> step = integerIn(idHandStep))
        moveXYBy(stepWithin(stageX, double{1} * x * *step),
                 stepWithin(stageY, double{1} * y * *step), motorSpeed);
    showPositions();
}

void moveToTyped() {
    const std::optional<int> x = integerIn(idDialogPositionX);
    const std::optional<int> y = integerIn(idDialogPositionY);
    if (x && y)
        moveXYTo(std::clamp(*x, -xyLimitUm, xyLimitUm), std::clamp(*y, -xyLimitUm, xyLimitUm),
                 motorSpeed);
}

void setZero() {
    setPosition(stageX, 0.0);
    setPosition(stageY, 0.0);
    showPositions();
    refreshPositions();
}

// --- Commands ------------------------------------------------------------------------------------

void refuse() {
    refuseForProcess();
    showSettings();
}

void closeDialog() {
    if (processUnderWay() && selectedInDialogList(idAxisOrderList) != controllers.axisOrder)
        refuseForProcess();
    else
        takeAxisOrder();
    endDialog();
}

// Enter does what the field belongs to, and nothing where that is no single thing.
struct EnterKey {
    int field;
    int command;
};

constexpr EnterKey enterKeys[] = {
    {idSet, idSet},
    {idBias, idSet},
    {idCurrentLimit, idSet},
    {idCameraAperture, idSet},
    {idInstrumentList, idInitializeInstrument},
    {idGpibAddress, idInitializeInstrument},
    {idAddressOctet1, idInitializeInstrument},
    {idAddressOctet2, idInitializeInstrument},
    {idAddressOctet3, idInitializeInstrument},
    {idAddressOctet4, idInitializeInstrument},
    {idAnalyzerPort, idInitializeInstrument},
    {idLaserComPort, idConnectLaser},
    {idDialogPositionX, idGo},
    {idDialogPositionY, idGo},
};

struct DialogCommand {
    int id;
    void (*carryOut)();
    const char* logged = nullptr; // as in the main window's table
    bool duringProcess = false;
};

constexpr DialogCommand commands[] = {
    {idSet, apply, "Set"},
    {idCloseDialog, closeDialog, nullptr, true},
    {idInitializeInstrument, connectChosenInstrument, "initialize"},
    {idConnectLaser, connectLaser, "Connect laser board"},
    {idConnectStages, connectStages, "Connect stages"},
    {idConnectCamera, reconnectCamera, "Connect camera", true},
    {idInitializeCamera, reconnectCamera, "Initialize camera", true},
    {idConfocalCheck, takeConfocal, "Confocal Image"},
    {idHandXMinus, [] { moveByHand(-1, 0); }},
    {idHandXPlus, [] { moveByHand(1, 0); }},
    {idHandYMinus, [] { moveByHand(0, -1); }},
    {idHandYPlus, [] { moveByHand(0, 1); }},
    {idGo, moveToTyped},
    {idSetZero, setZero, "Set Zero"},
};

} // namespace

void configure() {
    if (dialog.isOpen) return;
    dialog.isOpen = true;
    const bool wasLive = liveViewIsOn();
    switchLiveView(LiveView::Off);
    runDialog({idConfigurationDialog, openedConfiguration, onConfigurationCommand,
               onConfigurationEnter, configurationIsBusy});
    switchLiveView(wasLive ? LiveView::On : LiveView::Off);
    dialog.isOpen = false;
}

void openedConfiguration() {
    const wchar_t* instrumentNames[equipmentKindCount];
    for (int kind = 0; kind < equipmentKindCount; ++kind)
        instrumentNames[kind] = instrumentKind(kind).name;
    fillDialogList(idInstrumentList, instrumentNames, equipmentKindCount);
    fillDialogList(idAxisOrderList, axisOrderNames, static_cast<int>(std::size(axisOrderNames)));
    setDialogText(idHandStep, "10.0");
    showSettings();
}

void onConfigurationCommand(int id) {
    resetIdle();
    if (dialog.busy) return;
    for (const DialogCommand& command : commands) {
        if (command.id != id) continue;
        dialog.busy = true;
        if (stageIsBusy() && !command.duringProcess) {
            refuse();
        } else {
            if (command.logged) logEvent(std::string("Configuration: ") + command.logged);
            command.carryOut();
            leaveStaleWideView();
        }
        dialog.busy = false;
    }
}

void onConfigurationEnter(int focused) {
    for (const EnterKey& key : enterKeys)
        if (key.field == focused) onConfigurationCommand(key.command);
}

bool configurationIsBusy() {
    return dialog.busy;
}
