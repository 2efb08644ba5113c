// What an operator does on a map: reads it, goes to its points, and scans a part of it again. The
// truth is where the laboratory's laser was at each reading.
#include "archive/scan_file.h"
#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/map_place.h"
#include "mapping/map_rendering.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/control_ids.h"
#include "session/data_folders.h"
#include "session/process.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"
#include "ui/commands.h"
#include "ui/map_window.h"
#include "ui/tool_windows.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

class MapWindowTest : public ConnectedTest {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ConnectedTest::SetUp());
        cameraState.laserOffset = {labSpotPixel().column, labSpotPixel().row};
        Objective& objective = setUp.objective();
        objective.correctionXUm = objective.correctionYUm = 0.0; // the light acts where it is seen
        scanSettings.confocalEnabled = 0;
        scanSettings.options.looksEarly = true;
        setLaserOutput(1);
        switchLiveView(LiveView::On);
    }

    static void pump() {
        for (Message message; takeMessage(message);) dispatchMessage(message);
    }

    // The camera is turned, and the set-up knows it.
    static void turnCamera(double degrees, bool mirrored) {
        ASSERT_TRUE(
            applyLabFaults(formatted("optics 0.16 %g%s\n", degrees, mirrored ? " mirrored" : "")));
        const double turn = degrees * std::numbers::pi / 180.0, um = 0.16;
        Objective& objective = setUp.objective();
        const double side = mirrored ? -1 : 1;
        objective.xPerColumn = um * std::cos(turn) * side;
        objective.xPerRow = -um * std::sin(turn);
        objective.yPerColumn = um * std::sin(turn) * side;
        objective.yPerRow = um * std::cos(turn);
        for (const double column : {700.0, 500.0}) { // as the laboratory has it
            const StageVector v = objective.umOf({column - 616, 80});
            const LabPoint seen = labSampleAt(column, 594);
            ASSERT_NEAR(seen.x - labStageUm(labX), v.x, 0.01);
            ASSERT_NEAR(seen.y - labStageUm(labY), v.y, 0.01);
        }
    }

    void scan() {
        readsBefore = labReads().size();
        answer("Hysteresis compensated. Is it okay?", BoxAnswer::Yes);
        onCommand(idStart);
        ASSERT_EQ(textIn(Field::Information), "Mapping finished");
    }

    // Where the last scan has measured a cell of the map.
    LabPoint measuredAt(MapCell cell) const {
        const auto cols = static_cast<size_t>(scanArea.cols);
        const size_t row = static_cast<size_t>(scanArea.rows) - 1 - cell.row;
        const LabRead& read = labReads()[readsBefore + row * (cols + 1) + 1 + cell.column];
        return {read.sampleX, read.sampleY};
    }

    static void type(double step) {
        typeInto(Field::ScanStep, formatted("%.1f", step));
        enterScanStep();
    }

    // A drag over the square of that side around a point of the map.
    static void dragOnMap(MapPoint middle, double sideUm) {
        const double cell = shownArea().cellPx, half = sideUm / shownArea().scanStep / 2;
        const auto pixel = [cell](double at) {
            return static_cast<int>(std::lround((at + 0.5) * cell));
        };
        answer("Do you want to set it for next scan area", BoxAnswer::Yes);
        onMapButtonDown(windows.map, MapButton::Left, pixel(middle.column - half),
                        pixel(middle.row - half));
        onMapMouseMove(windows.map, pixel(middle.column), pixel(middle.row), true, false);
        onMapButtonUp(windows.map, MapButton::Left, pixel(middle.column + half),
                      pixel(middle.row + half));
        EXPECT_EQ(textIn(Field::Progress), "New scan area was selected.");
    }

    // A tenth of a millimetre around the picture's middle, from the picture.
    void scanOverview(double step) {
        type(step);
        answer("Do you want to set it for next scan area", BoxAnswer::Yes);
        postDrag(616 - 300, 514 - 300, 616 + 300, 514 + 300);
        pump();
        scan();
    }

    static PixelPoint pixelOf(MapCell cell) {
        const int px = shownArea().cellPx;
        return {static_cast<int>(cell.column) * px + px / 2,
                static_cast<int>(cell.row) * px + px / 2};
    }

    size_t readsBefore = 0;
};

