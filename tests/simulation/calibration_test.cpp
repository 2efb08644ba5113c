// The calibrations against the laboratory's truth.
#include "calibration/calibrations.h"

#include "camera/camera.h"
#include "camera/live_view.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "motion/stage.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"
#include "ui/commands.h"

#include <cmath>

namespace {

class CalibrationRunTest : public ConnectedTest {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ConnectedTest::SetUp());
        setLaserOutput(1);
        switchLiveView(LiveView::On);
        for (int i = 0; i < 15; ++i) grabFrames(cameraState, 1);
        moveXYTo(4, 7, motorSpeed);
    }

    // The stage is back, lights, exposure and live view are as they were.
    static void expectGivenBack(double x = 4, double y = 7) {
        EXPECT_NEAR(stageX.positionUm, x, 0.01);
        EXPECT_NEAR(stageY.positionUm, y, 0.01);
        EXPECT_NEAR(readPosition(stageX), x, 0.1);
        EXPECT_NEAR(readPosition(stageY), y, 0.1);
        expectLightAndExposureBack();
    }
    static void expectLightAndExposureBack() {
        EXPECT_TRUE(labIlluminated());
        EXPECT_EQ(labLaserPwm(), 0);
        EXPECT_TRUE(cameraState.device->ExposureAuto.Is(Auto_Continuous));
        EXPECT_TRUE(cameraState.device->GainAuto.Is(Auto_Continuous));
        EXPECT_TRUE(timerRuns());
        EXPECT_EQ(session.processRunning, 0);
    }
};

TEST_F(CalibrationRunTest, FindsTheScaleOfThePicture) {
    setLaserLevel(1); // a spot that stands still
    int steps = 0;
    const ScaleCalibration result =
        calibrateScale([&](const std::string&, int done, int of) { steps += done < of; });
    ASSERT_TRUE(result.canKeep()) << result.words();
    EXPECT_NEAR(result.fit.umPerPixel / labUmPerPixel, 1, 0.003);
    EXPECT_NEAR(result.fit.rotationDegrees, 0, 0.05);
    EXPECT_EQ(result.fit.mirroring, Mirroring::None);
    EXPECT_LT(result.fit.residualUm, 0.2) << "the laboratory's picture moves by whole pixels";
    EXPECT_TRUE(result.fit.outliers.empty()) << result.words();
    EXPECT_GT(steps, 20);
    EXPECT_EQ(textIn(Field::Information), "Calibration of camera and stage finished");
    EXPECT_GT(labLaserPwm(), 0);
    setLaserLevel(0);
    expectGivenBack();

    EXPECT_EQ(keep(result), "");
    EXPECT_EQ(setUp.objective().xPerColumn, result.fit.matrix.xPerColumn);
    EXPECT_NE(setUpWords(setUp), "default");
    ScaleCalibration impossible = result;
    impossible.fit.matrix.yPerRow *= 2;
    EXPECT_NE(keep(impossible), "");
    EXPECT_EQ(setUp.objective().yPerRow, result.fit.matrix.yPerRow);
}

// By a stage whose micrometre is another one and whose X runs the other way it looks as if through
// another objective, and mirrored.
TEST_F(CalibrationRunTest, FindsAnyScaleFromAWrongOne) {
    ASSERT_TRUE(applyLabFaults("backlash x 0\nbacklash y 0"));
    for (const double umPerTurn : {35.0, 3400.0}) {
        for (AxisDrive& drive : setUp.drives) drive.umPerTurn = umPerTurn;
        setUp.drives[0].reversed = true;
        closeAllStages();
        ASSERT_TRUE(openStages(2, motorSpeed));
        const ScaleCalibration result = calibrateScale();
        ASSERT_TRUE(result.canKeep()) << result.words();
        EXPECT_NEAR(result.fit.umPerPixel / (labUmPerPixel * umPerTurn / 250), 1, 0.003);
        EXPECT_NEAR(result.fit.rotationDegrees, 0, 0.05);
        EXPECT_EQ(result.fit.mirroring, Mirroring::LeftRight);
        expectGivenBack(0, 0);
    }
}

TEST_F(CalibrationRunTest, FindsThePlayOfBothAxes) {
    ASSERT_TRUE(applyLabFaults("backlash x 3\nbacklash y 0.6"));
    const PlayCalibration result = calibratePlay();
    ASSERT_TRUE(result.canKeep()) << result.words();
    EXPECT_NEAR(result.x.um, 3, 0.3);
    EXPECT_NEAR(result.y.um, 0.6, 0.3);
    EXPECT_LT(result.x.uncertaintyUm, 0.1);
    EXPECT_GT(result.x.uncertaintyUm, 0.005);
    EXPECT_GE(result.proposedRunInUm, 5);
    expectGivenBack();
}

