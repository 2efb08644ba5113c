// Everything that can break while a map is taken: the run ends, the laser is off, what was measured
// is saved.
#include "tests/simulation/whole_run.h"

#include "app/program.h"
#include "camera/camera.h"
#include "instruments/laser_link.h"
#include "mapping/scan_area.h"
#include "mapping/scan_journal.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "tests/simulation/saved_map.h"
#include "ui/commands.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

using FailureTest = WholeRunTest;

// Cells of the map, in the order in which they were measured, that are not 0.
size_t cellsMeasured() {
    size_t count = 0;
    for (const std::vector<float>& column : scanMap.maps[planePhotocurrent])
        count += static_cast<size_t>(
            std::count_if(column.begin(), column.end(), [](float value) { return value != 0.0f; }));
    return count;
}

// Of the readings 1 to 19 of rows of 6 cells, the first of each row is discarded.
constexpr size_t cellsBeforeReading20 = 19 - 3;

void breakLab(const char* fault) {
    ASSERT_TRUE(applyLabFaults(fault));
}

TEST_F(FailureTest, NoDeviceAtAll) {
    libraries.allAbsent = true;
    serial.refuseOpen = true;
    writeSettings(8.0, true);
    answer("No devices found", BoxAnswer::Ok);
    answer("Error in  opening serial port", BoxAnswer::Ok);
    answer("No Arduino devices found", BoxAnswer::Ok);
    runProgramOver(30, 20);
    ASSERT_GE(shownBoxes.size(), 3u);
    EXPECT_EQ(shownBoxes[0].caption, "Scanner Error");
    EXPECT_EQ(shownBoxes[1].caption, "Warning");
    EXPECT_EQ(shownBoxes[2].caption, "Laser Error");
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(shownBoxes[i].owner, nullptr);
    EXPECT_EQ(numbersOf(contentOf(sessionFile("Kestrel"))),
              std::vector<std::vector<double>>(3, std::vector<double>(4, 0.0)));
    // The confocal maps hold the test pattern, which moves from point to point.
    EXPECT_NE(scanMap.maps[planeRed][0][0], scanMap.maps[planeRed][3][0]);
    EXPECT_EQ(stageX.positionUm, 0.0);
    // Each search was told before it began, as long as there was no main window to tell it in.
    ASSERT_EQ(startupTexts.size(), 3u);
    EXPECT_TRUE(startupTexts[0].starts_with("Stage: looking for three controllers"))
        << startupTexts[0];
    EXPECT_TRUE(startupTexts[1].starts_with("Laser board: looking for COM10")) << startupTexts[1];
    EXPECT_TRUE(startupTexts[2].starts_with("Camera: looking for")) << startupTexts[2];
}

struct Fault {
    const char* name;
    const char* fault;
    bool colours;        // the camera goes on
    bool currents;       // the board goes on
    bool wrongPlaceOnly; // points are measured where the stage stands
    const char* told;    // behind "Mapping finished"
};

class FaultInScanTest : public WholeRunTest, public testing::WithParamInterface<Fault> {};

