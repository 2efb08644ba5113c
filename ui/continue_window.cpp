// Shows the two pictures and goes on with the scan.
#include "ui/continue_window.h"

#include "actions/measurements.h"
#include "actions/settings.h"
#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_continuation.h"
#include "motion/stage.h"
#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/live_view_timer.h"
#include "session/message_box.h"
#include "session/process.h"
#include "ui/commands.h"

#include <iterator>
#include <utility>

namespace {

// Client pixels.
constexpr int margin = 10, pictureTop = 28;
constexpr int thenLeft = margin, nowLeft = thenLeft + smallPictureWidth + margin;
constexpr int linesTop = pictureTop + smallPictureHeight + 6;
constexpr int buttonsTop = linesTop + 68;
constexpr int outerWidth = nowLeft + smallPictureWidth + margin + 6;
constexpr int outerHeight = buttonsTop + 26 + margin + 29;

constexpr double stepsUm[] = {-10.0, -1.0, 1.0, 10.0};
constexpr int stepCount = static_cast<int>(std::size(stepsUm));

struct ContinueState {
    WindowHandle window = nullptr;
    LeftJournal left;
    std::optional<JournaledScan> scan;
    std::vector<uint32_t> then, now; // as smallPicture makes them; empty where there is none
};

ContinueState state;

void drawSmallPicture(ContextHandle context, int left, const std::vector<uint32_t>& pixels,
                      const char* without) {
    constexpr Colour black = 0, white = colourRgb(255, 255, 255);
    const int right = left + smallPictureWidth, bottom = pictureTop + smallPictureHeight;
    if (pixels.empty()) {
        drawFilledRectangle(context, left, pictureTop, right, bottom, black, white);
        return drawText(context, left + 20, pictureTop + 20, without, black, true);
    }
    putPixels(context, left, pictureTop, smallPictureWidth, smallPictureHeight, pixels.data());
    const ScanArea& area = state.scan->plan().area;
    if (area.viewScale != 1) return; // it was drawn around the picture
    const auto x = [&](int32_t at) { return left + at / 2; };
    const auto y = [&](int32_t at) { return pictureTop + at / 2; };
    drawRectangle(context, x(area.rectX1), y(area.rectY1), x(area.rectX2), y(area.rectY2),
                  markGreen);
}

// Of a fresh frame; a test pattern is no picture.
void takeFrame() {
    state.now = cameraState.connected ? smallPicture(cameraImage) : std::vector<uint32_t>();
    paintContinueWindow();
}

std::string conditionsLine(const ScanConditions& scan) {
    return formatted("%d x %d points, step %.1f um, laser %.1f uA, bias %g V (limit %g A), %s",
                     scan.area.cols, scan.area.rows, scan.area.scanStep, scan.laserUa(),
                     static_cast<double>(scan.biasVoltage), static_cast<double>(scan.currentLimit),
                     narrowed(instrumentKind(scan.ammeterKind).name).c_str());
}

WindowHandle createWindow(const JournaledScan& scan) {
    using enum ToolControl::Kind;
    const std::string start = startOf(*scan.map.conditions);
    const std::string thenTitle = "At the start of the scan, " + start;
    const std::string points =
        formatted("The scan of %s has %d of %d points; it goes on with row %d of %d from below.",
                  start.c_str(), scan.points, scan.plan().area.totalPoints,
                  firstMissingRow(scan.map) + 1, scan.plan().area.rows);
    const std::string conditions = conditionsLine(*scan.map.conditions);
    constexpr int width = outerWidth - 40;
    std::vector<ToolControl> controls = {
        {Label, thenTitle.c_str(), thenLeft, 6, 400, 20},
        {Label, "Now", nowLeft, 6, 400, 20},
        {Label, points.c_str(), margin, linesTop, width, 20},
        {Label, conditions.c_str(), margin, linesTop + 20, width, 20},
        {Label,
         "Move the stage until both pictures show the same place, in focus. The buttons move by "
         "um, "
         "the keys as in the main window. The stage must stand there before you press Continue.",
         margin, linesTop + 40, width, 20},
    };
    constexpr const char* axisNames[axisCount] = {"X", "Y", "Z"};
    constexpr const char* stepTexts[stepCount] = {"-10", "-1", "+1", "+10"};
    constexpr int buttonWidth = 44, height = 26;
    int x = margin;
    for (int axis = 0; axis < static_cast<int>(axisCount); ++axis, x += 20) {
        controls.push_back({Label, axisNames[axis], x, buttonsTop, 20, height});
        x += 20;
        for (int step = 0; step < stepCount; ++step, x += buttonWidth)
            controls.push_back({Button, stepTexts[step], x, buttonsTop, buttonWidth - 4, height,
                                idContinueMove + axis * stepCount + step});
    }
    controls.push_back(
        {Button, "Continue", outerWidth - 290, buttonsTop, 130, height, idContinueConfirm});
    controls.push_back(
        {Button, "Cancel", outerWidth - 150, buttonsTop, 130, height, idContinueCancel});
    return createToolWindow(L"Continue last scan", 100, controls.data(),
                            static_cast<int>(controls.size()), nullptr, outerWidth, outerHeight);
}

// False, with a word in the information text, when it cannot go on.
bool takeOver(const LeftJournal& left, JournaledScan& scan) {
    if (!isJournalOf(left, *scan.map.conditions)) {
        showInformation("Not continued: the journal is gone");
        return false;
    }
    if (!takeOverScan(std::move(scan))) return false;
    showScanSettings();
    showCameraSettings();
    setField(Field::UnitLabel, unitLabel());
    return true;
}

bool standsThere() {
    if (!state.then.empty() && !state.now.empty()) return true;
    return showMessageBox(windows.main,
                          "There are no two pictures to compare. Does the stage stand where it "
                          "stood at the start of the scan?",
                          "Continue last scan", BoxButtons::YesNo) == BoxAnswer::Yes;
}

void confirm() {
    if (stageIsMoving()) return showInformation("Not while the stage moves");
    if (processUnderWay()) return refuseForProcess();
    if (!standsThere() || !state.window || stageIsBusy()) return;
    const LeftJournal left = state.left;
    JournaledScan scan = std::move(*state.scan);
    destroyToolWindow(state.window);
    runProcess(
        "Mapping",
        [&] {
            return mapSample([&] { return takeOver(left, scan); },
                             [&] { return continueScan(left); });
        },
        saveScanAtForcedEnd);
}

void moveStage(int button) {
    if (scanMovesTheStage()) return refuseForScan();
    if (stageIsBusy()) return;
    if (!liveViewIsOn()) onCommand(idSampleView); // switched off because nothing happened
    StageAxis* const axes[axisCount] = {&stageX, &stageY, &stageZ};
    moveBy(*axes[button / stepCount], stepsUm[button % stepCount]);
    if (!windows.main) return;
    refreshPositions();
    grabAndDraw();
}

} // namespace

