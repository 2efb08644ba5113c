// The two sourcemeters, one on the GPIB bus and one on USB: SCPI, a voltage source with a limit, a
// current meter with ranges, an error queue.
#include "virtual_lab/lab_state.h"
#include "virtual_lab/scpi.h"

#include <cmath>

constexpr double overflow = 9.9e37;
constexpr double smallestAmps = 1e-8, largestAmps = 1;
constexpr double stepsOfRange = 1e6;
constexpr double smallestVolts = 0.02, largestVolts = 200;
constexpr double smallestLimit = 1e-9, largestLimit = 1.05;
constexpr double mainsPeriodMs = 20;
constexpr size_t longestErrorQueue = 32;

// Error numbers and texts of the SCPI standard.
enum ScpiError {
    noError = 0,
    dataType = -104,
    parameterNotAllowed = -108,
    missingParameter = -109,
    undefinedHeader = -113,
    settingsConflict = -221,
    outOfRange = -222,
    illegalValue = -224,
    queueOverflow = -350,
    queryInterrupted = -410,
    queryUnterminated = -420,
};

static const char* errorText(int error) {
    switch (error) {
    case noError:
        return "No error";
    case dataType:
        return "Data type error";
    case parameterNotAllowed:
        return "Parameter not allowed";
    case missingParameter:
        return "Missing parameter";
    case undefinedHeader:
        return "Undefined header";
    case settingsConflict:
        return "Settings conflict";
    case outOfRange:
        return "Parameter data out of range";
    case illegalValue:
        return "Illegal parameter value";
    case queueOverflow:
        return "Queue overflow";
    case queryInterrupted:
        return "Query INTERRUPTED";
    case queryUnterminated:
        return "Query UNTERMINATED";
    }
    return "Unknown error";
}

// The meter that a command is for, and what it answers.
struct Call {
    LabInstrument who;
    LabSourcemeter& meter;
    const ScpiCommand& command;
    std::string answer{};
    double takesMs = 0;

    size_t parameterCount() const { return command.parameters.size(); }
};

static int numberIn(const Call& call, double smallest, double largest, double& value) {
    if (call.parameterCount() == 0) return missingParameter;
    if (call.parameterCount() > 1) return parameterNotAllowed;
    double number = 0;
    if (!scpiNumber(call.command.parameters[0], number)) return dataType;
    if (number < smallest || number > largest) return outOfRange;
    value = number;
    return noError;
}

// The setting as a reply, or a new value for it.
static int numberSetting(Call& call, double smallest, double largest, double& setting) {
    if (!call.command.query) return numberIn(call, smallest, largest, setting);
    if (call.parameterCount() > 0) return parameterNotAllowed;
    call.answer = printed("%.6E", setting);
    return noError;
}

static int switchSetting(Call& call, bool& setting) {
    if (call.command.query) {
        call.answer = std::to_string(setting);
        return call.parameterCount() > 0 ? parameterNotAllowed : noError;
    }
    if (call.parameterCount() == 0) return missingParameter;
    if (call.parameterCount() > 1) return parameterNotAllowed;
    const std::string& word = call.command.parameters[0];
    if (word == "1" || scpiWordIs(word, "ON"))
        setting = true;
    else if (word == "0" || scpiWordIs(word, "OFF"))
        setting = false;
    else
        return illegalValue;
    return noError;
}

// Fixed ranges come in decades; the one that holds the number is taken.
static int rangeSetting(Call& call, double smallest, double largest, double present,
                        double& range) {
    if (call.command.query) {
        call.answer = printed("%.6E", range > 0 ? range : present);
        return noError;
    }
    double wanted = 0;
    if (int error = numberIn(call, -largest * rangeReach, largest * rangeReach, wanted))
        return error;
    double fitting = smallest;
    while (fitting < largest * 0.99 && std::abs(wanted) > fitting * (1 + 1e-9)) fitting *= 10;
    range = fitting;
    return noError;
}

static int automaticSetting(Call& call, double present, double& range) {
    bool automatic = range == 0;
    int error = switchSetting(call, automatic);
    if (error == noError && automatic != (range == 0)) range = automatic ? 0 : present;
    return error;
}

static double voltageRange(const LabSourcemeter& meter) {
    return automaticRange(meter.source.volts, smallestVolts, largestVolts);
}

static double currentRange(const LabSourcemeter& meter) {
    bool limited = false;
    return automaticRange(contactCurrent(meter.source, limited), smallestAmps, largestAmps);
}

static std::string formattedReading(LabInstrument who, double value) {
    return printed(who == labSourcemeter ? "%+.6E" : "%.6E", value);
}