// 100, 30 and 10 um: what lies in the middle stays there, whatever happens between the scans.
TEST_F(MapWindowTest, ZoomsOntoTheSameFeature) {
    const struct {
        double degrees;
        bool mirrored;
    } cameras[] = {{0, false}, {30, false}, {-100, true}};
    for (const auto& camera : cameras) {
        instrumentLink.biasVoltage += 1; // each has its own file names
        if (camera.degrees != 0) turnCamera(camera.degrees, camera.mirrored);
        moveXYTo(0, 0, motorSpeed);
        scanOverview(5.0);
        const MapCell feature{static_cast<size_t>(scanArea.cols) / 2 - 3,
                              static_cast<size_t>(scanArea.rows) / 2 + 2};
        const LabPoint wanted = measuredAt(feature);
        MapPoint middle{static_cast<double>(feature.column), static_cast<double>(feature.row)};
        for (const auto& [side, step] : {std::pair(30.0, 1.5), {10.0, 0.5}}) {
            type(step); // empties the maps, and the last one is still shown
            dragOnMap(middle, side);
            EXPECT_NEAR(scanArea.cols * step, side + step / 2, 0.75 * step + 0.2);
            EXPECT_NEAR(scanArea.rows * step, side + step / 2, 0.75 * step + 0.2);
            // Neither a way in between nor another zero shifts it.
            moveXYBy(17, -9, motorSpeed);
            setPosition(stageX, 123);
            setPosition(stageY, -45);
            scan();
            // The cell that lies in its middle.
            middle = {(side / 2) / step, scanArea.rows - 1 - (side / 2) / step};
            const LabPoint came = measuredAt(cellAt(middle));
            EXPECT_NEAR(came.x, wanted.x, step + 1) << side << " um at " << camera.degrees;
            EXPECT_NEAR(came.y, wanted.y, step + 1) << side << " um at " << camera.degrees;
        }
    }
}

// Another day: the map comes from its file, another objective looks, the zero is another one.
TEST_F(MapWindowTest, ZoomsFromAFilesMapWhereItsPlaceIsKnown) {
    ASSERT_TRUE(applyLabFaults("backlash x 0\nbacklash y 0\n"));
    scanOverview(5.0);
    const MapCell feature{7, 11};
    const LabPoint wanted = measuredAt(feature);
    std::string file;
    for (const std::string& name : filesOnDesktop())
        if (name.ends_with(".gwy")) file = name;
    const auto show = [&] {
        std::string fault;
        const std::wstring path =
            dataFolders.dataRoot + L"\\" + widened(file.substr(sizeof "KST_Data"));
        std::optional<ScanMap> map = mapOfFile(path, fault);
        ASSERT_TRUE(map) << fault;
        map->file = "a day\\a map.gwy";
        showFileMap(std::move(*map), "file");
    };
    moveXYBy(20, -15, motorSpeed);
    closeAllStages();
    ASSERT_TRUE(openStages(controllers.axisOrder, motorSpeed));
    setUp.objectives.push_back(setUp.objective());
    setUp.objectiveInUse = 2;
    turnCamera(30, false);
    cameraState.laserOffset = {labSpotPixel().column, labSpotPixel().row};
    setUp.objective().spotColumn = labSpotPixel().column;
    setUp.objective().spotRow = labSpotPixel().row;
    show();
    const PixelPoint at = pixelOf(feature);
    onMapMouseMove(windows.map, at.x, at.y, false, false);
    EXPECT_TRUE(windowText(windows.map, 200).ends_with(" um - file"));
    EXPECT_TRUE(display.pointer);
    answer("Do you want to move this point under the laser spot?", BoxAnswer::Yes);
    onMapDoubleClick(windows.map, at.x, at.y);
    EXPECT_NEAR(labLaserSpotSample().x, wanted.x, 2.0);
    EXPECT_NEAR(labLaserSpotSample().y, wanted.y, 2.0);
    type(1.0);
    dragOnMap({7, 11}, 20.0);
    instrumentLink.biasVoltage += 1; // its own file names
    scan();
    const LabPoint came = measuredAt({10, static_cast<size_t>(scanArea.rows) - 1 - 10});
    EXPECT_NEAR(came.x, wanted.x, 2.0);
    EXPECT_NEAR(came.y, wanted.y, 2.0);

    // Nothing moves by a file that does not say its place, contradicts itself, or is of a zero that
    // was lost.
    const auto staysBecause = [&](const char* why) {
        show();
        const double stood = labStageUm(labX);
        onMapMouseMove(windows.map, at.x, at.y, false, false);
        EXPECT_FALSE(display.pointer);
        onMapDoubleClick(windows.map, at.x, at.y);
        EXPECT_NE(textIn(Field::Information).find(why), std::string::npos)
            << textIn(Field::Information);
        EXPECT_EQ(labStageUm(labX), stood);
    };
    const std::string sound = contentOf(file);
    for (const char* part : {"Stage X by its controller", "First point X"}) {
        std::string bytes = sound;
        char& letter = bytes[bytes.find(part)];
        letter = letter == 'S' ? 's' : 'f';
        writeDesktopFile(file, bytes);
        if (letter == 's') staysBecause("does not say where on the stage");
        bytes = sound;
        bytes.at(bytes.find('.', bytes.find(part)) - 1) ^= 1; // another micrometre or step
        writeDesktopFile(file, bytes);
        staysBecause("does not say where on the stage");
    }
    writeDesktopFile(file, sound);
    stageY.zero += " since 2026-11-27 12:00:00";
    staysBecause("stage Y has lost its place since");
}

