// What flows through the sample's contacts.
#include "virtual_lab/lab_state.h"

#include <algorithm>
#include <cmath>
#include <limits>

// Photocurrent for a volt of photovoltage: 0.9 uA where that is 4.6 V.
constexpr double ampsPerPhotoVolt = 0.9e-6 / 4.6;
constexpr double photoGainPerVolt = 0.1;

// Saturation currents of the left and the right contact, each blocking one direction, and the
// voltage over which they saturate.
constexpr double leftSaturation = 44e-9;
constexpr double rightSaturation = 52e-9;
constexpr double saturationVolts = 0.1;

double labDarkCurrent(double biasVolts) {
    // Far beyond saturation the exponentials would overflow.
    double v = std::clamp(biasVolts / saturationVolts, -100.0, 100.0) / 2;
    double left = leftSaturation * std::exp(v), right = rightSaturation * std::exp(-v);
    return 2 * leftSaturation * rightSaturation * std::sinh(v) / (left + right);
}

double photoCurrent(double photoVolts, double biasVolts) {
    return photoVolts * ampsPerPhotoVolt * (1 + photoGainPerVolt * std::abs(biasVolts));
}

double labPhotoCurrent(double biasVolts) {
    return photoCurrent(labPhotoVoltage(), biasVolts);
}

double expectedCurrent(double xUm, double yUm, double laserLevelVolts, double zUm,
                       double biasVolts) {
    return photoCurrent(expectedVolts(xUm, yUm, laserLevelVolts, zUm), biasVolts) +
           labDarkCurrent(biasVolts);
}

double contactCurrent(const LabSource& source, bool& limited) {
    double volts = source.on ? source.volts : 0;
    double limit = source.on ? source.limit : std::numeric_limits<double>::infinity();
    double amps = labDarkCurrent(volts) + labPhotoCurrent(volts);
    limited = std::abs(amps) > limit;
    return std::clamp(amps, -limit, limit);
}

static std::vector<LabSource> sourcesThatAreOn() {
    std::vector<LabSource> on;
    for (int i = 0; i < labInstrumentCount; ++i) {
        const auto& sourceOf = labInstrumentKinds[i].source;
        if (sourceOf && sourceOf(static_cast<LabInstrument>(i)).on)
            on.push_back(sourceOf(static_cast<LabInstrument>(i)));
    }
    return on;
}

double labBiasVolts() {
    LabLock lock;
    double volts = 0;
    for (const LabSource& source : sourcesThatAreOn()) volts += source.volts;
    return volts;
}

double labCurrentLimit() {
    LabLock lock;
    double limit = std::numeric_limits<double>::infinity();
    for (const LabSource& source : sourcesThatAreOn()) limit = std::min(limit, source.limit);
    return limit;
}

bool labOutputOn() {
    LabLock lock;
    return !sourcesThatAreOn().empty();
}

double digitizeCurrent(double amps, double range, double step) {
    amps += std::normal_distribution<double>(0, labRangeNoise * range)(lab.noise);
    return std::round(amps / step) * step;
}

double automaticRange(double amps, double smallest, double largest) {
    double range = smallest;
    while (range < largest * 0.99 && std::abs(amps) > range * rangeReach) range *= 10;
    return range;
}
