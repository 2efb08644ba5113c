// The oscilloscopes on USB, whose input is the photovoltage. From the series' programmer's manual;
// of its commands only those for one measurement are known here.
#include "virtual_lab/lab_state.h"
#include "virtual_lab/scpi.h"

constexpr double notMeasurable = 9.9e37; // with an event, as of a waveform that is clipped
constexpr double measurementMs = 30;
constexpr int understood = 0, undefinedHeader = 113, wrongArgument = 224;

struct Scope {
    bool measuresMean = false; // as it wakes up: the period, and nothing periodic is there
    bool toldNoHeader = false;
};
static Scope scopes[2];

static Scope& scopeOf(LabInstrument who) {
    return scopes[who == labSecondScope];
}

static double measure(LabInstrument who) {
    double value = notMeasurable;
    if (scopeOf(who).measuresMean && !lab.faults.instruments[who].overload) {
        value = behindAmplifier(lab.faults.setUp.scopeVoltsPerAmpere,
                                lab.faults.setUp.scopeOffsetVolts);
        value += std::normal_distribution<double>(0, labScopeNoiseVolts)(lab.noise);
    }
    noteMeasurement(who, labBiasVolts(), value);
    return value;
}

// An event number.
static int execute(LabInstrument who, const ScpiCommand& command, std::string& answer,
                   double& takesMs) {
    const std::string word = command.parameters.size() == 1 ? command.parameters[0] : "";
    if (scpiIs(command, "*IDN?")) {
        answer = printed("TEKTRONIX,TDS 2024B,%s,CF:91.1CT FV:v22.11",
                         who == labScope ? "C010001" : "C010002");
    } else if (scpiIs(command, "MEASUrement:IMMed:VALue?")) {
        answer = printed("%.5E", measure(who));
        takesMs += measurementMs;
    } else if (scpiIs(command, "MEASUrement:IMMed:TYPe")) {
        if (!scpiWordIs(word, "MEAN")) return wrongArgument;
        scopeOf(who).measuresMean = true;
    } else if (scpiIs(command, "HEADer")) {
        if (word != "0" && !scpiWordIs(word, "OFF")) return wrongArgument;
        scopeOf(who).toldNoHeader = true;
    } else {
        return undefinedHeader;
    }
    return understood;
}

// Replies that nobody has taken stay in the queue. Its manual says that a new query "normally"
// clears them, that a fast controller may read them as well, and that it should send a device
// clear.
void scopeTakes(LabInstrument who, const std::string& message) {
    std::string answers;
    double takesMs = 0;
    for (const ScpiCommand& command : splitScpi(message)) {
        std::string answer;
        if (int event = execute(who, command, answer, takesMs))
            noteError(who, std::to_string(event), command.text);
        if (answer.empty()) continue;
        // What a query is called stands before its value, but for the common ones.
        if (lab.faults.instruments[who].headers && command.header[0] == ':' &&
            !scopeOf(who).toldNoHeader)
            answer = command.header + " " + answer;
        if (!answers.empty()) answers += ';';
        answers += answer;
    }
    if (!answers.empty()) reply(who, answers, "\n", takesMs);
}

void renewScope(LabInstrument who) {
    scopeOf(who) = {};
}
