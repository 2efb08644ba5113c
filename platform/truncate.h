// Numbers to integers toward zero, for any input.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

// Truncates toward zero; what does not fit becomes the nearest limit, and not-a-number becomes 0,
// so that no typed or stored number can run into undefined behaviour.
inline int32_t truncated(double value) {
    if (std::isnan(value)) return 0;
    constexpr double lowest = std::numeric_limits<int32_t>::min();
    constexpr double highest = std::numeric_limits<int32_t>::max();
    if (value <= lowest) return std::numeric_limits<int32_t>::min();
    if (value >= highest) return std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(value);
}
