// The stage axes against the laboratory's controllers: assignment, conversion, arrival, limits.
#include "motion/stage.h"
#include "platform/text_format.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "tests/doubles/doubles.h"

#include <algorithm>

namespace {

using StageTest = WindowTest;

void closeAll() {
    for (StageAxis* axis : {&stageX, &stageY, &stageZ}) closeStage(*axis);
}

template <class Function> Function* labFunction(const char* name) {
    return reinterpret_cast<Function*>(virtualLabFunction("libximc.dll", name));
}

TEST_F(StageTest, MicrometresBecomeStepsAndMicrosteps) {
    const struct {
        double um;
        int32_t full, micro;
    } cases[] = {{0, 0, 0},       {1.25, 1, 0},     {12.5, 10, 0},
                 {-1.25, -1, 0},  {0.625, 0, 128},  {-0.625, -1, 128},
                 {1.2, 0, 245},   {-1e-17, 0, 0}, // 256 microsteps carry
                 {250.0, 200, 0}, {-0.001, -1, 255}};
    for (const auto& each : cases) {
        const StepCount steps = stepsOf(each.um);
        EXPECT_EQ(steps.fullSteps, each.full) << each.um;
        EXPECT_EQ(steps.microsteps, each.micro) << each.um;
    }
}

TEST_F(StageTest, EveryOrderGivesEachAxisItsController) {
    const char* const devices[] = {deviceX_name, deviceY_name, deviceZ_name};
    const int assignment[][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {2, 0, 1}, {1, 2, 0}, {2, 1, 0}};
    for (int32_t order = 0; order < 6; order++) {
        ASSERT_TRUE(openStages(order, motorSpeed));
        for (int axis = 0; axis < 3; axis++) {
            EXPECT_EQ(std::string(devices[axis]),
                      "virtual:" + std::to_string(assignment[order][axis] + 1))
                << order << axis;
        }
        closeAll();
    }
    EXPECT_EQ(labCounters().openAxes, 0u);
    EXPECT_NE(ximc_version_str[0], '\0');
}

TEST_F(StageTest, OpensAtZeroWithoutRamps) {
    ASSERT_TRUE(openStages(2, motorSpeed));
    for (const StageAxis* axis : {&stageX, &stageY, &stageZ}) {
        EXPECT_EQ(axis->positionUm, 0.0);
        EXPECT_NE(axis->zeroOffsetSteps, 0); // the laboratory's controllers count from elsewhere
        EXPECT_EQ(axis->engine.NomSpeed, 500u);
        EXPECT_EQ(axis->engine.EngineFlags & 0x90, 0x80u) << "no ramps, and the speed in force";
    }
}

TEST_F(StageTest, FewerControllersLeaveAxesClosed) {
    const struct {
        const char* faults;
        int32_t order;
        bool found;
        uint32_t x, y, z;
    } cases[] = {
        {"stage absent", 2, false, 0, 0, 0},
        {"stage count 1", 0, true, 1, 0, 0},
        {"stage count 1", 2, false, 0, 0, 0}, // the first controller would be Y's
        {"stage count 2", 2, true, 1, 2, 0},
        {"stage count 2", 1, true, 1, 0, 0},
        {"", 2, true, 1, 2, 3},
    };
    for (const auto& each : cases) {
        ASSERT_TRUE(applyLabFaults(each.faults));
        EXPECT_EQ(openStages(each.order, motorSpeed), each.found) << each.faults;
        EXPECT_EQ(stageX.axisNumber, each.x) << each.faults << each.order;
        EXPECT_EQ(stageY.axisNumber, each.y) << each.faults << each.order;
        EXPECT_EQ(stageZ.axisNumber, each.z) << each.faults << each.order;
        closeAll();
    }
}

TEST_F(StageTest, MovesWhereItIsTold) {
    ASSERT_TRUE(openStages(2, motorSpeed));
    EXPECT_TRUE(moveTo(stageX, 37.3));
    EXPECT_EQ(stageX.positionUm, 37.3);
    EXPECT_NEAR(labStageUm(labX), 37.3, umPerFullStep / microstepsPerFullStep);
    EXPECT_EQ(textIn(Field::Information).substr(0, 13), "arrived:count");
    EXPECT_TRUE(moveBy(stageY, 10));
    EXPECT_TRUE(moveBy(stageY, -3)); // the carriage lags by the play of the screw
    EXPECT_NEAR(labStageUm(labY), 9.0, 0.02);
    const uint64_t moves = labCounters().moves;
    EXPECT_TRUE(moveTo(stageX, 37.3));
    EXPECT_EQ(labCounters().moves, moves) << "nothing is sent for the place where the axis is";
    setPosition(stageX, 100.0);
    EXPECT_NEAR(readPosition(stageX), 100.0, umPerFullStep);
    EXPECT_TRUE(moveTo(stageX, 110.0));
    EXPECT_NEAR(labStageUm(labX), 47.3, umPerFullStep);
}

int calls; // of the stage library

// Counts the calls; the laboratory answers them.
void countCalls() {
    calls = 0;
    replaceFunction(
        "get_status", +[](int id, status_t* status) {
            return ++calls, labFunction<int(int, status_t*)>("get_status")(id, status);
        });
    replaceFunction(
        "command_move", +[](int id, int position, int uPosition) {
            return ++calls,
                   labFunction<int(int, int, int)>("command_move")(id, position, uPosition);
        });
    replaceFunction(
        "set_engine_settings", +[](int id, const engine_settings_t* settings) {
            return ++calls, labFunction<int(int, const engine_settings_t*)>("set_engine_settings")(
                                id, settings);
        });
    replaceFunction(
        "command_stop", +[](int id) { return ++calls, labFunction<int(int)>("command_stop")(id); });
}

TEST_F(StageTest, LostAxisIsSaidOnceAndNeverAskedAgain) {
    countCalls();
    const struct {
        const char* fault;
        void (*call)();
        int answer;
        double atMost; // ms
    } cases[] = {
        {"axis x lost", [] { readPosition(stageX); }, -4, 0},
        {"axis x lost 2", [] { setPosition(stageX, 100.0); }, -4, 100},
        {"axis x mute", [] { moveTo(stageX, 50.0); }, -1, 7000},
        {"axis x mute", [] { setSpeed(stageX, 300); }, -1, 7000},
        {"axis x lost", [] { stopStage(stageX); }, -4, 0},
        {"axis x lost 4", [] { moveTo(stageX, 300.0); }, -4, 100},
        {"axis x lost 9", [] { moveXYTo(300.0, 3000.0, motorSpeed); }, -4, 300},
    };
    for (const auto& each : cases) {
        ASSERT_TRUE(openStages(2, motorSpeed));
        EXPECT_FALSE(axisIsLost(stageX)) << "opening begins anew";
        ASSERT_TRUE(moveTo(stageX, 20.0));
        const int32_t zero = stageX.zeroOffsetSteps;
        ASSERT_TRUE(applyLabFaults(each.fault));
        testing::internal::CaptureStdout();
        double start = testTimeMs();
        each.call();
        EXPECT_LE(testTimeMs(), start + each.atMost) << each.fault;
        EXPECT_TRUE(axisIsLost(stageX)) << each.fault;
        EXPECT_EQ(textIn(Field::Information),
                  formatted("Stage X lost (%d): \"Reconnect Stages\"", each.answer));
        const double lastRead = stageX.positionUm;
        EXPECT_NE(lastRead, 300.0) << "no arrival that nobody saw";
        start = testTimeMs();
        const int callsBefore = calls;
        EXPECT_FALSE(moveTo(stageX, lastRead));
        EXPECT_FALSE(moveBy(stageX, 1.0));
        EXPECT_FALSE(moveXYBy(1.0, 1.0, motorSpeed));
        EXPECT_FALSE(standsAt(stageX, lastRead, 1.0));
        readPosition(stageX);
        setSpeed(stageX, 200);
        setPosition(stageX, 7.0);
        stopStage(stageX);
        EXPECT_EQ(calls, callsBefore);
        EXPECT_EQ(testTimeMs(), start);
        EXPECT_EQ(stageX.positionUm, lastRead);
        EXPECT_EQ(stageX.zeroOffsetSteps, zero);
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 1) << printed;
        EXPECT_EQ(printed.find("Stage X: "), 0u) << printed;
        EXPECT_NE(printed.find(formatted("answered %d", each.answer)), std::string::npos);
        EXPECT_EQ(silentAxes(), "X");
        EXPECT_TRUE(applyLabFaults(""));
        closeAll();
    }
}

