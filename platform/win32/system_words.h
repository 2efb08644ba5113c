// The operating system's own words for an error code.
#pragma once

#include <windows.h>

#include <string>

inline std::string systemWords(DWORD error) {
    char text[300] = "";
    FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0,
                   text, sizeof text, nullptr);
    std::string words = text;
    words.erase(words.find_last_not_of("\r\n .") + 1);
    return words + " (" + std::to_string(error) + ")";
}
