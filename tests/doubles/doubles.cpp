// Sets the whole simulated world up before each test and looks for leaks after it.
#include "tests/doubles/doubles.h"

#include "instruments/laser_link.h"
#include "motion/axis.h"
#include "ui/commands.h"

constexpr uint64_t labSeed = 20260307;

void prepareWorld() {
    resetClock();
    makeTempDesktop();
    resetProgram();
    resetScript();
    resetScreen();
    resetDialog();
    drawnTexts.clear();
    savedImages.clear();
    drawingFailures.clear();
    nobodyLooks = false;
    liveContexts = liveBitmaps = imagingStarts = 0;
    resetSerial();
    libraries = {};
    setLabClock(virtualNowMs, advanceVirtualTime);
    applyLabFaults("");
    resetLab(labSeed);
}

void LabTest::SetUp() {
    prepareWorld();
}

void ConnectedTest::SetUp() {
    LabTest::SetUp();
    createMainWindow(1);
    onLeftButtonDown(5000, 5000); // outside the picture: only frees the keys
    ASSERT_TRUE(openStages(2, motorSpeed));
    ASSERT_EQ(openLaserLink(laserLink, windows.main), 1);
}

void LabTest::TearDown() {
    resetProgram(); // lets go of what the program holds before the leaks are counted
    expectScriptDone();
    EXPECT_EQ(liveContexts, 0);
    EXPECT_EQ(liveBitmaps, 0);
    removeTempDesktop();
}
