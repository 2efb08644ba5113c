// Numbers as an operator types them, and as they stand in a file.
#pragma once

#include "platform/decimal_point.h"
#include "platform/truncate.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

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

// The number that is the whole text, exactly; false when it is none, or more than one.
template <class Number> bool takeExact(std::string_view text, Number& number) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

// The same of a finite one.
inline std::optional<double> exactNumber(std::string_view text) {
    double number = 0.0;
    if (!takeExact(text, number) || !std::isfinite(number)) return {};
    return number;
}

// As short as it is exact, without an exponent where the number is of a usual size.
inline std::string shortestText(double number) {
    char text[40];
    const bool plain = number == 0.0 || (std::fabs(number) >= 1e-4 && std::fabs(number) < 1e9);
    const auto format = plain ? std::chars_format::fixed : std::chars_format::general;
    return {text, std::to_chars(text, std::end(text), number, format).ptr};
}
