// Keeps Z on the focus plane while a scan goes over the sample.
#pragma once

#include "mapping/scan_plan.h"
#include "motion/stage.h"
#include "session/picture_scale.h"

#include <optional>
#include <string>

// So far Z may go from where it stood at the start, um.
constexpr double farthestFocusUm = 50.0;

// Why the scan cannot follow its plane from its first to its last point; empty when it can, and
// where it follows none.
std::string whyNotFollowed(const ScanPlan& plan);

class FocusFollower {
public:
    // From where the stage stands now; `arrival` as of the scan's other moves.
    FocusFollower(const FocusSlopes& toFollow, const ArrivalTiming& arrival);

    bool follows() const { return slopes.follows; }

    // Goes where the points of a row, from `firstX` to `lastX`, are in focus: to the first of them
    // where the plane differs by more than 0.5 um along it, otherwise to the row's middle. What it
    // has missed before is tried again.
    void goToRow(double firstX, double lastX, double y);

    // The same before the stage comes to the row, where that takes the sample away from the
    // objective.
    void withdrawForRow(double firstX, double lastX, double y);

    // Along such a row as soon as the point is 0.1 um out of focus.
    void goToPoint(double x, double y);

    // Why Z does not stand where this row needs it.
    Miss missed() const { return why; }

    // The sample, and the plane with it, lies elsewhere by so much.
    void moveWith(StageVector um) {
        fromX += um.x;
        fromY += um.y;
    }

    // Where Z stands at the scan's end: as at its start but for what the operator has moved it.
    // Nothing where it was not moved along the plane.
    std::optional<double> homeUm();

private:
    double targetAt(double x, double y) const;
    void goTo(double x, double y);
    bool moveZ(double um);
    void takeOperatorsMoves();

    const FocusSlopes slopes;
    ArrivalTiming timing;
    double fromX, fromY;              // um
    const double startZ;              // um
    double byOperatorUm = 0.0;        // moved by hand meanwhile
    std::optional<double> standsAtUm; // where it was sent last; nothing where it did not come
    bool hasMoved = false;
    bool eachPoint = false;
    Miss why = Miss::Nothing;
};