static double measure(Call& call) {
    LabSourcemeter& meter = call.meter;
    LabSource source = meter.source;
    source.on = source.on && meter.sourcesVolts;
    double bias = source.on ? source.volts : 0, value = bias;
    if (meter.measures == 'I') {
        bool limited = false;
        // With its output off the source stands at 0 V behind its own small limit, and what is read
        // is the meter's offset, not the sample.
        value = source.on ? contactCurrent(source, limited) : 0;
        double range =
            meter.range > 0 ? meter.range : automaticRange(value, smallestAmps, largestAmps);
        value = digitizeCurrent(value, range, range / stepsOfRange);
        if (std::abs(value) > range * rangeReach) value = overflow;
    }
    noteMeasurement(call.who, bias, value);
    return value;
}

static int read(Call& call) {
    const std::vector<std::string>& parameters = call.command.parameters;
    if (parameters.size() > 1) return parameterNotAllowed;
    if (parameters.size() == 1 && parameters[0] != "\"defbuffer1\"" &&
        parameters[0] != "\"defbuffer2\"")
        return illegalValue;
    double value = 0;
    for (int i = 0; i < call.meter.count; ++i) value = measure(call); // the last one is told
    call.answer = call.meter.sendsText ? formattedReading(call.who, value) : "#0\x81\xA3";
    call.takesMs = call.meter.count * call.meter.plc * mainsPeriodMs;
    return noError;
}

static int setSourceVoltage(Call& call) {
    const double range = call.meter.sourceRange > 0 ? call.meter.sourceRange : largestVolts;
    return numberSetting(call, -range * rangeReach, range * rangeReach, call.meter.source.volts);
}

static int setSourceRange(Call& call) {
    double range = call.meter.sourceRange;
    if (int error =
            rangeSetting(call, smallestVolts, largestVolts, voltageRange(call.meter), range))
        return error;
    if (range > 0 && std::abs(call.meter.source.volts) > range * rangeReach)
        return settingsConflict;
    call.meter.sourceRange = range;
    return noError;
}

static int setSourceFunction(Call& call) {
    if (call.command.query) {
        call.answer = call.meter.sourcesVolts ? "VOLT" : "CURR";
        return noError;
    }
    if (call.parameterCount() == 0) return missingParameter;
    bool volts = scpiWordIs(call.command.parameters[0], "VOLTage");
    if (!volts && !scpiWordIs(call.command.parameters[0], "CURRent")) return illegalValue;
    if (volts != call.meter.sourcesVolts) call.meter.source.on = false;
    call.meter.sourcesVolts = volts;
    return noError;
}

static int setMeasuredFunction(Call& call) {
    if (call.command.query) {
        call.answer = call.meter.measures == 'I' ? "\"CURR:DC\"" : "\"VOLT:DC\"";
        return noError;
    }
    if (call.parameterCount() == 0) return missingParameter;
    const std::string& name = call.command.parameters[0];
    if (name[0] != '"' && name[0] != '\'') return dataType;
    if (scpiWordIs(name, "CURRent[:DC]"))
        call.meter.measures = 'I';
    else if (scpiWordIs(name, "VOLTage[:DC]"))
        call.meter.measures = 'V';
    else
        return illegalValue;
    return noError;
}

static int setCount(Call& call) {
    double count = call.meter.count;
    int error = numberSetting(call, 1, 300000, count);
    call.meter.count = static_cast<int>(count);
    return error;
}

static int setFormat(Call& call) {
    if (call.command.query) {
        call.answer = call.meter.sendsText ? "ASC" : "REAL";
        return noError;
    }
    if (call.parameterCount() != 1) return missingParameter;
    const std::string& word = call.command.parameters[0];
    if (!scpiWordIs(word, "ASCii") && !scpiWordIs(word, "REAL")) return illegalValue;
    call.meter.sendsText = !scpiWordIs(word, "REAL");
    return noError;
}

static int setLanguage(Call& call) {
    if (call.command.query) {
        call.answer = call.meter.language;
        return noError;
    }
    if (call.parameterCount() != 1) return missingParameter;
    for (const char* language : {"SCPI", "SCPI2400", "TSP"})
        if (scpiWordIs(call.command.parameters[0], language))
            return call.meter.nextLanguage = language, noError;
    return illegalValue;
}

static int reset(Call& call) {
    LabSourcemeter fresh;
    fresh.language = call.meter.language;
    fresh.nextLanguage = call.meter.nextLanguage;
    fresh.errorQueue = call.meter.errorQueue;
    fresh.eventStatus = call.meter.eventStatus;
    call.meter = fresh;
    return noError;
}

