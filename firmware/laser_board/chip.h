// What the laser board's program asks of its chip. Provided by atmega328p.c, and by the tests on
// the computer.
#pragma once

#include <stdbool.h>
#include <stdint.h>

// Full level is 255; 0 is dark, whatever else fails. Returns 0, or the reason (board.h) why the
// output is dark instead.
uint8_t driveLaser(uint8_t level);
extern const char laserOutputName[];

void driveLamp(bool on);

bool interlockIsClosed(void);

// What the highest conversion stands for, 1000..5000. The supply counts as 5 V.
uint16_t referenceMillivolts(void);

// Begins to convert analog input 0..5 and drops a conversion that is under way; the result goes to
// takeConversion.
void startConversion(uint8_t input);

// Sends the bytes after those that still wait; false, and nothing is sent, without room for all.
bool sendReply(const char* bytes, uint8_t count);
