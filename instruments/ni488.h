// Our declarations of the part of the GPIB library that is used.
#pragma once

#include <cstddef>

constexpr unsigned long gpibErrorBit = 0x8000; // in the status word
constexpr int gpibTimeout10s = 13;             // time-out code of ten seconds
constexpr unsigned long gpibDriverError = 0;   // error code EDVR

// The functions, as found in the library. Without it every call fails as the driver does that is
// not there: status ERR, error EDVR, no byte moved.
struct Ni488 {
    int (*ibdev)(int board, int pad, int sad, int tmo, int eot,
                 int eos) = [](int, int, int, int, int, int) { return -1; };
    unsigned long (*ibclr)(int) = [](int) { return gpibErrorBit; };
    unsigned long (*ibwrt)(int, const void*, size_t) = [](int, const void*, size_t) {
        return gpibErrorBit;
    };
    unsigned long (*ibrd)(int, void*, size_t) = [](int, void*, size_t) { return gpibErrorBit; };
    unsigned long (*ibonl)(int, int) = [](int, int) { return gpibErrorBit; };
    unsigned long (*ThreadIbsta)() = [] { return gpibErrorBit; };
    unsigned long (*ThreadIberr)() = [] { return gpibDriverError; };
    unsigned long (*ThreadIbcnt)() = [] { return 0ul; };
};

// Loads ni4882.dll.
Ni488 loadNi488();
