// Formats a narrow text as printf does, with a point in its numbers.
#pragma once

#include "platform/decimal_point.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string>

// Cut where the array is too short.
template <size_t capacity>
[[gnu::format(printf, 2, 3)]] void formatInto(char (&text)[capacity], const char* format, ...) {
    keepDecimalPoint();
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, capacity, format, arguments);
    va_end(arguments);
}

[[gnu::format(printf, 1, 2)]] inline std::string formatted(const char* format, ...) {
    keepDecimalPoint();
    char text[600];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}
