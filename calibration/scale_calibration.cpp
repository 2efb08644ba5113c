// Camera and stage: first small ways that grow, then places all around.
#include "calibration/calibrations.h"
#include "calibration/keep.h"

#include "calibration/stage_pictures.h"
#include "camera/live_view.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/picture_scale.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr char processName[] = "Calibration of camera and stage";
constexpr double runInUm = 10.0;
constexpr int placesAcross = 4; // 4 x 4 places

// The first way, um, and the longest one on which nobody has seen the picture move yet.
constexpr double firstWayUm = 2.0, longestBlindWayUm = 64.0;
// A way that the picture has clearly moved on, and one that tells where it will be on the longest.
constexpr double leastShiftPx = 8.0, surePx = 60.0;

double lengthOf(PixelVector px) {
    return std::hypot(px.columns, px.rows);
}

PixelVector scaled(PixelVector px, double by) {
    return {px.columns * by, px.rows * by};
}

class Measurement {
public:
    explicit Measurement(const BorrowedSetUp& from) : borrowed(from), pictures(runInUm) {}

    // What it is refused for; empty when `fit` has all that came of it.
    std::string run(MatrixFit& fit) {
        if (!begin() || !grow(true, alongX) || !grow(false, alongY)) return pictures.failure;
        const double wayUm = longestWay();
        if (!pictures.mayReach(wayUm, wayUm))
            return "The limits of the stage leave too little room here";
        if (!takeAround(wayUm)) return pictures.failure;
        fit = fitted();
        return fit.refusal;
    }

private:
    const BorrowedSetUp& borrowed;
    StagePictures pictures;
    StagePicture reference;
    PixelVector alongX, alongY; // what the picture moves by for a um of either axis
    std::vector<StagePicture> taken;
    std::vector<PixelVector> expected;
    static constexpr int allPictures = placesAcross * placesAcross + 8; // about

    bool fail(const std::string& why) {
        pictures.failure = why;
        return false;
    }

    // A picture that shows nothing is refused before anything moves far.
    bool begin() {
        borrowed.tell("Looking at the sample", 0, allPictures);
        if (const std::string why = whyNothingToFollow(); !why.empty()) return fail(why);
        if (!pictures.mayReach(firstWayUm, firstWayUm))
            return fail("The limits of the stage leave too little room here");
        return pictures.take({}, reference);
    }

    PixelVector expectedAt(StageVector um) const {
        return {alongX.columns * um.x + alongY.columns * um.y,
                alongX.rows * um.x + alongY.rows * um.y};
    }

    // Twice as far each time, until the picture has moved so far that the rest is known.
    bool grow(bool x, PixelVector& perUm) {
        bool seen = false;
        std::string why;
        for (double wayUm = firstWayUm;; wayUm *= 2.0) {
            if (!seen && wayUm > longestBlindWayUm) return fail(why);
            const StageVector way{x ? wayUm : 0.0, x ? 0.0 : wayUm};
            // Far enough is what fits in.
            if (!pictures.mayReach(way.x, way.y))
                return seen || fail("The limits of the stage leave too little room here");
            borrowed.tell(formatted("Moving %s by %.0f um", x ? "X" : "Y", wayUm), 1, allPictures);
            StagePicture there;
            if (!pictures.take(way, there)) return false;
            const double cameUm =
                x ? there.stageUm.x - reference.stageUm.x : there.stageUm.y - reference.stageUm.y;
            if (cameUm < wayUm / 2.0) return fail("The stage did not come so far");
            ShiftSearch search{.hasMoved = true};
            if (seen) {
                search.expected = scaled(perUm, cameUm);
                search.within = std::max(6.0, 0.3 * lengthOf(search.expected));
            }
            const PictureShift shift = shiftBetween(reference.picture, there.picture, search);
            why = shift.refusal;
            if (!shift.isFound() || lengthOf(shift.px) < leastShiftPx) {
                if (seen) return fail("The picture does not follow the stage: " + why);
                if (why.empty()) why = "The picture hardly moves with the stage";
                continue;
            }
            seen = true;
            perUm = scaled(shift.px, 1.0 / cameUm);
            // One more of these would be beyond what the picture can follow.
            if (lengthOf(shift.px) >= surePx) return true;
        }
    }

