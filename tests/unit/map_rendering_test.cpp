// Colours, rows, whole maps, the scale beside them and the marker on the picture.
#include "instruments/ammeter.h"
#include "mapping/map_look.h"
#include "mapping/map_rendering.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "screen/control_ids.h"
#include "session/options.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"
#include "ui/colours_dialog.h"
#include "ui/commands.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr uint32_t grey = 0xC8C8C8, hatchLine = 0x808080;
constexpr uint32_t hatched = 1; // no pixel has that colour here

class MapRenderingTest : public WindowTest {
protected:
    void SetUp() override {
        WindowTest::SetUp();
        placeMapWindow(1450, 0, 200, 200);
        scanArea.cols = 4;
        scanArea.rows = 2;
        scanArea.cellPx = 3;
        scanArea.mapWidthPx = 12;
        scanArea.mapHeightPx = 100;
        allocateMaps();
        measureAll();
    }
    static void measureAll() {
        for (auto& column : scanMap.marks)
            std::fill(column.begin(), column.end(), PointMark::Measured);
    }
    void setRow(MapPlane plane, size_t row, std::initializer_list<float> values) {
        size_t column = 0;
        for (const float value : values) scanMap.maps[plane][column++][row] = value;
    }
    // The colours of a drawn row of cells, each cell checked to be of one colour, or `hatched`.
    std::vector<uint32_t> cells(int row) {
        std::vector<uint32_t> found;
        for (int column = 0; column < 4; column++) {
            const auto isLine = [&](int i) {
                return at(column * 3 + i % 3, row * 3 + i / 3) == hatchLine;
            };
            int lines = 0;
            for (int i = 0; i < 9; i++) lines += isLine(i);
            found.push_back(lines > 0 ? hatched : at(column * 3, row * 3));
            for (int i = 0; i < 9 && lines > 0; i++)
                EXPECT_EQ(at(column * 3 + i % 3, row * 3 + i / 3), isLine(i) ? hatchLine : grey);
            for (int i = 1; i < 9 && lines == 0; i++)
                EXPECT_EQ(at(column * 3 + i % 3, row * 3 + i / 3), found.back()) << column << i;
        }
        return found;
    }
    uint32_t at(int x, int y) { return windows.map->client.at(x, y); }
};

using Cells = std::vector<uint32_t>;

TEST_F(MapRenderingTest, LevelsBecomeColours) {
    const struct {
        int level;
        Colour colour;
    } cases[] = {{0, 0},          {3, 0},          {4, 0x000001},
                 {511, 0x00007F}, {513, 0x000080}, {514, 0x000180},
                 {768, 0x0080C0}, {769, 0x0180C0}, {1023, 0xFFFFFF}}; // red last
    for (const auto& each : cases) EXPECT_EQ(colourOf(each.level), each.colour) << each.level;
}

TEST_F(MapRenderingTest, LiveRowsScaleToThemselvesWholeMapsToAll) {
    setRow(planePhotocurrent, 0, {5, 5, 5, 5});
    setRow(planePhotocurrent, 1, {0, 1, 2, 4});
    for (int row : {0, 1}) drawMapRow(windows.map, scanMap.maps[planePhotocurrent], row);
    EXPECT_EQ(cells(0), (Cells{0x7F0000, 0x7F0000, 0x7F0000, 0x7F0000})); // level 511
    EXPECT_EQ(cells(1), (Cells{0, 0x3F0000, 0x7F0000, 0xFFFFFF}));
    EXPECT_EQ(at(12, 3), 0xFFFFFFu) << "nothing beside the map is touched";

    setRow(planePhotocurrent, 0, {-5, 5, 0, 0});
    EXPECT_EQ(drawMap(windows.map, channelPhotocurrent), 1);
    EXPECT_EQ(scanMap.mapMax, 5.0f);
    EXPECT_EQ(scanMap.mapMin, -5.0f);
    EXPECT_EQ(cells(0), (Cells{0, 0xFFFFFF, 0x7F0000, 0x7F0000}));
    EXPECT_EQ(at(12, 3), grey);

    for (size_t row : {0u, 1u}) setRow(planePhotocurrent, row, {5, 5, 5, 5});
    drawMap(windows.map, channelPhotocurrent);
    EXPECT_EQ(cells(1), Cells(4, 0)); // level 0: only the maximum moved
    EXPECT_EQ(scanMap.mapMax, 6.0f);
}

