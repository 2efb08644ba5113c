// What the operator types, presses and drags: clamps, refusals, and where the stage goes.
#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "camera/spot.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "screen/control_ids.h"
#include "session/data_folders.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "tests/doubles/doubles.h"
#include "ui/commands.h"

#include <algorithm>
#include <functional>

namespace {

class CommandsTest : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        createMainWindow(1);
        onLeftButtonDown(5000, 5000); // outside the picture: only frees the keys
        ASSERT_TRUE(openStages(2, motorSpeed));
    }
    // Takes and dispatches what waits now.
    static void pump() {
        for (Message message; takeMessage(message);) dispatchMessage(message);
    }
};

TEST_F(CommandsTest, EditsClampWhatIsTyped) {
    const std::function<double()> step = [] { return scanArea.scanStep; };
    const std::function<double()> level = [] { return laserLink.laserLevel; };
    const std::function<double()> gain = [] { return double{1} * cameraState.gain; };
    const std::function<double()> exposure = [] { return cameraState.exposureUs; };
    const std::function<double()> x = [] { return stageX.positionUm; };
    const struct {
        Field field;
        void (*enter)();
        const char *typed, *shown;
        const std::function<double()>& value;
        double expected;
    } cases[] = {{Field::ScanStep, enterScanStep, "55", "40.0", step, 40.0},
                 {Field::ScanStep, enterScanStep, "0.04", "0.1", step, 0.1},
                 {Field::ScanStep, enterScanStep, "rubbish", "0.1", step, 0.1},
                 {Field::ScanStep, enterScanStep, "nan", "0.1", step, 0.1},
                 {Field::LaserIntensity, enterLaserIntensity, "25", "20.0", level, 5.0},
                 {Field::LaserIntensity, enterLaserIntensity, "0", "1.0", level, 0.25},
                 {Field::Gain, enterGain, "99", "36", gain, 36},
                 {Field::Gain, [] { onCommand(idGain); }, "99", "20", gain, 20},
                 {Field::Gain, enterGain, "high", "20", gain, 20},
                 {Field::Gain, enterGain, "-3", "1", gain, 1},
                 {Field::Exposure, enterExposure, "1e9", "100", exposure, 100},
                 {Field::Exposure, enterExposure, "9999999999", "500000", exposure, 500000},
                 {Field::Exposure, enterExposure, "long", "500000", exposure, 500000},
                 {Field::PositionX, enterPositionX, "37um", "37.0", x, 37},
                 {Field::PositionX, enterPositionX, "far", "far", x, 37}};
    for (const auto& each : cases) {
        typeInto(each.field, each.typed);
        each.enter();
        EXPECT_EQ(textIn(each.field), each.shown) << each.typed;
        EXPECT_NEAR(each.value(), each.expected, 0.01) << each.typed;
    }
    EXPECT_NEAR(labStageUm(labX), 37, 0.01);
    typeInto(Field::PositionY, "3000000000"); // too far, but to the right
    in(1000, [] { postClick(5000, 5000); });
    enterPositionY();
    EXPECT_GT(labStageUm(labY), 100);
}

TEST_F(CommandsTest, FarFocusMovesAreAsked) {
    typeInto(Field::PositionZ, "2500");
    answer("Are you sure the distance from objective lens to sample greater than 2mm.",
           BoxAnswer::No);
    enterPositionZ();
    EXPECT_EQ(labStageUm(labZ), 0.0);
    EXPECT_FALSE(timerRuns());
    EXPECT_EQ(shownBoxes.back().caption, "Warning!");
    session.processRunning = 1; // the question would hold it
    enterPositionZ();
    EXPECT_EQ(shownBoxes.size(), 1u);
    EXPECT_EQ(textIn(Field::Information), "Not while a process runs");
    session.processRunning = 0;
    typeInto(Field::PositionZ, "20");
    enterPositionZ();
    EXPECT_NEAR(labStageUm(labZ), 20, 0.01);
    EXPECT_EQ(stageZ.engine.NomSpeed, 300u);
    EXPECT_TRUE(timerRuns());
}

