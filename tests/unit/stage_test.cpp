// The stage axes against the laboratory's controllers: assignment, conversion, arrival, limits.
#include "motion/stage.h"
#include "platform/text_format.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"
#include "ui/devices_page.h"

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
        const StepCount steps = stepsOf(stageX, each.um);
        EXPECT_EQ(steps.fullSteps, each.full) << each.um;
        EXPECT_EQ(steps.microsteps, each.micro) << each.um;
    }
}

TEST_F(StageTest, EveryOrderGivesEachAxisItsController) {
    const char* const devices[] = {controllers.deviceX_name, controllers.deviceY_name,
                                   controllers.deviceZ_name};
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
    EXPECT_NE(controllers.ximc_version_str[0], '\0');
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

// By the controller's count: neither another zero nor another start moves the place.
TEST_F(StageTest, NoMoveGoesBeyondALimitOfTheSetUp) {
    ASSERT_TRUE(openStages(2, motorSpeed));
    ASSERT_TRUE(keepHighestZ(ofController(stageZ, 50.0)));
    setUp.ranges[0].lowest = ofController(stageX, -20.0);
    const double z = labStageUm(labZ);
    EXPECT_TRUE(moveTo(stageZ, 50.0));
    for (int start = 0; start < 2; ++start) {
        EXPECT_FALSE(moveBy(stageZ, 1.0)) << start;
        EXPECT_EQ(stageZ.missed, Miss::BeyondLimit);
        EXPECT_NE(textIn(Field::Information).find("is beyond its highest place"),
                  std::string::npos);
        EXPECT_NEAR(labStageUm(labZ), z + 50.0, 0.1);
        setPosition(stageZ, 7.0); // another zero
        EXPECT_FALSE(moveTo(stageZ, 8.0));
        closeAll();
        EXPECT_TRUE(readSetUp().empty());
        setUp.ranges[0].lowest = ofController(stageX, -20.0);
        ASSERT_TRUE(openStages(2, motorSpeed));
    }
    EXPECT_TRUE(moveBy(stageZ, -10.0)) << "a way back is open";
    // Of two axes none goes alone to a place that nobody has named.
    const double y = labStageUm(labY);
    EXPECT_FALSE(moveXYTo(-30.0, 30.0, motorSpeed));
    EXPECT_EQ(labStageUm(labY), y);
    EXPECT_TRUE(moveXYTo(-20.0, 30.0, motorSpeed));
}

// The set-up says another drive while the axis stands somewhere: nothing moves of itself, and a way
// from there is as long as the new drive has it.
TEST_F(StageTest, AnotherDriveKeepsThePlace) {
    ASSERT_TRUE(openStages(2, motorSpeed));
    ASSERT_TRUE(moveTo(stageX, 40.0));
    const double x = labStageUm(labX);
    setUp.drives[0].umPerTurn = 500.0; // the laboratory's is 250
    setUp.drives[0].reversed = true;
    ASSERT_TRUE(followDrive(stageX));
    EXPECT_TRUE(moveTo(stageX, 40.0));
    EXPECT_NEAR(labStageUm(labX), x, 0.01);
    EXPECT_TRUE(moveTo(stageX, 60.0)); // the other way: this one takes the play up
    const double there = labStageUm(labX);
    EXPECT_TRUE(moveTo(stageX, 80.0));
    EXPECT_NEAR(labStageUm(labX), there - 10.0, 0.1);
    setUp.drives[0].microsteps = 128;
    EXPECT_FALSE(followDrive(stageX)) << "its controller has others";
    moveTo(stageX, 70.0);
    EXPECT_NEAR(labStageUm(labX), there - 10.0, 0.1);
}

// "1,2,3" as the file of options has the names of the controllers.
std::string keptNames(const std::string& numbers) {
    std::string lines;
    for (size_t i = 0; i < 3; ++i)
        lines += formatted("stage controller %zu = ", i + 1) +
                 (2 * i < numbers.size() ? std::string("virtual:") + numbers[2 * i] : "") + "\n";
    return lines;
}

// Which axis gets which controller; the laboratory's 1 drives Y, 2 drives X and 3 the focus.
TEST_F(StageTest, NamesDecideBeforePlaces) {
    constexpr auto none = BoxAnswer::None; // no box
    const struct {
        const char *kept, *faults;
        int32_t order;
        BoxAnswer reply;
        const char *controllers, *keptAfter; // of X, Y and Z
    } cases[] = {
        {"", "stage absent", 2, none, "---", ""},
        {"", "", 2, none, "213", "1,2,3"}, // a first start: the list's order
        {"", "stage count 1", 0, BoxAnswer::Yes, "1--", "1"},
        {"", "stage count 1", 0, BoxAnswer::No, "---", ""},
        {"", "stage count 1", 2, none, "---", ""}, // the first controller would be Y's
        {"", "stage count 2", 2, BoxAnswer::Yes, "21-", "1,2"},
        {"1,2", "stage count 2", 2, none, "21-", "1,2"}, // asked once
        {"", "stage stranger", 2, BoxAnswer::No, "---", ""},
        {"1,2,3", "stage order zxy", 2, none, "213", "1,2,3"},
        {"1,2,3", "stage stranger\nstage order xyz", 4, none, "231", "1,2,3"},
        {"0,1,2", "stage count 2", 2, none, "1-2", "0,1,2"}, // the places have moved up
        {"0,1,2", "stage count 2", 4, none, "12-", "0,1,2"},
        {"1,2,9", "", 2, BoxAnswer::No, "21-", "1,2,9"},
        {"1,9,3", "stage order zyx", 2, BoxAnswer::Yes, "132", "3,1,2"},
        {"1,2,3", "stage stranger\naxis z absent", 2, BoxAnswer::No, "21-", "1,2,3"},
    };
    for (const auto& each : cases) {
        const std::string name = std::string(each.kept) + "|" + each.faults;
        writeDesktopFile("KST_Data/Options.ini", keptNames(each.kept));
        ASSERT_TRUE(applyLabFaults(each.faults));
        const size_t boxes = shownBoxes.size();
        if (each.reply != none)
            answer("Do they drive the axes so?", each.reply,
                   [] { EXPECT_EQ(labCounters().openAxes, 0u) << "before anything is driven"; });
        EXPECT_EQ(openStages(each.order, motorSpeed), std::string(each.controllers) != "---");
        EXPECT_EQ(shownBoxes.size() - boxes, each.reply == none ? 0u : 1u) << name;
        std::string controllers;
        for (const char* letter : {"X: ", "Y: ", "Z: "}) {
            const std::string list = axisList();
            const std::string line = list.substr(list.find(letter) + 3);
            controllers += line.starts_with("virtual:") ? line[8] : '-';
        }
        EXPECT_EQ(controllers, each.controllers) << name;
        EXPECT_EQ(contentOf("KST_Data/Options.ini"), keptNames(each.keptAfter)) << name;
        closeAll();
    }
    const std::string box = shownBoxes[shownBoxes.size() - 2].text; // "1,9,3"
    // A file that nobody can read now may name them: the list's order is not taken unasked.
    unreadableFile = "Options.ini";
    answer("Do they drive the axes so?", BoxAnswer::No);
    EXPECT_FALSE(openStages(2, motorSpeed));
    EXPECT_NE(box.find("X: virtual:1, Sample Y, stage linear 25 (drove Y)\n"
                       "Y: virtual:3, Focus, stage vertical 10 (drove Z)\n"
                       "Z: virtual:2, Sample X, stage linear 25 (not known)\n"),
              std::string::npos)
        << box;
}

// One whose counts mean another way is not driven: 80 full steps of a motor with 20 a turn are 1
// mm.
TEST_F(StageTest, OtherStepsAreNotDriven) {
    const struct {
        const char *fault, *why;
    } cases[] = {{"axis y microsteps 8", "not driven, its microsteps are not 1/256"},
                 {"axis y turn 20", "not driven, its motor has not 200 steps per turn"}};
    for (const auto& each : cases) {
        ASSERT_TRUE(applyLabFaults(each.fault));
        stageX.rightLimitOn = stageX.leftLimitOn = 1;
        ASSERT_TRUE(openStages(2, motorSpeed));
        EXPECT_EQ(stageX.rightLimitOn + stageX.leftLimitOn, 0u);
        EXPECT_EQ(axisList(), formatted("X: virtual:2\nY: %s\nZ: virtual:3\n", each.why));
        EXPECT_EQ(silentAxes(), "Y");
        EXPECT_EQ(labCounters().openAxes, 2u);
        closeAll();
    }
    ASSERT_TRUE(openStages(2, motorSpeed));
    EXPECT_FALSE(openStages(2, motorSpeed)) << "they are open already and do not open again";
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
        {"axis x disturbed 1", [] { moveTo(stageX, 50.0); }, -1, 0},
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
        const std::string said = formatted("answered %d, the axis is lost", each.answer);
        const size_t place = printed.find(said);
        EXPECT_NE(place, std::string::npos) << printed;
        EXPECT_EQ(printed.find("Stage X", place), std::string::npos) << "once";
        EXPECT_EQ(silentAxes(), "X");
        EXPECT_TRUE(applyLabFaults(""));
        closeAll();
    }
}