TEST_P(FaultInScanTest, EndsAndSaves) {
    writeSettings(2.0, true);
    afterReadings(20, [] { breakLab(GetParam().fault); });
    if (!GetParam().currents) answer("laser board lost: the laser may be on", BoxAnswer::Ok);
    runProgramOver(12, 10);
    const size_t points = static_cast<size_t>(scanArea.totalPoints);
    EXPECT_EQ(cellsMeasured(), GetParam().currents ? points : cellsBeforeReading20);
    EXPECT_EQ(numbersOf(contentOf(sessionFile("Kestrel"))).size(),
              static_cast<size_t>(scanArea.rows));
    EXPECT_NE(sessionFile("CONFOCAL"), "");
    EXPECT_EQ(cameraState.connected, 0);               // released at the end
    const int pwmLeft = GetParam().currents ? 0 : 204; // no command reaches an unplugged board
    EXPECT_EQ(labLaserPwm(), pwmLeft);
    const auto& information = historyOf(Field::Information);
    const bool cameraComplained = std::find(information.begin(), information.end(),
                                            "No camera detected") != information.end();
    EXPECT_EQ(cameraComplained, !GetParam().colours);
    const auto& progress = historyOf(Field::Progress);
    const bool motionComplained =
        std::find_if(progress.begin(), progress.end(), [](const std::string& text) {
            return text == "Motor motion failure" || text == "Motor range limited";
        }) != progress.end();
    EXPECT_EQ(motionComplained, GetParam().wrongPlaceOnly);
    EXPECT_EQ(information.back(), "Mapping finished" + std::string(GetParam().told));
    // What was read somewhere else counts as not reached; of what did not, two points lie where the
    // axis stalled, without its run-in.
    int byChance = 0;
    for (size_t i = 0; GetParam().wrongPlaceOnly && i < points; ++i) {
        const auto row = static_cast<int>(i) / scanArea.cols,
                   column = static_cast<int>(i) % scanArea.cols;
        const int mapRow = scanArea.rows - 1 - row;
        const LabRead& read = labReads()[i + static_cast<size_t>(row) + 1]; // a row begins with one
        const LabPoint place = placeOfCell(column, mapRow);
        const bool elsewhere = std::hypot(read.sampleX - place.x, read.sampleY - place.y) > 1.02;
        const PointMark mark =
            scanMap.marks[static_cast<size_t>(column)][static_cast<size_t>(mapRow)];
        EXPECT_TRUE(mark == PointMark::NotReached || !elsewhere) << row << " " << column;
        byChance += mark == PointMark::NotReached && !elsewhere;
    }
    EXPECT_LE(byChance, 2);
    int inDoubt = 0;
    for (const auto& column : scanMap.marks)
        for (const PointMark mark : column) inDoubt += mark != PointMark::Measured;
    if (inDoubt > 0) {
        EXPECT_EQ(progress.back(), formatted("Mapping: 100%% done, %d in doubt", inDoubt));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Devices, FaultInScanTest,
    testing::Values(
        Fault{"BoardUnplugged", "board unplugged", true, false, false,
              ". No laser board: 14 from row 3, column 5"},
        Fault{"CameraLost", "camera lost", false, true, false,
              ". No camera: 14 from row 3, column 5"},
        Fault{"AxisStalled", "axis x stalled", true, true, true,
              ". Not reached: 13 from row 3, column 6 (X stalled: 13)"},
        Fault{"LimitSwitch", "limit x right at 0", true, true, true,
              ". Not reached: 5 from row 3, column 6 (X limit "
              "switch: 5)"},
        Fault{"StepsLost", "axis x slips 10", true, true, true,
              ". Not reached: 13 from row 3, column 6 (X steps "
              "lost: 13). The stage did not come back"},
        Fault{"NoCurrent", "axis x unpowered", true, true, true,
              ". Not reached: 13 from row 3, column 6 (X windings "
              "without current: 13). The stage did not come back"},
        Fault{"FocusLost", "axis z lost", true, true, false, ". Stage Z lost (-4) in row 3"},
        Fault{"FocusAlarm", "axis z alarm heat", true, true, false,
              ". Stage Z alarm (driver over-heat) in row 3"},
        Fault{"Disturbed", "axis x disturbed 5\naxis y disturbed 3", true, true, false, ""}),
    [](const testing::TestParamInfo<Fault>& info) { return std::string(info.param.name); });

// The rest would be measured at one spot. It ends as a stop does, and can go on.
TEST_F(FailureTest, ScanEndsWhenXOrYIsOut) {
    const struct {
        const char *fault, *why;
    } cases[] = {{"axis x lost", "Stage X lost (-4)"},
                 {"axis y lost", "Stage Y lost (-4)"},
                 {"axis x alarm current", "Stage X alarm (over-current)"},
                 {"axis y alarm supply", "Stage Y alarm (supply too low)"}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.fault);
        prepareWorld();
        writeSettings(2.0, false);
        afterReadings(20, [&] {
            breakLab(each.fault);
            in(1000, [] {
                EXPECT_EQ(labLaserPwm(), 0);
                EXPECT_EQ(cellsMeasured(), cellsBeforeReading20 + 1);
            });
        });
        runProgramOver(12, 10);
        EXPECT_EQ(textIn(Field::Information),
                  std::string("Mapping finished. ") + each.why +
                      ", \"Continue last scan\" goes on. The stage did not come back");
        const SavedMap saved;
        EXPECT_EQ(saved.condition("Outcome"), "stopped");
        EXPECT_EQ(saved.condition("Trouble").find(each.why), 0u);
        EXPECT_EQ(saved.condition("Points measured"), std::to_string(cellsBeforeReading20 + 1));
        ASSERT_EQ(leftJournals().size(), 1u);
        const std::optional<JournaledScan> scan = readScanJournal(leftJournals().front());
        ASSERT_TRUE(scan);
        EXPECT_EQ(firstMissingRow(scan->map), 2);
    }
}

