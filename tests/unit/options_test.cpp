// Options.ini: what is kept under a name, and what else stands in the file.
#include "session/options.h"

#include "instruments/kinds.h"
#include "instruments/lights.h"
#include "mapping/scan_options.h"
#include "motion/axis.h"
#include "screen/control_ids.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"
#include "tests/doubles/memory_dialog.h"
#include "ui/commands.h"
#include "ui/scan_options_dialog.h"

#include <filesystem>

namespace {

using OptionsTest = LabTest;

constexpr char file[] = "KST_Data/Options.ini";

TEST_F(OptionsTest, KeepsWhatItDoesNotKnow) {
    EXPECT_EQ(readOption("a"), "") << "no file";
    ASSERT_TRUE(writeOptions({{"a", "1"}, {"b", "x = y"}}));
    EXPECT_EQ(contentOf(file), "a = 1\nb = x = y\n");
    // By hand, on another system, and by nobody who knew the format.
    writeDesktopFile(file,
                     std::string("# note\r\n\r\n  b=  old \t\r\n\x1a\x00=\na = 2\na = 3\nend", 42));
    EXPECT_EQ(readOption("b"), "old");
    EXPECT_EQ(readOption("a"), "2");
    EXPECT_EQ(readOption("end"), "");
    ASSERT_TRUE(writeOptions({{"b", "new"}, {"c", ""}}));
    EXPECT_EQ(contentOf(file),
              std::string("# note\n\nb = new\n\x1a\x00=\na = 2\na = 3\nend\nc = \n", 41));
}

TEST_F(OptionsTest, SetUpTakesWhatItCanAndSaysTheRest) {
    EXPECT_EQ(readSetUp(), std::vector<std::string>()) << "no file";
    writeDesktopFile("KST_Data/Setup.ini", "# ours\r\n[board]\r\n\r\n"
                                           "laser board interlock = yes\n"
                                           "laser board keep-alive (s) = 61\n"
                                           "laser board interlock = maybe\n"
                                           "laser board keep-alive (s) = 30\n"
                                           "objective\n");
    const std::vector<std::string> refused = {
        "Setup.ini, line 5: laser board keep-alive (s) is a whole number, 2 to 60, or empty, not "
        "\"61\"",
        "Setup.ini, line 6: laser board interlock stands in line 4 already, which holds",
        "Setup.ini, line 8: \"objective\" is not known"};
    EXPECT_EQ(readSetUp(), refused);
    EXPECT_TRUE(setUp.boardHasInterlock);
    EXPECT_EQ(setUp.boardKeepAliveS, 30);
}

TEST_F(OptionsTest, SetUpIsWrittenAndReadFieldByField) {
    writeDesktopFile("KST_Data/Setup.ini", "# ours\nfrom another program = 1\n");
    ::SetUp changed;
    changed.objectives.resize(2);
    changed.objectiveInUse = 2;
    Objective& second = changed.objectives[1];
    second.name = "50x, long";
    second.xPerColumn = -0.2346311;
    second.yPerColumn = 1.0 / 3.0e2;
    second.yPerRow = 0.2346311;
    changed.drives[1].reversed = true;
    changed.drives[1].microsteps = 64;
    changed.ranges[2].highest = 812.5;
    changed.scopeAmplifier = {1e5, true, 0.012};
    changed.laserPower = {{0.0, 0.0}, {4.0, 11.5}, {16.0, 46.25}};
    ASSERT_EQ(faultIn(changed).words, "");
    ASSERT_TRUE(keepSetUp(changed));
    setUp = {};
    EXPECT_EQ(readSetUp(),
              std::vector<std::string>{"Setup.ini, line 2: \"from another program\" is not known"});
    for (const SetUpField& field : setUpFields(changed))
        EXPECT_EQ(textOf(field, setUp), textOf(field, changed)) << field.name;
    EXPECT_EQ(contentOf("KST_Data/Setup.ini").substr(0, 7), "# ours\n");
    // What shapes no map does not hold up a scan that is to go on; the other objective neither.
    const std::string before = setUpWords(changed);
    changed.ranges[2].highest = 1.0;
    changed.objectives[0].xPerColumn = changed.objectives[0].yPerRow = 1.0;
    EXPECT_EQ(setUpWords(changed), before);
    changed.drives[1].microsteps = 256;
    changed.drives[0].umPerTurn = 500.0;
    EXPECT_EQ(setUpDifference(before, setUpWords(changed)),
              "Y microsteps per full step: 64 became default; X um per turn: default became 500");
    EXPECT_EQ(setUpWords(::SetUp()), "default");
    // Between the lines, each for itself; the rest of the file holds.
    writeDesktopFile("KST_Data/Setup.ini", "objective 1 Y per row (um) = 0.3\n"
                                           "lowest X (um) = 5\nhighest X (um) = 4\n"
                                           "X microsteps per full step = 3\nlamp pin = 5\n"
                                           "Z um per turn = nan\nobjective in use = 8\n"
                                           "laser power (uA:uW) = 4:1 3:2\nfocus speed (full "
                                           "steps/s) = 100");
    EXPECT_EQ(readSetUp().size(), 7u);
    EXPECT_EQ(faultIn(setUp).words, "");
    EXPECT_EQ(setUp.focusSpeed, 100);
    EXPECT_EQ(setUpWords(setUp), "default");
    EXPECT_EQ(setUp.ranges[0].highest, 4.0) << "what keeps off stays";
    writeDesktopFile("KST_Data/Setup.ini", "laser pin = 3\nlaser pin = 4\nobjective 8 xyz = 1\n"
                                           "lock-in current input = Amperes\n");
    EXPECT_EQ(readSetUp(), (std::vector<std::string>{
                               "Setup.ini, line 2: laser pin stands in line 1 already, which holds",
                               "Setup.ini, line 3: \"objective 8 xyz\" is not known",
                               "Setup.ini, line 4: lock-in current input is amperes or volts, not "
                               "\"Amperes\""}));
    EXPECT_EQ(setUp.laserPin, 3);
    EXPECT_EQ(setUp.objectives.size(), 1u);
    EXPECT_FALSE(setUp.lockInCurrentTried);
    unreadableFile = "Setup.ini";
    readSetUp();
    EXPECT_FALSE(setUpIsThere() || openStages(2, motorSpeed) || connectLaserBoard(nullptr));
    unreadableFile.clear();
    EXPECT_TRUE(setUpIsThere());
    EXPECT_EQ(setUp.laserPin, 3);
}

TEST_F(OptionsTest, FailedWriteLeavesTheFileAsItWas) {
    ASSERT_TRUE(writeOptions({{"a", "1"}}));
    refusedFile = "Options.ini.tmp";
    testing::internal::CaptureStdout();
    EXPECT_FALSE(writeOptions({{"a", "2"}}));
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(contentOf(file), "a = 1\n");
    refusedFile.clear();
    // A file whose disk does not answer is none that is empty.
    std::filesystem::remove(pathOnDesktop(file));
    std::filesystem::create_symlink("/proc/self/mem", pathOnDesktop(file));
    EXPECT_FALSE(writeOptions({{"a", "2"}}));
}

TEST_F(OptionsTest, DialogTakesAllOrNothing) {
    const ScanOptions chosen{true, 0, 10000, 1000, false, 5};
    const auto fill = [](const char* settle) {
        selectInDialogList(idArrivalList, 1);
        setDialogText(idSettleTime, settle);
        setDialogText(idReadingDelay, "10000");
        setDialogText(idReadingsPerPoint, "1000");
        setDialogText(idRunIn, "5");
        checkInDialog(idUnitFileCheck, false);
    };
    openBareWindow();
    whileDialogOpen = [&] {
        EXPECT_EQ(dialogTextIn(idSettleTime), "10");
        fill("0");
    };
    onCommand(idScanOptions); // and "Cancel"
    // A point waits for the longer of the two.
    instrumentLink.settings = {.timeConstantMs = 100, .poles = 2};
    whileDialogOpen = [&] {
        EXPECT_EQ(dialogTextIn(idSettledText), "664 ms");
        setDialogText(idReadingDelay, "5000");
        onScanOptionsCommand(idReadingDelay);
        EXPECT_EQ(dialogTextIn(idSettledText), "5000 ms");
    };
    onCommand(idScanOptions);
    EXPECT_EQ(scanSettings.options, ScanOptions());
    EXPECT_EQ(contentOf(file), "");
    whileDialogOpen = [&] {
        for (const char* bad : {"10001", "-1", "soon", ""}) {
            fill(bad);
            answer("Wait after arrival (ms): 0 to 10000", BoxAnswer::Ok);
            onScanOptionsCommand(idSet);
            EXPECT_EQ(scanSettings.options, ScanOptions()) << bad;
        }
        fill("0");
        onScanOptionsCommand(idSet);
    };
    onCommand(idScanOptions);
    EXPECT_EQ(scanSettings.options, chosen);
    scanSettings.options = {};
    readScanOptions(); // as the next start finds them
    EXPECT_EQ(scanSettings.options, chosen);
}

} // namespace
