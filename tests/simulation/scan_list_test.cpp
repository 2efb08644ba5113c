// A night of scans: each row at its place with its settings, and what becomes of one that fails.
#include "tests/simulation/saved_map.h"
#include "tests/simulation/whole_run.h"

#include "app/program.h"
#include "instruments/kinds.h"
#include "instruments/laser_link.h"
#include "lists/list_run.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "mapping/scan_options.h"
#include "motion/stage.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/control_ids.h"
#include "session/data_folders.h"
#include "session/pause.h"
#include "session/process.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"
#include "ui/commands.h"
#include "ui/tool_windows.h"

#include <algorithm>
#include <cmath>

namespace {

class ScanListTest : public WholeRunTest {
protected:
    static ListRow curveAt(double dx, double dy) {
        ListRow row = mapRowAt(dx, dy, 0.0);
        row.kind = ListKind::IvCurve;
        row.quarterPoints = 5;
        return row;
    }

    // Runs the program over what `list` gives once the stage is connected, and closes it.
    static constexpr const char* areaQuestion = "Hysteresis compensated. Is it okay?";
    static void runOver(const std::function<ScanList()>& list, const char* asked = areaQuestion,
                        int instrument = kindUsbSourcemeter) {
        writeDesktopFile("KST_Data/Config.txt",
                         formatted("step:2.5, laser:4.00, laser correct:(%d,%d), Ammeter:%d, "
                                   "GPIB:24, IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 0\n",
                                   labSpotPixel().column, labSpotPixel().row, instrument));
        when([] { return timerRuns(); },
             [=] {
                 postCall([=] {
                     runProcess(
                         "Scan list", [&] { return startScanList(list()); }, saveRowAtForcedEnd);
                     post(messageClose);
                 });
             });
        answer(asked, BoxAnswer::Yes);
        EXPECT_EQ(runProgram(1), 0);
    }

    static std::string record() {
        for (const std::string& name : filesOnDesktop())
            if (name.find("Scan lists/night-") != std::string::npos) return contentOf(name);
        return {};
    }

    // The record's cells of one row's last line; empty without it.
    static std::vector<std::string> recordOf(int row, int repeat = 1) {
        std::istringstream lines(record());
        std::vector<std::string> cells;
        for (std::string line; std::getline(lines, line);) {
            if (!line.starts_with(formatted("%d\t%d\t", row, repeat))) continue;
            cells.clear();
            std::istringstream text(line);
            for (std::string cell; std::getline(text, cell, '\t');) cells.push_back(cell);
        }
        return cells;
    }

    static void expectTrueMap(int row, double biasVolts, double laserVolts = laserLink.laserLevel) {
        const std::vector<std::string> cells = recordOf(row);
        ASSERT_EQ(cells.size(), 7u) << record();
        EXPECT_EQ(cells[5], "finished");
        const SavedMap map(cells[6] + "/");
        ASSERT_EQ(map.columns * map.rows, 24);
        EXPECT_EQ(map.maskedCells(0), 0);
        map.expectCells(0, [&](double value, LabPoint at) {
            const double truth =
                expectedCurrent(at.x, at.y, laserVolts, labStageUm(labZ), biasVolts);
            return std::fabs(value - truth) < 0.02e-6 + 0.01 * std::fabs(truth);
        });
        EXPECT_TRUE(map.condition("Scan list").starts_with(formatted("night, row %d of ", row)));
        EXPECT_EQ(map.condition("Sample"), "MoS2 no. 7");
    }

    void goesOnAfter(bool closed);

