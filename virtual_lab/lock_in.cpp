// What the virtual lock-in amplifiers have in common: the chopped photocurrent at their inputs, the
// filter behind it, and what becomes too much on the way.
#include "virtual_lab/lock_in.h"
#include "virtual_lab/lab_state.h"
#include "virtual_lab/scpi.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <utility>

using Complex = std::complex<double>;
using std::numbers::pi;

constexpr int mostPoles = 4;
constexpr double driftHz = 0.05; // of a reference oscillator that has nothing to follow
// Where the synchronous filter and the longest time constants end: SR830 manual, LIA status byte.
constexpr double lowRangeEndHz = 203.12, highRangeBeginHz = 199.21;
constexpr double outputLimit = 1.09; // of full scale: 10.9 V where that is 10 V; SR830 manual, 2-10
constexpr double currentGains[] = {1e6, 1e8}; // V/A

struct LockIn {
    LabLockInSettings settings;
    bool watched = false; // else nobody has asked yet what it measures, and it has settled
    Complex poles[mostPoles];
    unsigned now = 0;
    unsigned seen = lockInUnlocked; // it was switched on before the chopper
    bool highRange = true;
};
static LockIn lockIns[2];
static LabLockInWiring wiring;
static double watchedMs = 0; // what the filters have seen of time
static bool following = false;

static LockIn& lockInOf(LabInstrument who) {
    return lockIns[who == labSr860];
}

static const LabInstrumentFaults& faultsOf(LabInstrument who) {
    return lab.faults.instruments[who];
}

int LockInSteps::nearest(double wanted) const {
    int best = 0;
    const auto distance = [&](int i) { return std::abs(std::log(value(i) / wanted)); };
    for (int i = 1; i < count; ++i)
        if (distance(i) < distance(best)) best = i;
    return best;
}

// --- The signal ----------------------------------------------------------------------------------

static bool takesCurrent(const LabLockInSettings& settings) {
    return settings.input >= LabLockInInput::Current1MOhm;
}

static double voltsPerAmpere(const LabLockInSettings& settings) {
    if (!takesCurrent(settings)) return wiring.amplifierVoltsPerAmpere;
    return currentGains[settings.input == LabLockInInput::Current100MOhm];
}

static double referenceHz(const LabLockInSettings& settings) {
    return settings.internalReference ? settings.internalHz : wiring.chopperHz;
}

static bool isUnlocked(LabInstrument who) {
    const LabInstrumentFaults& faults = faultsOf(who);
    return !lockInOf(who).settings.internalReference && (faults.unlocked || faults.chopperStopped);
}

// Of a square wave from 0 to 1: the rms value of a harmonic.
static double partOfHarmonic(int harmonic) {
    return harmonic % 2 == 0 ? 0 : std::numbers::sqrt2 / (pi * harmonic);
}

// A term at the filter's input, turning in the plane of X and Y.
struct Term {
    Complex amplitude; // at the time 0
    double radPerS = 0;
};

struct Input {
    Term terms[2]; // the signal, and the ripple of the multiplication
    double peak = 0;
    bool overloaded = false;
};

static Input inputOf(LabInstrument who, double amps) {
    const LabLockInSettings& settings = lockInOf(who).settings;
    const LabInstrumentFaults& faults = faultsOf(who);
    const double limit = who == labSr830 ? sr830InputLimit(settings) : settings.inputRangeVolts;
    // It is coupled through a capacitor, so half of the square wave lies on either side.
    double peak = faults.chopperStopped ? 0 : amps * voltsPerAmpere(settings) / 2;
    Input input{.peak = std::abs(peak), .overloaded = std::abs(peak) > limit || faults.overload};
    peak = std::clamp(peak, -limit, limit) * (faults.overload ? 0.5 : 1.0);

    const int h = settings.harmonic;
    const double degrees = h * wiring.signalDegrees - settings.phaseDegrees;
    const Complex amplitude = std::polar(2 * peak * partOfHarmonic(h), degrees * pi / 180);
    const double detection = 2 * pi * h * referenceHz(settings);
    double apart =
        settings.internalReference ? 2 * pi * h * (wiring.chopperHz - settings.internalHz) : 0;
    if (isUnlocked(who)) apart = 2 * pi * h * driftHz;
    const bool averaged = settings.sync && !lockInOf(who).highRange;
    input.terms[0] = {amplitude, apart};
    input.terms[1] = {averaged ? 0 : std::conj(amplitude), -2 * detection - apart};
    return input;
}