TEST_F(MapWindowTest, TellsWhatLiesUnderTheCursorAndGoesThere) {
    const std::string exactStage = "backlash x 0\nbacklash y 0\n";
    ASSERT_TRUE(applyLabFaults(exactStage));
    scanOverview(8.0);
    const MapCell cell{3, 5};
    const LabPoint there = measuredAt(cell);
    const PixelPoint at = pixelOf(cell);
    const StageVector place = stageFor(placeOf({3, 5}));
    onMapMouseMove(windows.map, at.x, at.y, false, false);
    const double volts = static_cast<double>(scanMap.maps[planePhotocurrent][3][5]);
    const std::string title = windowText(windows.map, 200);
    EXPECT_EQ(title, formatted(volts < 0.99995 ? "%.4g mV" : "%.4g V",
                               volts < 0.99995 ? volts * 1e3 : volts) +
                         formatted(", column 4, row %d, X %.1f, Y %.1f um", scanArea.rows - 5,
                                   place.x, place.y));
    // The cross lies on the picture where the picture shows that point.
    const PicturePlace cross = onPicture(placeOf(*mapPointAt(at.x, at.y)));
    const LabPoint seen = labSampleAt(cross.x, 1028 - cross.y);
    EXPECT_NEAR(seen.x, there.x, 1.0);
    EXPECT_NEAR(seen.y, there.y, 1.0);
    onPaint();
    const int x = static_cast<int>(cross.x), y = static_cast<int>(cross.y);
    EXPECT_EQ(windows.main->client.at(x + 5, y), 0x00FF00u);
    onCommand(idSaveWindowImage);
    EXPECT_NE(savedImages.back().pixels[static_cast<size_t>(y * 1232 + x + 5)], 0x00FF00u);
    EXPECT_EQ(windows.main->client.at(x + 5, y), 0x00FF00u);
    onMapLeave(windows.map);
    EXPECT_EQ(windowText(windows.map, 200).find("column"), std::string::npos);
    EXPECT_EQ(display.pointer, nullptr);

    // A spot that is marked better has not moved the light.
    cameraState.laserOffset.x += 40;
    EXPECT_NEAR(stageFor(placeOf({3, 5})).x, place.x, 1e-6);
    cameraState.laserOffset.x -= 40;

    // Another objective sees less, and its spot lies elsewhere.
    setUp.objectives.push_back(setUp.objective());
    setUp.objectiveInUse = 2;
    Objective& second = setUp.objective();
    second.xPerColumn = second.yPerRow = 0.05;
    second.spotColumn = labSpotPixel().column;
    second.spotRow = labSpotPixel().row;
    ASSERT_TRUE(applyLabFaults(exactStage + "optics 0.05 0\n"));
    setPosition(stageX, -200);
    answer("Do you want to move this point under the laser spot?", BoxAnswer::Yes);
    onMapDoubleClick(windows.map, at.x, at.y);
    EXPECT_NEAR(labLaserSpotSample().x, there.x, 2.0);
    EXPECT_NEAR(labLaserSpotSample().y, there.y, 2.0);
    EXPECT_TRUE(timerRuns());

    const double stood = labStageUm(labX);
    const auto staysBecause = [&](const std::string& why) {
        onMapDoubleClick(windows.map, pixelOf({9, 9}).x, pixelOf({9, 9}).y);
        EXPECT_NE(textIn(Field::Information).find(why), std::string::npos)
            << textIn(Field::Information);
        EXPECT_EQ(labStageUm(labX), stood);
    };
    setUp.ranges[0].highest = ofController(stageX, stageX.positionUm + 5);
    staysBecause("is beyond its highest place");
    setUp.ranges[0] = {};
    {
        const MoveUnderWay moves;
        staysBecause("Not while the stage moves");
    }
    stageY.zero += " since 2026-11-27 12:00:00";
    staysBecause("has lost its place");
    EXPECT_NE(cellText({0, 0}, channelPhotocurrent).find("place not known"), std::string::npos);
}

