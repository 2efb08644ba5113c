// The one front to every instrument: a reading, a bias, connect and disconnect, by the selected
// kind.
#pragma once

#include "instruments/kinds.h"

#include <cstdint>
#include <string>

// One reading in the unit of the selected kind: volts from the laser board's analog input (kind 0).
// 0, and never answered, for the kinds that have no instrument behind them.
Reading readPhotocurrent();

// Takes a reading into account for biasWasLimited, and says whether it is an overload; for whoever
// reads an instrument itself.
Reading noteReading(Reading reading);

// Whether the current limit cut the bias since this was last asked: a reading was at the limit, or
// the source says so now. To be asked after the last reading, while the bias is still on: at 0 V a
// source has nothing to limit.
bool biasWasLimited();

// What was wrong with a bias since this was last asked, as a text to put behind another: that the
// source did not hear one, that it refused one. Empty when it took all.
std::string biasNotTaken();

// What an operator must know of the bias after a process: biasNotTaken, and that the limit cut it
// (this asks biasWasLimited). Empty when all was well.
std::string biasTrouble();

// Puts a bias (V) with a current limit (A) on the sample; does nothing for kinds without a source.
// A source that did not take 0 V is told of in title and information text until it has, and kept in
// Options.ini for the next start.
void applyBias(double voltage, double limit);

// The same for one of many, the points of a sweep: the log of the day does not list it.
void stepBias(double voltage, double limit);

// A current limit (A) as instruments are told it: "%f" or, where that would be another one by more
// than a tenth, in powers of ten. A tenth of a microampere would else go out as 0, which a
// source does not take and which leaves it the limit of before.
std::string limitText(double amperes);

// Takes over which sources an earlier run may have left with a bias. Before they are opened.
void readBiasLeftOn();

// What is said while a source may have a bias that nobody means, because it has not taken what it
// was last told or is no longer the selected one; empty else.
std::string biasLeftOn();

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

// The row of the selected kind.
const InstrumentKind& selectedInstrument();
