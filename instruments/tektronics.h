// The oscilloscope on USB, reached through VISA: its mean measurement is the photovoltage.
#pragma once

#include "instruments/reading.h"
#include "instruments/visa.h"

#include <string>

// Opens every USB instrument that is found and keeps the last one, set to measure the mean. On
// failure says why on standard error, closes what it opened and leaves the two sessions as they
// were; on success it closes the ones before. 1 or 0.
int scopeOpen(ViSession* visaResourceManager, ViSession* scopeInstrument);

// Both return whether the transfer went well; nothing calls scopeReadText. A reply longer than 30
// bytes leaves its rest to the next reading.
bool scopeWrite(ViSession session, const char* command);
bool scopeReadText(ViSession session, std::string& text);

// What the last one that was opened answered to "*idn?", without line ends.
std::string scopeIdentity();

Reading scopeRead(ViSession scopeInstrument); // volts; 0 when the reply is no number

void scopeClose(ViSession visaResourceManager); // with every session opened through it
