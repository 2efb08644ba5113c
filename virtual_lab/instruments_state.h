// The state of the virtual instruments, and what the links that carry their messages ask of them.
#pragma once

#include "virtual_lab/lab.h"

#include <deque>
#include <map>
#include <string>
#include <vector>

struct LabReply {
    std::string bytes;
    double readyMs = 0;
};

// One instrument's end of its link, and what came and went over it.
struct LabInstrumentLine {
    std::deque<LabReply> output; // the last byte of each is marked as the end of the message
    std::vector<std::string> commands;
    std::vector<std::string> errors;
};

// A voltage across the contacts.
struct LabSource {
    bool on = false;
    double volts = 0;
    double limit = 1.05e-4; // A
};

// A device on the GPIB bus as a program has opened it.
struct LabGpibDevice {
    int address;
    double timeoutMs;
};

struct LabVisaObject {
    enum class Kind { Manager, List, Instrument } kind;
    uint32_t manager = 0;
    std::deque<std::string> found{}; // still to be told
    LabInstrument instrument = labInstrumentCount;
    double timeoutMs = 2000;
    bool lost = false; // the instrument has been switched off since
};

struct LabInstruments {
    LabInstrumentLine lines[labInstrumentCount];
    std::vector<LabMeasurement> measurements;

    int gpibAddresses[labInstrumentCount] = {}; // now; 0: not on the bus
    std::map<int, LabGpibDevice> gpibDevices;
    int lastDescriptor = 1023;
    std::map<uint32_t, LabVisaObject> visaObjects;
    uint32_t lastVisaObject = 0;
    std::string analyzerAddress = "192.168.0.10";
    int analyzerPort = 1225;
    bool networkLinked = false;
};

struct LabInstrumentFaults {
    bool absent = false;
    bool refused = false;
    bool stuck = false;
    bool silent = false;
    bool garbage = false;
    bool unterminated = false;
    bool longNumbers = false;
    bool overload = false;
    bool headers = false;     // scopes
    bool otherSerial = false; // the USB sourcemeter; the SR860 is an SR865A
    // Lock-ins.
    bool unlocked = false;
    bool filterOverload = false;
    bool outputOverload = false;
    bool chopperStopped = false;
    double slowMs = 0; // each answer takes so much longer
};

// One kind of instrument: what its model does, and where its links find it. What may be null has
// nothing to do.
struct LabInstrumentKind {
    const char* name; // in the fault text and the log
    void (*takes)(LabInstrument who, const std::string& message);
    void (*renew)(LabInstrument who);                     // as delivered
    void (*switchOff)(LabInstrument who) = nullptr;       // where it then keeps something
    const char* resource = nullptr;                       // on USB
    int gpibAddress = 0;                                  // as delivered; 0: not on the bus
    size_t longNumber = 120;                              // characters, where the faults want that
    void (*talks)() = nullptr;                            // puts out a reply that nobody asked for
    void (*clears)() = nullptr;                           // by the bus
    void (*hadNothingToSay)(LabInstrument who) = nullptr; // and was asked
    const LabSource& (*source)(LabInstrument who) = nullptr;
};
extern const LabInstrumentKind labInstrumentKinds[labInstrumentCount];

// Takes one line of the fault text apart that begins with `device`; false when it is none of the
// instruments'.
struct LabFaults;
bool parseInstrumentFault(const std::string& line, LabFaults& faults);

void resetInstruments();
void switchOffAbsentInstruments();

bool instrumentPresent(LabInstrument who);
extern void (*labOnCommand)(LabInstrument who, const std::string& message); // may be null

// --- For the links: they hold no lock ------------------------------------------------------------

enum class LabTransfer {
    Ended,    // with the last byte of a message
    Full,     // as many bytes as asked for, more are there
    TimedOut, // perhaps with some bytes
    Lost,     // nobody is there
};

LabTransfer sendToInstrument(LabInstrument who, const std::string& message, double timeoutMs);
LabTransfer receiveFromInstrument(LabInstrument who, void* buffer, size_t count, double timeoutMs,
                                  size_t& received);

// --- For the instruments: they run under the lock ------------------------------------------------

void multimeterTakes(LabInstrument who, const std::string& message);
void renewMultimeter(LabInstrument who);
void multimeterTalks();
void clearMultimeter();
void sourcemeterTakes(LabInstrument who, const std::string& message);
void renewSourcemeter(LabInstrument who);
void switchOffSourcemeter(LabInstrument who);
void sourcemeterHadNothingToSay(LabInstrument who);
const LabSource& sourcemeterSource(LabInstrument who);
void scopeTakes(LabInstrument who, const std::string& message);
void renewScope(LabInstrument who);
void analyzerTakes(LabInstrument who, const std::string& message);
void renewAnalyzer(LabInstrument who);
const LabSource& analyzerSource(LabInstrument who);
void sr830Takes(LabInstrument who, const std::string& message);
void renewSr830(LabInstrument who);
void switchOffSr830(LabInstrument who);
void clearSr830();
void sr860Takes(LabInstrument who, const std::string& message);
void renewSr860(LabInstrument who);
void switchOffSr860(LabInstrument who);

// Puts a reply into the output, as the faults let it.
void reply(LabInstrument who, std::string text, const char* terminator, double takesMs);
void noteError(LabInstrument who, const std::string& what, const std::string& command);
void noteMeasurement(LabInstrument who, double biasVolts, double value, bool flagged = false,
                     double lockInX = 0, double lockInY = 0);

// A current with the noise of the range, in whole steps.
double digitizeCurrent(double amps, double range, double step);

// The smallest range in decades from `smallest` that holds the current, up to `largest`.
double automaticRange(double amps, double smallest, double largest);
constexpr double rangeReach = 1.05; // of its nominal value

// What flows through the contacts at the source's voltage, as far as its limit lets it.
double contactCurrent(const LabSource& source, bool& limited);

template <class... Arguments> std::string printed(const char* format, Arguments... arguments) {
    char text[200];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}
