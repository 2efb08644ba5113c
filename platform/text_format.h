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
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    char shortText[200];
    const int length = std::vsnprintf(shortText, sizeof shortText, format, arguments);
    std::string text(shortText);
    if (length >= static_cast<int>(sizeof shortText)) {
        text.resize(static_cast<size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    va_end(arguments);
    return text;
}

// Its line ends become blanks.
inline std::string oneLine(std::string text) {
    for (char& letter : text)
        if (letter == '\n' || letter == '\r') letter = ' ';
    return text;
}