// An axis has to be where a point is measured, by its controller's word.
TEST_F(StageTest, StandsAtLooksAtTheController) {
    EXPECT_TRUE(standsAt(stageX, 12.0, 0.5)) << "without a controller";
    ASSERT_TRUE(openStages(2, motorSpeed));
    ASSERT_TRUE(moveTo(stageX, 20.0));
    const double start = testTimeMs();
    EXPECT_TRUE(standsAt(stageX, 20.0, 0.5));
    EXPECT_EQ(testTimeMs(), start) << "nothing to wait for";
    EXPECT_FALSE(standsAt(stageX, 20.9, 0.5));
    EXPECT_NEAR(testTimeMs(), start + 100, 20);
    setSpeed(stageX, 20); // 25 um/s
    ASSERT_TRUE(startMoveTo(stageX, 25.0));
    EXPECT_TRUE(standsAt(stageX, 25.0, 0.5));
    EXPECT_NEAR(labStageUm(labX), 25.0, 0.01) << "at rest, not only near";
    ASSERT_TRUE(startMoveTo(stageX, 300.0));
    EXPECT_FALSE(standsAt(stageX, 300.0, 0.5));
    EXPECT_LT(stageX.positionUm, 100.0) << "where it is, not where it should be";
    ASSERT_TRUE(applyLabFaults("axis x old\naxis x slow 20"));
    ASSERT_TRUE(moveTo(stageX, 60.0)) << "slower than the time-out thinks";
    EXPECT_TRUE(standsAt(stageX, 60.0, 0.05));
    EXPECT_NEAR(labStageUm(labX), 60.0, 0.05);
}

