// The SR830's command set, from its manual: four letters and numbers with commas between them, each
// query with a reply of its own, on the one of its two interfaces that OUTX has chosen. A bit of
// the status byte stays until it is read. Of its settings only the front panel changes one here.
#include "virtual_lab/lab_state.h"
#include "virtual_lab/lock_in.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace {

// Manual, "SENS": 2, 5, 10 nV ... 1 V.
double sensitivityOf(int index) {
    constexpr double steps[] = {2e-9, 5e-9, 1e-8};
    return steps[index % 3] * std::pow(10, index / 3);
}

// Manual, "OFLT": 10 us, 30 us, 100 us ... 30 ks.
double timeConstantMsOf(int index) {
    return (index % 2 ? 0.03 : 0.01) * std::pow(10, index / 2);
}

constexpr LockInSteps sensitivities{27, sensitivityOf}, timeConstants{20, timeConstantMsOf};
constexpr double longestAbove200Hz = 30000; // ms; manual, "Time constant"
constexpr double largestInput = 1.4;        // V peak; manual, "Dynamic reserve"
constexpr double highestDetectionHz = 102000;
constexpr double commandMs = 5; // "typically 5 ms a query", over the bus

const LabLockInSettings& settings() {
    return labLockInSettings(labSr830);
}

std::string number(double value) {
    std::string text = printed("%.6g", value);
    // Exponents have three digits: "-4.17234e-007".
    const size_t e = text.find('e');
    if (e != std::string::npos && text.size() == e + 4) text.insert(e + 2, "0");
    return text;
}

double valueOf(int which) {
    const LockInOutputs outputs = lockInOutputs(labSr830);
    switch (which) {
    case 1:
        return outputs.x;
    case 2:
        return outputs.y;
    case 3:
        return outputs.r;
    case 4:
        return outputs.theta;
    case 5:
        return photodiodeVolts();
    case 9:
        return outputs.referenceHz;
    default:
        return 0; // the other inputs are open
    }
}

bool snap(const std::vector<int>& of, std::string& answer) {
    const LockInOutputs now = lockInOutputs(labSr830);
    noteLockInMeasurement(labSr830, now);
    for (int which : of) {
        if (which < 1 || which > 11) return false;
        if (!answer.empty()) answer += ',';
        const double values[] = {now.x, now.y, now.r, now.theta};
        answer += number(which <= 4 ? values[which - 1] : valueOf(which));
    }
    return true;
}

int statusByte() {
    const unsigned seen = takeLockInSeen(labSr830);
    return ((seen & lockInInput) != 0) | ((seen & lockInFilter) != 0) << 1 |
           ((seen & (lockInX | lockInY | lockInR)) != 0) << 2 |
           ((seen & lockInUnlocked) != 0) << 3 | ((seen & lockInRange) != 0) << 4 |
           ((seen & lockInTimeConstant) != 0) << 5;
}

bool repliesOnBus = false;

bool chooseInterface(const std::vector<int>& of, std::string&) {
    if (of[0] != 0 && of[0] != 1) return false;
    repliesOnBus = of[0] == 1;
    return true;
}

template <auto value> bool tell(const std::vector<int>&, std::string& answer) {
    answer = number(value());
    return true;
}

bool tellOffset(const std::vector<int>& of, std::string& answer) {
    if (of[0] < 1 || of[0] > 3) return false;
    const auto i = static_cast<size_t>(of[0] - 1);
    const int expand = settings().expand[i];
    answer = number(settings().offsetPercent[i]) + "," +
             std::to_string(expand == 1    ? 0
                            : expand == 10 ? 1
                                           : 2);
    return true;
}

