// The prefix of a unit that makes numbers of one to three digits before the point.
#pragma once

#include <algorithm>
#include <cmath>
#include <string>

struct PrefixedUnit {
    double factor = 1.0; // of the plain unit
    std::string name;    // "nA"
};

// For numbers as large as that; angles, 0 and what a prefix would mean otherwise ("m^2", "kg") keep
// the plain unit.
inline PrefixedUnit prefixedUnit(double largest, const std::string& unit) {
    constexpr struct {
        double factor;
        const char* letter;
    } prefixes[] = {{1e6, "M"},  {1e3, "k"},  {1.0, ""},    {1e-3, "m"},
                    {1e-6, "u"}, {1e-9, "n"}, {1e-12, "p"}, {1e-15, "f"}};
    const double size = std::fabs(largest);
    const bool isSymbol =
        unit != "kg" && std::all_of(unit.begin(), unit.end(), [](char letter) {
            return (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z');
        });
    if (!isSymbol || unit == "deg" || unit.empty() || size == 0.0 || !std::isfinite(size))
        return {1.0, unit};
    for (const auto& prefix : prefixes)
        if (size >= 0.99995 * prefix.factor) return {prefix.factor, prefix.letter + unit};
    return {1e-15, "f" + unit};
}