TEST_F(FailureTest, TheComputersSleepEndsAScanInTheDark) {
    writeSettings(2.0, false);
    afterReadings(20, [] {
        EXPECT_TRUE(systemKeptAwake);
        onSuspend();
        EXPECT_EQ(labLaserPwm(), 0);
        const std::string journal = contentOf("KST_Data/Journal/journal0.txt");
        const std::string points = journal.substr(journal.find("\npoints ") + 1);
        EXPECT_EQ(std::count(points.begin(), points.end(), '\n') - 1,
                  static_cast<int>(cellsBeforeReading20));
        in(1, [] {
            const size_t openings = serial.openedNames.size();
            onResume();
            EXPECT_EQ(serial.openedNames.size(), openings + 1);
            EXPECT_EQ(textIn(Field::Information), "The computer was asleep: the lights are off");
        });
    });
    runProgramOver(12, 10);
    EXPECT_EQ(textIn(Field::Information),
              "Mapping finished. The computer went to sleep, \"Continue last scan\" goes on. "
              "Laser off or lamp on: 1 from row 3, column 5. " // the point under way
              "The stage did not come back"); // what moves by itself after waking surprises people
    EXPECT_EQ(SavedMap().condition("Outcome"), "stopped, the computer went to sleep");
    EXPECT_EQ(leftJournals().size(), 1u);
    EXPECT_FALSE(systemKeptAwake);
}

TEST_F(FailureTest, WindowClosedWhileTheScanWaits) {
    writeSettings(2.0, true);
    afterReadings(20, [] { post(messageClose); });
    runProgramOver(12, 10);
    EXPECT_EQ(cellsMeasured(), cellsBeforeReading20 + 1); // the point under way is finished
    EXPECT_NE(sessionFile("CONFOCAL"), "");
    EXPECT_EQ(labLaserPwm(), 0);
    EXPECT_FALSE(labIlluminated());
    EXPECT_NEAR(labStageUm(labX), 0, 2.01);
    EXPECT_NE(contentOf("KST_Data/Config.txt"), "");
}

TEST_F(FailureTest, SessionFolderThatCannotBeMade) {
    writeSettings(4.0, false);
    foldersRefused = true;
    afterReadings(5, [] { // no box holds the scan, with the laser on
        postCommand(idSaveMaps);
        postCommand(idIvMeasurement);
    });
    answer("File saving error. New folder will be made.", BoxAnswer::Ok);
    runProgramOver(12, 8);
    EXPECT_EQ(shownBoxes.back().caption, "Image save Process");
    EXPECT_EQ(cellsMeasured(), static_cast<size_t>(scanArea.totalPoints)) << "kept in memory";
}

TEST_F(FailureTest, AScanKeepsToItsPlanWhateverTheWindowShows) {
    writeSettings(4.0, false);
    int columns = 0;
    afterReadings(5, [&] {
        columns = scanArea.cols;
        scanArea.cols += 1;
        scanArea.scanStep = 8.0;
    });
    runProgramOver(12, 8);
    EXPECT_EQ(textIn(Field::Information), "Mapping finished");
    EXPECT_EQ(SavedMap().columns, columns);
    EXPECT_EQ(SavedMap().condition("Step"), "4 um");
    EXPECT_EQ(SavedMap().maskedCells(0), 0);
}

TEST_F(FailureTest, NoMainWindowEndsWithoutSettings) {
    mainWindowRefused = true;
    EXPECT_EQ(runProgram(1), 0);
    EXPECT_EQ(contentOf("KST_Data/Config.txt"), "");
}

// What another program holds is not known, which is another thing than that it is not there.
TEST_F(FailureTest, SettingsThatCannotBeReadNowAreKept) {
    const std::string kept = "step:7.5, laser:1.00, laser correct:(640,500), Ammeter:0\n";
    writeDesktopFile("KST_Data/Config.txt", kept);
    unreadableFile = "Config.txt";
    std::string said;
    when([] { return timerRuns(); },
         [&] {
             said = textIn(Field::Information);
             post(messageClose);
         });
    EXPECT_EQ(runProgram(1), 0);
    EXPECT_EQ(contentOf("KST_Data/Config.txt"), kept);
    EXPECT_EQ(said, "Config.txt cannot be read: it is not written in this run");
}

TEST_F(FailureTest, ALightThatTheEndCannotSwitchOffIsSaid) {
    at(3000, [] { postCommand(idLaserOn); });
    at(4000, [] {
        serial.refuseWrite = true;
        post(messageClose);
    });
    answer("laser board lost: the laser may be on", BoxAnswer::Ok);
    EXPECT_EQ(runProgram(1), 0);
}

TEST_F(FailureTest, FiftyIdleSecondsSwitchEverythingOff) {
    writeSettings(2.0, false);
    when([] { return timerRuns(); },
         [] {
             postCommand(idIlluminationOff);
             postCommand(idLaserOn);
         });
    at(45000, [] {
        EXPECT_EQ(labLaserPwm(), 204);
        EXPECT_EQ(cameraState.connected, 1);
    });
    at(70000, [] {
        EXPECT_FALSE(labIlluminated());
        EXPECT_EQ(labLaserPwm(), 0);
        EXPECT_EQ(cameraState.connected, 0);
        EXPECT_FALSE(timerRuns());
        post(messageClose);
    });
    EXPECT_EQ(runProgram(1), 0);
}

} // namespace
