// The parameter analyzer, driven by its user-mode text commands over the network (its client
// library) or over GPIB.
#pragma once

#include "instruments/reading.h"

enum AnalyzerMode : int { analyzerNetwork = 0, analyzerGpib = 1 };

constexpr int analyzerReplySize = 101; // bytes of a reply with its terminating zero

// Stores the octets as the instrument's address. 1 or 0.
int paOpen(int mode, int gpibAddress, int octet1, int octet2, int octet3, int octet4, int port);

// Sends a command and reads its reply, empty when there is none. Over the network failures go
// unnoticed; over GPIB they are reported and take the device offline. False when the bus refused.
bool paSendCommand(int mode, const char* command, char (&reply)[analyzerReplySize]);

// Sources `voltage` (V) on the first unit, in its 20 V range, with the compliance `limit` (A). Not
// heard when it does not reply; refused when it answers so, or where its manual says that it takes
// less. 0 V goes out with the compliance that was last taken: with one that is refused the bias
// would stay.
SourceAnswer paApplyBias(int mode, float voltage, float limit);

// Amperes on the first unit; 0 when the reply holds no number. A reply of a measurement in
// compliance begins with a C, that of one beyond its range with a V.
Reading paRead(int mode);
void paClose(int mode);
