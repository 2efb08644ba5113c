// The settings line: what is written for what, and what a bad line leaves alone.
#include "app/settings_line.h"
#include "session/data_folders.h"
#include "tests/doubles/doubles.h"

namespace {

using SettingsTest = LabTest;

constexpr const char* defaults = "step:1.0, laser:4.00, laser correct:(0,0), Ammeter:0, GPIB:18, "
                                 "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 1\n";

// The line that is written after `line` has been read over the settings at the start.
std::string rewritten(const std::string& line) {
    SessionSettings settings = currentSettings();
    parseSettingsLine(line.c_str(), settings);
    return formatSettingsLine(settings);
}

TEST_F(SettingsTest, LinesEndWhereTheyCeaseToMatch) {
    const std::string whole = "step:2.5, laser:1.23, laser correct:(640,-7), Ammeter:7, GPIB:22, "
                              "IP:10,0,0,3,80, Standa:5, arduino_LD:3, 0\n";
    EXPECT_EQ(rewritten(whole), whole);
    EXPECT_EQ(rewritten("step: 2.5,laser:\t1.23,laser correct:(640,-7),Ammeter:7, GPIB:22, "
                        "IP:10,0,0,3,80,Standa:5,arduino_LD:3,0"),
              whole);
    const auto withStepAndLaser = [](const char* step, const char* laser) {
        std::string line = defaults;
        line.replace(line.find("1.0"), 3, step);
        return line.replace(line.find("4.00"), 4, laser);
    };
    const struct {
        const char* line;
        std::string expected;
    } cases[] = {
        {"", defaults},
        {"\n", defaults},
        {"step:2.5, laser:1", withStepAndLaser("2.5", "1.00")},
        {"step:2.5, LASER:1", withStepAndLaser("2.5", "4.00")},
        {"step:0.33, laser:1.234,", withStepAndLaser("0.3", "1.23")},
        {"steps:3, laser:1", defaults},
        {"rubbish\x01\xFF%s%n", defaults},
    };
    for (const auto& each : cases) EXPECT_EQ(rewritten(each.line), each.expected) << each.line;
}

TEST_F(SettingsTest, FileIsReadAndReplaced) {
    EXPECT_FALSE(readSettingsFile(dataFolders.configPath));
    const std::string name = "KST_Data/Config.txt";
    writeDesktopFile(name, "step:2.5, laser:1.5, laser correct:(12,34), Ammeter:0\nstep:9");
    EXPECT_TRUE(readSettingsFile(dataFolders.configPath));
    EXPECT_EQ(currentSettings().scanStep, 2.5);
    EXPECT_EQ(currentSettings().laserOffsetY, 34);
    writeSettingsFile(dataFolders.configPath);
    EXPECT_EQ(contentOf(name), formatSettingsLine(currentSettings()));
    refusedFile = "Config.txt";
    writeSettingsFile(dataFolders.configPath); // silent
    for (const std::string& content :
         {std::string(), std::string("\0\0step:3", 8), std::string(2'000'000, 's')}) {
        writeDesktopFile(name, content);
        EXPECT_TRUE(readSettingsFile(dataFolders.configPath));
        EXPECT_EQ(currentSettings().scanStep, 2.5);
    }
}

TEST_F(SettingsTest, OneSessionFolderARun) {
    ensureSessionFolder(dataFolders);
    wallTime = {2026, 3, 8, 0, 1}; // past midnight
    ensureSessionFolder(dataFolders);
    EXPECT_EQ(filesOnDesktop(), (std::vector<std::string>{"KST_Data/", "KST_Data/260307_14-05/"}));
}

} // namespace