// The library answers -1 at once to one bad checksum, and the next call succeeds.
TEST_F(StageTest, DisturbedAnswersLoseNothing) {
    for (int each : {2, 3, 7}) {
        ASSERT_TRUE(
            applyLabFaults(formatted("axis x disturbed %d\naxis y disturbed %d", each, each)));
        ASSERT_TRUE(openStages(2, motorSpeed));
        const double from = labStageUm(labX); // backlash: to the right only
        for (double um : {10.0, 12.0, 30.0, 60.0}) EXPECT_TRUE(moveTo(stageX, um)) << each;
        EXPECT_TRUE(moveXYBy(20.0, 30.0, motorSpeed)) << each;
        EXPECT_TRUE(standsAt(stageX, 80.0, 0.5));
        EXPECT_NEAR(labStageUm(labX) - from, 80.0, 0.01 + umPerFullStep);
        EXPECT_EQ(silentAxes(), "");
        stopAllStages();
        closeAll();
    }
}

// It was lost on its way, and goes on to where it was sent.
TEST_F(StageTest, LostAxisIsStoppedWhenItAnswersAgain) {
    ASSERT_TRUE(openStages(2, motorSpeed));
    ASSERT_TRUE(startMoveTo(stageX, 4000.0));
    ASSERT_TRUE(applyLabFaults("axis x lost"));
    readPosition(stageX);
    ASSERT_TRUE(applyLabFaults(""));
    ASSERT_TRUE(axisIsLost(stageX));
    closeAll();
    ASSERT_TRUE(openStages(2, motorSpeed));
    EXPECT_FALSE(labStageMoves(labX));
}

