// Play: the same places from both sides.
#include "calibration/calibrations.h"
#include "calibration/stage_pictures.h"
#include "camera/live_view.h"
#include "platform/text_format.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr char processName[] = "Calibration of the play";
// Ways that surely take the play up, and what may be left of them for it.
constexpr double runInUm = 15.0, mostPlayUm = 10.0;
constexpr int rounds = 2;
// Of the places about the middle, display pixels: the picture must have moved at all of them, and
// shows much of the same.
constexpr double placesPx[] = {-200.0, -100.0, 100.0, 200.0};
constexpr int picturesOfAxis = 2 * rounds * static_cast<int>(std::size(placesPx));

// Both approaches of a place, by index into the pictures.
struct Visit {
    size_t below = 0, above = 0;
};

std::string measureAxis(const BorrowedSetUp& borrowed, bool x, AxisPlay& play) {
    const Objective& objective = setUp.objective();
    const double umPerPixel = x ? std::hypot(objective.xPerColumn, objective.xPerRow)
                                : std::hypot(objective.yPerColumn, objective.yPerRow);
    StagePictures pictures(runInUm);
    const double farthestUm = placesPx[std::size(placesPx) - 1] * umPerPixel;
    if (!pictures.mayReach(x ? farthestUm : 0.0, x ? 0.0 : farthestUm))
        return "The limits of the stage leave too little room here";
    std::vector<StagePicture> taken(1);
    if (!pictures.take({}, taken.front())) return pictures.failure;
    std::vector<Visit> visits;
    const auto come = [&](double um, Side side) {
        borrowed.tell(
            formatted("%s from %s", x ? "X" : "Y", side == Side::Below ? "below" : "above"),
            (x ? 0 : picturesOfAxis) + static_cast<int>(taken.size()) - 1, 2 * picturesOfAxis);
        Approach approach;
        (x ? approach.x : approach.y) = side;
        StagePicture there;
        const bool came = pictures.take({x ? um : 0.0, x ? 0.0 : um}, there, approach);
        if (came) taken.push_back(std::move(there));
        return came;
    };
    for (int round = 0; round < rounds; ++round)
        for (const double px : placesPx) {
            // Other places each time, so that the scatter also tells what belongs to a place.
            const double um = px * umPerPixel * (1.0 - 0.13 * round);
            if (!come(um, Side::Below) || !come(um, Side::Above)) return pictures.failure;
            visits.push_back({taken.size() - 2, taken.size() - 1});
        }

    std::vector<PixelVector> expected;
    const StageVector middle = taken.front().stageUm;
    for (const StagePicture& each : taken) {
        const PixelVector way =
            objective.pixelsOf({each.stageUm.x - middle.x, each.stageUm.y - middle.y});
        expected.push_back({-way.columns, -way.rows});
    }
    const double within = std::clamp(mostPlayUm / umPerPixel, 20.0, 90.0);
    const std::vector<PictureShift> shifts = shiftsOf(taken, expected, within, borrowed);
    if (shifts.empty()) return {};
    std::vector<PlayVisit> seen;
    std::string why;
    // How far beside its controller's word the picture saw it, um.
    const auto beside = [&](size_t i) {
        const PixelVector px{-shifts[i].px.columns, -shifts[i].px.rows};
        const StageVector um = objective.umOf(px);
        return x ? um.x - (taken[i].stageUm.x - middle.x) : um.y - (taken[i].stageUm.y - middle.y);
    };
    for (const Visit& visit : visits) {
        for (const size_t i : {visit.below, visit.above})
            if (!shifts[i].isFound()) why = shifts[i].refusal;
        if (shifts[visit.below].isFound() && shifts[visit.above].isFound())
            seen.push_back({beside(visit.below), beside(visit.above)});
    }
    play = playOf(seen, umPerPixel);
    if (!play.isFound() && !why.empty())
        play.refusal = why + ", or camera and stage must be calibrated first";
    if (play.isFound() && std::fabs(play.um) > mostPlayUm)
        play.refusal = formatted("%.1f um are more play than can be measured", play.um);
    return play.refusal;
}

Outcome measure(const CalibrationProgress& progress, PlayCalibration& result) {
    connectMissingCamera();
    BorrowedSetUp borrowed(progress);
    std::string endedBy = whyStageIsOut();
    if (endedBy.empty()) {
        borrowed.light(Lights::Lamp);
        borrowed.stageWillMove(runInUm);
        if (borrowed.letExposureSettle()) endedBy = whyNothingToFollow();
        if (endedBy.empty() && waitUnlessStopped(1))
            endedBy = measureAxis(borrowed, true, result.x);
        if (endedBy.empty() && waitUnlessStopped(1)) {
            borrowed.goBack(); // so that each axis is measured about the same place
            endedBy = measureAxis(borrowed, false, result.y);
        }
    }
    Outcome outcome = calibrationOutcome(processName, endedBy);
    borrowed.giveBack(outcome);
    return outcome;
}

} // namespace

PlayCalibration calibratePlay(const CalibrationProgress& progress) {
    PlayCalibration result;
    result.x.refusal = result.y.refusal = "Not measured";
    result.outcome = runCalibration(processName, [&] { return measure(progress, result); });
    if (result.canKeep()) result.proposedRunInUm = runInFor(result.x, result.y);
    return result;
}

std::string PlayCalibration::words() const {
    if (!canKeep()) return outcome.words();
    return formatted("Play of X %s, of Y %s, run-in of a scan %d um", x.words().c_str(),
                     y.words().c_str(), proposedRunInUm) +
           outcome.trouble();
}
