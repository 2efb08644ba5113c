// The two sourcemeters, one on the GPIB bus and one on USB: SCPI, a voltage source with a limit, a
// current meter with ranges, an error queue. Numbers and texts of the errors are those of the SCPI
// standard, the rest is from the instrument's reference manual.
#include "virtual_lab/lab_state.h"
#include "virtual_lab/scpi.h"

#include <cmath>

constexpr double overflow = 9.9e37; // "When an overrange condition occurs", the manual says
constexpr double smallestAmps = 1e-8, largestAmps = 1;
constexpr double stepsOfRange = 1e6;
constexpr double smallestVolts = 0.02, largestVolts = 200;
constexpr double smallestLimit = 1e-9, largestLimit = 1.05;
constexpr double readingMs = 20; // a period of the mains

constexpr int noError = 0, dataType = -104, parameterNotAllowed = -108, missingParameter = -109,
              undefinedHeader = -113, outOfRange = -222, illegalValue = -224,
              queryInterrupted = -410, queryUnterminated = -420;

static const char* errorText(int error) {
    constexpr struct {
        int number;
        const char* text;
    } texts[] = {{noError, "No error"},
                 {dataType, "Data type error"},
                 {parameterNotAllowed, "Parameter not allowed"},
                 {missingParameter, "Missing parameter"},
                 {undefinedHeader, "Undefined header"},
                 {outOfRange, "Parameter data out of range"},
                 {illegalValue, "Illegal parameter value"},
                 {queryInterrupted, "Query INTERRUPTED"},
                 {queryUnterminated, "Query UNTERMINATED"}};
    for (const auto& known : texts)
        if (known.number == error) return known.text;
    return "Unknown error";
}

struct Sourcemeter {
    LabSource source;
    double sourceRange = 0; // V; 0 automatic
    double range = 0;       // A; 0 automatic
    bool sendsText = true;  // otherwise readings go out as raw bytes
    int count = 1;          // measurements for a reading
    std::deque<int> errorQueue;
    std::string language = "SCPI";     // its command set
    std::string nextLanguage = "SCPI"; // from the next time on that it is switched on
};
static Sourcemeter meters[2];

static Sourcemeter& meterOf(LabInstrument who) {
    return meters[who == labUsbSourcemeter];
}

const LabSource& sourcemeterSource(LabInstrument who) {
    return meterOf(who).source;
}

// A command and the meter that it is for, and what it answers.
struct Call {
    LabInstrument who;
    Sourcemeter& meter;
    const std::string& parameter; // empty when there is none
    std::string answer{};
    double takesMs = 0;
};

static int setNumber(const Call& call, double smallest, double largest, double& setting) {
    double number = 0;
    if (!scpiNumber(call.parameter, number)) return dataType;
    if (number < smallest || number > largest) return outOfRange;
    setting = number;
    return noError;
}

static int setSwitch(const Call& call, bool& setting) {
    const bool on = call.parameter == "1" || scpiWordIs(call.parameter, "ON");
    if (!on && call.parameter != "0" && !scpiWordIs(call.parameter, "OFF")) return illegalValue;
    setting = on;
    return noError;
}

// Fixed ranges come in decades; the one that holds the number is taken.
static int setRange(const Call& call, double smallest, double largest, double& range) {
    double wanted = 0;
    if (int error = setNumber(call, -largest * rangeReach, largest * rangeReach, wanted))
        return error;
    range = smallest;
    while (range < largest * 0.99 && std::abs(wanted) > range * (1 + 1e-9)) range *= 10;
    return noError;
}

static int setAutomatic(const Call& call, double& range) {
    if (!scpiWordIs(call.parameter, "ON")) return illegalValue; // nobody switches it off
    range = 0;
    return noError;
}

static int acceptOnly(const Call& call, const char* word) {
    return scpiWordIs(call.parameter, word) ? noError : illegalValue;
}

static double measure(const Call& call) {
    const Sourcemeter& meter = call.meter;
    bool limited = false;
    // With its output off the source stands at 0 V behind its own small limit, and what is read is
    // the meter's offset, not the sample.
    double value = meter.source.on ? contactCurrent(meter.source, limited) : 0;
    const double range =
        meter.range > 0 ? meter.range : automaticRange(value, smallestAmps, largestAmps);
    value = digitizeCurrent(value, range, range / stepsOfRange);
    if (std::abs(value) > range * rangeReach || lab.faults.instruments[call.who].overload)
        value = overflow;
    noteMeasurement(call.who, meter.source.on ? meter.source.volts : 0, value);
    return value;
}

static int read(Call& call) {
    if (!call.parameter.empty() && call.parameter != "\"defbuffer1\"") return illegalValue;
    double value = 0;
    for (int i = 0; i < call.meter.count; ++i) value = measure(call); // the last one is told
    call.answer = printed(call.who == labSourcemeter ? "%+.6E" : "%.6E", value);
    if (!call.meter.sendsText) call.answer = "#0\x81\xA3";
    call.takesMs = call.meter.count * readingMs;
    return noError;
}

static int setSourceVoltage(Call& call) {
    const double range = call.meter.sourceRange > 0 ? call.meter.sourceRange : largestVolts;
    return setNumber(call, -range * rangeReach, range * rangeReach, call.meter.source.volts);
}

static int setMeasuredFunction(Call& call) {
    if (call.parameter[0] != '"') return dataType;
    return acceptOnly(call, "CURRent[:DC]");
}

static int setCount(Call& call) {
    double count = 0;
    const int error = setNumber(call, 1, 300000, count);
    if (error == noError) call.meter.count = static_cast<int>(count);
    return error;
}