    static ScanList fiveRows() {
        return {.name = "night",
                .sample = "MoS2 no. 7",
                .rows = {mapRowAt(20, 10, 0.0), mapRowAt(20, 10, 0.4), mapRowAt(-30, 25, 0.0),
                         mapRowAt(-30, 25, 0.4), curveAt(20, 10)}};
    }
};

TEST_F(ScanListTest, EachRowIsMeasuredAtItsPlaceWithItsSettings) {
    const double x = labStageUm(labX);
    const auto inRow4 = [] { return listUnderWay().starts_with("night, row 4 "); };
    when([=] { return inRow4() && textIn(Field::Progress).starts_with("Mapping: 50%"); },
         [] { EXPECT_EQ(scanSettings.options.mainChannel, 2); });
    runOver([] {
        ScanList list = fiveRows();
        list.rows[1].laserUa = 8.0;
        list.rows[3].limitAmperes = 2e-3;
        list.rows[3].channel = 2.0;
        ListRow& lit = list.rows.emplace_back(curveAt(20, 10));
        lit.kind = ListKind::Series;
        lit.biasVolts = 0.4;
        lit.laserUa = 2.0;
        return list;
    });
    for (const int row : {1, 2, 3, 4})
        expectTrueMap(row, row % 2 == 0 ? 0.4 : 0.0, row == 2 ? 2.0 : 4.0);
    const std::vector<std::string>& sent = labInstrumentCommands(labUsbSourcemeter);
    EXPECT_GT(std::count(sent.begin(), sent.end(), ":SOUR:VOLT:ILIM 0.002\n"), 0);
    const LabMeasurement& last = labMeasurements().back();
    EXPECT_EQ(last.biasVolts, 0.4) << "of the series, in the dark at its end";
    const auto lit = std::find_if(labMeasurements().rbegin(), labMeasurements().rend(),
                                  [](const LabMeasurement& one) { return one.laser; });
    EXPECT_NEAR(lit->value, expectedCurrent(lit->sampleX, lit->sampleY, 0.5, labStageUm(labZ), 0.4),
                0.005e-6);
    ASSERT_EQ(recordOf(5).size(), 7u) << record();
    EXPECT_EQ(numbersOf(contentOf(sessionFile("I-V", recordOf(5)[6] + "/")).substr(13)).size(),
              20u);
    EXPECT_NE(record().find("Scan list finished: 6 of 6 rows"), std::string::npos);
    EXPECT_NEAR(labStageUm(labX), x, 3.0) << "back where it stood";
    EXPECT_EQ(labLaserPwm(), 0);
    EXPECT_EQ(labBiasVolts(), 0.0);
    EXPECT_EQ(instrumentLink.biasVoltage, 0.0f) << "the program's own settings are back";
    std::string fault;
    EXPECT_FALSE(unfinishedList(fault));
}

TEST_F(ScanListTest, ComesNearerToTheObjectiveOnlyOverTheRowsOwnPlace) {
    const LabPoint home{labStageUm(labX), labStageUm(labY)};
    const double z = labStageUm(labZ);
    LabPoint under{};
    when([z] { return labStageUm(labZ) > z + 5.0; },
         [&] {
             under = {labStageUm(labX) - home.x, labStageUm(labY) - home.y};
         });
    runOver([] {
        ScanList list = fiveRows();
        list.rows = {list.rows[2]};
        list.rows[0].zUm = ofController(stageZ, stageZ.positionUm) + 10.0;
        return list;
    });
    EXPECT_NEAR(under.x, -30.0, 5.0);
    EXPECT_NEAR(under.y, 25.0, 5.0);
    EXPECT_EQ(recordOf(1)[5], "finished");
}

// Nobody is there any more when the map behind it begins; the lamp would be measured, too.
TEST_F(ScanListTest, ACurveAtItsBeginAsksForAllAndIsMeasuredInTheDark) {
    bool litByLamp = true;
    when([] { return labMeasurements().size() > 3; }, [&] { litByLamp = labIlluminated(); });
    const auto curveFirst = [] {
        ScanList list = fiveRows();
        list.rows = {list.rows[4], list.rows[1]};
        return list;
    };
    runOver(curveFirst, "Do you want to start the list? The stage goes from row to row by itself.");
    EXPECT_FALSE(litByLamp);
    EXPECT_EQ(shownBoxes.size(), 1u);
    EXPECT_EQ(recordOf(2)[5], "finished");
}

// A map at another bias than its name says is no sound row.
TEST_F(ScanListTest, ARefusedBiasIsAFailedRow) {
    const auto tooHigh = [] {
        ScanList list = fiveRows();
        list.rows = {list.rows[1], list.rows[0]};
        list.rows[0].biasVolts = 5.0; // more than its fixed range
        return list;
    };
    runOver(tooHigh, areaQuestion, kindGpibSourcemeter);
    EXPECT_NE(recordOf(1)[5].find("Bias refused"), std::string::npos) << record();
    EXPECT_EQ(recordOf(2)[5], "finished") << record();
    EXPECT_NE(record().find("Failed: 1"), std::string::npos) << record();
}

TEST_F(ScanListTest, ARowThatFailsIsRecordedAndTheNextBegins) {
    runOver([] {
        ScanList list = fiveRows();
        setUp.ranges[0].highest = ofController(stageX, 20.0); // the first two reach beyond it
        list.rows[2].everyMinutes = 30.0;
        list.rows[2].repeats = 2.0;
        list.rows[3].on = false;
        return list;
    });
    EXPECT_NE(recordOf(1)[5].find("declined, Stage X: 35.0 um is beyond its highest place, 20.0"),
              std::string::npos)
        << record();
    EXPECT_EQ(recordOf(3, 2)[5], "finished");
    EXPECT_NE(recordOf(3, 1)[6], recordOf(3, 2)[6]) << "a folder each";
    EXPECT_TRUE(recordOf(4).empty());
    EXPECT_NE(record().find("2 of 4 rows. Failed: 2"), std::string::npos) << record();
    EXPECT_NEAR(testTimeMs() / 60000.0, 31.0, 1.5) << "from one start to the next";
}

TEST_F(ScanListTest, AStopAsksForTheRowOrTheList) {
    when(
        [] {
            return listUnderWay().starts_with("night, row 1 ") &&
                   textIn(Field::Progress).starts_with("Mapping: 50%");
        },
        [] { postClick(100, 100); });
    answer("Do you want to stop process, now ?", BoxAnswer::Yes);
    answer("Does the whole list end?\n\nNo: only this row, the next one begins.", BoxAnswer::No);
    when(
        [] {
            return listUnderWay().starts_with("night, row 3 ") &&
                   textIn(Field::Progress).starts_with("Mapping: 50%");
        },
        [] { postClick(100, 100); });
    answer("Do you want to stop process, now ?", BoxAnswer::Yes);
    answer("Does the whole list end?\n\nNo: only this row, the next one begins.", BoxAnswer::Yes);
    runOver(fiveRows);
    EXPECT_TRUE(recordOf(1)[5].starts_with("stopped")) << record();
    EXPECT_EQ(recordOf(2)[5], "finished");
    EXPECT_TRUE(recordOf(3)[5].starts_with("stopped"));
    EXPECT_TRUE(recordOf(4).empty());
    EXPECT_EQ(labLaserPwm(), 0);
}

// Behind a point and behind a row, long enough for anything that watches for idleness; dark and
// without bias meanwhile, and no cell shows that there was one.
TEST_F(ScanListTest, APauseLeavesNoTrace) {
    const auto pauses = [](const char* row, const char* at, int command, double minutes) {
        when(
            [=] {
                return listUnderWay().starts_with(row) && textIn(Field::Progress).starts_with(at);
            },
            [=] {
                postCommand(command);
                when([] { return isPaused(); },
                     [=] {
                         in(2000, [] {
                             EXPECT_EQ(labLaserPwm(), 0);
                             EXPECT_EQ(labBiasVolts(), 0.0);
                         });
                         in(minutes * 60000.0, [] { postCommand(idPause); });
                     });
            });
    };
    pauses("night, row 2 ", "Mapping: 37%", idPause, 45.0);
    pauses("night, row 4 ", "Mapping: 37%", idPauseBehindRow, 5.0);
    runOver(fiveRows);
    for (const int row : {1, 2, 3, 4}) expectTrueMap(row, row % 2 == 0 ? 0.4 : 0.0);
    const std::string inRow = SavedMap(recordOf(2)[6] + "/").condition("Paused");
    EXPECT_NE(inRow.find("behind row 2, point 3, 45."), std::string::npos) << inRow;
    const std::string behindRow = SavedMap(recordOf(4)[6] + "/").condition("Paused");
    EXPECT_NE(behindRow.find("behind row 2, 5."), std::string::npos) << behindRow;
    EXPECT_EQ(SavedMap(recordOf(1)[6] + "/").condition("Paused"), "");
    EXPECT_TRUE(windows.main == nullptr || windows.main->hidden[idPause]);
}

TEST_F(ScanListTest, AStopEndsAPause) {
    when(
        [] {
            return listUnderWay().starts_with("night, row 2 ") &&
                   textIn(Field::Progress).starts_with("Mapping: 37%");
        },
        [] { postCommand(idPause); });
    when([] { return isPaused(); }, [] { in(60000.0, [] { postClick(100, 100); }); });
    answer("Do you want to stop process, now ?", BoxAnswer::Yes);
    answer("Does the whole list end?\n\nNo: only this row, the next one begins.", BoxAnswer::Yes);
    runOver(fiveRows);
    EXPECT_TRUE(recordOf(2)[5].starts_with("stopped")) << record();
    EXPECT_NE(SavedMap(recordOf(2)[6] + "/").condition("Paused"), "");
    EXPECT_EQ(labLaserPwm(), 0);
    EXPECT_EQ(labBiasVolts(), 0.0);
}

// The disk as it was in the middle of the second row, behind a pause: that one goes on in its own
// folder.
TEST_F(ScanListTest, AFailedRowIsNoMeasuredOneAfterACut) {
    prepareDataFolders(dataFolders);
    ListPlace place{.list = fiveRows(), .done = std::vector<int32_t>(5)};
    ASSERT_TRUE(beginListRecord(place));
    ASSERT_TRUE(keepFailed(place, 1) && keepDone(place, 1) && keepDone(place, 0));
    std::string fault;
    const std::optional<ListPlace> left = unfinishedList(fault);
    ASSERT_TRUE(left) << fault;
    EXPECT_EQ(left->measured(), 1);
    EXPECT_EQ(left->failed, std::set<size_t>{1});
    EXPECT_EQ(left->next(), 2u);
}

void ScanListTest::goesOnAfter(bool closed) {
    std::string disk;
    when(
        [] {
            return listUnderWay().starts_with("night, row 2 ") &&
                   textIn(Field::Progress).starts_with("Mapping: 16%");
        },
        [] { postCommand(idPause); });
    when([] { return isPaused(); }, [] { in(3000.0, [] { postCommand(idPause); }); });
    when(
        [] {
            return listUnderWay().starts_with("night, row 2 ") &&
                   textIn(Field::Progress).starts_with("Mapping: 50%");
        },
        [&] { closed ? post(messageClose) : void(disk = copyDesktop()); });
    runOver(fiveRows);
    if (closed) disk = copyDesktop();
    prepareWorld();
    useAsDesktop(disk);
    wallTime.day += 1;
    when([] { return timerRuns(); },
         [] {
             EXPECT_EQ(textIn(Field::Information), "A list was cut off: 1 of 5 rows. \"File\", "
                                                   "\"Continue last list\"");
             std::string fault; // the rows that are left would be another kind of map
             scanSettings.confocalEnabled = 1;
             continueScanList(*unfinishedList(fault));
             EXPECT_NE(textIn(Field::Information)
                           .find("confocal off, focus plane not followed, set "
                                 "is"),
                       std::string::npos)
                 << textIn(Field::Information);
             scanSettings.confocalEnabled = 0;
             EXPECT_NE(listThatWasCutOff(), "");
             writeDesktopFile("tell.exe", "");
             EXPECT_TRUE(keepProgramAtEnd(narrowed(desktopFolder()) + "\\tell.exe"));
             postCommand(idContinueList);
         });
    answer("The list \"night\" was cut off: 1 of 5 rows are measured. Go on?\n\nThe stage goes to "
           "where it stood at the list's start, and the row that was cut goes on.",
           BoxAnswer::Yes);
    when(
        [] {
            return record().find("Scan list finished") != std::string::npos && !processUnderWay();
        },
        [] { post(messageClose); });
    EXPECT_EQ(runProgram(1), 0);
    for (const int row : {1, 2, 3, 4}) expectTrueMap(row, row % 2 == 0 ? 0.4 : 0.0);
    EXPECT_NE(SavedMap(recordOf(2)[6] + "/").condition("Continued"), "");
    EXPECT_NE(SavedMap(recordOf(2)[6] + "/").condition("Paused"), "");
    ASSERT_EQ(startedPrograms.size(), 1u);
    EXPECT_TRUE(startedPrograms.front().find(L"tell.exe ") != std::wstring::npos);
    EXPECT_NE(record().find("continued after it was cut off"), std::string::npos);
    EXPECT_NE(record().find("Scan list finished: 5 of 5 rows"), std::string::npos) << record();
}

TEST_F(ScanListTest, GoesOnAfterAPowerCut) {
    goesOnAfter(false);
}

TEST_F(ScanListTest, GoesOnInTheRowInWhichTheWindowWasClosed) {
    goesOnAfter(true);
}

// The map is whole and saved: the next row has nothing to do with it.
TEST_F(ScanListTest, AStopOnTheWayHomeIsOfTheRowThatIsMeasured) {
    when(
        [] {
            return listUnderWay().starts_with("night, row 1 ") &&
                   scanMap.outcome.end == ProcessEnd::Finished;
        },
        [] { postClick(100, 100); });
    answer("Do you want to stop process, now ?", BoxAnswer::Yes);
    answer("Does the whole list end?\n\nNo: only this row, the next one begins.", BoxAnswer::No);
    runOver(fiveRows);
    for (const int row : {1, 2, 3, 4}) expectTrueMap(row, row % 2 == 0 ? 0.4 : 0.0);
    EXPECT_NE(record().find("Scan list finished: 5 of 5 rows"), std::string::npos) << record();
}

// By a virus scanner, say: what it missed comes with its next line, also of where the list stands.
TEST_F(ScanListTest, ALineThatTheRecordDoesNotTakeComesWithTheNextOne) {
    when([] { return listUnderWay().starts_with("night, row 1 "); },
         [] { refusedFile = "Scan lists"; });
    when([] { return listUnderWay().starts_with("night, row 2 "); }, [] { refusedFile.clear(); });
    std::string fault;
    when([] { return listUnderWay().starts_with("night, row 3 "); },
         [&] {
             EXPECT_EQ(unfinishedList(fault)->done, (std::vector<int32_t>{1, 1, 0, 0, 0}));
         });
    runOver(fiveRows);
    EXPECT_EQ(fault, "");
    for (int row = 1; row <= 5; ++row) EXPECT_EQ(recordOf(row).size(), 7u) << record();
    EXPECT_EQ(record().find("Not written"), std::string::npos);
    EXPECT_NE(contentOf("KST_Data/Log/2026-03-07.txt").find("its record cannot be written"),
              std::string::npos);
}

TEST_F(ConnectedTest, TheListWindowKeepsWhatWasTypedAndRowsThatNobodySaved) {
    onCommand(idScanList);
    NativeWindow& tool = *toolWindows.back();
    const auto press = [&](int id) { onToolCommand(&tool, id); };
    press(idListAddSweep);
    press(idListCopy); // which is selected then
    NativeWindow* range = nullptr;
    for (int i = 0; i < 14; ++i)
        if (tool.texts[idListLabel + i] == "Range (+/- V)")
            range = tool.edits[static_cast<size_t>(3 + i)]; // behind name, sample and note
    ASSERT_NE(range, nullptr);
    const auto typeAndSelect = [&](const char* typed, int row) {
        range->text = typed;
        tool.selectedRow = row;
        onToolSelection(&tool);
    };
    typeAndSelect("0.25", 0);
    answer("Row 1, Range (+/- V): \"x\" is no number", BoxAnswer::Ok);
    typeAndSelect("x", 1);
    EXPECT_EQ(onToolTable(&tool, 0, 9), "+/- 0.5");
    EXPECT_EQ(onToolTable(&tool, 1, 9), "+/- 0.25");
    ASSERT_TRUE(writeScanList({.name = "other", .rows = {ListRow()}}));
    tool.edits[0]->text = "other";
    answer("The rows that are shown have not been saved. Open the other list all the same?",
           BoxAnswer::No);
    press(idListOpen);
    EXPECT_EQ(tool.tableRows, 2);
    destroyToolWindow(&tool);
    std::string fault;
    const std::optional<ScanList> kept = readScanList("list (unsaved)", fault);
    ASSERT_TRUE(kept) << fault;
    EXPECT_EQ(kept->rows.at(1).rangeVolts, 0.25);
}

TEST(ScanListFile, KeepsEveryRowAndSaysTheLineThatItCannotTake) {
    ScanList list{.goesOnAfterFailure = false, .sample = "a", .note = "b = c, # d"};
    for (const ListKind kind : {ListKind::Map, ListKind::IvCurve, ListKind::Series}) {
        ListRow& row = list.rows.emplace_back();
        row.kind = kind;
        row.xUm = -1234.0625;
        row.zUm = 0.1;
        row.on = kind != ListKind::Series;
    }
    std::string fault;
    const std::optional<ScanList> read = listOf(textOf(list), fault);
    ASSERT_TRUE(read) << fault;
    EXPECT_EQ(textOf(*read), textOf(list));
    for (const auto& [text, why] :
         {std::pair("row = map, columns 2.5\n", "line 1: columns is a whole number, 1 to 100000"),
          std::pair("\n# x\nrow = I-V, step 1\n", "line 3: a I-V has no \"step\""),
          std::pair("row = map, step nan\n", "line 1: step is 0.1 to 40"),
          std::pair("row = spectrum\n", "line 1: a row is a map, I-V or series"),
          std::pair("row = map, columns 90000, rows 90000\n",
                    "line 1: a map has at most 36 million points"),
          std::pair("bias = 1\n", "line 1: \"bias\" is not known")}) {
        EXPECT_FALSE(listOf(text, fault)) << text;
        EXPECT_EQ(fault, why);
    }
    ListRow row;
    const auto laser = [](const std::vector<ListRow>& rows) {
        std::string text;
        for (const ListRow& each : rows) text += formatted("%g ", each.laserUa);
        return text;
    };
    const ListNumber* number = nullptr;
    for (const ListNumber& each : listNumbers())
        if (each.value == &ListRow::laserUa) number = &each;
    EXPECT_EQ(laser(seriesOf(row, {number, 1, 16, 3, true, true}, fault)), "1 4 16 4 1 ");
    EXPECT_EQ(laser(seriesOf(row, {number, 4, 0, 3, false, false}, fault)), "4 2 0 ");
    EXPECT_TRUE(seriesOf(row, {number, 0, 16, 3, true, false}, fault).empty());
    EXPECT_NE(fault, "");
}

} // namespace
