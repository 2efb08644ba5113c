// What came of asking an instrument for a value.
#pragma once

#include <cmath>

struct Reading {
    float value = 0.0f;    // 0 when no number came
    bool answered = false; // the instrument was reached and its reply held a number
    bool limited = false;  // the current was at the source's limit

    operator float() const { return value; }
};

// Whether a current is at a limit, both in amperes. A source's limit and its meter's reading
// together are accurate to better than two per cent; beyond its range a SCPI instrument answers
// 9.9e37.
inline bool isAtLimit(float amperes, float limit) {
    constexpr float beyondRange = 1e30f;
    const float size = std::fabs(amperes);
    return limit > 0.0f && size >= 0.98f * limit && size < beyondRange;
}