TEST_F(StageTest, SlowWayIsNoFailure) {
    ASSERT_TRUE(openStages(2, motorSpeed));
    ASSERT_TRUE(applyLabFaults("axis x slow 8\naxis y slow 8")); // 10 um/s, half of one a poll
    EXPECT_TRUE(moveTo(stageX, 200.0));
    EXPECT_TRUE(moveXYTo(300.0, 100.0, motorSpeed));
    ASSERT_TRUE(applyLabFaults("axis x slow 8\nlimit x right at 320"));
    EXPECT_FALSE(moveTo(stageX, 400.0));
    EXPECT_EQ(textIn(Field::Information), "Limit right Switch on    ");
}

// The list is shorter than the three that were kept: the places have moved up.
TEST_F(StageTest, MissingControllerLeavesTheOthersTheirAxes) {
    ASSERT_TRUE(openStages(2, motorSpeed));
    EXPECT_EQ(contentOf("KST_Data/Options.ini"), "stage controller 1 = virtual:1\n"
                                                 "stage controller 2 = virtual:2\n"
                                                 "stage controller 3 = virtual:3\n");
    closeAll();
    stageX.rightLimitOn = stageX.leftLimitOn = 1;
    ASSERT_TRUE(applyLabFaults("stage count 2"));
    writeDesktopFile("KST_Data/Options.ini", "stage controller 1 = virtual:0\n"
                                             "stage controller 2 = virtual:1\n"
                                             "stage controller 3 = virtual:2\n");
    const struct {
        int32_t order;
        const char *silent, *list;
    } cases[] = {{2, "Y", "X: virtual:1\nY: no controller\nZ: virtual:2\n"},
                 {4, "Z", "X: virtual:1\nY: virtual:2\nZ: no controller\n"}};
    for (const auto& each : cases) {
        ASSERT_TRUE(openStages(each.order, motorSpeed));
        EXPECT_EQ(silentAxes(), each.silent);
        EXPECT_EQ(axisList(), each.list);
        EXPECT_EQ(stageX.rightLimitOn + stageX.leftLimitOn, 0u);
        closeAll();
    }
    ASSERT_TRUE(applyLabFaults("axis y microsteps 8"));
    ASSERT_TRUE(openStages(2, motorSpeed));
    EXPECT_EQ(axisList(),
              "X: virtual:2\nY: not driven, its microsteps are not 1/256\nZ: virtual:3\n");
    EXPECT_EQ(labCounters().openAxes, 2u);
    EXPECT_FALSE(openStages(2, motorSpeed)) << "they are open already and do not open again";
}

