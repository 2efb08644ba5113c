// The clock of the native tests.
#include "tests/doubles/virtual_clock.h"

#include "tests/doubles/script.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

constexpr double startMs = 1'000'000.0;
constexpr double usualDeadlineMs = 2 * 3600e3;
double deadlineMs = usualDeadlineMs;

LocalTime wallTime;
static double nowMs = startMs;
static double beganMs = startMs;

double virtualNowMs() {
    return nowMs;
}

double testTimeMs() {
    return nowMs - beganMs;
}

void setVirtualTime(double ms) {
    beganMs += ms - nowMs;
    nowMs = ms;
}

void resetClock() {
    nowMs = beganMs = startMs;
    deadlineMs = usualDeadlineMs;
    wallTime = {2026, 3, 7, 14, 5};
}

LocalTime localTime() {
    return wallTime;
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

bool systemKeptAwake = false;

void keepSystemAwake(bool on) {
    systemKeptAwake = on;
}

void sleepMs(uint32_t milliseconds) {
    advanceVirtualTime(milliseconds);
}
