// Adds up the readings of one point.
#include "mapping/point_reading.h"

#include <cmath>

bool PointReadings::take(const Reading& reading) {
    if (reading.overloaded) overload = reading;
    answered = reading.answered || reading.overloaded;
    unlocked |= reading.unlocked;
    unsettled |= reading.unsettled;
    auxAtLimit |= reading.auxAtLimit;
    if (reading.overloaded || !answered) return false;
    ++count;
    for (size_t i = 0; i < mostChannels; ++i) {
        const auto value = static_cast<double>(reading.values[i]);
        const double distance = value - mean[i];
        mean[i] += distance / count;
        squares[i] += distance * (value - mean[i]);
    }
    return !unlocked && !unsettled;
}

PointReading PointReadings::result() const {
    PointReading point{.means = overload.values,
                       .answered = answered,
                       .overloaded = overload.overloaded,
                       .overload = overload.overload,
                       .unlocked = unlocked,
                       .unsettled = unsettled,
                       .auxAtLimit = auxAtLimit};
    if (point.overloaded) return point;
    for (size_t i = 0; i < mostChannels; ++i) {
        point.means[i] = static_cast<float>(mean[i]);
        if (count > 1)
            point.deviations[i] = static_cast<float>(std::sqrt(squares[i] / (count - 1)));
    }
    if (kind.derive && count > 1) kind.derive(point.means);
    return point;
}
