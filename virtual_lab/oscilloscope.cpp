// The oscilloscopes on USB, whose input is the photovoltage.
#include "virtual_lab/lab_state.h"
#include "virtual_lab/scpi.h"

#include <cmath>

constexpr double notMeasurable = 9.9e37;
constexpr double measurementMs = 30;
constexpr int undefinedHeader = 113, wrongArgument = 224, queueEmpty = 0;

static constexpr const char* measurementTypes[] = {
    "FREQuency", "MEAN", "PERIod", "PK2pk", "CRMs", "MINImum", "MAXImum", "RISe", "FALL", "NONe"};
static constexpr const char* channels[] = {"CH1", "CH2", "MATH"};

static double measure(LabInstrument who, const LabScope& scope) {
    double value = notMeasurable; // nothing periodic is there
    if (scope.type == "MEAN" && scope.channel == "CH1") {
        value = labPhotoVoltage();
        value += std::normal_distribution<double>(0, labScopeNoiseVolts)(lab.noise);
    }
    noteMeasurement(who, labBiasVolts(), value);
    return value;
}

template <size_t count>
static int choose(const ScpiCommand& command, const char* const (&words)[count],
                  std::string& chosen) {
    for (const char* word : words) {
        if (command.parameters.size() != 1 || !scpiWordIs(command.parameters[0], word)) continue;
        chosen.clear();
        for (const char* c = word; *c && !(*c >= 'a' && *c <= 'z'); ++c) chosen += *c;
        return 0;
    }
    return wrongArgument;
}

static std::string events(LabScope& scope) {
    int event = scope.events.empty() ? queueEmpty : scope.events.front();
    if (!scope.events.empty()) scope.events.pop_front();
    return std::to_string(event);
}

// An event number, or 0.
static int execute(LabInstrument who, const ScpiCommand& command, std::string& answer,
                   double& takesMs) {
    LabScope& scope = lab.instruments.scopes[who == labSecondScope];
    auto is = [&](const char* pattern) { return scpiMatches(command.header, pattern); };
    if (command.query) {
        if (is("*IDN")) {
            answer = printed("TEKTRONIX,TDS 2024B,%s,CF:91.1CT FV:v22.11",
                             who == labScope ? "C010001" : "C010002");
        } else if (is("*OPC")) {
            answer = std::to_string(1);
        } else if (is("EVENT")) {
            answer = events(scope);
        } else if (is("MEASUrement:IMMed:TYPe")) {
            answer = scope.type;
        } else if (is("MEASUrement:IMMed:SOUrce#")) {
            answer = scope.channel;
        } else if (is("MEASUrement:IMMed:VALue")) {
            answer = printed("%.5E", measure(who, scope));
            takesMs += measurementMs;
        } else {
            return undefinedHeader;
        }
        return 0;
    }
    if (is("HEADer")) {
        if (command.parameters.size() != 1) return wrongArgument;
        const std::string& word = command.parameters[0];
        const bool off = word == "0" || scpiWordIs(word, "OFF");
        if (!off && word != "1" && !scpiWordIs(word, "ON")) return wrongArgument;
        scope.toldNoHeader = off;
    } else if (is("*CLS")) {
        scope.events.clear();
    } else if (is("*RST")) {
        scope = {};
    } else if (is("MEASUrement:IMMed:TYPe")) {
        return choose(command, measurementTypes, scope.type);
    } else if (is("MEASUrement:IMMed:SOUrce#")) {
        return choose(command, channels, scope.channel);
    } else {
        return undefinedHeader;
    }
    return 0;
}

// Replies that nobody has taken stay in the queue.
void scopeTakes(LabInstrument who, const std::string& message) {
    std::string answers;
    double takesMs = 0;
    for (const ScpiCommand& command : splitScpi(message)) {
        std::string answer;
        if (int event = execute(who, command, answer, takesMs)) {
            lab.instruments.scopes[who == labSecondScope].events.push_back(event);
            noteError(who, std::to_string(event), command.text);
        }
        if (answer.empty()) continue;
        // What a query is called stands before its value, but for the common ones.
        if (lab.faults.instruments[who].headers && command.header[0] == ':' &&
            !lab.instruments.scopes[who == labSecondScope].toldNoHeader)
            answer = command.header + " " + answer;
        if (!answers.empty()) answers += ';';
        answers += answer;
    }
    if (!answers.empty()) reply(who, answers, "\n", takesMs);
}