TEST_F(CommandsTest, KeysMoveUntilALetterBlocksThem) {
    const struct {
        uintptr_t key;
        double x, y, z;
    } cases[] = {{keyRight, 100, 0, 0}, {keyUp, 100, 100, 0},  {keyLeft, 0, 100, 0},
                 {keyDown, 0, 0, 0},    {keyPageUp, 0, 0, 50}, {keyPageDown, 0, 0, 0},
                 {'A', 0, 0, 0},        {keyRight, 0, 0, 0},   {keyPageUp, 0, 0, 0}};
    const auto expectAt = [](double x, double y, double z) {
        EXPECT_EQ(stageX.positionUm, x);
        EXPECT_EQ(stageY.positionUm, y);
        EXPECT_EQ(stageZ.positionUm, z);
    };
    for (const auto& each : cases) {
        postKey(each.key);
        pump();
        expectAt(each.x, each.y, each.z);
    }
    post(messageLeftButtonDown, 1, 5000);
    postKey(keyRight);
    pump();
    expectAt(100, 0, 0);
    for (const int id : {idMoveXMinus, idMoveYPlus, idFocusUp, idFocusUpFast, idFocusDown}) {
        postCommand(id);
        pump();
    }
    expectAt(0, 100, 5);
    EXPECT_EQ(textIn(Field::PositionZ), "5.0");
}

TEST_F(CommandsTest, ASmallDragIsAClickALargerOneASelection) {
    cameraState.laserOffset = {640, 500};
    answer("If you want to move this position", BoxAnswer::Yes);
    postDrag(716, 414, 726, 404);
    pump();
    EXPECT_NEAR(labStageUm(labX), 110 * labUmPerPixel, 0.01); // where the button was let go
    EXPECT_NEAR(labStageUm(labY), (1028 - 404 - 514) * labUmPerPixel, 0.01);
    answer("If you want to move this position", BoxAnswer::No); // under the spot
    postClick(660, 1028 - 520);
    pump();
    EXPECT_NEAR(labStageUm(labX), 130 * labUmPerPixel, 0.01);
    EXPECT_NEAR(labStageUm(labY), 130 * labUmPerPixel, 0.01);

    answer("Do you want to set it for next scan area", BoxAnswer::No);
    postDrag(100, 100, 111, 100);
    pump();
    EXPECT_EQ(scanArea.rectX2, 0);
    EXPECT_EQ(shownBoxes.back().caption, "Area: 1.6 um x 0.0 um");
    answer("Do you want to set it for next scan area", BoxAnswer::Yes);
    postDrag(400, 300, 200, 500);
    pump();
    EXPECT_EQ(scanArea.cols, 30);
    EXPECT_EQ(scanMap.maps[planeBlue].size(), 30u);
    EXPECT_EQ(textIn(Field::Progress), "New scan area was selected.");
    EXPECT_EQ(windows.main->client.at(300, 300), 0x00FF00u);
    ASSERT_EQ(savedImages.size(), 1u);
    EXPECT_EQ(savedImages[0].pixels[300 * 1232 + 300], 0x00FF00u);
}

// Of a sensor that is smaller than the picture: x from 456 to 776, y from 394 to 634.
TEST_F(CommandsTest, WhatTheCameraDoesNotSeeCannotBeChosen) {
    shapeFrames(cameraImage, 640, 480, Mosaic::Grey);
    const std::string unseen = "The camera does not see that place";
    postDrag(100, 450, 400, 500); // beside it, at its height
    pump();
    EXPECT_EQ(textIn(Field::Information), unseen);
    EXPECT_EQ(scanArea.rectX2, 0);
    answer("Do you want to set it for next scan area", BoxAnswer::Yes);
    postDrag(400, 300, 600, 500);
    pump();
    const ScanArea inSight = scanArea;
    EXPECT_EQ(inSight.rectX1, 456);
    EXPECT_EQ(inSight.rectY1, 394);
    EXPECT_EQ(inSight.rectX2, 600);
    EXPECT_EQ(inSight.rectY2, 500);

    cameraState.laserOffset = {640, 500};
    onCommand(idPickLaserSpot);
    postClick(455, 500);
    pump();
    EXPECT_EQ(cameraState.laserOffset.x, 640);
    EXPECT_EQ(textIn(Field::Information), unseen);
    EXPECT_TRUE(timerRuns()) << "the live view stays off";

    shapeFrames(cameraImage, 640, 480, Mosaic::Grey);
    display.wideView = 1; // shows what the camera has seen elsewhere
    display.wideFactor = 3;
    answer("Do you want to set it for next scan area", BoxAnswer::Yes);
    postDrag(400, 300, 600, 500);
    pump();
    EXPECT_EQ(scanArea.rectX1, 400);
    EXPECT_EQ(scanArea.rectY1, 300);
}