TEST_F(CalibrationRunTest, FindsTheLaserSpotWhateverTheExposureWas) {
    for (const double us : {100.0, 20000.0}) {
        cameraState.exposureUs = us;
        controlCamera(cameraState, cameraManual);
        const SpotCalibration result = calibrateSpot();
        ASSERT_TRUE(result.canKeep()) << result.words();
        EXPECT_NEAR(result.spot.place.columns, labSpotPixel().column, 1);
        EXPECT_NEAR(result.spot.place.rows, labSpotPixel().row, 1);
        EXPECT_EQ(result.proposedAperture, 7);
        EXPECT_TRUE(cameraState.device->ExposureAuto.Is(Auto_Off));
        EXPECT_EQ(cameraState.device->GetExposureUs(), us);
        EXPECT_TRUE(labIlluminated());
        EXPECT_EQ(labLaserPwm(), 0);
        EXPECT_EQ(keep(result), "");
        EXPECT_EQ(cameraState.laserOffset.x, labSpotPixel().column);
    }
    laserLink.laserLevel = 0;
    EXPECT_EQ(calibrateSpot().words(),
              "Calibration of the laser spot failed. The laser intensity is 0");
    laserLink.laserLevel = 4;
    ASSERT_TRUE(applyLabFaults("board unplugged"));
    EXPECT_FALSE(calibrateSpot().canKeep());
}

TEST_F(CalibrationRunTest, ReadsTheDarkValueWithoutLight) {
    setLaserLevel(1);
    const DarkCalibration result = calibrateDark();
    ASSERT_TRUE(result.dark.isFound()) << result.words();
    ASSERT_GE(labReads().size(), size_t{darkReadings});
    for (size_t i = labReads().size() - darkReadings; i < labReads().size(); ++i)
        EXPECT_FALSE(labReads()[i].laser || labReads()[i].lamp);
    EXPECT_FALSE(result.canKeep()) << "below the board's dead zone the offset cannot be seen";
    EXPECT_NE(result.words().find("50 readings lie in the dead zone"), std::string::npos);
    EXPECT_GT(labLaserPwm(), 0);
    setLaserLevel(0);
    expectLightAndExposureBack();
    ASSERT_TRUE(applyLabFaults("board overload"));
    EXPECT_FALSE(calibrateDark().canKeep());
    ASSERT_TRUE(applyLabFaults("board unplugged"));
    EXPECT_FALSE(calibrateDark().canKeep());
}

TEST_F(CalibrationRunTest, AStopGivesEverythingBack) {
    const struct {
        double ms;
        std::function<Outcome()> calibrate;
    } cases[] = {{600, [] { return calibrateScale().outcome; }},
                 {9000, [] { return calibrateScale().outcome; }},
                 {5000, [] { return calibratePlay().outcome; }},
                 {300, [] { return calibrateSpot().outcome; }},
                 {2500, [] { return calibrateDark().outcome; }}};
    for (const auto& each : cases) {
        in(each.ms, [] { postCommand(idStart); });
        answer("Do you want to stop process, now ?", BoxAnswer::Yes);
        const Outcome outcome = each.calibrate();
        EXPECT_EQ(outcome.end, ProcessEnd::Stopped) << outcome.words() << each.ms;
        EXPECT_TRUE(outcome.isSound()) << outcome.words();
        expectGivenBack();
    }
    setLaserLevel(1); // nobody watches over it when the window has been closed
    in(3000, [] { post(messageClose); });
    EXPECT_EQ(calibrateScale().outcome.end, ProcessEnd::WindowClosed);
    EXPECT_EQ(labLaserPwm(), 0);
    EXPECT_NEAR(stageX.positionUm, 4, 0.01);
    EXPECT_EQ(windows.main, nullptr);
}

TEST_F(CalibrationRunTest, SaysWhatKeepsItFromMeasuring) {
    // A plain place: nothing but noise, and the stage does not leave it.
    moveXYTo(900, 900, motorSpeed);
    uint64_t moves = labCounters().moves;
    EXPECT_EQ(calibrateScale().words(),
              "Calibration of camera and stage failed. The picture has no structure that could be "
              "followed");
    EXPECT_LE(labCounters().moves - moves, 4u);
    expectGivenBack(900, 900);
    moveXYTo(4, 7, motorSpeed);

    // Limits are looked at before anything goes there.
    setUp.ranges[0].highest = ofController(stageX, 20);
    const ScaleCalibration narrow = calibrateScale();
    EXPECT_FALSE(narrow.canKeep()) << narrow.words();
    EXPECT_NE(narrow.words().find("The limits of the stage leave too little room here"),
              std::string::npos)
        << narrow.words();
    setUp.ranges[0].highest = ofController(stageX, 40); // less room will do
    EXPECT_TRUE(calibrateScale().canKeep());
    EXPECT_LE(labStageUm(labX), 40);
    setUp = {};

    std::optional<ScaleCalibration> inside;
    in(1000, [&] { inside = calibrateScale(); });
    calibrateDark();
    ASSERT_TRUE(inside);
    EXPECT_EQ(inside->words(), "Not while a process runs");

    in(6000, [] { applyLabFaults("axis x lost"); });
    const ScaleCalibration lost = calibrateScale();
    EXPECT_EQ(lost.outcome.endedBy, "Stage X lost (-4)");
    EXPECT_NE(lost.words().find("The stage did not come back, Stage X lost (-4)"),
              std::string::npos)
        << lost.words();
    expectLightAndExposureBack();
    EXPECT_EQ(calibratePlay().words(), "Calibration of the play failed. Stage X lost (-4)");

    setLaserOutput(0);
    ASSERT_TRUE(applyLabFaults("camera lost"));
    EXPECT_FALSE(calibrateSpot().canKeep());
    EXPECT_EQ(labLaserPwm(), 0);
    EXPECT_FALSE(labIlluminated());
}

} // namespace
