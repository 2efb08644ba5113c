// Fits the plane.
#include "motion/focus_plane.h"

#include "platform/text_format.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>
#include <numbers>

PlaneInUse planeInUse;

namespace {

// Root mean square from the middle, across the direction in which the points reach farthest.
constexpr double leastWidthUm = 3.0;
constexpr double leastWidthToLength = 0.1;

// Sums over the points, from their middle.
struct Moments {
    double xx = 0.0, xy = 0.0, yy = 0.0, xz = 0.0, yz = 0.0;
    double determinant() const { return xx * yy - xy * xy; }
};

FocusPoint middleOf(std::span<const FocusPoint> points) {
    FocusPoint middle;
    for (const FocusPoint& point : points) {
        middle.xUm += point.xUm;
        middle.yUm += point.yUm;
        middle.zUm += point.zUm;
    }
    const auto count = static_cast<double>(points.size());
    return {middle.xUm / count, middle.yUm / count, middle.zUm / count};
}

std::string drivesNow() {
    std::string words;
    for (const AxisDrive& drive : setUp.drives)
        words += formatted("%.9g/%d%s ", drive.umPerTurn, drive.fullStepsPerTurn,
                           drive.reversed ? " reversed" : "");
    return words;
}

} // namespace

double FocusPlane::degrees() const {
    return std::atan(std::hypot(perX, perY)) * 180.0 / std::numbers::pi;
}

double FocusFit::largestUm() const {
    double largest = 0.0;
    for (const double um : residualsUm) largest = std::max(largest, std::fabs(um));
    return largest;
}

std::optional<FocusFit> fitFocusPlane(std::span<const FocusPoint> points, std::string& fault) {
    if (points.size() < 3) {
        fault = "A plane needs three foci or more";
        return {};
    }
    const FocusPoint middle = middleOf(points);
    Moments sum;
    for (const FocusPoint& point : points) {
        const double x = point.xUm - middle.xUm, y = point.yUm - middle.yUm,
                     z = point.zUm - middle.zUm;
        sum.xx += x * x;
        sum.xy += x * y;
        sum.yy += y * y;
        sum.xz += x * z;
        sum.yz += y * z;
    }
    // The squares of length and width are the eigenvalues of the moments of X and Y.
    const double half = (sum.xx + sum.yy) / 2.0;
    const double apart = std::hypot((sum.xx - sum.yy) / 2.0, sum.xy);
    const auto count = static_cast<double>(points.size());
    const double length = std::sqrt((half + apart) / count);
    const double width = std::sqrt(std::max(half - apart, 0.0) / count);
    if (!(width >= leastWidthUm && width >= leastWidthToLength * length)) {
        fault = formatted("The foci lie nearly on a line (%.0f um long, %.1f um wide): one to the "
                          "side of it is missing",
                          2.0 * length, 2.0 * width);
        return {};
    }
    FocusFit fit;
    fit.plane.perX = (sum.xz * sum.yy - sum.yz * sum.xy) / sum.determinant();
    fit.plane.perY = (sum.yz * sum.xx - sum.xz * sum.xy) / sum.determinant();
    fit.plane.through = middle;
    if (!(std::hypot(fit.plane.perX, fit.plane.perY) <= steepestSlope)) {
        fault = "The foci make a plane steeper than 45 degrees";
        return {};
    }
    for (const FocusPoint& point : points)
        fit.residualsUm.push_back(point.zUm - fit.plane.at(point.xUm, point.yUm));
    return fit;
}

std::string wordsOf(const FocusSlopes& slopes) {
    return formatted("Z %+.5f um per um along X, %+.5f along Y", slopes.perX, slopes.perY);
}

void usePlane(const FocusPlane& plane) {
    planeInUse.plane = plane;
    planeInUse.drives = drivesNow();
}

FocusSlopes slopesToFollow() {
    if (!planeInUse.plane || !planeInUse.follows) return {};
    return {true, planeInUse.plane->perX, planeInUse.plane->perY};
}

bool planeFitsDrives() {
    return planeInUse.drives == drivesNow();
}
