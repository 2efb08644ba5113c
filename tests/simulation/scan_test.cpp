// Whole maps in the laboratory, compared with the sample that they were taken of.
#include "tests/simulation/saved_map.h"
#include "tests/simulation/whole_run.h"

#include "app/program.h"
#include "camera/camera.h"
#include "camera/spot.h"
#include "instruments/laser_link.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_area.h"
#include "mapping/scan_journal.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "ui/commands.h"
#include "ui/tool_windows.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

namespace {

using ScanTest = WholeRunTest;

// Rows from the bottom of the map that must hold the landscape; the cells of `partial` more.
void expectLandscape(int wholeRows, int partial, double zUm) {
    const Map& map = scanMap.maps[planePhotocurrent];
    int wrong = 0;
    for (int scanned = 0; scanned < scanArea.rows; ++scanned) {
        const int mapRow = scanArea.rows - 1 - scanned;
        for (int column = 0; column < scanArea.cols; ++column) {
            const double volts =
                static_cast<double>(map[static_cast<size_t>(column)][static_cast<size_t>(mapRow)]);
            const bool measured = scanned < wholeRows || (scanned == wholeRows && column < partial);
            const LabPoint place = placeOfCell(column, mapRow);
            const bool right = measured ? agreesWithLandscape(volts, place, zUm) : volts == 0.0;
            if (!right && ++wrong < 10)
                ADD_FAILURE() << "cell " << column << "," << mapRow << " at (" << place.x << ", "
                              << place.y << ") holds " << volts << " V";
        }
    }
    EXPECT_EQ(wrong, 0);
}

// The file with units holds the measured cells as the maps do, and masks the others.
void expectSavedMap(const char* outcome, int measured, double zUm) {
    const SavedMap saved;
    ASSERT_EQ(saved.columns, scanArea.cols);
    ASSERT_EQ(saved.rows, scanArea.rows);
    EXPECT_EQ(saved.channels, scanSettings.confocalEnabled ? 4 : 1);
    EXPECT_EQ(saved.unit(0), "V");
    EXPECT_EQ(saved.condition("Outcome"), outcome);
    EXPECT_EQ(saved.condition("Points measured"), std::to_string(measured));
    saved.expectCells(
        0, [zUm](double volts, LabPoint place) { return agreesWithLandscape(volts, place, zUm); });
    for (int channel = 0; channel < saved.channels; ++channel) {
        EXPECT_EQ(saved.maskedCells(channel), scanArea.totalPoints - measured);
        EXPECT_EQ(saved.unit(channel), channel == 0 ? "V" : "");
        for (int i = 0; i < scanArea.totalPoints; ++i) {
            const int column = i % scanArea.cols, row = i / scanArea.cols;
            const auto c = static_cast<size_t>(column), r = static_cast<size_t>(row);
            EXPECT_EQ(saved.value(channel, column, row),
                      static_cast<double>(scanMap.maps[static_cast<size_t>(channel)][c][r]));
            const int order = (scanArea.rows - 1 - row) * scanArea.cols + column;
            EXPECT_EQ(saved.masked(channel, column, row), order >= measured) << column << row;
        }
    }
}

// The confocal maps are the spot's light times the sample's colour, or what is grey of it.
void expectColours(bool grey = false) {
    const auto colourAt = [grey](double x, double y) {
        Rgb colour = textureAt(x, y);
        if (grey)
            colour.red = colour.green = colour.blue =
                (colour.red + 2 * colour.green + colour.blue) / 4;
        return colour;
    };
    const Rgb reference = colourAt(0, 0);
    double scale = 0; // grey levels per reflectance, from the cell nearest to the centre
    double nearest = 1e9;
    const auto cell = [](int plane, int column, int row) {
        return static_cast<double>(scanMap.maps[static_cast<size_t>(plane)][static_cast<size_t>(
            column)][static_cast<size_t>(row)]);
    };
    for (int c = 0; c < scanArea.cols; ++c)
        for (int r = 0; r < scanArea.rows; ++r) {
            const LabPoint place = placeOfCell(c, r);
            const double distance = std::hypot(place.x, place.y);
            if (distance >= nearest) continue;
            nearest = distance;
            scale = cell(planeGreen, c, r) / colourAt(place.x, place.y).green;
        }
    EXPECT_GT(scale * reference.green, 40) << "the spot is too dark to tell colours";
    int wrong = 0;
    for (int c = 0; c < scanArea.cols; ++c)
        for (int r = 0; r < scanArea.rows; ++r) {
            const LabPoint place = placeOfCell(c, r);
            const Rgb colour = colourAt(place.x, place.y);
            const double expected[] = {colour.red, colour.green, colour.blue};
            for (int plane : {planeRed, planeGreen, planeBlue}) {
                const double level = scale * expected[plane - planeRed];
                if (std::abs(cell(plane, c, r) - level) > 3 + 0.03 * level && ++wrong < 5)
                    ADD_FAILURE() << "plane " << plane << " cell " << c << "," << r << ": "
                                  << cell(plane, c, r) << " instead of " << level;
            }
        }
    // Cells within a microstep of an edge may show either side.
    EXPECT_LE(wrong, scanArea.totalPoints / 50);
}

// A plan is all that a scan needs: two of them, one after the other, ask nothing.
TEST_F(ScanTest, TwoPlansRunWithoutAQuestion) {
    writeSettings(2.0, false);
    std::vector<Outcome> outcomes;
    when([] { return timerRuns(); }, [] { postDrag(616 + 30, 514 + 30, 616 - 30, 514 - 30); });
    answer("Do you want to set it for next scan area", BoxAnswer::Yes);
    when([] { return textIn(Field::Progress) == "New scan area was selected."; },
         [&] {
             runProcess("Two scans", [&] {
                 for (const double step : {4.0, 2.0}) {
                     ScanPlan plan = presentPlan();
                     plan.consent = Consent::GivenBefore;
                     plan.area.scanStep = step;
                     computeScanArea(plan.area, plan.laserSpot, plan.confocal);
                     const RunningProcess running;
                     outcomes.push_back(runScan(plan));
                 }
                 return outcomes.back();
             });
             post(messageClose);
         });
    EXPECT_EQ(runProgram(1), 0);
    ASSERT_EQ(outcomes.size(), 2u);
    for (const Outcome& each : outcomes) EXPECT_EQ(each.words(), "Mapping finished");
    EXPECT_EQ(scanMap.conditions->area.scanStep, 2.0);
    const std::vector<std::string> files = filesOnDesktop();
    EXPECT_EQ(std::count_if(files.begin(), files.end(),
                            [](const auto& name) { return name.find("Kestrel") < name.size(); }),
              2);
}

TEST_F(ScanTest, MapsTheSampleThroughASmallGreyCamera) {
    ASSERT_TRUE(applyLabFaults("sensor 640 480 Mono8"));
    writeSettings(2.0, true);
    runProgramOver(40, 30);
    EXPECT_EQ(cameraImage.seen.width, 320);
    EXPECT_EQ(scanArea.cols, 20);
    EXPECT_EQ(scanArea.rows, 15);
    expectLandscape(scanArea.rows, 0, labStageUm(labZ));
    expectColours(true);
}

TEST_F(ScanTest, MapsTheSampleAndBringsEverythingBack) {
    writeSettings(2.0, true);
    runProgramOver(40, 30);

    EXPECT_EQ(scanArea.cols, 20);
    EXPECT_EQ(scanArea.rows, 15);
    expectLandscape(scanArea.rows, 0, labStageUm(labZ));
    EXPECT_EQ(textIn(Field::Information), "Mapping finished");
    for (const auto& column : scanMap.marks)
        for (const PointMark mark : column) EXPECT_EQ(mark, PointMark::Measured);
    ASSERT_TRUE(scanMap.conditions);
    EXPECT_EQ(scanMap.conditions->started.minute, 5);
    EXPECT_EQ(scanMap.conditions->homeXUm, 0.0);
    EXPECT_TRUE(scanMap.conditions->confocal);
    expectColours();
    expectSavedMap("finished", 20 * 15, labStageUm(labZ));
    SavedMap().expectGwyddionAgrees();

    // One reading before each row is thrown away.
    EXPECT_EQ(labCounters().analogReads, static_cast<uint64_t>(readingsIn(20, 15)));
    EXPECT_NEAR(labStageUm(labX), 0, 2.01); // home, but for the backlash
    EXPECT_NEAR(labStageUm(labY), 0, 2.01);
    EXPECT_EQ(stageX.positionUm, 0.0);
    EXPECT_EQ(labLaserPwm(), 0);
    EXPECT_FALSE(labIlluminated()); // the program has ended

    EXPECT_EQ(labCounters().boardErrors, 0u);
    EXPECT_EQ(labCounters().cameraDevices, 0u);
    EXPECT_EQ(labCounters().openAxes, 0u);
    EXPECT_EQ(serial.openPorts, 0);
}

TEST_F(ScanTest, SavesWhatItMeasured) {
    wallTime = {2026, 3, 7, 14, 5};
    writeSettings(3.0, true);
    runProgramOver(12, 9);

    const std::string stem = "(4X3)Step3.0um LaserIntensity16.0 Bias0.0V";
    const std::string grid = stem + ".txt";
    std::vector<std::string> expected = {"KST_Data/", "KST_Data/260307_14-05/",
                                         "KST_Data/Config.txt", "KST_Data/Journal/",
                                         "KST_Data/Options.ini"};
    for (const char* prefix : {"Kestrel", "ConfocalR", "ConfocalG", "ConfocalB"})
        expected.push_back("KST_Data/260307_14-05/" + (prefix + grid));
    expected.push_back("KST_Data/260307_14-05/Lumascan" + stem + ".gwy");
    for (const char* image :
         {"optics(0)", "KST(1)", "CONF_R(2)", "CONF_G(3)", "CONF_B(4)", "CONFOCAL(5)"})
        expected.push_back("KST_Data/260307_14-05/" + (image + std::string(".jpg")));
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(filesOnDesktop(), expected);

    const auto saved = numbersOf(contentOf(sessionFile("Kestrel")));
    ASSERT_EQ(saved.size(), 3u);
    for (size_t row = 0; row < 3; ++row) {
        ASSERT_EQ(saved[row].size(), 4u);
        for (size_t column = 0; column < 4; ++column)
            EXPECT_NEAR(saved[row][column],
                        static_cast<double>(scanMap.maps[planePhotocurrent][column][row]), 1e-6);
    }
    EXPECT_EQ(historyOf(Field::Progress).back().substr(0, 5), "count"); // the move home
    const auto& progress = historyOf(Field::Progress);
    EXPECT_NE(std::find(progress.begin(), progress.end(), "Mapping: 100% done"), progress.end());
    EXPECT_EQ(contentOf("KST_Data/Config.txt"),
              "step:3.0, laser:4.00, laser correct:(640,500), Ammeter:0, GPIB:18, "
              "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 1\n");
}

TEST_F(ScanTest, ApproachesEveryPointFromTheLeft) {
    writeSettings(2.5, false);
    runProgramOver(20, 10);
    // Within a row the light only moves to the right, each row above the last.
    const std::vector<LabRead>& reads = labReads();
    ASSERT_EQ(reads.size(), static_cast<size_t>(readingsIn(scanArea.cols, scanArea.rows)));
    const auto row = static_cast<size_t>(scanArea.cols) + 1;
    for (size_t i = 0; i < reads.size(); ++i) {
        const bool discarded = i % row == 0;
        if (discarded && i > 0) {
            EXPECT_GT(reads[i].sampleY, reads[i - 1].sampleY + 1);
        }
        if (!discarded && i % row > 1) {
            EXPECT_NEAR(reads[i].sampleX - reads[i - 1].sampleX, 2.5, 0.02);
        }
    }
}

// With a play larger than the step the run-in of one step leaves the first columns of each row
// where the play ends, and they look as good as the others. So does a run-in that a limit switch
// cuts short, but for the points that it spoils.
TEST_F(ScanTest, TheRunInTakesUpThePlay) {
    struct Case {
        const char *play, *options, *limit;
        int atOnePlace, inDoubt; // columns of each row but the first, which the swing leads up to
    };
    for (const Case& each : {Case{"2", "", "", 4, 0}, Case{"2", "run-in (um) = 5\n", "", 1, 0},
                             Case{"0.5", "run-in (um) = 5\n", "", 1, 0},
                             Case{"2", "run-in (um) = 5\n", "limit x left at -3", 1, 6}}) {
        SCOPED_TRACE(std::string(each.play) + each.options + each.limit);
        prepareWorld();
        const std::string play = each.play;
        const std::string plays = "backlash x " + play + "\nbacklash y " + play + "\n";
        ASSERT_TRUE(applyLabFaults(plays));
        afterReadings(2, [=] { ASSERT_TRUE(applyLabFaults(plays + each.limit)); });
        writeDesktopFile("KST_Data/Options.ini", each.options);
        writeSettings(0.5, false);
        runProgramOver(5, 1);
        const std::vector<LabRead>& reads = labReads();
        ASSERT_EQ(reads.size(), static_cast<size_t>(readingsIn(scanArea.cols, scanArea.rows)));
        for (int i = 0; i < scanArea.totalPoints; ++i) {
            const int row = i / scanArea.cols, column = i % scanArea.cols;
            const LabRead& read = reads[static_cast<size_t>(i + row + 1)];
            const int shown = row == 0 ? column : std::max(column, each.atOnePlace - 1);
            const auto c = static_cast<size_t>(column);
            const bool sound = scanMap.marks[c][static_cast<size_t>(scanArea.rows - 1 - row)] ==
                               PointMark::Measured;
            EXPECT_EQ(sound, row == 0 || column >= each.inDoubt) << row << " " << column;
            if (sound) {
                EXPECT_NEAR(read.sampleX, placeOfCell(shown, 0).x, 0.02) << row << " " << column;
            }
        }
        EXPECT_EQ(SavedMap().condition("Run-in to a row"), *each.options ? "5 um" : "0.5 um");
    }
}

// Whenever the stage is looked at, and whatever it does on its way: the same map, but for the time.
TEST_F(ScanTest, EarlyLooksReadTheSamePlaces) {
    for (const char* fault :
         {"", "axis x slow 100\naxis y slow 100", "axis x slow 50\naxis y slow 50",
          "axis x overshoot 4\naxis y overshoot 4\naxis x slow 100\nbacklash x 0\nbacklash y 0",
          "axis x old\naxis y old"}) {
        double pointMs[2] = {};
        for (const bool early : {false, true}) {
            SCOPED_TRACE(std::string(fault) + (early ? " early" : ""));
            prepareWorld();
            ASSERT_TRUE(applyLabFaults(fault));
            writeDesktopFile("KST_Data/Options.ini",
                             early ? "look for arrival = as soon as it can be there\n" : "");
            writeSettings(2.0, false);
            runProgramOver(16, 8);
            expectLandscape(scanArea.rows, 0, labStageUm(labZ));
            EXPECT_EQ(textIn(Field::Information), "Mapping finished");
            const std::vector<LabRead>& reads = labReads();
            ASSERT_EQ(reads.size(), static_cast<size_t>(readingsIn(8, 4)));
            pointMs[early] = (reads[8].timeMs - reads[2].timeMs) / 6;
            for (size_t i = 0; i < reads.size(); ++i) // a row begins with one that is discarded
                EXPECT_TRUE(i % 9 == 0 || reads[i].restedMs >= 12) << i << " " << reads[i].restedMs;
        }
        EXPECT_GE(pointMs[false] / pointMs[true], *fault == 0 ? 2.2 : 1.0);
    }
}

int statusCalls;

// Through a network controller each call takes 5 ms: X by the two calls that find it arrived, Y by
// one.
TEST_F(ScanTest, APointAsksTheStageThreeTimes) {
    replaceFunction(
        "get_status", +[](int id, void* status) {
            ++statusCalls;
            const auto ask = virtualLabFunction("libximc.dll", "get_status");
            return reinterpret_cast<int (*)(int, void*)>(ask)(id, status);
        });
    ASSERT_TRUE(applyLabFaults("stage calls 5"));
    writeDesktopFile("KST_Data/Options.ini", "look for arrival = as soon as it can be there\n");
    writeSettings(2.0, false);
    int before = 0;
    afterReadings(3, [&] { before = statusCalls; }); // of a row of 8
    afterReadings(8, [&] { EXPECT_EQ(statusCalls - before, 5 * 3); });
    runProgramOver(16, 4);
}

TEST_F(ScanTest, OptionsSetTheWaitsAndTheReadings) {
    writeDesktopFile("KST_Data/Options.ini", "wait after arrival (ms) = 300\n"
                                             "wait before reading (ms) = 100x\n"
                                             "readings per point = 25\nwrite .gwy = maybe\n");
    writeSettings(2.0, false);
    runProgramOver(8, 4);
    expectLandscape(scanArea.rows, 0, labStageUm(labZ));
    EXPECT_EQ(scanSettings.options, (ScanOptions{.settleMs = 300, .readingsPerPoint = 25}));
    const auto& said = historyOf(Field::Information);
    for (const char* bad : {"wait before reading (ms) = 100x", "write .gwy = maybe"})
        EXPECT_TRUE(std::any_of(said.begin(), said.end(), [&](const std::string& text) {
            return text.find(bad) != std::string::npos;
        })) << bad;
    // One thrown away, then four points of 25; their spread is what the map keeps beside the mean.
    const std::vector<LabRead>& reads = labReads();
    ASSERT_EQ(reads.size(), static_cast<size_t>(2 * (1 + 4 * 25)));
    EXPECT_GT(reads[26].timeMs - reads[25].timeMs, 300.0);
    double sum = 0.0, squares = 0.0;
    for (size_t i = 1; i <= 25; ++i) sum += reads[i].volts;
    for (size_t i = 1; i <= 25; ++i) squares += std::pow(reads[i].volts - sum / 25, 2);
    const auto row = static_cast<size_t>(scanArea.rows - 1);
    EXPECT_NEAR(static_cast<double>(scanMap.maps[planePhotocurrent][0][row]), sum / 25, 1e-6);
    EXPECT_NEAR(static_cast<double>(scanMap.maps[firstFurtherMap][0][row]), std::sqrt(squares / 24),
                1e-6);
    const SavedMap saved;
    ASSERT_EQ(saved.channels, 2);
    EXPECT_EQ(saved.unit(1), "V");
    EXPECT_NEAR(saved.value(1, 0, saved.rows - 1), std::sqrt(squares / 24), 1e-6);
    EXPECT_EQ(saved.condition("Wait after the arrival at a point"), "300 ms");
}

// A power cut in the fourth row; the next day's start finds the journal.
TEST_F(ScanTest, JournalBringsBackWhatAPowerCutTook) {
    constexpr char file[] = "KST_Data/Journal/journal0.txt";
    writeSettings(2.0, true);
    std::string onDisk;
    afterReadings(3 * 13 + 2, [&] { onDisk = contentOf(file); });
    runProgramOver(24, 16);
    EXPECT_EQ(contentOf(file), "") << "a scan that was saved whole";
    const std::string saved = contentOf(sessionFile("Kestrel"));
    for (const char* prefix : {"Kestrel", "ConfocalG", "Lumascan"})
        std::filesystem::remove(pathOnDesktop(sessionFile(prefix)));

    writeDesktopFile(file, onDisk);
    // A later one whose first line is whole and whose conditions are not hides nothing.
    writeDesktopFile("KST_Data/Journal/journal1.txt", onDisk.substr(0, onDisk.find("columns")));
    wallTime.day += 1;
    scanMap = {};
    std::string notice;
    applyLabFaults("camera absent"); // whose text comes ten times a second
    when([] { return timerRuns(); },
         [&] {
             in(3000, [&] {
                 notice = textIn(Field::Information);
                 postCommand(idRecoverScan);
             });
         });
    when([] { return textIn(Field::Information).starts_with("Recovered: 36 of "); },
         [] { post(messageClose); });
    EXPECT_EQ(runProgram(1), 0);
    EXPECT_TRUE(notice.starts_with("A scan of 2026-03-07 14:05 was cut off: 36 of 96")) << notice;
    expectLandscape(3, 0, labStageUm(labZ));
    const auto whole = numbersOf(saved), part = numbersOf(contentOf(sessionFile("Kestrel")));
    ASSERT_EQ(part.size(), whole.size());
    for (size_t row = 0; row < whole.size(); ++row)
        EXPECT_EQ(part[row], row + 3 < whole.size() ? std::vector<double>(12) : whole[row]);
    EXPECT_NE(sessionFile("ConfocalG"), "");
    EXPECT_NE(sessionFile("Lumascan"), "");
    EXPECT_EQ(contentOf(file), "");
}

// The power went in the fourth row, on a stage that was moved since; the program starts with other
// settings and goes on. A second power cut then loses nothing either.
TEST_F(ScanTest, GoesOnAfterAPowerCut) {
    const std::string file = "KST_Data/Journal/journal0.txt", picture = file + ".picture";
    writeSettings(2.0, true);
    std::string onDisk, pictureOnDisk;
    afterReadings(3 * 13 + 2, [&] {
        onDisk = contentOf(file);
        pictureOnDisk = contentOf(picture);
    });
    runProgramOver(24, 16);
    EXPECT_EQ(contentOf(picture), "");
    const auto before = numbersOf(contentOf(sessionFile("Kestrel")));
    std::filesystem::remove_all(pathOnDesktop("KST_Data/260307_14-05"));

    writeDesktopFile(file, onDisk);
    writeDesktopFile(picture, pictureOnDisk);
    writeSettings(5.0, false);
    wallTime.day += 1;
    scanMap = {};
    const auto press = [](int id) { postCall([id] { onToolCommand(toolWindows.back(), id); }); };
    when([] { return timerRuns(); }, [] { postCommand(idContinueScan); });
    when([] { return !toolWindows.empty(); },
         [&] {
             EXPECT_EQ(scanArea.scanStep, 5.0) << "nothing is taken over before the word";
             press(idContinueMove);
         });
    const auto compareAndConfirm = [&] {
        const NativeBitmap& shown = toolWindows.back()->client;
        const std::vector<uint32_t> then = scanPicture(leftJournals().front());
        const std::vector<uint32_t> now = smallPicture(cameraImage);
        ASSERT_EQ(then.size(), now.size()) << "a picture was kept";
        for (size_t y = 2; y < 514; y += 51)
            for (size_t x = 0; x < 616; x += 61) {
                const int left = static_cast<int>(x) + 10, top = static_cast<int>(y) + 28;
                EXPECT_EQ(shown.at(left, top), then[616 * y + x]);
                EXPECT_EQ(shown.at(left + 626, top), now[616 * y + x]);
            }
        press(idContinueConfirm);
    };
    const auto isAway = [] { return std::abs(stageX.positionUm) > 9.9 && timerRuns(); };
    const auto isBack = [] { return std::abs(stageX.positionUm) < 0.1 && timerRuns(); };
    when(isAway, [&] {
        press(idContinueMove + 3);
        when(isBack, compareAndConfirm);
    });
    answer("Hysteresis compensated. Is it okay?", BoxAnswer::Yes);
    std::string secondCut;
    when([] { return textIn(Field::Progress) == "Mapping: 60% done"; },
         [&] {
             secondCut = contentOf(file);
             when([] { return textIn(Field::Information) == "Mapping finished"; },
                  [] { in(1000, [] { post(messageClose); }); });
         });
    EXPECT_EQ(runProgram(1), 0);

    EXPECT_EQ(scanArea.cols * scanArea.rows, 96);
    expectLandscape(scanArea.rows, 0, labStageUm(labZ));
    expectColours();
    expectSavedMap("finished", 96, labStageUm(labZ));
    EXPECT_EQ(SavedMap().condition("Started"), "2026-03-07 14:05:00");
    EXPECT_TRUE(SavedMap().condition("Continued").starts_with("2026-03-08 14:"));
    EXPECT_TRUE(SavedMap().condition("Continued").ends_with(" after row 3"));
    EXPECT_NE(sessionFile("Lumascan").find("260307_14-05"), std::string::npos);
    const auto after = numbersOf(contentOf(sessionFile("Kestrel")));
    for (size_t row = before.size() - 3; row < before.size(); ++row)
        EXPECT_EQ(after[row], before[row]);
    EXPECT_EQ(contentOf(file) + contentOf(picture), "");

    writeDesktopFile(file, secondCut);
    const std::optional<JournaledScan> cutAgain = readScanJournal(leftJournals().front());
    ASSERT_TRUE(cutAgain);
    EXPECT_GE(cutAgain->points, 4 * 12);
    EXPECT_EQ(firstMissingRow(cutAgain->map), 4);
}

// Without a camera, after a cancel, at a second thought and declined at last: the journal stays,
// and nothing was taken over before the word.
TEST_F(ScanTest, KeepsTheJournalOfAScanThatDoesNotGoOn) {
    const std::string file = "KST_Data/Journal/journal0.txt";
    writeSettings(2.0, false);
    std::string onDisk;
    afterReadings(13 + 5, [&] { onDisk = contentOf(file); });
    runProgramOver(24, 8);
    const size_t readings = labCounters().analogReads;
    std::filesystem::remove_all(pathOnDesktop("KST_Data/260307_14-05"));

    writeDesktopFile(file, onDisk);
    writeSettings(5.0, false);
    wallTime.day += 1;
    applyLabFaults("camera absent");
    const auto press = [](int id) { postCall([id] { onToolCommand(toolWindows.back(), id); }); };
    constexpr char question[] = "There are no two pictures to compare. ";
    when([] { return timerRuns(); }, [] { postCommand(idContinueScan); });
    when([] { return !toolWindows.empty(); },
         [&] {
             press(idContinueCancel);
             when([] { return toolWindows.empty(); },
                  [&] {
                      postCommand(idContinueScan);
                      when([] { return !toolWindows.empty(); }, [&] { press(idContinueConfirm); });
                  });
         });
    answer(question, BoxAnswer::No, [&] {
        EXPECT_EQ(scanArea.scanStep, 5.0);
        EXPECT_EQ(contentOf(file), onDisk);
        in(100, [&] { press(idContinueConfirm); });
    });
    answer(question, BoxAnswer::Yes);
    answer("Hysteresis compensated. Is it okay?", BoxAnswer::No, [] {
        when([] { return textIn(Field::Information) == "Mapping finished"; },
             [] { in(1000, [] { post(messageClose); }); });
    });
    EXPECT_EQ(runProgram(1), 0);
    EXPECT_EQ(labCounters().analogReads, readings + 1) << "whether the board answers";
    EXPECT_EQ(SavedMap().condition("Outcome"), "declined");
    const std::optional<JournaledScan> kept = readScanJournal(leftJournals().front());
    ASSERT_TRUE(kept);
    EXPECT_EQ(kept->points, 12);
    EXPECT_EQ(firstMissingRow(kept->map), 1);
}

// No journal can be written, and one of a newer version lies there: the scan goes on, says it once,
// and leaves what it cannot read.
TEST_F(ScanTest, GoesOnWithoutAJournal) {
    const std::string newer = "Lumascan journal 3 scan 00000000\n";
    for (const bool refused : {true, false}) {
        SCOPED_TRACE(refused);
        prepareWorld();
        writeSettings(2.0, false);
        writeDesktopFile("KST_Data/Journal/journal0.txt", newer);
        refusedFile = refused ? "Journal" : "";
        testing::internal::CaptureStdout();
        when([] { return textIn(Field::Progress).starts_with("Mapping: 50% done"); },
             [=] {
                 EXPECT_EQ(textIn(Field::Progress),
                           refused ? "Mapping: 50% done, no journal" : "Mapping: 50% done");
             });
        runProgramOver(8, 6);
        const std::string said = testing::internal::GetCapturedStdout();
        refusedFile.clear();
        constexpr char words[] = "Journal: cannot be written\n";
        EXPECT_EQ(said.find(words) != std::string::npos, refused);
        EXPECT_EQ(said.find(words), said.rfind(words)) << "said once";
        EXPECT_EQ(textIn(Field::Information),
                  refused ? "Mapping finished. Journal not written" : "Mapping finished");
        expectLandscape(scanArea.rows, 0, labStageUm(labZ));
        EXPECT_EQ(contentOf("KST_Data/Journal/journal0.txt"), newer);
        EXPECT_EQ(contentOf("KST_Data/Journal/journal1.txt"), "");
    }
}

// The journal has what the files have not, until they have it.
TEST_F(ScanTest, SavingAgainEndsTheJournalOfAScanThatWasNotWritten) {
    writeSettings(2.0, false);
    for (const char* refused : {"Kestrel", ".gwy"}) {
        SCOPED_TRACE(refused);
        prepareWorld();
        writeSettings(2.0, false);
        refusedFile = refused;
        answerOthers = [](const ShownBox&) { return BoxAnswer::Ok; };
        bool kept = false;
        when([] { return textIn(Field::StartButton) == "Start" && scanMap.saveCount == 1; },
             [&] {
                 kept = leftJournals().size() == 1;
                 refusedFile.clear();
                 postCommand(idSaveMaps);
             });
        runProgramOver(8, 6);
        EXPECT_TRUE(kept);
        EXPECT_EQ(leftJournals().size(), 0u);
        EXPECT_EQ(textIn(Field::Information).find("Not written"), std::string::npos);
    }
}

TEST_F(ScanTest, TellsTheCameraAsItWasAndWhatChanged) {
    writeSettings(2.0, true);
    when([] { return windows.main != nullptr; }, [] { cameraState.gain = 100; }); // dB; it has 36
    afterReadings(20, [] {
        setField(Field::Gain, "20");
        postCommand(idGain);
        postCommand(idBlueOnly);
    });
    runProgramOver(12, 10);
    const SavedMap saved;
    EXPECT_EQ(saved.condition("Camera gain"), "36");
    EXPECT_EQ(saved.condition("Camera gain at the end"), "20");
    EXPECT_EQ(saved.condition("Blue only"), "no");
    EXPECT_EQ(saved.condition("Blue only at the end"), "yes");
    EXPECT_EQ(saved.condition("Camera exposure at the end"), "");
}

TEST_F(ScanTest, StopKeepsThePointsMeasuredSoFar) {
    writeSettings(2.0, true);
    // 37 cells: three rows of 12 and one more, each row with its discarded reading.
    afterReadings(3 * 13 + 2, [] { postCommand(idStart); });
    answer("Do you want to stop process, now ?", BoxAnswer::Yes);
    runProgramOver(24, 16);
    ASSERT_EQ(scanArea.cols, 12);
    expectLandscape(3, 1, labStageUm(labZ));
    expectSavedMap("stopped", 37, labStageUm(labZ));
    SavedMap().expectGwyddionAgrees();
    EXPECT_EQ(numbersOf(contentOf(sessionFile("Kestrel"))).size(),
              static_cast<size_t>(scanArea.rows));
    EXPECT_NE(sessionFile("CONFOCAL"), "");
    EXPECT_NEAR(labStageUm(labX), 0, 2.01);
    EXPECT_EQ(labLaserPwm(), 0);
}

TEST_F(ScanTest, StopThatIsNotMeantLosesNothing) {
    writeSettings(2.0, false);
    afterReadings(20, [] { postCommand(idStart); });
    // Over lunch: what was measured is on the disk whatever box is open.
    answer("Do you want to stop process, now ?", BoxAnswer::No, [] {
        keepBoxOpen(2000);
        const std::string journal = contentOf("KST_Data/Journal/journal0.txt");
        const std::string points = journal.substr(journal.find("\npoints ") + 1);
        EXPECT_EQ(std::count(points.begin(), points.end(), '\n') - 1, 20 - 3);
    });
    afterReadings(30, [] { postClick(1300, 900); });
    answer("Do you want to stop process, now ?", BoxAnswer::No);
    runProgramOver(16, 12);
    expectLandscape(scanArea.rows, 0, labStageUm(labZ));
}

TEST_F(ScanTest, DeclinedQuestionMeasuresNothingAndGoesHome) {
    writeSettings(2.0, true);
    runProgramOver(16, 12, BoxAnswer::No);
    EXPECT_EQ(labCounters().analogReads, 0u);
    expectLandscape(0, 0, 0);
    expectSavedMap("declined", 0, 0);
    for (const char* prefix : {"Kestrel", "ConfocalB", "KST", "CONFOCAL"})
        EXPECT_NE(sessionFile(prefix), "") << prefix;
    EXPECT_NEAR(labStageUm(labX), 0, 2.01);
    const std::vector<std::string>& board = labBoardCommands();
    EXPECT_EQ(std::count(board.begin(), board.end(), "G 5 204"), 0) << "the laser was on";
}

TEST_F(ScanTest, EditsAreRefusedWhileTheGridIsInUse) {
    writeSettings(2.0, false);
    afterReadings(10, [] {
        typeInto(Field::ScanStep, "0.5");
        postCall([] { enterScanStep(); });
        postCommand(idReconnectStages);
    });
    runProgramOver(12, 10);
    EXPECT_EQ(textIn(Field::ScanStep), "2.0");
    expectLandscape(scanArea.rows, 0, labStageUm(labZ));
}

// Between two readings of a point they would move it elsewhere, and the cell would count. The focus
// keys stay, and cut no wait.
TEST_F(ScanTest, KeysAndCommandsLeaveXAndYAlone) {
    writeDesktopFile("KST_Data/Options.ini", "wait after arrival (ms) = 200\n"
                                             "readings per point = 10\n");
    writeSettings(2.0, false);
    for (int reading = 12; reading < 60; reading += 12)
        afterReadings(static_cast<size_t>(reading), [] {
            for (uintptr_t key : {keyLeft, keyUp, keyRight, keyDown}) postKey(key);
            for (int id : {idMoveXPlus, idMoveXMinus, idMoveYPlus, idMoveYMinus}) postCommand(id);
            for (const Field field : {Field::PositionX, Field::PositionY}) typeInto(field, "100");
            postCall([] { enterPositionX(); });
            postCall([] { enterPositionY(); });
            in(500, [] { postKey(keyPageUp); });
            in(600, [] { postKey(keyPageDown); });
        });
    runProgramOver(8, 4);
    const std::vector<LabRead>& reads = labReads();
    const auto readings = static_cast<size_t>(scanArea.rows + scanArea.totalPoints * 10);
    ASSERT_EQ(reads.size(), readings);
    for (int i = 0; i < scanArea.totalPoints; ++i) {
        const int row = i / scanArea.cols;
        const LabPoint place = placeOfCell(i % scanArea.cols, scanArea.rows - 1 - row);
        for (int j = 0; j < 10; ++j) {
            const LabRead& read = reads[static_cast<size_t>(i * 10 + j + row + 1)];
            EXPECT_NEAR(read.sampleX, place.x, 0.02) << i << " " << j;
            EXPECT_NEAR(read.sampleY, place.y, 0.02) << i << " " << j;
            EXPECT_GE(read.restedMs, 200 + 2) << i << " " << j;
        }
    }
    EXPECT_EQ(textIn(Field::Information), "Mapping finished");
    EXPECT_NE(textIn(Field::PositionX), "100");
    EXPECT_EQ(handState.keyBusy, 0);
    const auto said = [](Field field, const char* part) {
        const std::vector<std::string>& texts = historyOf(field);
        return std::any_of(texts.begin(), texts.end(), [&](const std::string& text) {
            return text.find(part) != std::string::npos;
        });
    };
    EXPECT_TRUE(said(Field::Information, "Not while a mapping runs"));
    EXPECT_TRUE(said(Field::Progress, ", no keys for X and Y"));
}

TEST_F(ScanTest, RefusedNumberedNameMakesANewFolder) {
    wallTime = {2026, 3, 7, 14, 5};
    writeSettings(4.0, false);
    // Saved by hand in the middle, the map finds its name taken at the end, and the file system
    // refuses the colon of the numbered name: all goes into a new folder.
    afterReadings(5, [] { postCommand(idSaveMaps); });
    answer("File saving error. New folder will be made.", BoxAnswer::Ok,
           [] { wallTime.minute = 6; });
    runProgramOver(10, 10);
    const std::string name = "Kestrel(3X3)Step4.0um LaserIntensity16.0 Bias0.0V.txt";
    const auto part = numbersOf(contentOf("KST_Data/260307_14-05/" + name));
    const auto whole = numbersOf(contentOf("KST_Data/260307_14-06/" + name));
    ASSERT_EQ(part.size(), whole.size());
    EXPECT_EQ(part[2][0], whole[2][0]);
    EXPECT_EQ(SavedMap("14-05").condition("Outcome"), "running");
    EXPECT_EQ(SavedMap("14-06").condition("Text file"), name);
    EXPECT_EQ(part[0][2], 0.0);
    EXPECT_NEAR(whole[0][2], static_cast<double>(scanMap.maps[planePhotocurrent][2][0]), 1e-6);
    EXPECT_EQ(sessionFile("KST("), "KST_Data/260307_14-06/KST(1).jpg");
    expectLandscape(scanArea.rows, 0, labStageUm(labZ)); // nothing is lost from memory
}

} // namespace
