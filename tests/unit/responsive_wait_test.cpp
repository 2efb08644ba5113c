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
    session.processRunning = 1; // then it stays off
    EXPECT_EQ(waitResponsive(10), waitPassed);
    EXPECT_FALSE(timerRuns());
    EXPECT_EQ(checkedRadio(idLiveOn), idLiveOff);
}

TEST_F(WaitTest, EveryMessageWithTheButtonsNumberAsksForAStop) {
    session.processRunning = 1;
    const Message asking[] = {{nullptr, messageCommand, 2000, 0},
                              {nullptr, 0x0400, 0x107D0, 0},
                              {nullptr, messageLeftButtonDown, 1, 0}};
    for (const Message& message : asking) {
        session.stopRequested = 0;
        post(message.id, message.wParam);
        answer(stopQuestion, BoxAnswer::Yes);
        EXPECT_EQ(waitResponsive(100), waitStopped);
        EXPECT_EQ(session.stopRequested, 1);
        EXPECT_EQ(shownBoxes.back().caption, "Warning");
        EXPECT_EQ(shownBoxes.back().buttons, BoxButtons::YesNo);
        EXPECT_EQ(shownBoxes.back().owner, windows.main);
    }
    EXPECT_EQ(testTimeMs(), 0);
}

TEST_F(WaitTest, DeclinedStopLetsTheClickThrough) {
    session.processRunning = 1;
    post(messageLeftButtonDown, 1, 5 << 16 | 5);
    bool reached = false;
    postCall([&] { reached = true; });
    answer(stopQuestion, BoxAnswer::No);
    EXPECT_EQ(waitResponsive(100), waitPassed);
    EXPECT_TRUE(reached);
    EXPECT_EQ(session.stopRequested, 0);
    EXPECT_EQ(testTimeMs(), 100);
}

// The wait goes on until it is due: a reading behind it needs all of it.
TEST_F(WaitTest, PageKeysNudgeTheFocusAndCutNothing) {
    session.processRunning = 1;
    for (int i = 0; i < 3; i++) post(messageKeyDown, keyPageUp);
    in(50, [] { post(messageKeyDown, keyPageDown); });
    EXPECT_EQ(waitResponsive(100), waitPassed);
    EXPECT_EQ(testTimeMs(), 100);
    EXPECT_EQ(stageZ.positionUm, 2.0);
    EXPECT_EQ(textIn(Field::PositionZ), "2.0");
    // With a stage the nudge takes its own time, and a key that is held down holds no wait.
    ASSERT_TRUE(openStages(2, motorSpeed));
    const double start = testTimeMs();
    for (int ms = 0; ms < 2000; ms += 33) in(ms, [] { post(messageKeyDown, keyPageUp); });
    EXPECT_EQ(waitResponsive(300), waitPassed);
    EXPECT_LT(testTimeMs(), start + 400);
    EXPECT_GT(stageZ.positionUm, 2.0);
    // A stop inside the nudge's own wait is not lost.
    in(5, [] { post(messageCommand, 2000); });
    answer(stopQuestion, BoxAnswer::Yes);
    EXPECT_EQ(waitResponsive(1000), waitStopped);
}

TEST_F(WaitTest, WaitsSinceThenAndForAMillisecondAtLeast) {
    advanceVirtualTime(100);
    const struct {
        uint64_t since;
        uint32_t duration;
        double waits;
    } cases[] = {{100, 10, 10}, {95, 10, 5}, {50, 10, 1}, {50, 0, 0}, {104, 10, 14}};
    for (const auto& each : cases) {
        setVirtualTime(100);
        waitResponsiveSince(each.since, each.duration);
        EXPECT_EQ(virtualNowMs(), 100 + each.waits) << each.since;
    }
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
