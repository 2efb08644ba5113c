// Options.ini: what is kept under a name, and what else stands in the file.
#include "session/options.h"

#include "mapping/scan_options.h"
#include "screen/control_ids.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"
#include "tests/doubles/memory_dialog.h"
#include "ui/commands.h"
#include "ui/scan_options_dialog.h"

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
        "Setup.ini, line 6: laser board interlock is yes or no, not \"maybe\"",
        "Setup.ini, line 8: \"objective\" is not known"};
    EXPECT_EQ(readSetUp(), refused);
    EXPECT_TRUE(setUp.boardHasInterlock);
    EXPECT_EQ(setUp.boardKeepAliveS, 30);
}

TEST_F(OptionsTest, FailedWriteLeavesTheFileAsItWas) {
    ASSERT_TRUE(writeOptions({{"a", "1"}}));
    refusedFile = "Options.ini.tmp";
    testing::internal::CaptureStdout();
    EXPECT_FALSE(writeOptions({{"a", "2"}}));
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(contentOf(file), "a = 1\n");
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