// One of them would otherwise be all that the scale shows, or make no number of it.
TEST_F(MapRenderingTest, MaskedCellsAreHatchedAndOverloadsLeaveTheScaleToTheOthers) {
    const float huge[] = {9.9e37f, INFINITY, NAN, 1e16f};
    for (const float value : huge) {
        scanMap.marks[0][0] = value == 1e16f ? PointMark::Overloaded : PointMark::Measured;
        setRow(planePhotocurrent, 0, {value, 1, 2, 4});
        setRow(planePhotocurrent, 1, {1, 1, 1, 5});
        drawMapRow(windows.map, scanMap.maps[planePhotocurrent], 0);
        EXPECT_EQ(cells(0), (Cells{hatched, 0, 0x550000, 0xFFFFFF}));
        drawMap(windows.map, channelPhotocurrent);
        EXPECT_EQ(scanMap.mapMax, 5.0f);
        EXPECT_EQ(scanMap.mapMin, 1.0f);
        EXPECT_EQ(cells(0)[0], hatched);
    }
    for (auto& column : scanMap.marks) column.assign(2, PointMark::Overloaded);
    drawMapRow(windows.map, scanMap.maps[planePhotocurrent], 0);
    drawMap(windows.map, channelPhotocurrent);
    EXPECT_EQ(cells(1), Cells(4, hatched));
    EXPECT_EQ(scanMap.mapMax, 1.0f);
    scanMap.marks[0][1] = PointMark::NoColour; // of the camera alone
    drawMap(windows.map, channelPhotocurrent);
    EXPECT_NE(cells(1)[0], hatched);
    drawMap(windows.map, channelConfocal);
    EXPECT_EQ(cells(1)[0], hatched);
}

TEST_F(MapRenderingTest, ConfocalChannels) {
    setRow(planeRed, 1, {0, 255, 10.9f, 300});
    setRow(planeGreen, 1, {1, 2, 3, 4});
    setRow(planeBlue, 1, {0, 0, 0, 255});
    const struct {
        int channel;
        Cells expected;
    } cases[] = {
        {channelRed, {0, 0xFF0000, 0x0A0000, 0x2C0000}},
        {channelGreen, {0x100, 0x200, 0x300, 0x400}},
        {channelBlue, {0, 0, 0, 0xFF}},
        {channelConfocal, {0x100, 0xFF0200, 0x0A0300, 0x2C04FF}},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(drawMap(windows.map, each.channel), 1);
        EXPECT_EQ(cells(1), each.expected) << each.channel;
    }
    drawMap(windows.map, channelPhotocurrent);
    drawConfocalRow(windows.map, 1);
    EXPECT_EQ(cells(1), cases[3].expected);
}