// --- The filter ----------------------------------------------------------------------------------

// What a term is behind a number of poles, settled.
static Complex settled(const Term& term, double timeS, double tauS, int poles) {
    return term.amplitude * std::polar(1.0, term.radPerS * timeS) /
           std::pow(Complex(1, term.radPerS * tauS), poles);
}

// Regularised incomplete gamma function of an integer order, as a sum without cancellation.
static double incompleteGamma(int order, double x) {
    if (x > 100) return 1;
    double term = std::exp(-x), sum = 0;
    for (int i = 1; i < order; ++i) term *= x / i;
    for (int i = order; i < order + 400; ++i) sum += term *= x / i;
    return std::min(sum, 1.0);
}

static double binomial(int n, int k) {
    double value = 1;
    for (int i = 1; i <= k; ++i) value = value * (n - k + i) / i;
    return value;
}

// White noise has passed the poles for a time: adds what of it stands behind each. The poles'
// answers to a pulse, t^(k-1) exp(-t/tau) / ((k-1)! tau^k), overlap, so their noises belong
// together: their covariances are integrals of these answers' products, and the triangular root of
// the matrix makes them of independent numbers.
static void addNoise(Complex (&poles)[mostPoles], int count, double density, double steps,
                     double tauS) {
    double root[mostPoles][mostPoles] = {};
    for (int i = 0; i < count; ++i) {
        const Complex drawn(std::normal_distribution<double>(0, 1)(lab.noise),
                            std::normal_distribution<double>(0, 1)(lab.noise));
        for (int j = i; j < count; ++j) {
            const int order = i + j + 1;
            double rest = density * density / 2 / tauS * binomial(i + j, i) / std::exp2(order) *
                          incompleteGamma(order, 2 * steps);
            for (int k = 0; k < i; ++k) rest -= root[i][k] * root[j][k];
            if (j == i)
                root[i][i] = std::sqrt(std::max(rest, 0.0));
            else if (root[i][i] > 0)
                root[j][i] = rest / root[i][i];
            poles[j] += root[j][i] * drawn;
        }
    }
}

// What stands behind the poles is what the input would settle at, and the rest of what was there
// before, which decays: of pole k as sums of those before it with s^(k-j) exp(-s) / (k-j)!, s in
// time constants. So a step is exact, however long, as long as the input's terms stay.
static void passFilter(LockIn& lockIn, const Input& input, double fromS, double stepS) {
    const double tauS = lockIn.settings.timeConstantMs / 1000;
    const double steps = stepS / tauS;
    const int count = lockIn.settings.poles;
    Complex rest[mostPoles], after[mostPoles];
    for (int k = 0; k < count; ++k) {
        rest[k] = lockIn.poles[k];
        for (const Term& term : input.terms) {
            rest[k] -= settled(term, fromS, tauS, k + 1);
            after[k] += settled(term, fromS + stepS, tauS, k + 1);
        }
        double weight = std::exp(-steps);
        for (int j = k; j >= 0; --j) {
            after[k] += weight * rest[j];
            weight *= steps / (k - j + 1);
        }
    }
    addNoise(after, count, labLockInNoise * voltsPerAmpere(lockIn.settings), steps, tauS);
    std::copy(after, after + count, lockIn.poles);
}

// --- What is too much ----------------------------------------------------------------------------

static LockInOutputs outputsOf(LabInstrument who, bool clipped) {
    const LabLockInSettings& settings = lockInOf(who).settings;
    const LabInstrumentFaults& faults = faultsOf(who);
    Complex volts = lockInOf(who).poles[settings.poles - 1];
    if (faults.filterOverload) volts *= 0.7;
    LockInOutputs outputs{volts.real(), volts.imag(), std::abs(volts), std::arg(volts) * 180 / pi};
    double* const values[] = {&outputs.x, &outputs.y, &outputs.r};
    const double limit = outputLimit * settings.sensitivityVolts;
    for (int i = 0; i < 3; ++i) {
        *values[i] -= settings.offsetPercent[i] / 100 * settings.sensitivityVolts;
        if (clipped && faults.outputOverload) *values[i] = limit;
        // The SR860's scale is one of its displays and outputs, not of what it has measured.
        if (clipped && who == labSr830) *values[i] = std::clamp(*values[i], -limit, limit);
    }
    return outputs;
}

