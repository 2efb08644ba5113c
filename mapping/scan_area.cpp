// Computes the scan's geometry.
#include "mapping/scan_area.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "camera/spot.h"
#include "mapping/scan_options.h"
#include "motion/axis.h"
#include "motion/kept_places.h"
#include "platform/truncate.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

ScanArea scanArea;

namespace {

constexpr int pointsPerMinute = 500;

int32_t pointsAlong(float distance, float step) {
    return truncated(distance / step + 1.0f);
}

// From the picture's middle to a pixel of the view of the area, counted from the top.
PixelVector fromMiddle(const ScanArea& area, double x, double y) {
    return {(x - area.imageRefX) * area.viewScale, -(y - area.imageRefY) * area.viewScale};
}

// How far the rectangle reaches along the stage's axes from the picture's middle, um.
struct Reach {
    StageVector from, to;
};

Reach reachOf(const ScanArea& area) {
    Reach reach;
    for (const double x : {area.rectX1, area.rectX2})
        for (const double y : {area.rectY1, area.rectY2}) {
            const StageVector corner = area.picture.umOf(fromMiddle(area, x, y));
            const bool first = x == area.rectX1 && y == area.rectY1;
            reach.from = first ? corner
                               : StageVector{std::min(reach.from.x, corner.x),
                                             std::min(reach.from.y, corner.y)};
            reach.to =
                first ? corner
                      : StageVector{std::max(reach.to.x, corner.x), std::max(reach.to.y, corner.y)};
        }
    return reach;
}

// The picture's columns lie along X and its rows along Y.
void layStraight(ScanArea& area, PicturePoint laserSpot) {
    const double fieldUm = area.picture.xPerColumn * imageWidth;
    const double step = std::max(area.scanStep, scanStepLowest);
    area.stepPx = static_cast<float>(step / area.viewScale * imageWidth / fieldUm);
    const auto along = [&](int32_t from, int32_t to) {
        return pointsAlong(static_cast<float>(std::abs(from - to)), area.stepPx);
    };
    area.cols = along(area.rectX1, area.rectX2);
    area.rows = along(area.rectY1, area.rectY2);
    area.scanWidthUm = area.cols * fieldUm / imageWidth;
    area.scanHeightUm = area.rows * fieldUm / imageWidth;
    area.refToRectX = (area.rectLeft - area.imageRefX) * area.viewScale;
    area.refToRectY = -(area.rectBottom - area.imageRefY) * area.viewScale;
    // The laser's distances stay unscaled in the wide view.
    area.refToLaserX = laserSpot.x - area.imageRefX;
    area.refToLaserY = laserSpot.y - area.imageRefY;
    const auto umPerPixel = static_cast<float>(fieldUm) / static_cast<float>(imageWidth);
    area.offsetXUm = static_cast<float>(area.refToRectX - area.refToLaserX) * umPerPixel +
                     static_cast<float>(area.correctionXUm);
    area.offsetYUm = static_cast<float>(area.refToRectY - area.refToLaserY) * umPerPixel +
                     static_cast<float>(area.correctionYUm);
}

// A part that ends at a point holds it, however the corners were rounded.
int32_t pointsOver(double um, double step) {
    constexpr double rounding = 1e-3; // 59 steps of 0.7 are 41.3
    return truncated(um / step + rounding) + 1;
}

void layPlaced(ScanArea& area, PicturePoint laserSpot) {
    const double umPerColumn = area.picture.umPerColumn();
    area.viewScale = 1;
    if (area.part) {
        const double step = std::max(area.scanStep, scanStepLowest);
        area.cols = pointsOver(area.part->widthUm, step);
        area.rows = pointsOver(area.part->heightUm, step);
    }
    area.stepPx = static_cast<float>(area.scanStep / umPerColumn);
    area.scanWidthUm = area.cols * umPerColumn;
    area.scanHeightUm = area.rows * umPerColumn;
    area.refToLaserX = laserSpot.x - area.imageRefX;
    area.refToLaserY = laserSpot.y - area.imageRefY;
}

void layTurned(ScanArea& area, PicturePoint laserSpot) {
    const PictureScale& picture = area.picture;
    const Reach reach = reachOf(area);
    const double step = std::max(area.scanStep, scanStepLowest);
    area.stepPx = static_cast<float>(step / picture.umPerColumn() / area.viewScale);
    area.cols =
        pointsAlong(static_cast<float>(reach.to.x - reach.from.x), static_cast<float>(step));
    area.rows =
        pointsAlong(static_cast<float>(reach.to.y - reach.from.y), static_cast<float>(step));
    area.scanWidthUm = area.cols * picture.umPerColumn();
    area.scanHeightUm = area.rows * picture.umPerColumn();
    const PixelVector first = picture.pixelsOf(reach.from);
    area.refToRectX = first.columns;
    area.refToRectY = first.rows;
    area.refToLaserX = laserSpot.x - area.imageRefX;
    area.refToLaserY = laserSpot.y - area.imageRefY;
    const StageVector laser = picture.umOf({area.refToLaserX, area.refToLaserY});
    area.offsetXUm = reach.from.x - laser.x + area.correctionXUm;
    area.offsetYUm = reach.from.y - laser.y + area.correctionYUm;
}

} // namespace