TEST_F(MapRenderingTest, MorePointsThanPixelsAreOnePixelEach) {
    scanArea.scanStep = 0.1;
    scanArea.rectX2 = 1;
    scanArea.rectY2 = 300;
    computeScanArea(scanArea); // 2 x 439
    placePictureWindows();
    allocateMaps();
    measureAll();
    const int right = scanArea.cols, bottom = scanArea.rows;
    const auto last = static_cast<size_t>(bottom - 1);
    EXPECT_EQ(windows.map->client.height, bottom + 55 - 39);
    scanMap.maps[planePhotocurrent][1][last] = 1.0f;
    drawMapRow(windows.map, scanMap.maps[planePhotocurrent], bottom - 1);
    EXPECT_EQ(at(0, bottom - 1), 0u);
    EXPECT_EQ(at(1, bottom - 1), 0xFFFFFFu);
    drawMapWithScale(channelPhotocurrent);
    EXPECT_EQ(at(0, 0), 0u);
    EXPECT_EQ(at(1, bottom - 1), 0xFFFFFFu);
    EXPECT_EQ(at(right, 0), grey);
    EXPECT_EQ(at(right + 10, bottom - 1), 0u); // the bar's dark end
    EXPECT_EQ(drawnTexts.back().y, bottom);
    windows.map->client = blankBitmap(10, 10, 0); // a screen that is too small for it
    saveMapImage(windows.map, channelPhotocurrent, "KST");
    ASSERT_EQ(savedImages.size(), 1u);
    const auto lastRow = static_cast<size_t>(savedImages[0].width) * last;
    EXPECT_EQ(savedImages[0].height, bottom + 16);
    EXPECT_EQ(savedImages[0].pixels[lastRow + 1], 0xFFFFFFu);
}

TEST_F(MapRenderingTest, AScanShowsNoRowOfTheMapBefore) {
    drawMapWithScale(channelPhotocurrent);
    startLiveRows();
    EXPECT_EQ(at(0, 0), grey);
    EXPECT_EQ(at(22, 50), grey) << "the scale of the map before";
    setLiveRows(1);
    repaintMapWindow();
    EXPECT_EQ(at(0, 2), grey);
    EXPECT_EQ(at(0, 3), 0x7F0000u);
    setLiveRows(-1);
}

// What the operator has chosen holds for the window and for the saved image.
TEST_F(MapRenderingTest, PaletteAndRangeAreThoseOfTheLook) {
    setRow(planePhotocurrent, 0, {-5, 5, 0, 100});
    setRow(planePhotocurrent, 1, {0, 0, 0, 0});
    mapLook.palette = 1;
    drawMap(windows.map, channelPhotocurrent);
    EXPECT_EQ(cells(0)[0], 0x440154u); // of the public table
    EXPECT_EQ(cells(0)[3], 0xFDE725u);
    mapLook.palette = 2;
    mapLook.range = RangeWay::ByHand;
    mapLook.from = -5;
    mapLook.to = 5;
    mapLook.unit = "V"; // that of the board
    drawMap(windows.map, channelPhotocurrent);
    EXPECT_EQ(cells(0), (Cells{0, 0xFFFFFF, 0x7F7F7F, 0xFFFFFF}));
    EXPECT_EQ(scanMap.mapMax, 5.0f);
    ASSERT_TRUE(saveMapImage(windows.map, channelPhotocurrent, "KST"));
    EXPECT_EQ(savedImages.back().pixels[4], 0xFFFFFFu);
    mapLook.unit = "A"; // of another instrument: not of this one
    drawMap(windows.map, channelPhotocurrent);
    EXPECT_EQ(scanMap.mapMax, 100.0f);
    mapLook.range = RangeWay::Percentiles; // of eight cells these are the extremes but for masks
    scanMap.marks[3][0] = PointMark::NotReached;
    drawMap(windows.map, channelPhotocurrent);
    EXPECT_EQ(scanMap.mapMax, 5.0f);
    EXPECT_EQ(scanMap.mapMin, -5.0f);
}

