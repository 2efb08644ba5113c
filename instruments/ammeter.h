// The one front to every instrument: a reading, a bias (bias.h), connect and disconnect, by the
// selected kind.
#pragma once

#include "instruments/bias.h"
#include "instruments/kinds.h"

#include <cstdint>
#include <string>

// One reading in the unit of the selected kind: volts from the laser board's analog input (kind 0).
// 0, and never answered, for the kinds that have no instrument behind them.
Reading readPhotocurrent();

// The same of any kind, whichever is selected.
Reading readInstrument(const InstrumentKind& kind);

// Selects and connects `kind`, with a box that says how it went; a failure leaves the previous kind
// selected. The link of the previous kind is not closed. A bias is taken off first, over the link
// that put it on. After a failure `biasVoltage` is on again if a bias was on before; where the
// previous link has gone with the attempt, `biasVoltage` is 0 then.
void connectInstrument(int32_t kind);

// At start-up: connects the selected kind. A failure shows its box; kinds 4 to 7 then fall back to
// the laser board. One that an earlier run may have left with a bias gets 0 V at once.
void connectInstrumentAtStart();

// Shuts the selected instrument down at exit: bias 0 V, then its output and its link.
void disconnectInstrument();

// Asks the selected instrument what somebody has set at it, into `instrumentLink`. False when it
// does not say; true where there is nothing to ask.
bool askSettings();

// "sync off became sync on": of two lists of what is kept the parts in which they differ.
std::string settingsDifference(const std::string& before, const std::string& now);

// How long its filter takes for so much of a step, ms; `percent` below 100; 0 without a filter. And
// how much of one has passed after a time. Of n equal poles 1 - exp(-t) (1 + t + ... + t^(n-1) /
// (n-1)!) has after t time constants.
double settlingMs(const InstrumentSettings& settings, double percent);
double settledPercent(const InstrumentSettings& settings, double ms);

// The row of the selected kind.
const InstrumentKind& selectedInstrument();