// The gain of the filter's whole is taken to be spread evenly over its poles: behind the first ones
// as much room is left of the reserve as poles are to come. (The manual says only that the filter
// can overload and that a lower reserve helps; how its gain is spread is this model's own.)
static bool filterOverloads(const LockIn& lockIn) {
    const LabLockInSettings& settings = lockIn.settings;
    for (int k = 1; k < settings.poles; ++k) {
        const double roomDb = sr830ReserveDb(settings) * (1 - double(k) / settings.poles);
        const double room = outputLimit * settings.sensitivityVolts * std::pow(10, roomDb / 20);
        if (std::abs(lockIn.poles[k - 1]) > room) return true;
    }
    return false;
}

static void noteState(LabInstrument who, const Input& input) {
    LockIn& lockIn = lockInOf(who);
    const LabInstrumentFaults& faults = faultsOf(who);
    const LockInOutputs outputs = outputsOf(who, false);
    const double values[] = {outputs.x, outputs.y, outputs.r};
    lockIn.now = input.overloaded ? unsigned{lockInInput} : 0u;
    if (faults.filterOverload || (who == labSr830 && filterOverloads(lockIn)))
        lockIn.now |= lockInFilter;
    for (int i = 0; i < 3; ++i) {
        const double limit =
            outputLimit * lockIn.settings.sensitivityVolts / lockIn.settings.expand[i];
        if (faults.outputOverload || std::abs(values[i]) > limit)
            lockIn.now |= unsigned{lockInX} << i;
    }
    if (isUnlocked(who)) lockIn.now |= lockInUnlocked;
    lockIn.seen |= lockIn.now;
}

// --- Time ----------------------------------------------------------------------------------------

constexpr LabInstrument bothLockIns[] = {labSr830, labSr860};

static double ampsAtTime(double ms) {
    return photoCurrent(photoVoltsAtTime(ms), 0);
}

// A stage is on its way, or the light has not been on or off for long.
static bool inputChanges(double ms) {
    for (const LabMotor& motor : lab.motors)
        if (motor.pastTarget != 0 || motor.targetSteps != motor.steps) return true;
    return ms - lab.carriers.changedMs < 20 * labDecayMs;
}

void followLockIns() {
    LabLock lock;
    if (following || (!lockIns[0].watched && !lockIns[1].watched)) return;
    following = true;
    constexpr double shortMs = 1; // for which a changing input is taken as in the middle of it
    const double nowMs = labNowMs();
    for (double stepMs = 0; watchedMs < nowMs; watchedMs += stepMs) {
        stepMs = nowMs - watchedMs;
        if (inputChanges(watchedMs)) stepMs = std::min(stepMs, shortMs);
        advanceMotorsTo(watchedMs + stepMs / 2);
        for (LabInstrument who : bothLockIns) {
            if (!lockInOf(who).watched) continue;
            const Input input = inputOf(who, ampsAtTime(watchedMs + stepMs / 2));
            passFilter(lockInOf(who), input, watchedMs / 1000, stepMs / 1000);
            noteState(who, input);
        }
        advanceMotorsTo(watchedMs + stepMs);
    }
    watchedMs = nowMs;
    following = false;
}

static Input watch(LabInstrument who) {
    advanceMotors();
    LockIn& lockIn = lockInOf(who);
    const Input input = inputOf(who, ampsAtTime(labNowMs()));
    if (!lockIn.watched) {
        lockIn.watched = true;
        watchedMs = labNowMs();
        std::fill(std::begin(lockIn.poles), std::end(lockIn.poles), 0);
        passFilter(lockIn, input, watchedMs / 1000 - 1e6, 1e6);
    }
    noteState(who, input);
    return input;
}

// --- For the command sets ------------------------------------------------------------------------

LockInOutputs lockInOutputs(LabInstrument who) {
    const double peak = watch(who).peak;
    const LabLockInSettings& settings = lockInOf(who).settings;
    LockInOutputs outputs = outputsOf(who, true);
    outputs.inputPeak = peak;
    outputs.referenceHz = referenceHz(settings);
    outputs.detectionHz = settings.harmonic * outputs.referenceHz;
    if (takesCurrent(settings) && wiring.currentInputInAmperes)
        for (double* value : {&outputs.x, &outputs.y, &outputs.r})
            *value /= voltsPerAmpere(settings);
    return outputs;
}

void noteLockInMeasurement(LabInstrument who, const LockInOutputs& outputs) {
    noteMeasurement(who, 0, outputs.r, lockInNow(who) != 0, outputs.x, outputs.y);
}

unsigned lockInNow(LabInstrument who) {
    watch(who);
    return lockInOf(who).now;
}

