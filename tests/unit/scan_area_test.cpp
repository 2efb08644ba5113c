// The scan's geometry from the rectangle, the step, the view and the laser spot.
#include "camera/camera.h"
#include "camera/spot.h"
#include "mapping/scan_area.h"
#include "mapping/scan_options.h"
#include "tests/doubles/doubles.h"

namespace {

using ScanAreaTest = LabTest;

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