TEST_F(CommandsTest, NothingBeginsInsideAMove) {
    onLeftButtonDown(300, 300);
    whileDialogOpen = [] { ADD_FAILURE() << "the configuration opened"; };
    in(50, [] {
        post(messageLeftButtonUp); // the click would ask where to go
        postCommand(idConfiguration);
    });
    EXPECT_TRUE(moveTo(stageX, 100));
    EXPECT_NEAR(labStageUm(labX), 100, 0.01);
    const auto& shown = historyOf(Field::Information);
    EXPECT_EQ(std::count(shown.begin(), shown.end(), "Not while the stage moves"), 2);
}

TEST_F(CommandsTest, TheScansQuestionIsHonestAndComesToNobodyWhoStopped) {
    scanSettings.confocalEnabled = 0;
    computeScanArea(scanArea);
    allocateMaps();
    const auto beforeTheQuestion = [](Action action) { // the swing ends with Z
        when([] { return labStageUm(labZ) > 1.5; }, [action] { in(700, action); });
        dataFolders.sessionFolderMade = 0; // another for each scan
        ++wallTime.minute;
    };
    ASSERT_TRUE(applyLabFaults("axis y stalled"));
    answer("Hysteresis not compensated: the stage did not arrive. Is it okay?", BoxAnswer::No);
    onCommand(idStart);
    ASSERT_TRUE(applyLabFaults(""));
    beforeTheQuestion([] { postCommand(idStart); });
    answer("Do you want to stop process, now ?", BoxAnswer::Yes);
    onCommand(idStart);
    beforeTheQuestion([] { post(messageClose); });
    onCommand(idStart);
    EXPECT_EQ(windows.main, nullptr);
}

TEST_F(CommandsTest, DraggingLeavesNoTrace) {
    const std::vector<uint32_t> before = windows.main->client.pixels;
    post(messageLeftButtonDown, 1, 300 << 16 | 400);
    for (const int x : {420, 500, 350, 600}) post(messageMouseMove, 1, 350 << 16 | x);
    pump();
    int changed = 0;
    for (int y = 310; y < 1028; y++) // below the mark of the first corner
        for (int x = 0; x < 1232; x++)
            changed += windows.main->client.at(x, y) != before[static_cast<size_t>(y * 1446 + x)];
    EXPECT_EQ(changed, 2 * 39 + 200) << "more or less than the last rectangle";
    answer("Do you want to set it for next scan area", BoxAnswer::No);
    post(messageLeftButtonUp);
    pump();
}

TEST_F(CommandsTest, AStageWithoutAllAxesIsNamedAndAskedFor) {
    ASSERT_TRUE(applyLabFaults("axis y alarm supply"));
    answer("X: virtual:2\nY: virtual:1, alarm (supply too low)\nZ: virtual:3\n", BoxAnswer::Ok);
    onCommand(idReconnectStages);
    ASSERT_TRUE(applyLabFaults("stage count 2"));
    answer("X: virtual:2\nY: virtual:1\nZ: no controller\n", BoxAnswer::Ok);
    onCommand(idReconnectStages);
    EXPECT_EQ(shownBoxes.back().caption, "Scanner Warning");
    historyOf(Field::Information).clear();
    answer("No controller answers for Z.", BoxAnswer::No);
    onCommand(idStart);
    EXPECT_TRUE(historyOf(Field::Information).empty());
}

int searches = 0;
uint32_t searchMs = 0;

uint32_t findNone(size_t* count) {
    ++searches;
    sleepMs(searchMs);
    *count = 0;
    return 0;
}

TEST_F(CommandsTest, SearchesByItselfTakeATenthOfTheTime) {
    allocateMaps();
    replaceFunction("PylonEnumerateDevices", findNone);
    answerOthers = [](const ShownBox&) { return BoxAnswer::No; };
    switchLiveView(LiveView::On);
    for (const auto& [tookMs, pauseMs] : {std::pair{0u, 2000.0}, {5000u, 50000.0}}) {
        searchMs = tookMs;
        for (const int id : {idLiveOn, idLaserView, idSampleView, idCameraAuto, idStart}) {
            searches = 0;
            onCommand(id);
            EXPECT_EQ(searches, 1) << id;
        }
        onCommand(idLiveOn);
        const double endedMs = testTimeMs();
        searches = 0;
        while (testTimeMs() < endedMs + pauseMs * 0.9) {
            resetIdle(); // the operator moves the mouse
            liveViewTick();
            switchLiveView(LiveView::On); // as after a click
            advanceVirtualTime(pauseMs / 20);
        }
        EXPECT_EQ(searches, 0);
        for (int tick = 0; tick < 5; ++tick) {
            resetIdle();
            liveViewTick();
            advanceVirtualTime(pauseMs / 20);
        }
        EXPECT_EQ(searches, 1);
    }
}

} // namespace