TEST_F(StageTest, NudgeWaitsForTheMove) {
    ASSERT_TRUE(openStages(2, motorSpeed));
    processRunning = 1;
    for (int ms = 100; ms < 400; ms += 30)
        in(ms, [] { post(messageKeyDown, keyPageUp); }); // a key that is held down
    EXPECT_TRUE(moveTo(stageZ, 100.0));
    EXPECT_NEAR(labStageUm(labZ), 101.0, 1.0);
    EXPECT_EQ(stageZ.positionUm, 101.0);
    EXPECT_FALSE(nudgeAfterMove(stageZ, 1.0)) << "no move";
}

TEST_F(StageTest, LimitSwitchEndsAMoveAndRefusesTheNext) {
    const struct {
        const char* faults;
        double end;
        const char* verdict;
    } cases[] = {{"limit x right at 25", 25, "Limit right Switch on    "},
                 {"limit x left at -25", -25, "Limit left Switch on    "}};
    for (const auto& each : cases) {
        ASSERT_TRUE(applyLabFaults(each.faults));
        ASSERT_TRUE(openStages(2, motorSpeed));
        EXPECT_FALSE(moveTo(stageX, 2 * each.end));
        EXPECT_NEAR(labStageUm(labX), each.end, 1e-9);
        EXPECT_EQ(textIn(Field::Information), each.verdict);
        const uint64_t moves = labCounters().moves;
        EXPECT_FALSE(moveTo(stageX, 3 * each.end));
        EXPECT_EQ(labCounters().moves, moves);
        EXPECT_TRUE(moveTo(stageX, 0.0)) << "away from the switch is allowed";
        closeAll();
    }
}

TEST_F(StageTest, StalledAxisEndsTheWait) {
    ASSERT_TRUE(openStages(2, motorSpeed));
    ASSERT_TRUE(applyLabFaults("axis x stalled\naxis y stalled"));
    EXPECT_FALSE(moveTo(stageY, 3000.0));
    EXPECT_EQ(textIn(Field::Information), "Not moving during 13 sec     ");
    EXPECT_FALSE(moveXYBy(0, 2000.0, motorSpeed));
    EXPECT_EQ(textIn(Field::Progress), "count:101 Dist. to move 2000.0um");
    stageX.positionUm = 100.0;
    EXPECT_FALSE(moveTo(stageX, 180.0)); // |180 - 80| / 500 s, twice, and a second
    EXPECT_EQ(textIn(Field::Information), "Not moving during 1 sec     ");
}

