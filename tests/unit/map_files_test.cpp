// Names and content of the map files, and what a failed save does.
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "mapping/scan_journal.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/data_folders.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"
#include "tests/doubles/gwy_reader.h"

#include <bit>
#include <cmath>
#include <random>

namespace {

class MapFilesTest : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        scanArea.cols = 2;
        scanArea.rows = 3;
        scanArea.scanStep = 2.0;
        laserLink.laserLevel = 7.5;
        instrumentLink.biasVoltage = 0.5f;
        allocateMaps();
    }
    const std::string folder = "KST_Data/260307_14-05/";
    const std::string grid = "(2X3)Step2.0um LaserIntensity30.0 Bias0.5V.txt";
};

TEST_F(MapFilesTest, WritesEveryPlaneRowByRow) {
    scanMap.maps[planePhotocurrent][0][0] = 1.5f;
    scanMap.maps[planePhotocurrent][1][2] = -0.0000004f;
    scanMap.maps[planeBlue][1][0] = 255.0f;
    scanSettings.confocalEnabled = 1;
    saveMapFiles();
    EXPECT_EQ(scanMap.saveCount, 1);
    EXPECT_EQ(contentOf(folder + "Kestrel" + grid),
              "1.500000,0.000000,\n0.000000,0.000000,\n0.000000,-0.000000,\n");
    EXPECT_EQ(contentOf(folder + "ConfocalB" + grid),
              "0.000000,255.000000,\n0.000000,0.000000,\n0.000000,0.000000,\n");
    EXPECT_EQ(filesOnDesktop().size(), 2u + 4u);
}

// Ties, tiny and huge values, infinities and what is no number among them.
TEST_F(MapFilesTest, EachNumberIsWrittenAsPrintfDoes) {
    std::minstd_rand random(1);
    Map map(1);
    for (uint32_t i = 0; i < 20000; ++i) {
        const auto bits = static_cast<uint32_t>(random()) ^ (static_cast<uint32_t>(random()) << 16);
        const float tie = static_cast<float>(i) / 128.0f;
        map[0].push_back(i % 2 == 0 ? tie : std::bit_cast<float>(bits));
    }
    std::string expected;
    for (const float value : map[0]) expected += formatted("%f,\n", static_cast<double>(value));
    ASSERT_TRUE(writeMapFile(dataFolders.dataRoot + L"\\numbers.txt", map));
    EXPECT_EQ(contentOf("KST_Data/numbers.txt"), expected);
}

TEST_F(MapFilesTest, ConditionsStayWithTheirMap) {
    scanSettings.confocalEnabled = 1;
    scanMap.conditions = conditionsOf(presentPlan());
    instrumentLink.biasVoltage = 0.0f;
    laserLink.laserLevel = 1.0;
    scanSettings.confocalEnabled = 0;
    saveMapFiles();
    EXPECT_NE(contentOf(folder + "ConfocalB" + grid), "");
    EXPECT_EQ(filesOnDesktop().size(), 2u + 5u);
    allocateMaps(); // for another scan
    EXPECT_TRUE(makeMapFileName("Kestrel").ends_with(L"LaserIntensity4.0 Bias0.0V.txt"));
}

TEST_F(MapFilesTest, SecondSaveMeetsTheColonAndANewFolder) {
    scanSettings.confocalEnabled = 0;
    saveMapFiles();
    EXPECT_TRUE(makeMapFileName("Kestrel").ends_with(
        L"\\260307_14-05\\Kestrel(0)(2X3)Step:2.0um LaserIntensity30.0 Bias0.5V.txt"));
    answer("File saving error. New folder will be made.", BoxAnswer::Ok);
    saveMapFiles();
    EXPECT_EQ(shownBoxes.back().caption, "Image save Process");
    const std::string another = "KST_Data/260307_14-05(1)/"; // the minute has not changed
    EXPECT_EQ(filesOnDesktop(),
              (std::vector<std::string>{"KST_Data/", another, another + "Kestrel" + grid, folder,
                                        folder + "Kestrel" + grid}));
    // As after a second scan of the same grid: nothing may be lost.
    wallTime.minute++;
    scanMap.maps[planePhotocurrent][0][0] = 7.0f;
    answer("File saving error. New folder will be made.", BoxAnswer::Ok);
    saveMapFiles();
    EXPECT_TRUE(contentOf("KST_Data/260307_14-06/Kestrel" + grid).starts_with("7.000000,"));
}