TEST_F(MapRenderingTest, OneScaleWhileScanningFollowsAllRowsSoFar) {
    mapLook.oneScale = true;
    setRow(planePhotocurrent, 1, {0, 1, 2, 4});
    setRow(planePhotocurrent, 0, {0, 0, 0, 8});
    startLiveRows();
    setLiveRows(1);
    drawLiveRow(1);
    EXPECT_EQ(cells(1)[3], 0xFFFFFFu);
    EXPECT_EQ(cells(0), Cells(4, grey));
    setLiveRows(0);
    drawLiveRow(0);
    EXPECT_EQ(cells(1)[3], 0x7F0000u) << "half of the larger one";
    EXPECT_EQ(cells(0)[3], 0xFFFFFFu);
    EXPECT_EQ(drawnTexts.back().text, "0.0uA");
    windows.map->client = blankBitmap(200, 200, 0);
    repaintMapWindow();
    EXPECT_EQ(cells(1)[3], 0x7F0000u);
    setLiveRows(-1);
}

TEST_F(MapRenderingTest, ALegendStandsInTheSavedImageWhereItIsWanted) {
    scanArea.mapHeightPx = 200;
    scanArea.scanStep = 10;
    beginMap(conditionsOf(presentPlan()));
    saveMapImage(windows.map, channelPhotocurrent, "KST");
    const SavedImage plain = savedImages.back();
    const size_t texts = drawnTexts.size();
    mapLook.legend = true;
    saveMapImage(windows.map, channelPhotocurrent, "KST");
    EXPECT_GT(savedImages.back().height, plain.height);
    std::string all;
    for (size_t i = texts; i < drawnTexts.size(); ++i) all += drawnTexts[i].text + "\n";
    for (const char* part :
         {"Photovoltage, Arduino\n", "laser 16 uA\n", "step 10 um\n", "200 um\n", "40 x\n20\num\n"})
        EXPECT_NE(all.find(part), std::string::npos) << part << "in\n" << all;
    // 200 um at 3 pixels a step of 10 um.
    int bar = 0;
    const auto width = static_cast<size_t>(savedImages.back().width);
    for (size_t y = 0; y < 200; ++y) bar += savedImages.back().pixels[y * width + 12 + 34 + 2] == 0;
    EXPECT_EQ(bar, 60);
}

TEST_F(MapRenderingTest, TheLookIsKeptAndTheDialogTakesAllOrNothing) {
    drawMapWithScale(channelPhotocurrent);
    setRow(planePhotocurrent, 0, {0, 0.002f, 0.004f, 0.02f});
    const auto fill = [](const char* to) {
        selectInDialogList(idPaletteList, 1);
        selectInDialogList(idRangeList, 2);
        onColoursCommand(idRangeList);
        EXPECT_EQ(dialogTextIn(idRangeTo), "20");
        EXPECT_EQ(dialogTextIn(idRangeUnit), "mV");
        setDialogText(idRangeTo, to);
        checkInDialog(idLegendCheck, true);
    };
    whileDialogOpen = [&] { fill("5"); };
    onCommand(idColours); // and "Cancel"
    EXPECT_EQ(mapLook, MapLook());
    answer("Range by hand: two numbers, the lower one first", BoxAnswer::Ok);
    whileDialogOpen = [&] {
        fill("-1");
        onColoursCommand(idSet);
        setDialogText(idRangeTo, "3.9"); // less than there is
        onColoursCommand(idSet);
    };
    onCommand(idColours);
    EXPECT_EQ(cells(0)[2], 0xFDE725u);
    const MapLook chosen = mapLook;
    EXPECT_NEAR(chosen.to, 0.0039, 1e-9);
    EXPECT_EQ(chosen.unit, "V");
    readMapLook(); // as the next start finds it
    EXPECT_EQ(mapLook, chosen);
    ASSERT_TRUE(writeOptions({{"map palette", "Pink"}, {"map range to", "4 V"}}));
    testing::internal::CaptureStdout();
    readMapLook();
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Pink"), std::string::npos);
    EXPECT_EQ(mapLook.palette, 0);
    EXPECT_TRUE(mapLook.legend);
}

TEST_F(MapRenderingTest, DrawingThatFailsIsSaidAndEnds) {
    drawingFailures[Drawing::MakeContext] = 100;
    EXPECT_EQ(drawMap(windows.map, channelPhotocurrent), 0);
    EXPECT_EQ(textIn(Field::Information), "CreateCompatibleDC has failed");
}

