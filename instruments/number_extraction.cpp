// Walks a reply and keeps what belongs to a number.
#include "instruments/number_extraction.h"

#include "platform/decimal_point.h"
#include "session/forced_end.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr size_t workCapacity = 100; // with the terminating zero
constexpr size_t analyzerReach = 100;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool endsReply(char c, ReplyKind kind) {
    return c == '\n' || (c == '\v' && kind == ReplyKind::Sourcemeter);
}

} // namespace

Reading extractNumber(const char* reply, size_t length, ReplyKind kind) {
    if (kind == ReplyKind::Analyzer) length = std::min(length, analyzerReach);
    char kept[workCapacity] = {};
    size_t count = 0;
    bool digitSeen = false;
    for (size_t i = 0; i < length && reply[i] != '\0' && !endsReply(reply[i], kind); ++i) {
        const char c = reply[i];
        digitSeen = digitSeen || isDigit(c);
        const bool keep = isDigit(c) || c == '+' || c == '-' || c == '.' || (digitSeen && c == 'E');
        if (!keep) continue;
        if (count + 1 >= workCapacity) endProgram("number in a reply too long");
        kept[count++] = c;
    }
    Reading reading;
    keepDecimalPoint();
    reading.answered = std::sscanf(kept, "%f", &reading.values[0]) == 1;
    return reading;
}
