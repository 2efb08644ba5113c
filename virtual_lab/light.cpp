// The laser spot on the sample and the photocurrent that it makes.
#include "virtual_lab/lab_state.h"

#include <algorithm>
#include <cmath>
#include <numbers>

// At the strongest place, in focus, at an intensity of 4.0 V.
constexpr double photoVoltsAtReference = 4.6;
constexpr double referencePwm = 204;

double spotWidening(double defocusUm) {
    return std::sqrt(1 + (defocusUm / labDepthOfFocusUm) * (defocusUm / labDepthOfFocusUm));
}

double sharpnessAt(double defocusUm) {
    return 1 / (1 + (defocusUm / labDepthOfFocusUm) * (defocusUm / labDepthOfFocusUm));
}

static double voltsAt(LabPoint spot, double pwm, double zUm) {
    return photoVoltsAtReference * landscapeAt(spot.x, spot.y) * pwm / referencePwm *
           sharpnessAt(zUm - surfaceHeightAt(spot.x, spot.y));
}

LabPixel labSpotPixel() {
    LabLock lock;
    return lab.faults.setUp.spot;
}

LabPoint fromCentre(double columns, double rows) {
    const LabSetUp& setUp = lab.faults.setUp;
    if (setUp.isStraight()) return {columns * labUmPerPixel, rows * labUmPerPixel};
    const double turn = setUp.degrees * std::numbers::pi / 180;
    if (setUp.mirrored) columns = -columns;
    return {(columns * std::cos(turn) - rows * std::sin(turn)) * setUp.umPerPixel,
            (columns * std::sin(turn) + rows * std::cos(turn)) * setUp.umPerPixel};
}

LabPoint driftAtTime(double ms) {
    const double hours = std::max(0.0, ms - lab.drift.sinceMs) / 3.6e6;
    return {lab.drift.um.x + lab.faults.driftUmPerHour.x * hours + lab.faults.shiftUm.x,
            lab.drift.um.y + lab.faults.driftUmPerHour.y * hours + lab.faults.shiftUm.y};
}

LabPoint labDriftUm() {
    LabLock lock;
    return driftAtTime(labNowMs());
}

LabPoint sampleAtCentre() {
    const LabPoint drift = driftAtTime(labNowMs());
    return {labStageUm(labX) - drift.x, labStageUm(labY) - drift.y};
}

// Where the light acts when the sample at the picture's centre is this.
static LabPoint spotFrom(LabPoint centre) {
    const LabPixel spot = lab.faults.setUp.spot;
    const LabPoint way = fromCentre(spot.column - labCentreColumn, spot.row - labCentreRow);
    const LabPoint acts = lab.faults.setUp.spotActsUm;
    return {centre.x + way.x + acts.x, centre.y + way.y + acts.y};
}

LabPoint labSampleAt(double column, double rowFromBottom) {
    LabLock lock;
    const LabPoint way = fromCentre(column - labCentreColumn, rowFromBottom - labCentreRow);
    const LabPoint centre = sampleAtCentre();
    return {centre.x + way.x, centre.y + way.y};
}

LabPoint labLaserSpotSample() {
    LabLock lock;
    return spotFrom(sampleAtCentre());
}

static double responseAtTime(double ms) {
    const bool lit = lab.board.laserPwm > 0;
    const double passedMs = std::max(0.0, ms - lab.carriers.changedMs);
    const double target = lit ? 1 : 0;
    return target + (lab.carriers.population - target) *
                        std::exp(-passedMs / (lit ? labRiseMs : labDecayMs));
}

double labLightResponse() {
    LabLock lock;
    return responseAtTime(labNowMs());
}

void switchLaser(int pwm) {
    advanceMotors(); // a lock-in's filter has seen the light before it
    lab.carriers = {labLightResponse(), pwm > 0 ? pwm : lab.carriers.lastLitPwm, labNowMs()};
    lab.board.laserPwm = pwm;
}

double photoVoltsAtTime(double ms) {
    const LabMotor* motors = lab.motors;
    const LabPoint drift = driftAtTime(ms);
    return responseAtTime(ms) *
           voltsAt(spotFrom({motors[labX].carriageUm - drift.x, motors[labY].carriageUm - drift.y}),
                   lab.carriers.lastLitPwm, motors[labZ].carriageUm);
}

double labPhotoVoltage() {
    LabLock lock;
    advanceMotors();
    return photoVoltsAtTime(labNowMs());
}

double expectedVolts(double xUm, double yUm, double laserLevelVolts, double zUm) {
    return voltsAt({xUm, yUm},
                   std::trunc(laserLevelVolts / lab.faults.setUp.laserFullScaleVolts * 255.0), zUm);
}

double behindAmplifier(double voltsPerAmpere, double offsetVolts) {
    return voltsPerAmpere == 0 ? labPhotoVoltage()
                               : offsetVolts + labPhotoCurrent(0) * voltsPerAmpere;
}