unsigned takeLockInSeen(LabInstrument who) {
    watch(who);
    return std::exchange(lockInOf(who).seen, 0u);
}

// Above 200 Hz the longest time constants and the synchronous filter are off.
static void fit(LabInstrument who) {
    LockIn& lockIn = lockInOf(who);
    const double detectionHz = lockIn.settings.harmonic * referenceHz(lockIn.settings);
    const bool high = detectionHz > (lockIn.highRange ? highRangeBeginHz : lowRangeEndHz);
    if (high != lockIn.highRange) lockIn.seen |= lockInRange;
    lockIn.highRange = high;
    const auto fitModel = who == labSr830 ? fitSr830 : fitSr860;
    lockIn.seen |= fitModel(lockIn.settings, high ? detectionHz : 0);
}

void renewLockIn(LabInstrument who) {
    wiring = {};
    lockInOf(who) = {};
    fit(who);
}

void switchOffLockIn(LabInstrument who) {
    const LabLockInSettings settings = lockInOf(who).settings;
    lockInOf(who) = {.settings = settings};
    fit(who);
}

const LabLockInSettings& labLockInSettings(LabInstrument who) {
    return lockInOf(who).settings;
}

void setLabLockIn(LabInstrument who, const LabLockInSettings& settings) {
    LabLock lock;
    advanceMotors();
    LockIn& lockIn = lockInOf(who);
    const int before = lockIn.settings.poles;
    lockIn.settings = settings;
    fit(who);
    // A pole that was not there begins with what stands behind the last one that was.
    for (int k = before; k < mostPoles; ++k) lockIn.poles[k] = lockIn.poles[before - 1];
}

void wireLabLockIns(const LabLockInWiring& how) {
    LabLock lock;
    advanceMotors();
    wiring = how;
    for (LabInstrument who : bothLockIns) fit(who);
}

std::string executeLockInCommand(const LockInCommand* commands, size_t count,
                                 const std::string& name,
                                 const std::vector<std::string>& parameters, std::string& answer) {
    for (const LockInCommand* command = commands; command != commands + count; ++command) {
        if (name != command->name) continue;
        std::vector<int> numbers;
        for (const std::string& parameter : parameters) {
            double number = 0;
            if (!scpiNumber(parameter, number) || number != std::round(number)) return "EXE";
            numbers.push_back(static_cast<int>(number));
        }
        if (numbers.size() < command->fewest || numbers.size() > command->most) return "EXE";
        return command->execute(numbers, answer) ? "" : "EXE";
    }
    return "CMD";
}

// --- The laws ------------------------------------------------------------------------------------

LabLockInReading expectedLockIn(LabInstrument who, double xUm, double yUm, double laserLevelVolts,
                                double zUm) {
    const LabLockInSettings& settings = lockInOf(who).settings;
    const double amps = expectedCurrent(xUm, yUm, laserLevelVolts, zUm, 0);
    const double degrees = settings.harmonic * wiring.signalDegrees - settings.phaseDegrees;
    const Complex signal = std::polar(amps * partOfHarmonic(settings.harmonic), degrees * pi / 180);
    return {signal.real(), signal.imag(), std::abs(signal), std::arg(signal) * 180 / pi};
}

double expectedLockInNoise(LabInstrument who) {
    const LabLockInSettings& settings = lockInOf(who).settings;
    constexpr double bandwidths[] = {1.0 / 4, 1.0 / 8, 3.0 / 32, 5.0 / 64};
    return labLockInNoise *
           std::sqrt(bandwidths[settings.poles - 1] / (settings.timeConstantMs / 1000));
}

// A red laser. The photodiode takes all that comes back, in focus or not, and is slow enough to see
// nothing of the chopper.
static double reflectionVolts(LabPoint spot, double pwm) {
    constexpr double voltsAtMirror = 5; // at the highest level
    return voltsAtMirror * textureAt(spot.x, spot.y).red * pwm / 255;
}

double expectedReflectionVolts(double xUm, double yUm, double laserLevelVolts) {
    return reflectionVolts(
        {xUm, yUm}, std::trunc(laserLevelVolts / lab.faults.setUp.laserFullScaleVolts * 255.0));
}

double photodiodeVolts() {
    const double volts = reflectionVolts(labLaserSpotSample(), lab.board.laserPwm) +
                         std::normal_distribution<double>(0, labPhotodiodeNoiseVolts)(lab.noise);
    constexpr double auxRange = 10; // V, to either side
    return std::clamp(volts + wiring.photodiodeOffsetVolts, -auxRange, auxRange);
}
