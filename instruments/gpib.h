// The GPIB instruments: a multimeter with single-letter commands and a sourcemeter. One device is
// open at a time; any failed call prints a status report to standard output and takes it offline,
// and what is called then fails until it is opened again.
#pragma once

#include "instruments/reading.h"

#include <cstddef>

bool gpibMultimeterOpen(int address); // primary address
bool gpibSourcemeterOpen(int address);

// Amperes as the instrument sends them; 0 when the reply holds no number.
Reading gpibMultimeterRead();
Reading gpibSourcemeterRead();

// Sources `voltage` (V) with the current limit `limit` (A) in the fixed 1 V and 1 uA ranges, and
// switches the output on. It says nothing of what it does not take: a refusal is what its manual
// says of these ranges.
SourceAnswer gpibSourcemeterSetUp(float voltage, float limit);
bool gpibSourcemeterIsLimited(); // the limit cuts the current now
void gpibSourcemeterOff();       // output off, device offline

// The pieces that the parameter analyzer on the bus shares.
bool gpibOpenDevice(int address);         // finds and clears the device
bool gpibWrite(const char* command);      // without terminator, then 10 ms; false on an error
bool gpibRead(char* reply, size_t count); // at most `count` bytes; false on an error
void gpibTakeOffline();                   // without a report

// Prints the status word, error code and byte count of the last call under `label`, with their
// names, and takes the device offline.
void gpibReportError(const char* label);