static int clearStatus(Call& call) {
    call.meter.errorQueue.clear();
    call.meter.eventStatus = 0;
    return noError;
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

static int eventStatus(Call& call) {
    call.answer = std::to_string(call.meter.eventStatus);
    call.meter.eventStatus = 0;
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

enum class Form { Command, Query, Both };

struct Entry {
    const char* pattern;
    Form form;
    int (*execute)(Call& call);
};

constexpr Entry entries[] = {
    {"*CLS", Form::Command, clearStatus},
    {"*RST", Form::Command, reset},
    {"*WAI", Form::Command, [](Call&) -> int { return noError; }},
    {"*IDN", Form::Query, identify},
    {"*ESR", Form::Query, eventStatus},
    {"*OPC", Form::Query,
     [](Call& call) -> int {
         call.answer = std::to_string(1);
         return noError;
     }},
    {"*LANG", Form::Both, setLanguage},
    {"FORMat[:DATA]", Form::Both, setFormat},
    {"SYSTem:ERRor[:NEXT]", Form::Query, nextError},
    {"SYSTem:ERRor:COUNt", Form::Query,
     [](Call& call) -> int {
         call.answer = std::to_string(call.meter.errorQueue.size());
         return noError;
     }},
    {"SYSTem:CLEar", Form::Command, clearStatus},
    {"OUTPut#[:STATe]", Form::Both,
     [](Call& call) { return switchSetting(call, call.meter.source.on); }},
    {"SOURce#:FUNCtion[:MODE]", Form::Both, setSourceFunction},
    {"SOURce#:VOLTage[:LEVel][:IMMediate][:AMPLitude]", Form::Both, setSourceVoltage},
    {"SOURce#:VOLTage:RANGe", Form::Both, setSourceRange},
    {"SOURce#:VOLTage:RANGe:AUTO", Form::Both,
     [](Call& call) {
         return automaticSetting(call, voltageRange(call.meter), call.meter.sourceRange);
     }},
    {"SOURce#:VOLTage:ILIMit[:LEVel]", Form::Both,
     [](Call& call) {
         return numberSetting(call, smallestLimit, largestLimit, call.meter.source.limit);
     }},
    {"SOURce#:VOLTage:ILIMit[:LEVel]:TRIPped", Form::Query, limitTripped},
    {"[:SENSe#]:FUNCtion[:ON]", Form::Both, setMeasuredFunction},
    {"[:SENSe#]:CURRent[:DC]:RANGe[:UPPer]", Form::Both,
     [](Call& call) {
         return rangeSetting(call, smallestAmps, largestAmps, currentRange(call.meter),
                             call.meter.range);
     }},
    {"[:SENSe#]:CURRent[:DC]:RANGe:AUTO", Form::Both,
     [](Call& call) { return automaticSetting(call, currentRange(call.meter), call.meter.range); }},
    {"[:SENSe#]:CURRent[:DC]:NPLCycles", Form::Both,
     [](Call& call) { return numberSetting(call, 0.01, 10, call.meter.plc); }},
    {"[:SENSe#]:COUNt", Form::Both, setCount},
    {"READ", Form::Query, read},
};

static int execute(Call& call) {
    for (const Entry& entry : entries) {
        if (!scpiMatches(call.command.header, entry.pattern)) continue;
        // In its other command sets only the common commands are these.
        if (call.meter.language != "SCPI" && entry.pattern[0] != '*') break;
        bool fits = entry.form == Form::Both || (entry.form == Form::Query) == call.command.query;
        return fits ? entry.execute(call) : undefinedHeader;
    }
    return undefinedHeader;
}

static void addError(LabInstrument who, int error, const std::string& text) {
    LabSourcemeter& meter = lab.instruments.sourcemeters[who == labUsbSourcemeter];
    constexpr int commandError = 32, executionError = 16, queryError = 4;
    meter.eventStatus |= error > -200 ? commandError : error > -400 ? executionError : queryError;
    if (meter.errorQueue.size() < longestErrorQueue)
        meter.errorQueue.push_back(error);
    else
        meter.errorQueue.back() = queueOverflow;
    noteError(who, std::to_string(error), text);
}

void sourcemeterTakes(LabInstrument who, const std::string& message) {
    LabInstrumentLine& line = lab.instruments.lines[who];
    if (!line.output.empty()) {
        line.output.clear();
        addError(who, queryInterrupted, message);
    }
    std::string answer;
    double takesMs = 0;
    for (const ScpiCommand& command : splitScpi(message)) {
        Call call{who, lab.instruments.sourcemeters[who == labUsbSourcemeter], command};
        if (int error = execute(call)) {
            addError(who, error, command.text);
            continue;
        }
        if (call.answer.empty()) continue;
        if (!answer.empty()) answer += ';';
        answer += call.answer;
        takesMs += call.takesMs;
    }
    if (!answer.empty()) reply(who, answer, "\n", takesMs);
}

void switchOffSourcemeter(LabInstrument who) {
    LabSourcemeter& meter = lab.instruments.sourcemeters[who == labUsbSourcemeter];
    LabSourcemeter fresh;
    fresh.language = fresh.nextLanguage = meter.nextLanguage;
    meter = fresh;
}

void sourcemeterHadNothingToSay(LabInstrument who) {
    addError(who, queryUnterminated, "");
}