// In a process the map is only looked at.
TEST_F(MapWindowTest, DoesNothingInAProcess) {
    scanOverview(20.0);
    const std::string title = windowText(windows.map, 200);
    const PixelPoint at = pixelOf({1, 1});
    onMapMouseMove(windows.map, at.x, at.y, false, false);
    ASSERT_NE(windowText(windows.map, 200), title);
    runProcess("A script's", [&] {
        EXPECT_EQ(windowText(windows.map, 200), title);
        EXPECT_EQ(display.pointer, nullptr);
        return Outcome();
    });
    const RunningProcess running;
    onMapMouseMove(windows.map, 30, 30, false, false);
    onMapButtonDown(windows.map, MapButton::Left, 30, 30);
    onMapButtonUp(windows.map, MapButton::Left, 200, 200);
    onMapDoubleClick(windows.map, 30, 30);
    EXPECT_EQ(windowText(windows.map, 200), title);
    EXPECT_EQ(display.pointer, nullptr);
}

TEST_F(MapWindowTest, AProfileIsSavedWithItsPlacesAndItsScan) {
    scanOverview(10.0);
    scanMap.marks[2][4] = PointMark::NotReached;
    const PixelPoint from = pixelOf({0, 4}), to = pixelOf({6, 4});
    onMapButtonDown(windows.map, MapButton::Right, from.x, from.y);
    onMapMouseMove(windows.map, to.x, to.y, false, true);
    onMapButtonUp(windows.map, MapButton::Right, to.x, to.y);
    ASSERT_EQ(toolWindows.size(), 1u);
    EXPECT_NE(toolWindows[0]->texts[idProfileText].find("1 points masked"), std::string::npos);
    onToolCommand(toolWindows[0], idProfileSave);
    std::string saved;
    for (const std::string& name : filesOnDesktop())
        if (name.ends_with("profile(0).txt")) saved = contentOf(name);
    EXPECT_EQ(saved.find("Scan: Kestrel("), 0u) << saved;
    EXPECT_NE(saved.find("\nPlace(um),X(um),Y(um),Photovoltage("), std::string::npos) << saved;
    EXPECT_NE(saved.find(",not reached\n"), std::string::npos);
    const double x = stageFor(placeOf({6, 4})).x;
    EXPECT_NE(saved.find(formatted("\n60.000,%.3f,", x)), std::string::npos) << saved;
    EXPECT_EQ(std::count(saved.begin(), saved.end(), '\n'), 9);
    destroyToolWindow(toolWindows[0]);
}

} // namespace
