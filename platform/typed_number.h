// Numbers as an operator types them into an edit.
#pragma once

#include "platform/decimal_point.h"
#include "platform/truncate.h"

#include <cmath>
#include <cstdio>
#include <optional>
#include <string>

// The integer that the text begins with, as "%d" takes it: of "12.7" the 12. Empty when there is
// none. Ten digits do not fit an int: read wider, so that a number that is too large stays on its
// side.
inline std::optional<int> typedInteger(const std::string& text) {
    long long value = 0;
    if (std::sscanf(text.c_str(), "%lld", &value) != 1) return {};
    return truncated(static_cast<double>(value));
}

// The number that the text begins with, as "%f" takes it; not-a-number counts as none.
inline std::optional<float> typedNumber(const std::string& text) {
    float value = 0.0f;
    keepDecimalPoint();
    if (std::sscanf(text.c_str(), "%f", &value) != 1) return {};
    if (std::isnan(value)) return {};
    return value;
}
