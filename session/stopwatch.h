// Two millisecond stopwatches for timed runs.
#pragma once

#include <cstdint>

// With `reset` restarts its stopwatch and returns 1; otherwise 1 when more than `limitMs` has
// passed since the last restart, otherwise 0.
int intervalElapsed(bool reset, uint64_t limitMs);

// With `reset` restarts its stopwatch and returns 0; otherwise the milliseconds since then.
uint64_t elapsedMs(bool reset);
