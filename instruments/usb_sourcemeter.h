// The Keithley 2450 sourcemeter on USB, reached through VISA.
#pragma once

#include "instruments/reading.h"

#include <string>

// Opens the instrument with the known serial number or, where that is not there, the first of its
// model; clears its errors, prints its manufacturer, switches its output off and sets it to source
// `biasVolts` and to measure current, one value a reading, as text. False when it does not answer
// or does not speak SCPI, which standard output then says; the session that was open before then
// stays.
bool usbSourcemeterOpen(double biasVolts);
std::string usbSourcemeterAddress(); // the set-up's VISA resource; empty of the one as ever

// The reply to "*IDN?" of the open instrument, without line ends; empty when none is open.
std::string usbSourcemeterIdentity();

Reading usbSourcemeterRead();   // amperes; 0 when the reply holds no number
bool usbSourcemeterIsLimited(); // the limit cuts the current now

// The next set-up sends everything: somebody may have been at the instrument, and at its output's
// switch.
void usbSourcemeterBeginAnew();

// Sources `voltage` (V) with the current limit `limit` (A) and switches the output on. When another
// limit or the output itself is set, or the voltage was 0 before, everything is set anew and the
// instrument is asked whether it took it; between, the voltage alone is sent. Not
// heard when a line of it did not go out, or it did not say whether it took them.
SourceAnswer usbSourcemeterSetUp(float voltage, float limit);