// An alarm, lost steps and windings without current make the controller's count no place.
TEST_F(StageTest, WhatAControllerSaysOfItsMotorIsHeeded) {
    const struct {
        const char *fault, *words;
        bool out; // moves are not sent any more
    } cases[] = {
        {"axis x alarm current 4", "alarm (over-current)", true},
        {"axis x alarm supply", "alarm (supply too low)", true},
        {"axis x slips 5", "steps lost", false},
        {"axis x unpowered", "windings without current", false},
    };
    for (const auto& each : cases) {
        ASSERT_TRUE(openStages(2, motorSpeed));
        ASSERT_TRUE(moveTo(stageX, 20.0));
        ASSERT_TRUE(applyLabFaults(each.fault));
        EXPECT_FALSE(moveTo(stageX, 40.0)) << each.fault;
        EXPECT_EQ(textIn(Field::Information), std::string("Stage X ") + each.words +
                                                  (each.out ? ": \"Reconnect Stages\"" : ""));
        EXPECT_NE(contentOf("KST_Data/Log/2026-03-07.txt").find(each.words), std::string::npos);
        EXPECT_NE(devicesPage().find(each.words), std::string::npos) << devicesPage();
        EXPECT_EQ(axisIsOut(stageX), each.out);
        const uint64_t moves = labCounters().moves;
        EXPECT_FALSE(moveXYBy(30.0, 30.0, motorSpeed)) << each.fault;
        if (each.out) { // the other one does not go alone
            EXPECT_EQ(labCounters().moves, moves);
        }
        EXPECT_FALSE(standsAt(stageX, stageX.positionUm, 0.5));
        ASSERT_TRUE(applyLabFaults(""));
        stopAllStages(); // as "Reconnect Stages" does
        closeAll();
        resetLab(1);
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

TEST_F(StageTest, NudgeWaitsForTheMove) {
    ASSERT_TRUE(openStages(2, motorSpeed));
    session.processRunning = 1;
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
    EXPECT_EQ(session.stopRequested, 0);
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