void takeStep(ScanArea& area, double um) {
    const double wide = (area.cols - 1) * area.scanStep, high = (area.rows - 1) * area.scanStep;
    area.scanStep = um;
    if (!area.placed || area.part) return; // its columns follow from the step
    area.cols = pointsOver(wide, um);
    area.rows = pointsOver(high, um);
}

std::string whyLost(const SamplePart& part) {
    if (std::string why = whyLost(part.from); !why.empty()) return why;
    for (const auto& [axis, count] :
         {std::pair<const StageAxis&, const AxisCount&>(stageX, part.from.x),
          {stageY, part.from.y}})
        if (std::fabs(count.perUm - fullStepsOf(axis, 1.0)) > 1e-9 * std::fabs(count.perUm))
            return "the stage is driven otherwise than then (Set-up)";
    return {};
}

PixelPoint onPresentView(const ScanArea& area, double x, double y) {
    const double scale = double{1} * area.viewScale / (display.wideView ? display.wideFactor : 1);
    return {truncated(area.imageRefX + (x - area.imageRefX) * scale),
            truncated(area.imageRefY + (y - area.imageRefY) * scale)};
}

PixelPoint pointOnPresentView(const ScanArea& area, double column, double row) {
    if (area.picture.isStraight() && !area.placed)
        return onPresentView(area,
                             static_cast<double>(static_cast<float>(area.rectLeft) +
                                                 static_cast<float>(column) * area.stepPx),
                             static_cast<double>(static_cast<float>(area.rectBottom) -
                                                 static_cast<float>(row + 1) * area.stepPx));
    const StageVector laser = area.picture.umOf({area.refToLaserX, area.refToLaserY});
    const StageVector first = {area.offsetXUm - area.correctionXUm + laser.x,
                               area.offsetYUm - area.correctionYUm + laser.y};
    const PixelVector px =
        area.picture.pixelsOf({first.x + column * area.scanStep, first.y + row * area.scanStep});
    return onPresentView(area, area.imageRefX + px.columns / area.viewScale,
                         area.imageRefY - px.rows / area.viewScale);
}

int32_t computeScanArea(ScanArea& area, PicturePoint laserSpot, bool confocal) {
    area.rectLeft = std::min(area.rectX1, area.rectX2);
    area.rectBottom = std::max(area.rectY1, area.rectY2); // the smallest stage Y
    if (area.placed)
        layPlaced(area, laserSpot);
    else if (area.picture.isStraight())
        layStraight(area, laserSpot);
    else
        layTurned(area, laserSpot);
    area.isTooLarge = int64_t{area.cols} * area.rows > mostScanPoints;
    if (area.isTooLarge) area.cols = area.rows = 1;
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

    const int64_t readings = int64_t{area.totalPoints} * (confocal ? 2 : 1);
    area.estimatedMinutes = static_cast<int32_t>(readings / pointsPerMinute) + 2;
    return area.estimatedMinutes;
}

int32_t computeScanArea(ScanArea& area) {
    const Objective& objective = setUp.objective();
    area.picture = objective;
    area.correctionXUm = objective.correctionXUm;
    area.correctionYUm = objective.correctionYUm;
    if (area.part) {
        const StageVector first = stageFor(area.part->from);
        area.offsetXUm = first.x - stageX.positionUm;
        area.offsetYUm = first.y - stageY.positionUm;
    }
    return computeScanArea(area, cameraState.laserOffset, scanSettings.confocalEnabled != 0);
}

PixelPoint spotOnPresentView(double dxUm, double dyUm) {
    ScanArea area{.placed = true};
    area.offsetXUm = dxUm;
    area.offsetYUm = dyUm;
    computeScanArea(area);
    return pointOnPresentView(area, 0, 0);
}

ScanArea presentArea() {
    ScanArea area = scanArea;
    if (area.part) computeScanArea(area);
    return area;
}
