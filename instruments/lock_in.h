// Lock-in amplifiers: an SR830 on the GPIB bus, an SR860 or SR865A on USB. The program sets nothing
// at them: it reads what the operator has set.
#pragma once

#include "instruments/reading.h"

#include <array>
#include <optional>
#include <string>

bool sr830Open(int address); // primary address
bool sr860Open();            // the first one that is found

// R, X and Y (rms), theta (degrees, -180 to 180) and the first auxiliary input (V), of one moment.
// The input's volts become amperes where the set-up has an amplifier's V/A or the input is one for
// currents (SR830 manual, "ISRC": 1e6 or 1e8 V/A; SR860 manual, "ICUR": the same); otherwise they
// stay volts, and `instrumentLink.inVolts` says so. Overloaded where the instrument says so of its
// input, reserve, filter or outputs, or a value is at the display's limit (SR830 manual: 1.09 of
// the sensitivity).
Reading sr830Read();
Reading sr860Read();

// R and theta of X and Y: the mean of angles is none. They stay as they are where the instrument
// takes an offset off X or Y.
void deriveLockIn(std::array<float, mostChannels>& values);

// What the operator has set, also into `instrumentLink`. Nothing where a reply did not come or is
// none of the manual's.
std::optional<InstrumentSettings> sr830Settings();
std::optional<InstrumentSettings> sr860Settings();

// Both keep what was too much until they are asked. That the SR830's filter has changed by itself
// counts for the point nevertheless.
void sr830BeginPoint();
void sr860BeginPoint();

std::string sr830Identity();
std::string sr860Identity();
void sr860Close();