TEST_F(MapFilesTest, DocumentKeepsEveryNumberAndItsPlace) {
    openBareWindow();
    scanSettings.confocalEnabled = 0;
    instrumentLink.ammeterKind = kindUsbSourcemeter;
    stageX.positionUm = 100;
    stageY.positionUm = -40;
    scanArea.offsetXUm = 3.5;
    scanArea.offsetYUm = 10;
    scanMap.conditions = conditionsOf(presentPlan());
    for (auto& column : scanMap.marks) column.assign(3, PointMark::Measured);
    Map& map = scanMap.maps[planePhotocurrent];
    map[0] = {1.5f, NAN, 9.9e37f};
    map[1] = {-1e-9f, INFINITY, 2.0f};
    scanMap.marks[1][2] = PointMark::NoColour; // the current is good
    saveMapFiles();
    answer("File saving error. New folder will be made.", BoxAnswer::Ok);
    saveMapFiles();
    const std::string name = "(2X3)Step2.0um LaserIntensity30.0 Bias0.5V";
    const GwyContent file = readGwy(contentOf("KST_Data/260307_14-05(1)/Lumascan" + name + ".gwy"));
    const auto amperes = [](float uA) { return static_cast<double>(uA) * 1e-6; };
    EXPECT_EQ(file.arrays.at("/0/data data"),
              (std::vector<double>{amperes(1.5f), amperes(-1e-9f), 0, 0, amperes(9.9e37f),
                                   amperes(2.0f)}));
    EXPECT_EQ(file.arrays.at("/0/mask data"), (std::vector<double>{0, 0, 1, 1, 1, 0}));
    EXPECT_DOUBLE_EQ(file.numbers.at("/0/data xoff"), 102.5e-6);
    EXPECT_DOUBLE_EQ(file.numbers.at("/0/data yoff"), 25e-6); // minus (-40 + 10 + 2 * 2 + 1)
    EXPECT_DOUBLE_EQ(file.numbers.at("/0/data yreal"), 6e-6);
    EXPECT_EQ(file.texts.at("/0/meta Text file"), "Kestrel" + name + ".txt");

    // A failure is said and leaves nothing half written.
    showInformation("Mapping finished");
    wallTime.minute++;
    refusedFile = ".gwy";
    answer("File saving error. New folder will be made.", BoxAnswer::Ok);
    saveMapFiles();
    EXPECT_EQ(textIn(Field::Information), "Not written: the map's .gwy file");
    EXPECT_EQ(filesOnDesktop().size(), 1u + 3u + 3u + 2u);
}

// The text file keeps the volts, whatever the set-up has become by the time of saving.
TEST_F(MapFilesTest, BehindAnAmplifierTheDocumentHasAmperesAndTheTextVolts) {
    openBareWindow();
    scanSettings.confocalEnabled = 0;
    scanSettings.options.readingsPerPoint = 2;
    instrumentLink.ammeterKind = kindOscilloscope;
    setUp.scopeAmplifier = {.voltsPerAmpere = 2e7, .inverts = true, .offsetVolts = 0.25};
    setUp.laserPower = {{0, 0}, {20, 100}, {40, 300}};
    setUp.laserUaPerVolt = 5.0;
    scanArea.rectX1 = 600, scanArea.rectX2 = 614;
    scanArea.rectY1 = 500, scanArea.rectY2 = 528;
    computeScanArea(scanArea);
    beginMap(conditionsOf(presentPlan()));
    beginScanJournal();
    leaveJournal();
    for (auto& column : scanMap.marks) column.assign(3, PointMark::Measured);
    scanMap.marks[1][2] = PointMark::NotMeasured;
    scanMap.maps[planePhotocurrent][0] = {0.25f, -1.75f, 1.25f};
    scanMap.maps[firstFurtherMap][0] = {0.5f, 0.0f, 0.0f};
    setUp = {};
    const std::optional<JournaledScan> journaled = readScanJournal(leftJournals().front());
    ASSERT_TRUE(journaled);
    scanMap.conditions = journaled->map.conditions;
    saveMapFiles();
    const std::string name = "(2X3)Step2.0um LaserIntensity37.5 Bias0.5V";
    EXPECT_TRUE(
        contentOf(folder + "Kestrel" + name + ".txt").starts_with("0.250000,0.000000,\n-1.75"));
    const GwyContent file = readGwy(contentOf(folder + "Lumascan" + name + ".gwy"));
    EXPECT_EQ(file.arrays.at("/0/data data"),
              (std::vector<double>{0, 0.25 / 2e7, 2 / 2e7, 0.25 / 2e7, -1 / 2e7, 0}));
    EXPECT_EQ(file.arrays.at("/1/data data")[0], 0.5 / 2e7);
    EXPECT_EQ(file.texts.at("/0/data/title"), "Photocurrent");
    EXPECT_EQ(file.texts.at("/0/meta Unit of the text file"), "V");
    EXPECT_EQ(file.texts.at("/0/meta Laser power"), "275 uW");
}

// A part of a map looks like one.
TEST_F(MapFilesTest, AMapThatIsNotWrittenWholeIsRemoved) {
    scanSettings.confocalEnabled = 0;
    diskFull = true;
    answer("File saving error", BoxAnswer::Ok);
    saveMapFiles();
    diskFull = false;
    EXPECT_EQ(filesOnDesktop(), (std::vector<std::string>{"KST_Data/", folder}));
}

TEST_F(MapFilesTest, OneRefusedFileLeavesTheOthers) {
    scanSettings.confocalEnabled = 1;
    refusedFile = "ConfocalR";
    answer("File saving error", BoxAnswer::Ok);
    saveMapFiles();
    EXPECT_EQ(filesOnDesktop().size(), 2u + 3u);
    EXPECT_EQ(scanMap.saveCount, 1);
}

TEST_F(MapFilesTest, NoFolderAtAllAsksFourTimes) {
    scanSettings.confocalEnabled = 1;
    foldersRefused = true;
    for (int i = 0; i < 4; i++) answer("File saving error", BoxAnswer::Ok);
    saveMapFiles();
    EXPECT_EQ(shownBoxes.size(), 4u);
    EXPECT_EQ(filesOnDesktop(), std::vector<std::string>{"KST_Data/"});
}

TEST_F(MapFilesTest, AllocationStartsFromZero) {
    scanMap.maps[planeRed][1][2] = 9.0f;
    allocateMaps();
    EXPECT_EQ(scanMap.maps[planeRed][1][2], 0.0f);
    scanArea.cols = scanArea.rows = 1;
    allocateMaps();
    writeMapFile(dataFolders.dataRoot + L"\\one.txt", scanMap.maps[planePhotocurrent]);
    EXPECT_EQ(contentOf("KST_Data/one.txt"), "0.000000,\n");
}

} // namespace
