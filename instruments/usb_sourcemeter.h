// The Keithley 2450 sourcemeter on USB, reached through VISA.
#pragma once

// Opens the instrument, clears its errors, prints its manufacturer, switches its output off and
// sets it to source `biasVolts` and to measure current. False when it does not answer; the session
// that was open before then stays.
bool usbSourcemeterOpen(double biasVolts);

float usbSourcemeterRead(); // amperes; 0 when the reply holds no number

// Sources `voltage` (V) with the current limit `limit` (A) and switches the output on.
void usbSourcemeterSetUp(float voltage, float limit);
