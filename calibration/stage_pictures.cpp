// Moves, waits, takes a picture.
#include "calibration/stage_pictures.h"

#include "camera/camera.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr uint32_t settleMs = 200; // as the wide view's fields

bool mayStandAt(const StageAxis& axis, double um) {
    const AxisRange& range = setUp.ranges[indexOf(axis)];
    const double place = ofController(axis, um);
    return place >= range.lowest && place <= range.highest;
}

std::string whyMissedXY() {
    std::string words;
    for (const StageAxis* axis : {&stageX, &stageY})
        if (axis->missed != Miss::Nothing) words += (words.empty() ? "" : ", ") + missedText(*axis);
    return words.empty() ? "The stage did not arrive" : words;
}

} // namespace

StagePictures::StagePictures(double runInUm)
    : centre{stageX.positionUm, stageY.positionUm}, runIn(runInUm) {}

bool StagePictures::mayReach(double wayXUm, double wayYUm) const {
    const double x = std::fabs(wayXUm) + runIn, y = std::fabs(wayYUm) + runIn;
    return mayStandAt(stageX, centre.x - x) && mayStandAt(stageX, centre.x + x) &&
           mayStandAt(stageY, centre.y - y) && mayStandAt(stageY, centre.y + y);
}

bool StagePictures::take(StageVector fromMiddleUm, StagePicture& into, Approach approach) {
    if (!failure.empty() || session.stopRequested) return false;
    const double x = centre.x + fromMiddleUm.x, y = centre.y + fromMiddleUm.y;
    const auto before = [&](Side side) { return side == Side::Below ? -runIn : runIn; };
    if (!moveXYTo(x + before(approach.x), y + before(approach.y), motorSpeed) ||
        !moveXYTo(x, y, motorSpeed)) {
        if (!session.stopRequested) failure = whyMissedXY();
        return false;
    }
    if (!waitUnlessStopped(settleMs)) return false;
    // A move of both ends some way beside its target.
    into.stageUm = {readPosition(stageX), readPosition(stageY)};
    refreshPositions();
    if (const std::string out = whyStageIsOut(); !out.empty()) {
        failure = out;
        return false;
    }
    into.picture = takePicture();
    if (into.picture.at.empty()) failure = "The camera gives no picture";
    return failure.empty();
}

std::string whyStageIsOut() {
    for (const StageAxis* axis : {&stageX, &stageY}) {
        const char* name = axis == &stageX ? "Stage X" : "Stage Y";
        if (axis->axisNumber == 0) return std::string(name) + " has no controller";
        if (axisIsOut(*axis)) return axisTrouble(*axis);
    }
    return {};
}

std::string whyNothingToFollow() {
    const GreyPicture first = takePicture(), second = takePicture();
    if (first.at.empty() || second.at.empty()) return "The camera gives no picture";
    return shiftBetween(first, second, {.within = 20.0}).refusal;
}

std::vector<PictureShift> shiftsOf(const std::vector<StagePicture>& pictures,
                                   const std::vector<PixelVector>& expected, double within,
                                   const BorrowedSetUp& borrowed) {
    const GreyPicture& first = pictures.front().picture;
    const auto count = static_cast<int>(pictures.size());
    const auto goesOn = [&](size_t i) {
        borrowed.tell(formatted("Comparing picture %d of %d", static_cast<int>(i), count - 1),
                      static_cast<int>(i), count);
        return waitUnlessStopped(1);
    };
    std::vector<PictureShift> shifts(1);
    // A plain search about no shift finds what has not gone with the sample. Some say it for all.
    const size_t every = std::max<size_t>(pictures.size() / 5, 1);
    size_t asked = 0, stands = 0;
    for (size_t i = 1; i < pictures.size(); ++i) {
        if (!goesOn(i)) return {};
        const GreyPicture& picture = pictures[i].picture;
        shifts.push_back(shiftBetween(
            first, picture, {.expected = expected[i], .within = within, .hasMoved = true}));
        if (i % every != 0) continue;
        ++asked;
        if (shiftBetween(first, picture, {.within = 2.0}).isFound()) ++stands;
    }
    constexpr size_t enoughPictures = 5;
    if (pictures.size() < enoughPictures || stands * 2 < asked) return shifts;
    std::vector<GreyPicture> all;
    all.reserve(pictures.size());
    for (const StagePicture& each : pictures) all.push_back(each.picture);
    const GreyPicture still = whatStandsStill(all);
    const GreyPicture clean = withoutWhatStandsStill(first, still);
    for (size_t i = 1; i < pictures.size(); ++i) {
        if (!goesOn(i)) return {};
        const PictureShift better =
            shiftBetween(clean, withoutWhatStandsStill(pictures[i].picture, still),
                         {.expected = expected[i], .within = within});
        if (better.isFound()) shifts[i] = better;
    }
    return shifts;
}