TEST_F(StageTest, ClickStopsAllAxes) {
    static int stops;
    stops = 0;
    replaceFunction(
        "command_stop", +[](int id) { return ++stops, labFunction<int(int)>("command_stop")(id); });
    ASSERT_TRUE(openStages(2, motorSpeed));
    in(340, [] { postClick(10, 10); }); // between two looks at the position
    EXPECT_FALSE(moveTo(stageX, 2000.0));
    EXPECT_NEAR(stageX.positionUm, labStageUm(labX), 2.0 + 1.25); // play, and a zero in full steps
    EXPECT_EQ(stops, 3);
    EXPECT_EQ(stopRequested, 0);
    const auto& texts = historyOf(Field::Information);
    ASSERT_GE(texts.size(), 2u);
    EXPECT_EQ(texts[texts.size() - 2], "stop requested");
    EXPECT_EQ(texts.back(), "Not moving during 9 sec     ");
    const double stoppedAt = labStageUm(labX);
    advanceVirtualTime(1000);
    EXPECT_EQ(labStageUm(labX), stoppedAt);
    EXPECT_GT(stoppedAt, 0.0);
    EXPECT_LT(stoppedAt, 500.0);
}

TEST_F(StageTest, ClosedAxesActOnTheirNumbers) {
    EXPECT_TRUE(moveTo(stageX, 12.5));
    EXPECT_TRUE(moveBy(stageX, 1.0));
    EXPECT_EQ(currentPositionUm(stageX), 13.5);
    EXPECT_FALSE(startMoveTo(stageY, 4.0));
    EXPECT_EQ(readPosition(stageY), 4.0);
    setPosition(stageY, 9.0);
    EXPECT_EQ(stageY.positionUm, 4.0);
    EXPECT_TRUE(moveXYTo(-1.0, -2.0, motorSpeed));
    EXPECT_EQ(stageX.positionUm, -1.0);
    EXPECT_EQ(stageY.positionUm, -2.0);
    const double start = testTimeMs();
    EXPECT_TRUE(moveXYBy(0, 0, motorSpeed)); // no distance, no division
    EXPECT_EQ(testTimeMs(), start);
}

std::vector<uint32_t> speedsSent;

TEST_F(StageTest, TwoAxesArriveTogether) {
    replaceFunction(
        "set_engine_settings", +[](int id, const engine_settings_t* settings) {
            speedsSent.push_back(settings->NomSpeed);
            return labFunction<int(int, const engine_settings_t*)>("set_engine_settings")(id,
                                                                                          settings);
        });
    ASSERT_TRUE(openStages(2, motorSpeed));
    speedsSent.clear();
    EXPECT_TRUE(moveXYTo(400.0, 100.0, motorSpeed));
    EXPECT_EQ(speedsSent, (std::vector<uint32_t>{125, 500})); // Y scaled, and back
    EXPECT_EQ(stageX.positionUm, 400.0);
    EXPECT_EQ(stageY.positionUm, 100.0);
    EXPECT_NEAR(labStageUm(labX), 400.0, 4.0);
    EXPECT_NEAR(labStageUm(labY), 100.0, 4.0);
    speedsSent.clear();
    EXPECT_TRUE(moveXYBy(-50.0, -100.0, 5000)); // clamped to 800
    EXPECT_EQ(speedsSent, (std::vector<uint32_t>{400, 800, 800}));
    const double before = labStageUm(labY);
    EXPECT_TRUE(moveXYBy(-600.0, -0.4, motorSpeed)); // too short for its share of the speed
    EXPECT_NEAR(labStageUm(labY), before - 0.4, 0.01);
    speedsSent.clear();
    setSpeed(stageX, 5000);
    setSpeed(stageX, 1000); // the same: nothing is sent
    setSpeed(stageX, -1);
    EXPECT_EQ(speedsSent, (std::vector<uint32_t>{1000}));
}

TEST_F(StageTest, OneBlockedAxisDoesNotEndTheWatchOfTheOther) {
    ASSERT_TRUE(openStages(2, motorSpeed));
    ASSERT_TRUE(applyLabFaults("limit x right at 15"));
    EXPECT_FALSE(moveXYTo(4000.0, 3900.0, motorSpeed));
    EXPECT_NEAR(stageX.positionUm, labStageUm(labX), 1.25);
    EXPECT_NEAR(stageY.positionUm, labStageUm(labY), 1.25);
    EXPECT_NEAR(stageY.positionUm, 3900.0, 4.0);
}

} // namespace
