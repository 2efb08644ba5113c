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

struct LabMultimeter {
    bool remote = false; // until then commands are not for it
    int function = 0;    // 0 volts, 3 amperes
    int range = 0;       // 0 automatic
    int rate = 2;
    bool withPrefix = true;
    std::string pending; // commands that wait for their X
};

struct LabSourcemeter {
    LabSource source;
    bool sourcesVolts = true;
    double sourceRange = 0; // V; 0 automatic
    char measures = 'I';    // or V
    double range = 0;       // A; 0 automatic
    bool sendsText = true;  // else readings go out as raw bytes
    double plc = 1;         // integration time in periods of the mains
    int count = 1;
    std::deque<int> errorQueue;
    int eventStatus = 0;
    std::string language = "SCPI";     // its command set
    std::string nextLanguage = "SCPI"; // from the next time on that it is switched on
};

struct LabScope {
    std::string type = "PERI"; // what it measures
    std::string channel = "CH1";
    bool toldNoHeader = false;
    std::deque<int> events;
};

struct LabAnalyzer {
    bool userMode = false;
    LabSource units[2];
    double integrationMs = 20;
};

// A device on the GPIB bus as a program has opened it.
struct LabGpibDevice {
    int address;
    double timeoutMs;
    bool endsWrites;  // the last byte of each write is marked as the end
    std::string held; // written, but the end is still to come
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
    LabMultimeter multimeter;
    LabSourcemeter sourcemeters[2]; // on the bus, on USB
    LabScope scopes[2];
    LabAnalyzer analyzer;

    int gpibAddresses[3] = {18, 24, 17}; // 0: not on the bus
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
    bool headers = false;     // scopes
    bool otherSerial = false; // the USB sourcemeter
};

// Takes one line of the fault text apart that begins with `device`; false when it is none of the
// instruments'.
struct LabFaults;
bool parseInstrumentFault(const std::string& line, LabFaults& faults);

void resetInstruments();
void switchOffAbsentInstruments();

bool instrumentPresent(LabInstrument who);
extern const char* const labInstrumentNames[labInstrumentCount];
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

void multimeterTakes(const std::string& message);
void multimeterTalks(); // puts the newest reading into its output
void clearMultimeter();
void sourcemeterTakes(LabInstrument who, const std::string& message);
void switchOffSourcemeter(LabInstrument who);       // what it keeps is its command set
void sourcemeterHadNothingToSay(LabInstrument who); // and was asked
void scopeTakes(LabInstrument who, const std::string& message);
void analyzerTakes(const std::string& message, const char* terminator);

// Puts a reply into the output, as the faults let it.
void reply(LabInstrument who, std::string text, const char* terminator, double takesMs);
void noteError(LabInstrument who, const std::string& what, const std::string& command);
void noteMeasurement(LabInstrument who, double biasVolts, double value);

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