void openContinueWindow() {
    if (state.window) return raiseToolWindow(state.window);
    LeftJournal left;
    std::optional<JournaledScan> scan;
    const char* without = "No scan was cut off";
    for (const LeftJournal& each : leftJournals()) {
        if (each.kind != scanJournalKind) continue;
        without = unreadableJournal;
        left = each;
        if ((scan = readScanJournal(each))) break;
    }
    if (!scan) return showInformation(without);
    if (firstMissingRow(scan->map) == scan->plan().area.rows)
        return showInformation("No row is missing: \"File\", \"Recover last scan\" saves the map");
    onCommand(idSampleView); // as the scan's picture was taken
    state = {nullptr, left, std::move(scan), scanPicture(left), {}};
    state.window = createWindow(*state.scan);
    if (!state.window) return;
    liveViewState.onFreshFrame = takeFrame;
    grabAndDraw();
}

bool isContinueWindow(WindowHandle window) {
    return window && window == state.window;
}

void onContinueCommand(int id) {
    resetIdle();
    handState.keyBusy = 0;
    if (id == idContinueCancel)
        destroyToolWindow(state.window);
    else if (id == idContinueConfirm)
        confirm();
    else if (id >= idContinueMove && id < idContinueMove + stepCount * static_cast<int>(axisCount))
        moveStage(id - idContinueMove);
    else
        onCommand(id);
}

void paintContinueWindow() {
    const WindowContext window(state.window);
    if (!window.context) return;
    drawSmallPicture(window.context, thenLeft, state.then, "No picture was kept with the scan.");
    drawSmallPicture(window.context, nowLeft, state.now, "The camera gives no picture.");
}

void forgetContinueWindow() {
    state = {};
    liveViewState.onFreshFrame = [] {};
}
