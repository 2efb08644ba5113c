// The SR860's command set (an SR865A has the same), from its manual: a query's '?' stands at its
// name, a blank before its numbers; the replies to the queries of one line come as one, with ';'
// between them. What is wrong now it says without a latch, and what was so with one.
#include "virtual_lab/lab_state.h"
#include "virtual_lab/lock_in.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace {

// Manual, "SCAL": 1 V, 500 mV, 200 mV ... 1 nV.
double sensitivityOf(int index) {
    constexpr double steps[] = {1, 0.5, 0.2};
    return steps[index % 3] * std::pow(10, -(index / 3));
}

// Manual, "OFLT": 1 us, 3 us, 10 us ... 30 ks.
double timeConstantMsOf(int index) {
    return (index % 2 ? 0.003 : 0.001) * std::pow(10, index / 2);
}

double inputRangeOf(int index) {
    constexpr double ranges[] = {1, 0.3, 0.1, 0.03, 0.01};
    return ranges[index];
}

constexpr LockInSteps sensitivities{28, sensitivityOf}, timeConstants{22, timeConstantMsOf},
    inputRanges{5, inputRangeOf};
constexpr double commandMs = 1;

const LabLockInSettings& settings() {
    return labLockInSettings(labSr860);
}

std::string number(double value) {
    return printed("%.8g", value);
}

// 0 X, 1 Y, 2 R, 3 theta, 4 to 7 the auxiliary inputs.
double valueOf(int which, const LockInOutputs& outputs) {
    switch (which) {
    case 0:
        return outputs.x;
    case 1:
        return outputs.y;
    case 2:
        return outputs.r;
    case 3:
        return outputs.theta;
    case 4:
        return photodiodeVolts();
    default:
        return 0;
    }
}

bool tellAll(const std::vector<int>& of, std::string& answer) {
    const LockInOutputs outputs = lockInOutputs(labSr860);
    for (int which : of) {
        if (which < 0 || which > 15) return false;
        if (!answer.empty()) answer += ',';
        answer += number(valueOf(which, outputs));
    }
    return true;
}

bool tellDisplays(const std::vector<int>&, std::string& answer) {
    noteLockInMeasurement(labSr860, lockInOutputs(labSr860));
    return tellAll({std::begin(settings().dataChannels), std::end(settings().dataChannels)},
                   answer);
}

// Bits 0 and 1 the outputs CH1 and CH2 (X and R by default), 3 the reference, 4 the input range,
// 8 to 11 the displays.
int bitsOf(unsigned now) {
    int bits = ((now & lockInX) != 0) | ((now & lockInR) != 0) << 1 |
               ((now & lockInUnlocked) != 0) << 3 | ((now & lockInInput) != 0) << 4;
    constexpr unsigned ofDisplay[] = {lockInX, lockInY, lockInR};
    for (int i = 0; i < 4; ++i) {
        const int shown = settings().dataChannels[i];
        if (shown < 3 && (now & ofDisplay[shown])) bits |= 1 << (8 + i);
    }
    return bits;
}

int statusNow() {
    return bitsOf(lockInNow(labSr860));
}

// The same bits, each of which stays until it is read: as public drivers list them.
int statusWord() {
    return bitsOf(takeLockInSeen(labSr860));
}

int inputLevel() {
    const LockInOutputs outputs = lockInOutputs(labSr860);
    if (lockInNow(labSr860) & lockInInput) return 4;
    return std::min(3, static_cast<int>(4 * outputs.inputPeak / settings().inputRangeVolts));
}

template <auto value> bool tell(const std::vector<int>&, std::string& answer) {
    answer = number(value());
    return true;
}

// The query is for X, Y or R.
template <auto value> bool tellOf(const std::vector<int>& of, std::string& answer) {
    if (of[0] < 0 || of[0] > 2) return false;
    answer = number(value(static_cast<size_t>(of[0])));
    return true;
}

