// The laser board: what it does with the bytes of its line, its clock and its interlock. It knows
// nothing of the chip (chip.h), so the same source is tested on the computer.
#pragma once

#include <stdbool.h>
#include <stdint.h>

// Why the laser may be dark although it was told to shine; the sum of these is in the reply to "I".
enum DarkReason {
    interlockOpen = 1,     // now
    interlockWasOpen = 2,  // while the laser was on; until it is told off
    keepAliveRanOut = 4,   // until the laser is told on or off
    boardStarted = 8,      // and no session ("z") has begun since
    laserOutputFailed = 16 // the converter did not answer; until it does
};

// At the start, outputs dark; with the chip's flags of why it starts.
void startBoard(uint8_t resetFlags);

// A byte of the line. `damaged`: it came without its stop bit, or bytes before it are lost.
void receiveByte(uint8_t byte, bool damaged);

void takeConversion(uint16_t counts); // 0..1023

void passMillisecond(void);

// The interlock is open, or was for a moment.
void openInterlock(void);
