// The one wait of all long work: what ends it, what is dispatched, and the stopwatches.
#include "camera/live_view.h"
#include "motion/stage.h"
#include "screen/control_ids.h"
#include "session/live_view_timer.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/stopwatch.h"
#include "tests/doubles/doubles.h"

namespace {

constexpr const char* stopQuestion = "Do you want to stop process, now ?";

using WaitTest = WindowTest;

TEST_F(WaitTest, ZeroDurationDispatchesNothing) {
    postCall([] { ADD_FAILURE() << "dispatched"; });
    EXPECT_EQ(waitResponsive(0), waitPassed);
    EXPECT_EQ(waitingMessages(), 1u);
    EXPECT_TRUE(timerRuns());
    EXPECT_EQ(checkedRadio(idLiveOn), idLiveOn);
}

TEST_F(WaitTest, DispatchesMeanwhileWithTheLiveViewOff) {
    double dispatchedAt = 0;
    in(30, [&] { postCall([&] { dispatchedAt = testTimeMs(); }); });
    liveViewTimerOn();
    EXPECT_EQ(waitResponsive(120), waitPassed); // longer than a tick: the live view is off
    EXPECT_EQ(testTimeMs(), 120);
    EXPECT_EQ(dispatchedAt, 30);
    EXPECT_EQ(labCounters().frames, 0u);
    EXPECT_TRUE(timerRuns());
    processRunning = 1; // then it stays off
    EXPECT_EQ(waitResponsive(10), waitPassed);
    EXPECT_FALSE(timerRuns());
    EXPECT_EQ(checkedRadio(idLiveOn), idLiveOff);
}

TEST_F(WaitTest, EveryMessageWithTheButtonsNumberAsksForAStop) {
    processRunning = 1;
    const Message asking[] = {{nullptr, messageCommand, 2000, 0},
                              {nullptr, 0x0400, 0x107D0, 0},
                              {nullptr, messageLeftButtonDown, 1, 0}};
    for (const Message& message : asking) {
        stopRequested = 0;
        post(message.id, message.wParam);
        answer(stopQuestion, BoxAnswer::Yes);
        EXPECT_EQ(waitResponsive(100), waitStopped);
        EXPECT_EQ(stopRequested, 1);
        EXPECT_EQ(shownBoxes.back().caption, "Warning");
        EXPECT_EQ(shownBoxes.back().buttons, BoxButtons::YesNo);
        EXPECT_EQ(shownBoxes.back().owner, mainWindow);
    }
    EXPECT_EQ(testTimeMs(), 0);
}

TEST_F(WaitTest, DeclinedStopLetsTheClickThrough) {
    processRunning = 1;
    post(messageLeftButtonDown, 1, 5 << 16 | 5);
    bool reached = false;
    postCall([&] { reached = true; });
    answer(stopQuestion, BoxAnswer::No);
    EXPECT_EQ(waitResponsive(100), waitPassed);
    EXPECT_TRUE(reached);
    EXPECT_EQ(stopRequested, 0);
    EXPECT_EQ(testTimeMs(), 100);
}

TEST_F(WaitTest, PageKeysNudgeTheFocusOnceAWait) {
    processRunning = 1;
    for (int i = 0; i < 3; i++) post(messageKeyDown, keyPageUp);
    EXPECT_EQ(waitResponsive(100), waitPassed);
    EXPECT_EQ(stageZ.positionUm, 1.0);
    EXPECT_EQ(waitingMessages(), 2u);
    EXPECT_EQ(textIn(Field::PositionZ), "1.0");
    waitResponsive(100);
    waitResponsive(100);
    post(messageKeyDown, keyPageDown);
    EXPECT_EQ(waitResponsive(100), waitPassed);
    EXPECT_EQ(stageZ.positionUm, 2.0);
}

TEST_F(WaitTest, LastsAsLongAfterFortyNineDays) {
    constexpr double thirtyTwoBits = 4294967296.0;
    for (const double start : {thirtyTwoBits - 10, thirtyTwoBits + 40}) {
        setVirtualTime(start);
        EXPECT_EQ(waitResponsive(50), waitPassed);
        EXPECT_EQ(virtualNowMs(), start + 50);
    }
}

TEST_F(WaitTest, StopwatchesCountFromTheirReset) {
    EXPECT_EQ(intervalElapsed(true, 0), 1);
    EXPECT_EQ(elapsedMs(true), 0u);
    advanceVirtualTime(100);
    EXPECT_EQ(intervalElapsed(false, 100), 0); // more than the limit is asked for
    EXPECT_EQ(intervalElapsed(false, 99), 1);
    EXPECT_EQ(elapsedMs(false), 100u);
    EXPECT_EQ(intervalElapsed(true, 0), 1);
    EXPECT_EQ(intervalElapsed(false, 0), 0);
    EXPECT_EQ(elapsedMs(false), 100u);
}

} // namespace
