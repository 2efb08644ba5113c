// ASCII text as wide text, and back.
#pragma once

#include <string>
#include <string_view>

inline std::wstring widened(std::string_view text) {
    return {text.begin(), text.end()};
}

// What is not ASCII becomes a question mark.
inline std::string narrowed(std::wstring_view text) {
    std::string narrow;
    for (const wchar_t letter : text) narrow += letter < 0x80 ? static_cast<char>(letter) : '?';
    return narrow;
}