const LockInCommand commands[] = {
    {"*IDN?", 0, 0,
     [](const std::vector<int>&, std::string& answer) {
         answer = "Stanford_Research_Systems,SR830,s/n12345,ver1.07";
         return true;
     }},
    {"*CLS", 0, 0,
     [](const std::vector<int>&, std::string&) { return takeLockInSeen(labSr830), true; }},
    {"OUTX", 1, 1, chooseInterface},
    {"SNAP?", 2, 6, snap},
    {"OUTP?", 1, 1,
     [](const std::vector<int>& of, std::string& answer) {
         answer = number(valueOf(of[0]));
         return of[0] >= 1 && of[0] <= 4;
     }},
    {"OAUX?", 1, 1,
     [](const std::vector<int>& of, std::string& answer) {
         answer = number(valueOf(of[0] + 4));
         return of[0] >= 1 && of[0] <= 4;
     }},
    {"LIAS?", 0, 0, tell<statusByte>},
    {"SENS?", 0, 0, tell<[] { return sensitivities.nearest(settings().sensitivityVolts); }>},
    {"OFLT?", 0, 0, tell<[] { return timeConstants.nearest(settings().timeConstantMs); }>},
    {"OFSL?", 0, 0, tell<[] { return settings().poles - 1; }>},
    {"RMOD?", 0, 0, tell<[] { return settings().reserve; }>},
    {"SYNC?", 0, 0, tell<[] { return settings().sync; }>},
    {"ISRC?", 0, 0, tell<[] { return static_cast<int>(settings().input); }>},
    {"FMOD?", 0, 0, tell<[] { return settings().internalReference; }>},
    {"FREQ?", 0, 0, tell<[] { return lockInOutputs(labSr830).referenceHz; }>},
    {"PHAS?", 0, 0, tell<[] { return settings().phaseDegrees; }>},
    {"HARM?", 0, 0, tell<[] { return settings().harmonic; }>},
    {"OEXP?", 1, 1, tellOffset},
};

} // namespace

unsigned fitSr830(LabLockInSettings& wanted, double detectionHz) {
    wanted.sensitivityVolts = sensitivityOf(sensitivities.nearest(wanted.sensitivityVolts));
    wanted.timeConstantMs = timeConstantMsOf(timeConstants.nearest(wanted.timeConstantMs));
    wanted.harmonic = std::clamp(wanted.harmonic, 1, 19999);
    if (detectionHz > highestDetectionHz) wanted.harmonic = 1;
    if (detectionHz <= 0 || wanted.timeConstantMs <= longestAbove200Hz) return 0;
    wanted.timeConstantMs = longestAbove200Hz;
    return lockInTimeConstant;
}

// The highest reserve lets the largest input in at each sensitivity; each of the lower ones is
// taken as 10 dB less, as the manual's tables have it about.
double sr830ReserveDb(const LabLockInSettings& of) {
    return std::clamp(20 * std::log10(1 / of.sensitivityVolts) - 10.0 * of.reserve, 0.0, 100.0);
}

double sr830InputLimit(const LabLockInSettings& of) {
    return std::min(largestInput, of.sensitivityVolts * 1.09 * std::sqrt(2) *
                                      std::pow(10, sr830ReserveDb(of) / 20));
}

void sr830Takes(LabInstrument who, const std::string& message) {
    std::string letters;
    for (char byte : message)
        if (byte != ' ' && byte != '\r' && byte != '\n')
            letters += static_cast<char>(std::toupper(static_cast<unsigned char>(byte)));
    std::istringstream all(letters);
    for (std::string command; std::getline(all, command, ';');) {
        if (command.empty()) continue;
        size_t end = 4;
        if (command.size() > end && command[end] == '?') ++end;
        end = std::min(end, command.size());
        std::vector<std::string> parameters;
        std::istringstream rest(command.substr(end));
        for (std::string one; std::getline(rest, one, ',');) parameters.push_back(one);
        std::string answer;
        const std::string error = executeLockInCommand(commands, std::size(commands),
                                                       command.substr(0, end), parameters, answer);
        if (!error.empty()) noteError(who, error, command);
        if (error.empty() && !answer.empty() && repliesOnBus) reply(who, answer, "\n", commandMs);
    }
}

void renewSr830(LabInstrument who) {
    repliesOnBus = false;
    renewLockIn(who);
}

void switchOffSr830(LabInstrument who) {
    repliesOnBus = false;
    switchOffLockIn(who);
}

void clearSr830() {} // its line's output has gone
