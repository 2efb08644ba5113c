// A scan is found again among those of KST_Data, shown, marked, and scanned once more at its place.
#include "tests/simulation/saved_map.h"
#include "tests/simulation/whole_run.h"

#include "app/program.h"
#include "archive/scan_file.h"
#include "camera/camera.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "mapping/map_rendering.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "mapping/scan_options.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "ui/commands.h"
#include "ui/tool_windows.h"

namespace {

class EarlierScansTest : public WholeRunTest {
protected:
    void SetUp() override {
        WholeRunTest::SetUp();
        writeDesktopFile("KST_Data/Config.txt",
                         formatted("step:4.0, laser:3.00, laser correct:(%d,%d), Ammeter:%d, "
                                   "GPIB:24, IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 1\n",
                                   labSpotPixel().column, labSpotPixel().row, kindUsbSourcemeter));
        when([] { return timerRuns(); },
             [] {
                 instrumentLink.biasVoltage = 0.25f;
                 scanSettings.options.readingsPerPoint = 2;
                 scanSettings.options.settleMs = 15;
                 postDrag(560, 560, 680, 480);
             });
        answer("Do you want to set it for next scan area", BoxAnswer::Yes);
        when([] { return textIn(Field::Progress) == "New scan area was selected."; },
             [] { postCommand(idStart); });
        answer("Hysteresis compensated. Is it okay?", BoxAnswer::Yes);
    }

    // Behind the scan: lists, selects the only one, and calls `then`.
    static void findTheScan(Action then) {
        when([] { return scanEnded(); }, [] { postCommand(idScans); });
        when([] { return scanEnded() && !toolWindows.empty() && window()->tableRows == 1; },
             [=] {
                 postCall([=] {
                     window()->selectedRow = 0;
                     onToolSelection(window());
                     then();
                 });
             });
    }
    static bool scanEnded() {
        return textIn(Field::Information).starts_with("Mapping finished") && !processUnderWay();
    }
    static WindowHandle window() { return toolWindows.back(); }
    static void press(int id) { onToolCommand(window(), id); }
};

TEST_F(EarlierScansTest, MapOfTheFileIsTheScansAndNeverTakenForIt) {
    findTheScan([] {
        EXPECT_EQ(onToolTable(window(), 0, 6), formatted("%g", 12.0)); // uA
        const ScanMap kept = scanMap;
        const double step = scanArea.scanStep;
        press(idScansShow);
        ASSERT_TRUE(shownFileMap());
        EXPECT_TRUE(windows.map->text.starts_with("Photocurrent - file 26")) << windows.map->text;
        const ScanMap& file = *shownFileMap();
        ASSERT_EQ(file.planes.size(), planesOf(kept).size());
        for (size_t i = 0; i < file.planes.size(); ++i) {
            const size_t map = planesOf(kept)[i].map;
            if (planesOf(kept)[i].of == Plane::Of::Deviation) continue; // in a unit of its own
            EXPECT_EQ(file.maps[file.planes[i].map], kept.maps[map]) << i;
        }
        EXPECT_EQ(file.marks, kept.marks);
        EXPECT_NEAR(file.conditions->firstXUm(), kept.conditions->firstXUm(), 0.001);
        const std::vector<uint32_t> fromFile = windows.map->client.pixels;
        press(idScansPlane);
        EXPECT_TRUE(windows.map->text.starts_with("Confocal red - file")) << windows.map->text;
        // The present scan's: its files, its views, its other window.
        EXPECT_EQ(scanMap.maps, kept.maps);
        EXPECT_EQ(scanMap.views.mapChannel, kept.views.mapChannel);
        EXPECT_EQ(scanArea.scanStep, step);
        onCommand(idShowMap);
        EXPECT_EQ(shownFileMap(), nullptr);
        EXPECT_EQ(windows.map->text, "Photocurrent map");
        EXPECT_EQ(windows.map->client.pixels, fromFile); // the same map looks the same
        post(messageClose);
    });
    EXPECT_EQ(runProgram(1), 0);
}

TEST_F(EarlierScansTest, ScansAgainAtItsPlaceWithItsSettings) {
    static ScanConditions before;
    findTheScan([] {
        before = *scanMap.conditions;
        const std::string file = sessionFile("Lumascan"), bytes = contentOf(file);
        setWindowText(window()->edits[1], "once more");
        press(idScansGood);
        EXPECT_EQ(contentOf(file.substr(0, file.size() - 4) + ".mark.txt"), "good: once more\n");
        EXPECT_EQ(contentOf(file), bytes);

        instrumentLink.biasVoltage = 0.0f;
        laserLink.laserLevel = 1.0;
        scanSettings = {.options = {}, .confocalEnabled = 0};
        scanArea.scanStep = 10.0;
        moveXYBy(30.0, -20.0, motorSpeed);
        setPosition(stageX, 500.0); // "Set Zero" and the like do not move the sample
        answer("Taken: ", BoxAnswer::Ok);
        press(idScansUse);
        EXPECT_EQ(shownBoxes.back().text.find("Not taken"), std::string::npos)
            << shownBoxes.back().text;
        EXPECT_FLOAT_EQ(instrumentLink.biasVoltage, 0.25f);
        EXPECT_DOUBLE_EQ(laserLink.laserLevel, 3.0);
        EXPECT_EQ(scanSettings.options, before.options);
        EXPECT_EQ(scanSettings.confocalEnabled, 1);
        moveXYBy(-5.0, 8.0, motorSpeed); // the area stays where it is
        press(idScansShow);
        ASSERT_TRUE(shownFileMap());
        answer("Hysteresis compensated. Is it okay?", BoxAnswer::Yes);
        answer("File saving error. New folder will be made.", BoxAnswer::Ok); // the same names
        postCommand(idStart);
        when([] { return processUnderWay(); },
             [] { when([] { return scanEnded(); }, [] { post(messageClose); }); });
    });
    EXPECT_EQ(runProgram(1), 0);
    EXPECT_EQ(shownFileMap(), nullptr);
    const ScanConditions& again = *scanMap.conditions;
    EXPECT_EQ(again.area.cols, before.area.cols);
    EXPECT_EQ(again.area.rows, before.area.rows);
    EXPECT_NEAR(again.firstXUm() + again.zeroXUm, before.firstXUm() + before.zeroXUm, 0.01);
    EXPECT_NEAR(again.firstYUm() + again.zeroYUm, before.firstYUm() + before.zeroYUm, 0.01);
}

TEST_F(EarlierScansTest, TakesNoAreaWhosePlaceIsLost) {
    findTheScan([] {
        const ScanArea area = scanArea;
        stageX.zero += " since 2026-11-27 12:00:00";
        stageZ.positionUm += 7.0;
        cameraState.cameraAperture = 9;
        answer("Not taken:\n- area: stage X has lost its place since", BoxAnswer::Ok);
        press(idScansUse);
        for (const char* words : {"\n- Z: it stays at 7.0 um; then", "aperture 9 px; then: gain "})
            EXPECT_NE(shownBoxes.back().text.find(words), std::string::npos)
                << shownBoxes.back().text;
        EXPECT_FALSE(scanArea.placed);
        EXPECT_EQ(scanArea.rectX1, area.rectX1);
        post(messageClose);
    });
    EXPECT_EQ(runProgram(1), 0);
}

} // namespace
