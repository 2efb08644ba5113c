// The system's tick count, refined to the millisecond, and the local time.
#include "platform/clock.h"

#include "platform/messages.h"
#include "platform/win32/timer_period.h"

#include <algorithm>

static int64_t performanceCount() {
    LARGE_INTEGER count;
    QueryPerformanceCounter(&count);
    return count.QuadPart;
}

static int64_t performanceCountsPerSecond() {
    static const int64_t frequency = [] {
        LARGE_INTEGER value;
        QueryPerformanceFrequency(&value);
        return value.QuadPart;
    }();
    return frequency;
}

// GetTickCount64 moves in steps of 10 to 16 ms.
constexpr double coarsestStepMs = 16.0;

uint64_t tickCountMs() {
    uint64_t coarse;
    int64_t count;
    do {
        coarse = GetTickCount64();
        count = performanceCount();
    } while (GetTickCount64() != coarse); // interrupted between the two readings
    // What follows is the windows' thread's; the others need no millisecond.
    if (!onWindowThread()) return coarse;

    // What the coarse count and the performance counter showed when they were last brought
    // together.
    static uint64_t anchorTick = coarse;
    static double anchorAheadMs = 0.0;
    static int64_t anchorCount = count;
    static uint64_t latest = coarse;

    double sinceAnchorMs = 1000.0 * static_cast<double>(count - anchorCount) /
                           static_cast<double>(performanceCountsPerSecond());
    double aheadMs = sinceAnchorMs + anchorAheadMs - static_cast<double>(coarse - anchorTick);
    double allowedMs = std::clamp(aheadMs, 0.0, coarsestStepMs);
    if (allowedMs != aheadMs) {
        anchorTick = coarse;
        anchorAheadMs = allowedMs;
        anchorCount = count;
    }
    latest = std::max(latest, coarse + static_cast<uint64_t>(allowedMs));
    return latest;
}

void keepSystemAwake(bool on) {
    SetThreadExecutionState(on ? ES_CONTINUOUS | ES_SYSTEM_REQUIRED : ES_CONTINUOUS);
}

void sleepMs(uint32_t milliseconds) {
    FineTimerPeriod fine(milliseconds);
    int64_t perSecond = performanceCountsPerSecond();
    int64_t deadline = performanceCount() + milliseconds * perSecond / 1000;
    // A sleep may end up to one timer tick early.
    for (int64_t left; (left = deadline - performanceCount()) > 0;) {
        Sleep(static_cast<DWORD>((left * 1000 + perSecond - 1) / perSecond));
    }
}

LocalTime localTime() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}
