// ASCII text as wide text.
#pragma once

#include <string>
#include <string_view>

inline std::wstring widened(std::string_view text) {
    return {text.begin(), text.end()};
}