const LockInCommand commands[] = {
    {"*IDN?", 0, 0,
     [](const std::vector<int>&, std::string& answer) {
         const bool other = lab.faults.instruments[labSr860].otherSerial;
         answer = other ? "Stanford_Research_Systems,SR865A,000111,v1.23"
                        : "Stanford_Research_Systems,SR860,004642,v1.51";
         return true;
     }},
    {"*CLS", 0, 0,
     [](const std::vector<int>&, std::string&) { return takeLockInSeen(labSr860), true; }},
    {"SNAPD?", 0, 0, tellDisplays},
    {"SNAP?", 2, 3, tellAll},
    {"OUTP?", 1, 1, tellAll},
    {"OAUX?", 1, 1,
     [](const std::vector<int>& of, std::string& answer) {
         return of[0] >= 0 && of[0] <= 3 && tellAll({of[0] + 4}, answer);
     }},
    {"CUROVLDSTAT?", 0, 0, tell<statusNow>},
    {"LIAS?", 0, 0, tell<statusWord>},
    {"ILVL?", 0, 0, tell<inputLevel>},
    {"CDSP?", 1, 1,
     [](const std::vector<int>& of, std::string& answer) {
         if (of[0] < 0 || of[0] > 3) return false;
         answer = std::to_string(settings().dataChannels[of[0]]);
         return true;
     }},
    {"SCAL?", 0, 0, tell<[] { return sensitivities.nearest(settings().sensitivityVolts); }>},
    {"OFLT?", 0, 0, tell<[] { return timeConstants.nearest(settings().timeConstantMs); }>},
    {"OFSL?", 0, 0, tell<[] { return settings().poles - 1; }>},
    {"IRNG?", 0, 0, tell<[] { return inputRanges.nearest(settings().inputRangeVolts); }>},
    {"SYNC?", 0, 0, tell<[] { return settings().sync; }>},
    {"IVMD?", 0, 0, tell<[] { return settings().input >= LabLockInInput::Current1MOhm; }>},
    {"ISRC?", 0, 0, tell<[] { return settings().input == LabLockInInput::AMinusB; }>},
    {"ICUR?", 0, 0, tell<[] { return settings().input == LabLockInInput::Current100MOhm; }>},
    {"RSRC?", 0, 0, tell<[] { return settings().internalReference ? 0 : 1; }>},
    {"FREQ?", 0, 0, tell<[] { return lockInOutputs(labSr860).referenceHz; }>},
    {"PHAS?", 0, 0, tell<[] { return settings().phaseDegrees; }>},
    {"HARM?", 0, 0, tell<[] { return settings().harmonic; }>},
    {"COFA?", 1, 1, tellOf<[](size_t i) { return settings().offsetPercent[i] != 0; }>},
    {"COFP?", 1, 1, tellOf<[](size_t i) { return settings().offsetPercent[i]; }>},
    {"CEXP?", 1, 1, tellOf<[](size_t i) {
         const int expand = settings().expand[i];
         return expand == 1 ? 0 : expand == 10 ? 1 : 2;
     }>},
};

} // namespace

unsigned fitSr860(LabLockInSettings& wanted, double) {
    wanted.sensitivityVolts = sensitivityOf(sensitivities.nearest(wanted.sensitivityVolts));
    wanted.timeConstantMs = timeConstantMsOf(timeConstants.nearest(wanted.timeConstantMs));
    wanted.inputRangeVolts = inputRangeOf(inputRanges.nearest(wanted.inputRangeVolts));
    wanted.harmonic = std::clamp(wanted.harmonic, 1, 99);
    return 0;
}

void sr860Takes(LabInstrument who, const std::string& message) {
    lab.instruments.lines[who].output.clear(); // an answer that nobody took
    std::istringstream lines(message);
    std::string answers;
    for (std::string command; std::getline(lines, command, ';');) {
        while (!command.empty() && std::isspace(static_cast<unsigned char>(command.back())))
            command.pop_back();
        if (command.empty()) continue;
        for (char& letter : command)
            letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
        const size_t blank = command.find(' ');
        std::vector<std::string> parameters;
        if (blank != std::string::npos) {
            std::istringstream rest(command.substr(blank + 1));
            for (std::string one; std::getline(rest, one, ',');) parameters.push_back(one);
        }
        std::string answer;
        const std::string error = executeLockInCommand(
            commands, std::size(commands), command.substr(0, blank), parameters, answer);
        if (!error.empty()) noteError(who, error, command);
        if (!answers.empty() && !answer.empty()) answers += ';';
        answers += answer;
    }
    if (!answers.empty()) reply(who, answers, "\n", commandMs);
}

void renewSr860(LabInstrument who) {
    renewLockIn(who);
}

void switchOffSr860(LabInstrument who) {
    switchOffLockIn(who);
}
