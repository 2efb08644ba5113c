// Adds up the readings of one point.
#include "mapping/point_reading.h"

#include <cmath>

bool PointReadings::take(const Reading& reading) {
    overloaded = reading.overloaded;
    answered = reading.answered || overloaded;
    if (overloaded) overload = reading.values;
    if (overloaded || !answered) return false;
    ++count;
    for (size_t i = 0; i < mostChannels; ++i) {
        const auto value = static_cast<double>(reading.values[i]);
        const double distance = value - mean[i];
        mean[i] += distance / count;
        squares[i] += distance * (value - mean[i]);
    }
    return true;
}

PointReading PointReadings::result() const {
    PointReading point{.means = overload, .answered = answered, .overloaded = overloaded};
    if (overloaded) return point;
    for (size_t i = 0; i < mostChannels; ++i) {
        point.means[i] = static_cast<float>(mean[i]);
        if (count > 1)
            point.deviations[i] = static_cast<float>(std::sqrt(squares[i] / (count - 1)));
    }
    return point;
}
