// The parameter analyzer's user-mode commands, and the client library that carries them over the
// network. Every message is answered, with "ACK" when there is nothing else to say.
#include "virtual_lab/faces.h"
#include "virtual_lab/lab_state.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

constexpr int unitCount = 2; // the first lies across the contacts, the second is not connected
constexpr double smallestAmps = 1e-9, largestAmps = 0.1;
constexpr double integrationMs[] = {2, 20, 200}; // IT1 to IT3
constexpr double rangeVolts[] = {210, 21, 210, 210};
constexpr double largestLimit = 0.105;
constexpr double networkTimeoutMs = 3000;
constexpr int networkOk = LabKxci::connected, networkFailed = -1;

struct Analyzer {
    bool userMode = false;
    LabSource units[unitCount];
    double integrationMs = 20;
};
static Analyzer analyzer;

struct UserCommand {
    std::string letters;
    int number = -1; // directly behind the letters
    std::vector<double> arguments;
};

static void skipBlanks(const char*& at) {
    while (*at == ' ') ++at;
}

// One command of a message; several are parted by blanks or semicolons, arguments by commas.
static bool takeCommand(const char*& at, UserCommand& command) {
    while (*at >= 'A' && *at <= 'Z') command.letters += *at++;
    if (*at >= '0' && *at <= '9') command.number = *at++ - '0';
    skipBlanks(at);
    while (*at == ',') {
        char* end = nullptr;
        double value = std::strtod(++at, &end);
        if (end == at || !std::isfinite(value)) return false;
        command.arguments.push_back(value);
        at = end;
        skipBlanks(at);
    }
    if (*at == ';') ++at;
    skipBlanks(at);
    return !command.letters.empty();
}

static std::string measureCurrent(int unit) {
    const LabSource& source = analyzer.units[unit];
    bool limited = false;
    double amps = unit == 0 ? contactCurrent(source, limited) : 0;
    amps = digitizeCurrent(amps, automaticRange(amps, smallestAmps, largestAmps), 1e-15);
    const bool overflow = lab.faults.instruments[labAnalyzer].overload;
    if (overflow) amps = largestAmps * rangeReach;
    noteMeasurement(labAnalyzer, source.on ? source.volts : 0, amps);
    // The manual's data status: V for a saturated converter comes before C, in compliance, and N.
    const char status = overflow ? 'V' : limited ? 'C' : 'N';
    return printed("%c%cI%+.4E", status, 'A' + unit, amps);
}

static bool setVoltage(LabSource& source, const std::vector<double>& arguments) {
    if (arguments.empty()) { // the unit is switched off
        source = {};
        return true;
    }
    if (arguments.size() != 3) return false;
    double range = arguments[0], volts = arguments[1], limit = std::abs(arguments[2]);
    if (range != 0 && range != 1 && range != 2 && range != 3) return false;
    if (std::abs(volts) > rangeVolts[static_cast<int>(range)]) return false;
    if (limit == 0 || limit > largestLimit) return false;
    source = {true, volts, limit};
    return true;
}

static bool execute(const UserCommand& command, std::string& answer, double& takesMs) {
    int number = command.number;
    if (command.letters == "US" && number < 0) return analyzer.userMode = true;
    if (!analyzer.userMode) return false;
    if (command.letters == "DV" && number >= 1 && number <= unitCount)
        return setVoltage(analyzer.units[number - 1], command.arguments);
    if (!command.arguments.empty()) return false;
    if (command.letters == "TI" && number >= 1 && number <= unitCount) {
        answer = measureCurrent(number - 1);
        takesMs += analyzer.integrationMs;
        return true;
    }
    if (command.letters == "IT" && number >= 1 && number <= 3) {
        analyzer.integrationMs = integrationMs[number - 1];
        return true;
    }
    if (command.letters == "BC") return number < 0;
    if (command.letters == "DR") return number == 0 || number == 1;
    return false;
}

// Over the bus, where a reply ends in a line feed.
void analyzerTakes(LabInstrument who, const std::string& message) {
    lab.instruments.lines[who].output.clear();
    std::string text = message.substr(0, message.find_last_not_of("\r\n") + 1), answer;
    double takesMs = 0;
    bool understood = !text.empty();
    for (const char* at = text.c_str(); understood && *at;) {
        UserCommand command;
        understood = takeCommand(at, command) && execute(command, answer, takesMs);
    }
    if (!understood) noteError(who, "illegal command", text);
    if (answer.empty()) answer = understood ? "ACK" : "ERROR";
    reply(who, answer, "\r\n", takesMs);
}

void renewAnalyzer(LabInstrument) {
    analyzer = {};
    lab.instruments.networkLinked = false;
}

const LabSource& analyzerSource(LabInstrument) {
    return analyzer.units[0];
}

void setLabAnalyzerNetwork(const std::string& address, int port) {
    LabLock lock;
    lab.instruments.analyzerAddress = address;
    lab.instruments.analyzerPort = port;
}

// Whether the analyzer is there and talks to us.
static bool answersOnNetwork() {
    const LabInstrumentFaults& faults = lab.faults.instruments[labAnalyzer];
    return instrumentPresent(labAnalyzer) && !faults.stuck;
}

extern "C" {

void OpenKXCIConnection_C(const char* address, int port, int* status) {
    {
        LabLock lock;
        LabInstruments& all = lab.instruments;
        bool found = address && address == all.analyzerAddress && port == all.analyzerPort;
        bool refused = lab.faults.instruments[labAnalyzer].refused;
        all.networkLinked = found && !refused && answersOnNetwork();
        if (all.networkLinked || (found && refused)) {
            if (status) *status = all.networkLinked ? networkOk : networkFailed;
            return;
        }
    }
    labSleepMs(networkTimeoutMs);
    if (status) *status = networkFailed;
}

// The reply comes with a terminating zero. When none comes, its buffer is left as it is.
void SendKXCICommand_C(const char* command, char* answer, int* status) {
    double waitMs = networkTimeoutMs;
    std::string text;
    {
        LabLock lock;
        if (status) *status = networkFailed;
        if (!lab.instruments.networkLinked || !command) return;
        if (answersOnNetwork()) {
            LabInstrumentLine& line = lab.instruments.lines[labAnalyzer];
            logEntry(line.commands, std::string(command));
            if (labOnCommand) labOnCommand(labAnalyzer, command);
            analyzerTakes(labAnalyzer, command);
            if (!line.output.empty()) {
                text = line.output.front().bytes;
                text.erase(text.find_last_not_of("\r\n") + 1);
                waitMs = line.output.front().readyMs - labNowMs();
                line.output.clear();
            }
        }
    }
    if (waitMs > 0) labSleepMs(waitMs);
    if (text.empty()) return;
    if (answer) std::memcpy(answer, text.c_str(), text.size() + 1);
    if (status) *status = networkOk;
}

void CloseKXCIConnection_C() {
    LabLock lock;
    lab.instruments.networkLinked = false;
}

} // extern "C"
