// Takes the number out of an instrument's reply.
#pragma once

#include "instruments/reading.h"

#include <cstddef>

enum class ReplyKind {
    Multimeter,  // ends at a line feed
    Sourcemeter, // ends at a line feed or a vertical tab
    Analyzer,    // ends at a line feed; at most the first 100 bytes
};

// Keeps the digits, signs and points of the reply, and every E behind the first digit, up to the
// reply's end, a zero byte or `length` bytes, and reads them as one number; 0, and not answered,
// when that is none.
// Ends the program when 100 characters or more would be kept: such a reply is from no instrument
// that the program knows.
Reading extractNumber(const char* reply, size_t length, ReplyKind kind);
