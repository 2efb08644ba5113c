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

static LabPoint spotOfStage(double xUm, double yUm) {
    const LabPixel spot = lab.faults.setUp.spot;
    const LabPoint way = fromCentre(spot.column - labCentreColumn, spot.row - labCentreRow);
    const LabPoint acts = lab.faults.setUp.spotActsUm;
    return {xUm + way.x + acts.x, yUm + way.y + acts.y};
}

LabPoint labSampleAt(double column, double rowFromBottom) {
    LabLock lock;
    const LabPoint way = fromCentre(column - labCentreColumn, rowFromBottom - labCentreRow);
    return {labStageUm(labX) + way.x, labStageUm(labY) + way.y};
}

LabPoint labLaserSpotSample() {
    return spotOfStage(labStageUm(labX), labStageUm(labY));
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
    return responseAtTime(ms) *
           voltsAt(spotOfStage(motors[labX].carriageUm, motors[labY].carriageUm),
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
