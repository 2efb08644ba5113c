// Mean and deviation of the readings that were answered.
#include "calibration/dark_value.h"

#include "platform/text_format.h"

#include <cmath>

DarkValue darkValueOf(const std::vector<Reading>& readings) {
    DarkValue dark;
    double sum = 0.0;
    for (const Reading& reading : readings) {
        if (!reading.answered) {
            ++dark.unanswered;
            continue;
        }
        if (reading.overloaded || isOverload(reading.value())) {
            dark.refusal = "The instrument is overloaded";
            return dark;
        }
        ++dark.readings;
        dark.values.push_back(static_cast<double>(reading.value()));
        sum += static_cast<double>(reading.value());
    }
    if (dark.readings < leastReadings || dark.readings < dark.unanswered) {
        dark.refusal = formatted("The instrument answered %d of %d readings", dark.readings,
                                 dark.readings + dark.unanswered);
        return dark;
    }
    dark.mean = sum / dark.readings;
    double squares = 0.0;
    for (const Reading& reading : readings)
        if (reading.answered)
            squares += std::pow(static_cast<double>(reading.value()) - dark.mean, 2);
    dark.deviation = std::sqrt(squares / (dark.readings - 1));
    dark.standardError = dark.deviation / std::sqrt(dark.readings);
    return dark;
}
