// Time as the operating system gives it; virtual in the native tests.
#pragma once

#include <cstdint>

// Milliseconds since the system started; never runs backwards. On another thread than the windows'
// it moves in steps of 10 to 16 ms.
uint64_t tickCountMs();

// Blocks the thread without taking window messages.
void sleepMs(uint32_t milliseconds);

// While on, the system does not go to sleep by itself.
void keepSystemAwake(bool on);

struct LocalTime {
    int year = 2000;
    int month = 1; // 1..12
    int day = 1;   // 1..31
    int hour = 0;
    int minute = 0;
    int second = 0;
    bool operator==(const LocalTime&) const = default;
};

LocalTime localTime();
