// The clock of the native tests.
#include "tests/doubles/virtual_clock.h"

#include "tests/doubles/script.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

constexpr double startMs = 1'000'000.0;

static double nowMs = startMs;
static double beganMs = startMs;
static double deadlineMs = 0;
static std::time_t wallClock = 0; // local time at wallClockSetMs, as if it were UTC
static double wallClockSetMs = startMs;

double virtualNowMs() {
    return nowMs;
}

double testTimeMs() {
    return nowMs - beganMs;
}

void setVirtualTime(double ms) {
    beganMs += ms - nowMs;
    wallClockSetMs += ms - nowMs;
    nowMs = ms;
}

void setTestDeadline(double testMs) {
    deadlineMs = testMs;
}

void resetClock() {
    nowMs = beganMs = startMs;
    deadlineMs = 2 * 3600e3;
    setLocalTime({2026, 3, 7, 14, 5});
}

void setLocalTime(const LocalTime& now) {
    std::tm parts{};
    parts.tm_year = now.year - 1900;
    parts.tm_mon = now.month - 1;
    parts.tm_mday = now.day;
    parts.tm_hour = now.hour;
    parts.tm_min = now.minute;
    wallClock = timegm(&parts);
    wallClockSetMs = nowMs;
}

LocalTime localTime() {
    const auto now = wallClock + static_cast<std::time_t>((nowMs - wallClockSetMs) / 1000);
    std::tm parts{};
    gmtime_r(&now, &parts);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min};
}

void advanceVirtualTime(double ms) {
    const double end = nowMs + ms;
    do {
        nowMs = std::clamp(nextScriptTime(), nowMs, std::max(nowMs, end));
        runDueScript();
    } while (nowMs < end);
    if (testTimeMs() > deadlineMs) {
        std::fprintf(stderr, "virtual deadline passed: something waits for ever\n");
        std::abort();
    }
}

uint64_t tickCountMs() {
    return static_cast<uint64_t>(nowMs);
}

void sleepMs(uint32_t milliseconds) {
    advanceVirtualTime(milliseconds);
}
