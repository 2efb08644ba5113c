// The scan's geometry from the rectangle, the step, the view and the laser spot.
#include "camera/camera.h"
#include "camera/spot.h"
#include "mapping/scan_area.h"
#include "mapping/scan_options.h"
#include "tests/doubles/doubles.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

using ScanAreaTest = LabTest;

// Whichever way the camera is turned: the scan covers what was drawn, and no more than that by the
// corners of a turned rectangle; its points are shown where they are.
TEST_F(ScanAreaTest, HoldsWhatWasDrawnOnATurnedPicture) {
    const PicturePoint spot{650, 480};
    for (const bool mirrored : {false, true})
        for (const double degrees : {1.3, 90.0, 181.3, -91.0})
            for (const int32_t viewScale : {1, 3}) {
                const double turn = degrees * std::numbers::pi / 180.0, um = 0.2346;
                const double side = mirrored ? -1.0 : 1.0;
                ScanArea area;
                area.picture = {um * std::cos(turn) * side, -um * std::sin(turn),
                                um * std::sin(turn) * side, um * std::cos(turn)};
                area.viewScale = viewScale;
                area.scanStep = 0.7;
                area.rectX1 = 500, area.rectY1 = 420, area.rectX2 = 700, area.rectY2 = 560;
                computeScanArea(area, spot, false);
                const double lastX = area.offsetXUm + (area.cols - 1) * area.scanStep;
                const double lastY = area.offsetYUm + (area.rows - 1) * area.scanStep;
                const auto laserTo = [&](double column, double row) {
                    const StageVector v = area.picture.umOf(
                        {column - spot.x, row - spot.y}); // um that the stage has to go
                    return StageVector{v.x + area.correctionXUm, v.y + area.correctionYUm};
                };
                double leastX = 1e9, mostX = -1e9, leastY = 1e9, mostY = -1e9;
                for (const double x : {500.0, 700.0})
                    for (const double y : {420.0, 560.0}) {
                        const StageVector v =
                            laserTo(616 + (x - 616) * viewScale, 514 - (y - 514) * viewScale);
                        leastX = std::min(leastX, v.x), mostX = std::max(mostX, v.x);
                        leastY = std::min(leastY, v.y), mostY = std::max(mostY, v.y);
                    }
                EXPECT_NEAR(area.offsetXUm, leastX, 0.001) << degrees << mirrored;
                EXPECT_NEAR(area.offsetYUm, leastY, 0.001) << degrees << mirrored;
                EXPECT_TRUE(lastX > mostX - 0.701 && lastX <= mostX + 0.001) << degrees;
                EXPECT_TRUE(lastY > mostY - 0.701 && lastY <= mostY + 0.001) << degrees;
                const PixelPoint shown = pointOnPresentView(area, 20, 10);
                const StageVector v = laserTo(shown.x, 1028 - shown.y); // on the live picture
                EXPECT_NEAR(v.x, area.offsetXUm + 14.0, um * 2.0) << degrees;
                EXPECT_NEAR(v.y, area.offsetYUm + 7.0, um * 2.0) << degrees;
            }
}

TEST_F(ScanAreaTest, GridAndDrawnSize) {
    const struct {
        double step;
        int32_t viewScale;
        int32_t x1, y1, x2, y2;
        int32_t cols, rows, cellPx, mapWidth, mapHeight;
    } cases[] = {
        {1.0, 1, 600, 500, 900, 700, 44, 30, 8, 390, 265},
        {1.0, 1, 900, 700, 600, 500, 44, 30, 8, 390, 265}, // drawn from the other corner
        {1.0, 3, 600, 500, 900, 700, 132, 88, 2, 390, 260},
        {2.0, 1, 600, 500, 603, 700, 1, 15, 26, 26, 390}, // narrower than a step
        {5.0, 1, 10, 10, 10, 10, 1, 1, 390, 390, 390},
        {0.1, 1, 600, 500, 900, 510, 439, 15, 1, 439, 15}, // a pixel a point
        {0.1, 1, 600, 500, 610, 800, 15, 439, 1, 15, 439},
    };
    for (const auto& each : cases) {
        ScanArea area;
        area.scanStep = each.step;
        area.viewScale = each.viewScale;
        area.rectX1 = each.x1;
        area.rectY1 = each.y1;
        area.rectX2 = each.x2;
        area.rectY2 = each.y2;
        computeScanArea(area);
        EXPECT_EQ(std::tie(area.cols, area.rows, area.cellPx, area.mapWidthPx, area.mapHeightPx),
                  std::tie(each.cols, each.rows, each.cellPx, each.mapWidth, each.mapHeight))
            << each.step << ' ' << each.x2;
        EXPECT_EQ(area.totalPoints, each.cols * each.rows);
    }
}

TEST_F(ScanAreaTest, FirstPointAndDuration) {
    cameraState.laserOffset = {640, 500};
    ScanArea area;
    area.rectX1 = 900;
    area.rectY1 = 500;
    area.rectX2 = 600;
    area.rectY2 = 700;
    scanSettings.confocalEnabled = 1;
    EXPECT_EQ(computeScanArea(area), 1320 * 2 / 500 + 2);
    EXPECT_NEAR(area.offsetXUm, (-16 - 24) * 0.146104 + 3.0, 1e-4);
    EXPECT_NEAR(area.offsetYUm, (-186 + 14) * 0.146104 + 2.0, 1e-4);
    EXPECT_NEAR(area.scanWidthUm, 44 * 0.146104, 1e-4);
    scanSettings.confocalEnabled = 0;
    EXPECT_EQ(computeScanArea(area), 1320 / 500 + 2);
    area.viewScale = 3; // the laser's distance stays as it is
    computeScanArea(area);
    EXPECT_NEAR(area.offsetXUm, (-16 * 3 - 24) * 0.146104 + 3.0, 1e-4);
    EXPECT_NEAR(area.offsetYUm, (-186 * 3 + 14) * 0.146104 + 2.0, 1e-4);
}

} // namespace
