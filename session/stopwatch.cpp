// Two stopwatches that start at their first use.
#include "session/stopwatch.h"

#include "platform/clock.h"

int intervalElapsed(bool reset, uint64_t limitMs) {
    static uint64_t start = tickCountMs();
    if (reset) {
        start = tickCountMs();
        return 1;
    }
    return tickCountMs() - start > limitMs ? 1 : 0;
}

uint64_t elapsedMs(bool reset) {
    static uint64_t start = tickCountMs();
    if (reset) {
        start = tickCountMs();
        return 0;
    }
    return tickCountMs() - start;
}
