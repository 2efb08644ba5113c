// Laser spot: an exposure that shows it without saturation, then its centroid in several pictures.
#include "calibration/calibrations.h"
#include "calibration/keep.h"
#include "camera/live_view.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/session_state.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr char processName[] = "Calibration of the laser spot";
constexpr int picturesOfSpot = 5, mostTries = 16;
constexpr double longestExposureUs = 1e6, shortestExposureUs = 1.0;
// Grey levels of a spot that is bright enough; from here on the next picture may be saturated.
constexpr double brightEnough = 60.0;
constexpr int32_t mostSaturated = 8; // pixels: hot ones are no saturated spot

bool takeSpot(SpotFound& spot) {
    if (takePicture().at.empty()) return false;
    spot = findSpot(cameraImage.pixels.get(), imageWidth, seenPart());
    return true;
}

// Until the spot is seen and not saturated. What is wrong otherwise.
std::string findExposure(const BorrowedSetUp& borrowed, SpotCalibration& result) {
    double us = std::max(adjustmentOf(cameraState).exposureUs, shortestExposureUs);
    double tooLong = longestExposureUs * 2.0, tooShort = 0.0;
    for (int i = 0; i < mostTries; ++i) {
        borrowed.tell(formatted("Exposure %.0f us", us), i, mostTries + picturesOfSpot);
        const double taken = holdExposure(cameraState, us);
        // The first frame may have begun before.
        if (!waitUnlessStopped(50) || !takeSpot(result.spot) || !takeSpot(result.spot))
            return session.stopRequested ? "" : "The camera gives no picture";
        result.exposureUs = taken;
        const SpotFound& spot = result.spot;
        const bool saturated = spot.saturatedPixels > mostSaturated;
        if (!saturated && spot.isFound() && spot.peak >= brightEnough) return {};
        (saturated ? tooLong : tooShort) = us;
        const double next = tooLong <= longestExposureUs && tooShort > 0.0
                                ? std::sqrt(tooLong * tooShort)
                            : saturated ? us / 4.0
                                        : std::min(us * 4.0, longestExposureUs);
        // No other one is left, or the camera has none.
        if (next < shortestExposureUs || (saturated && taken > 1.5 * us))
            return "The spot is saturated at the shortest exposure: lower the laser intensity";
        if (!saturated && (us >= longestExposureUs || taken < us / 1.5 || tooLong / us < 1.1))
            return spot.refusal; // faint, but there
        us = next;
    }
    return result.spot.saturatedPixels > mostSaturated
               ? "The spot is saturated, or there is other light"
               : result.spot.refusal;
}

std::string measureSpot(BorrowedSetUp& borrowed, SpotCalibration& result) {
    std::string why = findExposure(borrowed, result);
    if (!why.empty() || session.stopRequested) return why;
    // What is there without the laser as well is none of its.
    SpotFound dark;
    borrowed.light(Lights::Dark);
    if (!waitUnlessStopped(100)) return {};
    if (!takeSpot(dark)) return "The camera gives no picture";
    if (dark.isFound() && dark.peak > 0.2 * result.spot.peak)
        return "There is other light on the picture";
    borrowed.light(Lights::Laser);
    if (!waitUnlessStopped(100)) return {};
    onlyTheLaserShone(); // from here on
    std::vector<SpotFound> spots;
    for (int i = 0; i < picturesOfSpot; ++i) {
        borrowed.tell(formatted("Picture %d of %d", i + 1, picturesOfSpot), mostTries + i,
                      mostTries + picturesOfSpot);
        SpotFound spot;
        if (!takeSpot(spot)) return "The camera gives no picture";
        if (!spot.isFound()) return spot.refusal;
        spots.push_back(spot);
        if (!waitUnlessStopped(50)) return {};
    }
    if (!onlyTheLaserShone()) return "The laser did not shine alone";
    SpotFound& mean = result.spot;
    const auto count = static_cast<double>(spots.size());
    mean.place = {};
    mean.radiusPx = 0.0;
    for (const SpotFound& spot : spots) {
        mean.place.columns += spot.place.columns / count;
        mean.place.rows += spot.place.rows / count;
        mean.radiusPx += spot.radiusPx / count;
        mean.cutByEdge |= spot.cutByEdge;
    }
    double squares = 0.0;
    for (const SpotFound& spot : spots)
        squares += std::pow(spot.place.columns - mean.place.columns, 2) +
                   std::pow(spot.place.rows - mean.place.rows, 2);
    // A spot that wanders, and one that is lopsided.
    mean.uncertaintyPx = std::hypot(std::sqrt(squares / (count - 1.0)), mean.uncertaintyPx);
    if (mean.cutByEdge) return "The edge of the picture cuts the spot";
    result.proposedAperture = std::max(1, static_cast<int32_t>(std::lround(mean.radiusPx)));
    return {};
}

Outcome measure(const CalibrationProgress& progress, SpotCalibration& result) {
    connectMissingCamera();
    BorrowedSetUp borrowed(progress);
    const bool bright = laserDriveOf(laserLink.laserLevel) > 0;
    std::string endedBy = bright ? "" : "The laser intensity is 0";
    if (bright && cameraState.connected) {
        borrowed.light(Lights::Laser);
        if (waitUnlessStopped(200)) endedBy = measureSpot(borrowed, result);
    } else if (bright) {
        endedBy = "There is no camera";
    }
    if (!whyLaserIsDark().empty()) // before what the dark picture has to say
        endedBy = "The laser is dark: " + whyLaserIsDark();
    Outcome outcome = calibrationOutcome(processName, endedBy);
    if (!endedBy.empty()) result.spot.refusal = endedBy;
    borrowed.giveBack(outcome);
    return outcome;
}

} // namespace

SpotCalibration calibrateSpot(const CalibrationProgress& progress) {
    SpotCalibration result;
    result.spot.refusal = "Not measured";
    result.outcome = runCalibration(processName, [&] { return measure(progress, result); });
    return result;
}

std::string SpotCalibration::words() const {
    if (!canKeep()) return outcome.words();
    std::string text = formatted(
        "Laser spot at column %.1f, row %.1f (+- %.2f), radius %.1f pixels, aperture %d",
        spot.place.columns, spot.place.rows, spot.uncertaintyPx, spot.radiusPx, proposedAperture);
    if (spot.uncertaintyPx > 1.0) text += "; it is lopsided: is it on an edge of the sample?";
    return text + outcome.trouble();
}

std::string keep(const SpotCalibration& result) {
    if (!result.canKeep()) return "There is nothing to keep";
    cameraState.laserOffset = {static_cast<int32_t>(std::lround(result.spot.place.columns)),
                               static_cast<int32_t>(std::lround(result.spot.place.rows))};
    cameraState.cameraAperture = result.proposedAperture;
    if (setUp.objectives.size() == 1 && !setUp.objective().hasSpot()) return {};
    SetUp changed = setUp;
    changed.objective().spotColumn = cameraState.laserOffset.x;
    changed.objective().spotRow = cameraState.laserOffset.y;
    return keepMeasured(changed);
}
