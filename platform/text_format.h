// Formats a narrow text as printf does.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

[[gnu::format(printf, 1, 2)]] inline std::string formatted(const char* format, ...) {
    char text[600];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}
