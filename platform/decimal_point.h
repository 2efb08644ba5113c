// The sign between a number's whole part and its fraction.
#pragma once

#include <clocale>

// From here on numbers are written and read with a point. A vendor's library may share the C
// library with the program and have set a locale with a comma there, in any of its calls: to be
// called by whatever is about to read a number out of a text or to write one.
inline void keepDecimalPoint() {
    if (*std::localeconv()->decimal_point != '.') std::setlocale(LC_NUMERIC, "C");
}