static int setFormat(Call& call) {
    const bool text = scpiWordIs(call.parameter, "ASCii");
    if (!text && !scpiWordIs(call.parameter, "REAL")) return illegalValue;
    call.meter.sendsText = text;
    return noError;
}

static int setLanguage(Call& call) {
    for (const char* language : {"SCPI", "SCPI2400", "TSP"})
        if (scpiWordIs(call.parameter, language))
            return call.meter.nextLanguage = language, noError;
    return illegalValue;
}

static int nextError(Call& call) {
    int error = noError;
    if (!call.meter.errorQueue.empty()) {
        error = call.meter.errorQueue.front();
        call.meter.errorQueue.pop_front();
    }
    call.answer = printed("%d,\"%s\"", error, errorText(error));
    return noError;
}

static int limitTripped(Call& call) {
    bool limited = false;
    contactCurrent(call.meter.source, limited);
    call.answer = std::to_string(limited);
    return noError;
}

static int identify(Call& call) {
    call.answer = printed("KEITHLEY INSTRUMENTS,MODEL 2450,%s,1.7.12b",
                          call.who == labSourcemeter ? "04437885" : "04437886");
    return noError;
}

// What a program of ours can say; of the instrument's other commands none is known here.
struct Entry {
    const char* pattern; // a query's ends in '?'
    size_t fewest, most; // parameters
    int (*execute)(Call& call);
};

constexpr Entry entries[] = {
    {"*CLS", 0, 0, [](Call& call) { return call.meter.errorQueue.clear(), noError; }},
    {"*WAI", 0, 0, [](Call&) { return noError; }},
    {"*IDN?", 0, 0, identify},
    {"*LANG", 1, 1, setLanguage},
    {"*LANG?", 0, 0, [](Call& call) { return call.answer = call.meter.language, noError; }},
    {"FORMat[:DATA]", 1, 1, setFormat},
    {"SYSTem:ERRor[:NEXT]?", 0, 0, nextError},
    {"OUTPut#[:STATe]", 1, 1, [](Call& call) { return setSwitch(call, call.meter.source.on); }},
    {"SOURce#:FUNCtion[:MODE]", 1, 1, [](Call& call) { return acceptOnly(call, "VOLTage"); }},
    {"SOURce#:VOLTage[:LEVel][:IMMediate][:AMPLitude]", 1, 1, setSourceVoltage},
    {"SOURce#:VOLTage:RANGe", 1, 1,
     [](Call& call) {
         return setRange(call, smallestVolts, largestVolts, call.meter.sourceRange);
     }},
    {"SOURce#:VOLTage:RANGe:AUTO", 1, 1,
     [](Call& call) { return setAutomatic(call, call.meter.sourceRange); }},
    {"SOURce#:VOLTage:ILIMit[:LEVel]", 1, 1,
     [](Call& call) {
         return setNumber(call, smallestLimit, largestLimit, call.meter.source.limit);
     }},
    {"SOURce#:VOLTage:ILIMit[:LEVel]:TRIPped?", 0, 0, limitTripped},
    {"[:SENSe#]:FUNCtion[:ON]", 1, 1, setMeasuredFunction},
    {"[:SENSe#]:CURRent[:DC]:RANGe[:UPPer]", 1, 1,
     [](Call& call) { return setRange(call, smallestAmps, largestAmps, call.meter.range); }},
    {"[:SENSe#]:CURRent[:DC]:RANGe:AUTO", 1, 1,
     [](Call& call) { return setAutomatic(call, call.meter.range); }},
    {"[:SENSe#]:COUNt", 1, 1, setCount},
    {"READ?", 0, 1, read},
};

static int execute(const ScpiCommand& command, LabInstrument who, std::string& answer,
                   double& takesMs) {
    for (const Entry& entry : entries) {
        if (!scpiIs(command, entry.pattern)) continue;
        // In its other command sets only the common commands are these.
        if (meterOf(who).language != "SCPI" && entry.pattern[0] != '*') break;
        if (command.parameters.size() < entry.fewest) return missingParameter;
        if (command.parameters.size() > entry.most) return parameterNotAllowed;
        const std::string none;
        Call call{who, meterOf(who), command.parameters.empty() ? none : command.parameters[0]};
        const int error = entry.execute(call);
        answer = call.answer;
        takesMs += call.takesMs;
        return error;
    }
    return undefinedHeader;
}

static void addError(LabInstrument who, int error, const std::string& text) {
    meterOf(who).errorQueue.push_back(error);
    noteError(who, std::to_string(error), text);
}

void sourcemeterTakes(LabInstrument who, const std::string& message) {
    LabInstrumentLine& line = lab.instruments.lines[who];
    if (!line.output.empty()) {
        line.output.clear();
        addError(who, queryInterrupted, message);
    }
    std::string answers;
    double takesMs = 0;
    for (const ScpiCommand& command : splitScpi(message)) {
        std::string answer;
        if (int error = execute(command, who, answer, takesMs)) addError(who, error, command.text);
        if (!answers.empty() && !answer.empty()) answers += ';';
        answers += answer;
    }
    if (!answers.empty()) reply(who, answers, "\n", takesMs);
}

void renewSourcemeter(LabInstrument who) {
    meterOf(who) = {};
}

void switchOffSourcemeter(LabInstrument who) {
    const std::string language = meterOf(who).nextLanguage;
    meterOf(who) = {};
    meterOf(who).language = meterOf(who).nextLanguage = language;
}

void sourcemeterHadNothingToSay(LabInstrument who) {
    addError(who, queryUnterminated, "");
}
