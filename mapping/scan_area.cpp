// Computes the scan's geometry.
#include "mapping/scan_area.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "camera/spot.h"
#include "mapping/scan_options.h"
#include "platform/truncate.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

ScanArea scanArea;

namespace {

// Fixed corrections of the laser spot's position, um.
constexpr float spotCorrectionX = 3.0f;
constexpr float spotCorrectionY = 2.0f;

constexpr int pointsPerMinute = 500;

int32_t pointsAlong(int32_t from, int32_t to, float stepPx) {
    const auto distance = static_cast<float>(std::abs(from - to));
    return truncated(distance / stepPx + 1.0f);
}

} // namespace

PixelPoint onPresentView(const ScanArea& area, double x, double y) {
    const double scale = double{1} * area.viewScale / (display.wideView ? display.wideFactor : 1);
    return {truncated(area.imageRefX + (x - area.imageRefX) * scale),
            truncated(area.imageRefY + (y - area.imageRefY) * scale)};
}

int32_t computeScanArea(ScanArea& area, PicturePoint laserSpot, bool confocal) {
    const double step = area.scanStep >= scanStepLowest ? area.scanStep : scanStepLowest;
    area.stepPx = static_cast<float>(step / area.viewScale * fieldWidthPx / fieldWidthUm);
    area.cols = pointsAlong(area.rectX1, area.rectX2, area.stepPx);
    area.rows = pointsAlong(area.rectY1, area.rectY2, area.stepPx);
    area.scanWidthUm = area.cols * fieldWidthUm / fieldWidthPx;
    area.scanHeightUm = area.rows * fieldWidthUm / fieldWidthPx;
    area.totalPoints = area.cols * area.rows;

    const int32_t longer = area.cols > area.rows ? area.cols : area.rows;
    area.cellPx = std::max(area.mapMaxPx / longer, 1);
    if (longer >= area.mapMaxPx) { // a pixel a point, whichever side is the long one
        area.mapWidthPx = area.cols;
        area.mapHeightPx = area.rows;
    } else {
        area.mapWidthPx = area.mapMaxPx * area.cols / longer;
        area.mapHeightPx = area.mapMaxPx * area.rows / longer;
    }

    area.rectLeft = std::min(area.rectX1, area.rectX2);
    area.rectBottom = std::max(area.rectY1, area.rectY2); // the smallest stage Y
    area.refToRectX = (area.rectLeft - area.imageRefX) * area.viewScale;
    area.refToRectY = -(area.rectBottom - area.imageRefY) * area.viewScale;
    // The laser's distances stay unscaled in the wide view.
    area.refToLaserX = laserSpot.x - area.imageRefX;
    area.refToLaserY = laserSpot.y - area.imageRefY;
    constexpr auto umPerPixel = static_cast<float>(fieldWidthUm) / static_cast<float>(fieldWidthPx);
    area.offsetXUm =
        static_cast<float>(area.refToRectX - area.refToLaserX) * umPerPixel + spotCorrectionX;
    area.offsetYUm =
        static_cast<float>(area.refToRectY - area.refToLaserY) * umPerPixel + spotCorrectionY;

    const int64_t readings = int64_t{area.totalPoints} * (confocal ? 2 : 1);
    area.estimatedMinutes = static_cast<int32_t>(readings / pointsPerMinute) + 2;
    return area.estimatedMinutes;
}

int32_t computeScanArea(ScanArea& area) {
    return computeScanArea(area, cameraState.laserOffset, scanSettings.confocalEnabled != 0);
}
