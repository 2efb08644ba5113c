// Sets the whole simulated world up before each test and looks for leaks after it.
#include "tests/doubles/doubles.h"

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

void LabTest::TearDown() {
    resetProgram(); // lets go of what the program holds before the leaks are counted
    expectScriptDone();
    EXPECT_EQ(liveContexts, 0);
    EXPECT_EQ(liveBitmaps, 0);
    removeTempDesktop();
}
