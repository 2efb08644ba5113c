// Calls the calibrations and shows what they found.
#include "ui/calibrate.h"

#include "calibration/calibrations.h"
#include "camera/camera.h"
#include "instruments/kinds.h"
#include "mapping/scan_area.h"
#include "mapping/scan_options.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/set_up.h"
#include "ui/calibration_window.h"
#include "ui/set_up_change.h"
#include "ui/set_up_draft.h"

#include <string>
#include <utility>
#include <vector>

namespace {

void tellProgress(const std::string& words, int done, int of) {
    showProgress(words.c_str());
    showTaskbarProgress(of > 0 ? 100 * done / of : 0);
}

void endProgress() {
    showProgress("");
    showTaskbarProgress(-1);
}

// What is in view when the calibration has just ended.
std::vector<uint32_t> lastPicture() {
    return cameraState.connected ? smallPicture(cameraImage) : std::vector<uint32_t>();
}

constexpr PixelVector middle{imageWidth / 2.0, imageHeight / 2.0};

void addAxes(CalibrationView& view, const PictureScale& scale, const std::string& x,
             const std::string& y) {
    constexpr double lengthPx = 300.0;
    for (const auto& [way, name] : {std::pair(StageVector{1.0, 0.0}, x), {{0.0, 1.0}, y}})
        for (CalibrationMark& mark : arrowAlong(scale, way, middle, lengthPx, name))
            view.marks.push_back(std::move(mark));
}

// Shows what came to an end by itself, also where nothing was found.
template <class Result>
void show(const Result& result, CalibrationView view, std::function<void()> keep) {
    endProgress();
    if (!windows.main || result.outcome.end != ProcessEnd::Finished) return;
    view.lines.insert(view.lines.begin(), result.words());
    if (result.canKeep()) view.keep = std::move(keep);
    logEvent(view.caption + ": " + result.words());
    showCalibration(std::move(view));
}

// The readings from left to right, with their mean and what is within their noise.
std::vector<CalibrationMark> plotOf(const DarkValue& dark, const std::string& unit) {
    constexpr double left = 60.0, width = 900.0, highPx = 120.0;
    std::vector<CalibrationMark> marks;
    const auto row = [&](double value) {
        return middle.rows +
               (dark.deviation > 0.0 ? (value - dark.mean) / dark.deviation : 0.0) * highPx;
    };
    const auto count = static_cast<double>(dark.values.size());
    for (size_t i = 0; i < dark.values.size(); ++i) {
        const PixelVector at{left + width * (static_cast<double>(i) + 0.5) / count,
                             row(dark.values[i])};
        marks.push_back({at, at, 5.0, {}});
    }
    for (const int noises : {-1, 0, 1}) {
        const double value = dark.mean + noises * dark.deviation;
        marks.push_back({{left, row(value)},
                         {left + width, row(value)},
                         0.0,
                         formatted("%.4g %s", value, unit.c_str())});
        if (dark.deviation == 0.0) break;
    }
    return marks;
}

// Where something is found, what it replaces.
std::string scaleInForce() {
    const ScaleWords words = scaleWords(setUp.objective());
    return "In force now: " + words.scale + "; " + words.turn;
}

} // namespace

void calibrateCameraAndStage() {
    const ScaleCalibration result = calibrateScale(tellProgress);
    CalibrationView view{"Camera and stage", {}, lastPicture(), {}, {}};
    if (result.canKeep()) {
        addAxes(view, result.fit.matrix, "X", "Y");
        view.lines = {
            scaleInForce(),
            "The arrows show which way X and Y of the stage count on the picture. \"Keep\" "
            "makes it the scale of the objective in use; a scan area is taken away."};
    }
    show(result, std::move(view), [&] {
        const SetUp before = setUp;
        tellSetUpTaken(before, keep(result));
    });
}

void calibratePlayOfStage() {
    const PlayCalibration result = calibratePlay(tellProgress);
    CalibrationView view{"Play", {}, lastPicture(), {}, {}};
    if (result.canKeep()) {
        addAxes(view, setUp.objective(), formatted("X: %.2f um", result.x.um),
                formatted("Y: %.2f um", result.y.um));
        const int32_t now = scanSettings.options.runInUm;
        view.lines = {"Run-in of a scan now: " + (now == 0 ? "one step" : formatted("%d um", now)),
                      "\"Keep\" puts the proposed run-in into the scan options."};
    }
    show(result, std::move(view), [&] {
        scanSettings.options.runInUm = result.proposedRunInUm;
        const std::string words = formatted("Run-in of a scan: %d um", result.proposedRunInUm) +
                                  (writeScanOptions() ? "" : ", Options.ini could not be written");
        logEvent(words);
        showInformation(words.c_str());
    });
}

void calibrateLaserSpot() {
    const SpotCalibration result = calibrateSpot(tellProgress);
    CalibrationView view{"Laser spot", {}, lastPicture(), {}, {}};
    if (result.canKeep()) {
        const PixelVector place = result.spot.place;
        view.marks.push_back({place, place, result.spot.radiusPx, "spot"});
        view.lines = {formatted("In force now: column %d, row %d, aperture %d",
                                cameraState.laserOffset.x, cameraState.laserOffset.y,
                                cameraState.cameraAperture),
                      "\"Keep\" takes place and aperture."};
    }
    show(result, std::move(view), [&] {
        const std::string trouble = keep(result);
        computeScanArea(scanArea); // begins at the spot
        const std::string words =
            formatted("Laser spot: column %d, row %d, aperture %d", cameraState.laserOffset.x,
                      cameraState.laserOffset.y, cameraState.cameraAperture) +
            (trouble.empty() ? "" : "; " + trouble);
        logEvent(words);
        showInformation(words.c_str());
    });
}

void calibrateDarkValue() {
    const DarkCalibration result = calibrateDark(tellProgress);
    CalibrationView view{"Dark value", {}, {}, {}, {}};
    if (result.dark.isFound()) view.marks = plotOf(result.dark, result.unit);
    const CurrentAmplifier& amplifier =
        result.kind == kindArduino ? setUp.boardAmplifier : setUp.scopeAmplifier;
    if (result.canKeep())
        view.lines = {"\"Keep\" makes it the offset of the amplifier before the instrument."};
    if (result.canKeep() && !amplifier.isKnown())
        view.lines.emplace_back("Its V/A are not in the set-up: until they are, nothing uses it.");
    if (!result.canKeep() && result.dark.isFound())
        view.lines = {"The set-up has no amplifier before this instrument whose offset it could "
                      "be: there is nothing to keep."};
    show(result, std::move(view), [&] {
        const SetUp before = setUp;
        tellSetUpTaken(before, keep(result));
    });
}
