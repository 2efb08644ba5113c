// While one of these lives the system's timer ticks every millisecond instead of every 10 to 16.
#pragma once

#include <windows.h>

#include <mmsystem.h>

// Longer waits do not notice the coarse tick, and the fine one costs power.
constexpr unsigned longestFineWaitMs = 100;

class FineTimerPeriod {
public:
    explicit FineTimerPeriod(uint64_t waitMs)
        : active(waitMs <= longestFineWaitMs && timeBeginPeriod(1) == TIMERR_NOERROR) {}
    ~FineTimerPeriod() {
        if (active) timeEndPeriod(1);
    }
    FineTimerPeriod(const FineTimerPeriod&) = delete;
    FineTimerPeriod& operator=(const FineTimerPeriod&) = delete;

private:
    bool active;
};
