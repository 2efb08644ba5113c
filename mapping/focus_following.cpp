// Moves Z along the plane.
#include "mapping/focus_following.h"

#include "platform/text_format.h"
#include "screen/screen.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr double mostAlongRowUm = 0.5;
constexpr double outOfFocusUm = 0.1;
constexpr double toleranceUm = 0.2; // of a move of Z
// Every place is come to from above, as at the end of the swing before the scan: the play of Z is
// then the same everywhere.
constexpr double aboveUm = 2.0;
// What Z stands beside the place that it was sent to is a hand's work from here on.
constexpr double leastByHandUm = 0.5;

// From the start, um, on the way to a place so far above it.
double farthestOnWay(double rise) {
    return std::max(std::fabs(rise), rise + aboveUm);
}

} // namespace

std::string whyNotFollowed(const ScanPlan& plan) {
    const FocusSlopes& slopes = plan.focus;
    if (!slopes.follows) return {};
    if (stageZ.axisNumber == 0 || axisIsOut(stageZ))
        return "the focus plane needs stage Z, whose controller does not answer";
    if (stageZ.placeLost) return "stage Z has lost its place, move it once before a focus plane";
    if (!planeFitsDrives()) return "the focus plane was made with other drives (Set-up)";
    const ScanArea& area = plan.area;
    const double width = (area.cols - 1) * area.scanStep, height = (area.rows - 1) * area.scanStep;
    for (const double x : {0.0, width})
        for (const double y : {0.0, height}) {
            const double rise = slopes.riseUm(area.offsetXUm + x - slopes.fromXUm,
                                              area.offsetYUm + y - slopes.fromYUm);
            if (farthestOnWay(rise) > farthestFocusUm)
                return formatted("the focus plane leads Z %.1f um from the start, %.0f are allowed",
                                 rise, farthestFocusUm);
            for (const double above : {0.0, aboveUm})
                if (std::string far = beyondLimit(stageZ, plan.homeZUm + rise + above);
                    !far.empty())
                    return "along the focus plane " + far;
        }
    return {};
}

FocusFollower::FocusFollower(const FocusSlopes& toFollow, const ArrivalTiming& arrival)
    : slopes(toFollow), timing(arrival), fromX(stageX.positionUm + toFollow.fromXUm),
      fromY(stageY.positionUm + toFollow.fromYUm), startZ(stageZ.positionUm), standsAtUm(startZ) {
    timing.standsWithinUm = toleranceUm;
}

void FocusFollower::goToRow(double firstX, double lastX, double y) {
    if (!follows()) return;
    eachPoint = std::fabs(slopes.riseUm(lastX - firstX, 0.0)) > mostAlongRowUm;
    why = Miss::Nothing;
    goTo(eachPoint ? firstX : (firstX + lastX) / 2.0, y);
}

void FocusFollower::withdrawForRow(double firstX, double lastX, double y) {
    if (follows() && targetAt((firstX + lastX) / 2.0, y) < stageZ.positionUm)
        goToRow(firstX, lastX, y);
}

void FocusFollower::goToPoint(double x, double y) {
    if (follows() && eachPoint && why == Miss::Nothing) goTo(x, y);
}

// Page Up and Page Down go on working in a scan.
void FocusFollower::takeOperatorsMoves() {
    if (!standsAtUm) return;
    const double by = stageZ.positionUm - *standsAtUm;
    if (std::fabs(by) < leastByHandUm) return;
    byOperatorUm += by;
    standsAtUm = stageZ.positionUm;
}

double FocusFollower::targetAt(double x, double y) const {
    return startZ + slopes.riseUm(x - fromX, y - fromY) + byOperatorUm;
}

void FocusFollower::goTo(double x, double y) {
    takeOperatorsMoves();
    const double target = targetAt(x, y);
    if (standsAtUm && std::fabs(target - *standsAtUm) <= outOfFocusUm) return;
    const bool tooFar = farthestOnWay(target - startZ) > farthestFocusUm;
    if (!tooFar && !stageZ.placeLost && stageZ.axisNumber != 0 && moveZ(target)) {
        standsAtUm = target;
        return takeOperatorsMoves(); // of the move's own time
    }
    why = stageZ.axisNumber == 0 ? Miss::NoController
          : stageZ.placeLost     ? Miss::PlaceLost
          : tooFar               ? Miss::BeyondLimit
                                 : stageZ.missed;
    if (why == Miss::Nothing) why = Miss::Stalled;
    standsAtUm.reset();
    showProgress("Motor range limited");
}

bool FocusFollower::moveZ(double um) {
    hasMoved = true;
    if (um > stageZ.positionUm) {
        if (!moveTo(stageZ, um + aboveUm, timing)) return false;
        // A key that came in the middle of that move.
        const double byHand = stageZ.positionUm - (um + aboveUm);
        if (std::fabs(byHand) >= leastByHandUm) um += byHand;
    }
    return moveTo(stageZ, um, timing);
}

std::optional<double> FocusFollower::homeUm() {
    takeOperatorsMoves();
    return hasMoved ? std::optional(startZ + byOperatorUm) : std::nullopt;
}
