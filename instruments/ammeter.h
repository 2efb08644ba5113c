// The one front to every instrument: a reading, a bias, connect and disconnect, by the selected
// kind.
#pragma once

#include "instruments/reading.h"

#include <cstdint>
#include <string>

enum EquipmentKind : int32_t {
    kindArduino = 0,
    kindNiDaq = 1,
    kindGpibMultimeter = 2,
    kindGpibSourcemeter = 3,
    kindUsbSourcemeter = 4,
    kindOscilloscope = 5,
    kindAnalyzerEthernet = 6,
    kindAnalyzerGpib = 7,
};
constexpr int equipmentKindCount = 8;
extern const wchar_t* const equipmentNames[equipmentKindCount];

struct InstrumentLink {
    int32_t ammeterKind = kindArduino;
    int32_t gpibAddress = 18; // primary address
    // The parameter analyzer: a private address that most routers leave free, and its TCP port.
    int32_t ipAddress[4] = {192, 168, 0, 10};
    int32_t kxciPort = 1225;
    int32_t gpibBoard = 0;
    int32_t gpibDevice = -1;
    uint32_t visaResourceManager = 0;
    uint32_t scopeInstrument = 0;
    float biasVoltage = 0.0f;     // V; as the dialog says
    float appliedVoltage = 0.0f;  // V; what the selected instrument was last told to put on
    float currentLimit = 0.0001f; // A
};

extern InstrumentLink instrumentLink;

// One reading in the unit of the selected kind: volts from the laser board's analog input (kind 0).
// 0 for the kinds that have no instrument behind them.
float readPhotocurrent();

// Takes a reading into account for the two below; for whoever reads an instrument itself.
Reading noteReading(Reading reading);

// Whether the last reading came from an instrument that was reached and answered with a number.
// Never for the kinds that have no instrument behind them.
bool lastReadingAnswered();

// Whether the current limit cut the bias since this was last asked: a reading was at the limit, or
// the source says so now. To be asked after the last reading, while the bias is still on: at 0 V a
// source has nothing to limit.
bool biasWasLimited();

// What an operator must know of the bias after a process, as a text to put behind another: that
// the limit cut it (this asks biasWasLimited) or that the source refused something. Empty when all
// was well.
std::string biasTrouble();

// Puts a bias (V) with a current limit (A) on the sample; does nothing for kinds without a source.
void applyBias(double voltage, double limit);

// Selects and connects `kind`, with a box that says how it went; a failure leaves the previous kind
// selected. The link of the previous kind is not closed. A bias is taken off first, over the link
// that put it on. After a failure `biasVoltage` is on again if a bias was on before; where the
// previous link has gone with the attempt, `biasVoltage` is 0 then.
void connectInstrument(int32_t kind);

// At start-up: connects the selected kind. A failure shows its box; kinds 4 to 7 then fall back to
// the laser board.
void connectInstrumentAtStart();

// Shuts the selected instrument down at exit: bias 0 V, then its output and its link.
void disconnectInstrument();

// "V_ph (V)" for the oscilloscope, "I_ph (uA)" otherwise.
const char* unitLabel();

// The true unit of a reading of `kind`, whatever the label says: "V", "uA" or "A".
const char* readingUnit(int32_t kind);