    // So far that nothing moves by more than a quarter of the picture, and the limits allow it.
    double longestWay() const {
        const PicturePart part = seenPart();
        const double columns = std::fabs(alongX.columns) + std::fabs(alongY.columns);
        const double rows = std::fabs(alongX.rows) + std::fabs(alongY.rows);
        double wayUm = std::min(part.width / 4.0 / columns, part.height / 4.0 / rows);
        const double leastUm = surePx / std::max(columns, rows);
        while (wayUm > leastUm && !pictures.mayReach(wayUm, wayUm)) wayUm *= 0.8;
        return wayUm;
    }

    bool takeAround(double wayUm) {
        taken = {reference};
        expected = {PixelVector()};
        for (int row = 0; row < placesAcross; ++row)
            for (int column = 0; column < placesAcross; ++column) {
                const int number = row * placesAcross + column;
                borrowed.tell(formatted("Place %d of %d", number + 1, placesAcross * placesAcross),
                              8 + number, allPictures);
                // Not evenly: what repeats on the stage or on the sensor must not look regular.
                const double nearer = 1.0 - 0.15 * std::fmod(0.618 * number, 1.0);
                const auto part = [&](int i) {
                    return (2.0 * i / (placesAcross - 1) - 1.0) * nearer;
                };
                StagePicture there;
                if (!pictures.take({wayUm * part(column), wayUm * part(row)}, there)) return false;
                expected.push_back(expectedAt({there.stageUm.x - reference.stageUm.x,
                                               there.stageUm.y - reference.stageUm.y}));
                taken.push_back(std::move(there));
            }
        return true;
    }

    MatrixFit fitted() const {
        double farthest = 0.0;
        for (const PixelVector px : expected) farthest = std::max(farthest, lengthOf(px));
        const std::vector<PictureShift> shifts =
            shiftsOf(taken, expected, std::max(10.0, 0.08 * farthest), borrowed);
        std::vector<MeasuredPlace> places;
        std::string why;
        for (size_t i = 1; i < shifts.size(); ++i) {
            if (shifts[i].isFound())
                places.push_back({taken[i].stageUm, shifts[i].px});
            else
                why = shifts[i].refusal;
        }
        MatrixFit fit = fitMatrix(places);
        if (!fit.isFound() && places.size() < leastPlaces && !why.empty()) fit.refusal = why;
        return fit;
    }
};

Outcome measure(const CalibrationProgress& progress, MatrixFit& fit) {
    fit.refusal = "Not measured";
    connectMissingCamera();
    BorrowedSetUp borrowed(progress);
    std::string endedBy = whyStageIsOut();
    if (endedBy.empty()) {
        borrowed.light(Lights::Lamp);
        borrowed.stageWillMove(runInUm);
        if (borrowed.letExposureSettle()) endedBy = Measurement(borrowed).run(fit);
    }
    Outcome outcome = calibrationOutcome(processName, endedBy);
    if (!endedBy.empty()) fit.refusal = endedBy;
    borrowed.giveBack(outcome);
    return outcome;
}

} // namespace

ScaleCalibration calibrateScale(const CalibrationProgress& progress) {
    ScaleCalibration result;
    result.outcome = runCalibration(processName, [&] { return measure(progress, result.fit); });
    if (result.outcome.end == ProcessEnd::Declined) result.fit.refusal = result.outcome.lastWords;
    return result;
}

std::string ScaleCalibration::words() const {
    return fit.isFound() ? fit.words() + outcome.trouble() : outcome.words();
}

std::string keep(const ScaleCalibration& result) {
    if (!result.canKeep()) return "There is nothing to keep";
    SetUp changed = setUp;
    static_cast<PictureScale&>(changed.objective()) = result.fit.matrix;
    return keepMeasured(changed);
}