TEST_F(MapRenderingTest, ScaleStandsBesideTheMap) {
    drawColourBar(windows.map); // 90 lines
    const int left = 12 + 10;
    const struct {
        int y;
        uint32_t pixel;
    } cases[] = {{10, 0xFFFFFF}, {11, 0xFCF9F3}, {55, 0x7F0000}, {100, 0}, {101, 0xFFFFFF}};
    for (const auto& each : cases) {
        EXPECT_EQ(at(left, each.y), each.pixel) << each.y;
        EXPECT_EQ(at(left + 19, each.y), each.pixel) << each.y;
        EXPECT_EQ(at(left + 20, each.y), 0xFFFFFFu) << each.y;
    }
    scanMap.mapMax = 1.25f;
    scanMap.mapMin = -0.5f;
    drawScaleLabels(windows.map);
    instrumentLink.ammeterKind = kindOscilloscope;
    drawScaleLabels(windows.map);
    ASSERT_EQ(drawnTexts.size(), 4u);
    const char* const texts[] = {"1.2uA", "-0.5uA", "1.25V", "-0.50V"};
    for (size_t i = 0; i < 4; i++) {
        EXPECT_EQ(drawnTexts[i].text, texts[i]);
        EXPECT_EQ(drawnTexts[i].x, left);
        EXPECT_EQ(drawnTexts[i].y, i % 2 == 0 ? 0 : 100);
    }
}

// The most current is brightest, also where it is the least of the volts.
TEST_F(MapRenderingTest, BehindAnInvertingAmplifierTheScaleHasItsAmperes) {
    instrumentLink.ammeterKind = kindOscilloscope;
    setUp.scopeAmplifier = {.voltsPerAmpere = 1e7, .inverts = true, .offsetVolts = 1.0};
    beginMap(conditionsOf(presentPlan()));
    setRow(planePhotocurrent, 0, {1, -1, 0, 1});
    measureAll();
    scanMap.marks[3][0] = PointMark::NotMeasured;
    drawMapRow(windows.map, scanMap.maps[planePhotocurrent], 0);
    EXPECT_EQ(cells(0), (Cells{0, 0xFFFFFF, 0x7F0000, hatched}));
    drawMapWithScale(channelPhotocurrent);
    EXPECT_EQ(cells(0), (Cells{0, 0xFFFFFF, 0x7F0000, hatched}));
    ASSERT_EQ(drawnTexts.size(), 2u);
    EXPECT_EQ(drawnTexts[0].text, "200.0nA");
    EXPECT_EQ(drawnTexts[1].text, "0.0nA");
    EXPECT_STREQ(unitLabel(), "I_ph (nA)");
    setRow(planePhotocurrent, 0, {1, 1, 1, 1});
    setRow(planePhotocurrent, 1, {1, 1, 1, 1});
    drawMapWithScale(channelPhotocurrent);
    EXPECT_EQ(drawnTexts[2].text, "100.0nA") << "only the maximum moves";
}

TEST_F(MapRenderingTest, MarkerStaysInThePicture) {
    const struct {
        int x, y;
        int pixels; // green on the window afterwards
    } cases[] = {{100, 50, 4}, {0, 1027, 2}, {-1, 0, 2}, {1231, 1027, 1}, {5, -5, 0}, {5, 2000, 0}};
    for (const auto& each : cases) {
        auto& client = windows.main->client;
        std::fill(client.pixels.begin(), client.pixels.end(), 0);
        ContextHandle view = windowContext(windows.main);
        markPoint(view, each.x, each.y);
        releaseWindowContext(windows.main, view);
        EXPECT_EQ(std::count(client.pixels.begin(), client.pixels.end(), 0x00FF00u), each.pixels)
            << each.x << ' ' << each.y;
    }
}

} // namespace
