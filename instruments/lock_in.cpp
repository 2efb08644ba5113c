// Talks to the lock-in amplifiers; commands, tables and status bits are those of their manuals.
#include "instruments/lock_in.h"

#include "instruments/gpib.h"
#include "instruments/kinds.h"
#include "instruments/visa.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "session/device_report.h"
#include "session/refusals.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <numbers>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr const char* gpibName = "GPIB lock-in";
constexpr const char* usbName = "USB lock-in";
constexpr const char* anyOfItsModel = "USB0::0xB506::0x2000::?*INSTR";

// By the channels of these kinds.
enum Value : size_t { valueR, valueX, valueY, valueTheta, valueAux };

constexpr double auxReachVolts = 10.0; // both manuals, "Aux Inputs"
constexpr double displayReach = 1.09;  // of the sensitivity: SR830 manual, "Output overload"

// What of the settings the readings need.
struct Scale {
    double voltsPerAmpere = 0.0; // 0: the values stay volts
    double displayLimit = 0.0;   // of X, Y and R, in the instrument's own unit; 0: not known
    bool hasOffset = false;
};

struct {
    std::string sr830Identity;
    bool sr830Changed = false; // by itself, since its settings were read or it was last read
    VisaInstrument sr860{usbName};
    Scale scale; // of the one that is selected
} lockIn;

// --- Replies -------------------------------------------------------------------------------------

std::vector<std::string_view> partsOf(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (size_t at = 0; at != std::string_view::npos;) {
        const size_t end = std::min(text.find(separator, at), text.size());
        parts.push_back(text.substr(at, end - at));
        at = end == text.size() ? std::string_view::npos : end + 1;
    }
    return parts;
}

// "-4.17234e-007", with blanks around it and a '+' before it.
std::optional<double> numberIn(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '+')) text.remove_prefix(1);
    while (!text.empty() && text.back() <= ' ') text.remove_suffix(1);
    return exactNumber(text);
}

// Nothing unless there are just so many, each a number.
std::optional<std::vector<double>> numbersIn(std::string_view text, size_t count) {
    std::vector<double> numbers;
    for (std::string_view part : partsOf(text, ',')) {
        const std::optional<double> number = numberIn(part);
        if (!number) return {};
        numbers.push_back(*number);
    }
    if (numbers.size() != count) return {};
    return numbers;
}

std::optional<int> indexIn(std::string_view text, int count) {
    const std::optional<double> number = numberIn(text);
    if (!number || *number != std::floor(*number) || *number < 0 || *number >= count) return {};
    return static_cast<int>(*number);
}

// Of one moment, V rms and degrees, and the auxiliary input's volts.
Reading readingOf(double x, double y, double r, double theta, double aux, const char* overload) {
    const Scale& scale = lockIn.scale;
    Reading reading{.answered = true, .overload = overload};
    const double limit = scale.displayLimit;
    const bool atLimit = std::max({std::fabs(x), std::fabs(y), std::fabs(r)}) >= 0.999 * limit;
    if (!reading.overload && limit > 0.0 && atLimit) reading.overload = "display";
    reading.overloaded = reading.overload != nullptr;
    const double perVolt = scale.voltsPerAmpere > 0.0 ? 1.0 / scale.voltsPerAmpere : 1.0;
    reading.values[valueR] = static_cast<float>(r * perVolt);
    reading.values[valueX] = static_cast<float>(x * perVolt);
    reading.values[valueY] = static_cast<float>(y * perVolt);
    reading.values[valueTheta] = static_cast<float>(theta);
    reading.values[valueAux] = static_cast<float>(aux);
    reading.auxAtLimit = std::fabs(aux) >= auxReachVolts;
    return reading;
}

// --- Settings in words ---------------------------------------------------------------------------

// "300 uV", "30 ms".
std::string inUnits(double value, const char* unit) {
    constexpr const char* prefixes[] = {"n", "u", "m", "", "k"};
    size_t i = 0;
    for (value *= 1e9; value >= 999.9 && i + 1 < std::size(prefixes); ++i) value /= 1000.0;
    return formatted("%g %s%s", std::round(value * 1000.0) / 1000.0, prefixes[i], unit);
}

std::string filterWords(double sensitivityVolts, const InstrumentSettings& filter) {
    return "sensitivity " + inUnits(sensitivityVolts, "V") + ", time constant " +
           inUnits(filter.timeConstantMs / 1000.0, "s") +
           formatted(", %d dB per octave", 6 * filter.poles);
}

// The rest of the words, all but the frequency of which stay until somebody changes them.
void addReference(InstrumentSettings& settings, const char* from, double hertz,
                  const std::string& behind) {
    settings.kept = settings.words + ", reference " + from + behind;
    settings.words += formatted(", reference %s %g Hz", from, hertz) + behind;
}

std::string phaseWords(double phase, double harmonic) {
    return formatted(", phase %g deg, harmonic %g", phase, harmonic);
}

std::string amplifierWords(bool currentInput) {
    const Scale& scale = lockIn.scale;
    if (scale.voltsPerAmpere <= 0.0) return "no amplifier: values in volts";
    return formatted("%s %g V/A", currentInput ? "current input" : "amplifier",
                     scale.voltsPerAmpere);
}

constexpr const char* outputs[] = {"X", "Y", "R"};
constexpr char offsetIsSet[] = "An offset is set at the lock-in: its values are less by that";

std::string offsetWords(const char* output, double percent, int expand) {
    constexpr int factors[] = {1, 10, 100};
    return formatted(", %s offset %g %% expand %d", output, percent, factors[expand]);
}

constexpr char unprovenCurrent[] = "Current input: nobody has yet tried its scale";

// What the values are from here on.
void takeScale(InstrumentSettings& settings, double sensitivityVolts, bool currentInput,
               bool highGain, bool hasOffset) {
    // Some have found that the values are amperes then; the manual says volts, behind its own V/A.
    // Until somebody has tried, no value is held against the display's limit, and each scan says
    // so.
    const double ofCurrent = setUp.lockInCurrentInAmperes ? 1.0 : highGain ? 1e8 : 1e6;
    lockIn.scale = {currentInput ? ofCurrent : setUp.amplifierVoltsPerAmpere,
                    currentInput ? 0.0 : displayReach * sensitivityVolts, hasOffset};
    instrumentLink.inVolts = lockIn.scale.voltsPerAmpere <= 0.0;
    if (hasOffset) settings.warning = offsetIsSet;
    if (currentInput && !setUp.lockInCurrentTried) settings.warning = unprovenCurrent;
}

// --- The SR830 -----------------------------------------------------------------------------------

// The reply to a query; empty when none came whole.
std::string askSr830(const char* query) {
    if (!gpibWrite(query)) return {};
    char reply[100] = {};
    if (!gpibRead(reply, sizeof reply)) return {};
    const std::string_view text(reply, sizeof reply);
    const size_t end = text.find('\n');
    return end == std::string_view::npos ? std::string() : std::string(text.substr(0, end));
}

constexpr double sensitivitySteps[] = {2e-9, 5e-9, 10e-9}; // "SENS", from index 0
constexpr int lastStatusBit = 8;

// Replies to questions in their order; `whole` as long as each was what its question asks for.
class Answers {
public:
    explicit Answers(std::string replies) : text(std::move(replies)), parts(partsOf(text, ';')) {}
    Answers(const Answers&) = delete;
    Answers& operator=(const Answers&) = delete;

    int index(int count) {
        const std::optional<int> index = indexIn(next(), count);
        whole = whole && index;
        return index.value_or(0);
    }
    double number() {
        const std::optional<double> number = numberIn(next());
        whole = whole && number;
        return number.value_or(0.0);
    }
    bool whole = true;

private:
    std::string_view next() { return at < parts.size() ? parts[at++] : std::string_view(); }

    const std::string text;
    const std::vector<std::string_view> parts;
    size_t at = 0;
};

// Each query has a reply of its own, which may hold two numbers; behind one without a reply none is
// asked.
std::string repliesOfSr830(std::initializer_list<const char*> queries) {
    std::string replies;
    for (const char* query : queries) {
        std::string reply = askSr830(query);
        if (reply.empty()) return {};
        std::replace(reply.begin(), reply.end(), ',', ';');
        replies += (replies.empty() ? "" : ";") + reply;
    }
    return replies;
}

// The synchronous filter works below 200 Hz (SR830 and SR860 manuals, "SYNC").
double syncMsOf(bool on, double hertz, double harmonic) {
    const double detection = hertz * harmonic;
    return on && detection > 0.0 && detection < 200.0 ? 1000.0 / hertz : 0.0;
}

InstrumentSettings keptInLink(const InstrumentSettings& settings) {
    return instrumentLink.settings = settings;
}

std::optional<InstrumentSettings> notSaid(const char* name) {
    printRefusal(name, "does not say what is set at it");
    return {};
}

// 10 us, 30 us, 100 us ... 30 ks; 6 to 24 dB per octave.
InstrumentSettings filterOfSr830(Answers& answers) {
    const int timeConstant = answers.index(20), slope = answers.index(4);
    return {.timeConstantMs = (timeConstant % 2 ? 0.03 : 0.01) * std::pow(10.0, timeConstant / 2),
            .poles = slope + 1};
}

// The same from 1 us on.
InstrumentSettings filterOfSr860(Answers& answers) {
    const int timeConstant = answers.index(22), slope = answers.index(4);
    return {.timeConstantMs = (timeConstant % 2 ? 0.003 : 0.001) * std::pow(10.0, timeConstant / 2),
            .poles = slope + 1};
}

} // namespace

void deriveLockIn(std::array<float, mostChannels>& values) {
    if (lockIn.scale.hasOffset) return;
    const double x = static_cast<double>(values[valueX]), y = static_cast<double>(values[valueY]);
    values[valueR] = static_cast<float>(std::hypot(x, y));
    values[valueTheta] = static_cast<float>(std::atan2(y, x) * 180.0 / std::numbers::pi);
}

bool sr830Open(int address) {
    const int previous = instrumentLink.gpibDevice;
    // It listens to both of its interfaces and answers at one, and it may be the other.
    if (gpibOpenDevice(address) && gpibWrite("OUTX 1")) {
        const std::string identity = askSr830("*IDN?");
        const bool known = identity.find("SR830") != std::string::npos;
        if (known) reportAnswer(gpibName, identity);
        if (known && sr830Settings()) {
            lockIn.sr830Identity = identity;
            return true;
        }
        if (!known && !identity.empty()) printRefusal(gpibName, "no SR830: " + identity);
        gpibTakeOffline();
    }
    instrumentLink.gpibDevice = previous;
    return false;
}

std::string sr830Identity() {
    return lockIn.sr830Identity;
}

namespace {

// Bits of LIAS?: the frequency's range and the time constant have changed. Reading clears them, so
// whoever reads the byte keeps that for the point.
constexpr int ofFilter = 1 << 4 | 1 << 5;

std::optional<int> statusOfSr830() {
    const std::optional<int> status = indexIn(askSr830("LIAS?"), 1 << lastStatusBit);
    if (status && (*status & ofFilter)) lockIn.sr830Changed = true;
    return status;
}

} // namespace

void sr830BeginPoint() {
    statusOfSr830();
}

Reading sr830Read() {
    const std::optional<std::vector<double>> v = numbersIn(askSr830("SNAP? 1,2,3,4,5"), 5);
    if (!v) return {};
    // Behind the values: what was too much when they were taken is in it.
    const std::optional<int> status = statusOfSr830();
    if (!status) return {};
    const char* const overload = *status & 1   ? "input or reserve"
                                 : *status & 2 ? "filter"
                                 : *status & 4 ? "output"
                                               : nullptr;
    Reading reading = readingOf((*v)[0], (*v)[1], (*v)[2], (*v)[3], (*v)[4], overload);
    reading.unlocked = *status & 8;
    reading.unsettled = std::exchange(lockIn.sr830Changed, false);
    forgetRefusal(gpibName);
    return reading;
}

std::optional<InstrumentSettings> sr830Settings() {
    Answers answers(
        repliesOfSr830({"LIAS?", "OFLT?", "OFSL?", "SENS?", "RMOD?", "SYNC?", "ISRC?", "FMOD?",
                        "FREQ?", "PHAS?", "HARM?", "OEXP? 1", "OEXP? 2", "OEXP? 3"}));
    answers.index(1 << lastStatusBit); // what has changed until now is in what it says now
    lockIn.sr830Changed = false;
    InstrumentSettings settings = filterOfSr830(answers);
    const int sensitivity = answers.index(27), reserve = answers.index(3), sync = answers.index(2);
    const int input = answers.index(4), internal = answers.index(2);
    const double hertz = answers.number(), phase = answers.number(), harmonic = answers.number();
    std::string offsets;
    bool hasOffset = false;
    for (const char* output : outputs) {
        const double percent = answers.number();
        hasOffset |= percent != 0.0;
        offsets += offsetWords(output, percent, answers.index(3));
    }
    if (!answers.whole) return notSaid(gpibName);
    settings.syncMs = syncMsOf(sync == 1, hertz, harmonic);
    const double volts = sensitivitySteps[sensitivity % 3] * std::pow(10.0, sensitivity / 3);
    takeScale(settings, volts, input >= 2, input == 3, hasOffset);
    constexpr const char* reserves[] = {"high", "normal", "low noise"};
    constexpr const char* inputs[] = {"A", "A-B", "I 1 MOhm", "I 100 MOhm"};
    settings.words = filterWords(volts, settings) + ", reserve " + reserves[reserve] +
                     formatted(", sync %s, input %s, ", sync ? "on" : "off", inputs[input]) +
                     amplifierWords(input >= 2);
    addReference(settings, internal ? "internal" : "external", hertz,
                 phaseWords(phase, harmonic) + offsets);
    return keptInLink(settings);
}

// --- The SR860 -----------------------------------------------------------------------------------

namespace {

std::string askSr860(const char* query) {
    return ask(lockIn.sr860, query);
}

// By what the displays show, so that the values are told apart by the instrument's own word.
constexpr char pointQuery[] = "SNAPD?;OAUX? 0;CUROVLDSTAT?;LIAS?;CDSP? 0;CDSP? 1;CDSP? 2;CDSP? 3";

// Bits of CUROVLDSTAT?, and of LIAS?, which latches them: the two outputs and the four displays.
constexpr int ofOutputs = 0x0003 | 0x0F00, ofReference = 1 << 3, ofInput = 1 << 4;

} // namespace

bool sr860Open() {
    VisaInstrument found{usbName};
    const bool answers = openInstrument(found, nullptr, anyOfItsModel) && identify(found);
    const bool known = answers && (found.identity.find("SR860") != std::string::npos ||
                                   found.identity.find("SR865") != std::string::npos);
    if (answers && !known) printRefusal(usbName, "no SR860: " + found.identity);
    const VisaInstrument before = lockIn.sr860;
    lockIn.sr860 = found;
    if (known && sr860Settings()) {
        closeInstrument(before);
        return true;
    }
    closeInstrument(lockIn.sr860);
    lockIn.sr860 = before;
    return false;
}

void sr860Close() {
    closeInstrument(lockIn.sr860);
    lockIn.sr860 = {usbName};
}

std::string sr860Identity() {
    return lockIn.sr860.identity;
}

void sr860BeginPoint() {
    askSr860("LIAS?");
}

Reading sr860Read() {
    const std::string reply = askSr860(pointQuery);
    const std::vector<std::string_view> parts = partsOf(reply, ';');
    if (parts.size() != 8) return {};
    const std::optional<std::vector<double>> shown = numbersIn(parts[0], 4);
    const std::optional<double> aux = numberIn(parts[1]);
    const std::optional<int> now = indexIn(parts[2], 1 << 16), seen = indexIn(parts[3], 1 << 16);
    if (!shown || !aux || !now || !seen) return {};
    const int status = *now | *seen;
    std::optional<double> values[4]; // X, Y, R, theta: as the displays' numbers have them
    for (size_t i = 0; i < 4; ++i) {
        const std::optional<int> which = indexIn(parts[4 + i], 16 + 10);
        if (which && *which < 4) values[*which] = (*shown)[i];
    }
    if (!values[0] || !values[1] || !values[2] || !values[3]) {
        printRefusal(usbName, "its four displays are not X, Y, R and theta");
        return {};
    }
    const char* const overload = status & ofInput     ? "input"
                                 : status & ofOutputs ? "output"
                                                      : nullptr;
    Reading reading = readingOf(*values[0], *values[1], *values[2], *values[3], *aux, overload);
    reading.unlocked = status & ofReference;
    forgetRefusal(usbName);
    return reading;
}

std::optional<InstrumentSettings> sr860Settings() {
    Answers answers(askSr860("OFLT?;OFSL?;SCAL?;IRNG?;SYNC?;IVMD?;ISRC?;ICUR?;RSRC?;FREQ?;PHAS?;"
                             "HARM?;COFA? 0;COFP? 0;CEXP? 0;COFA? 1;COFP? 1;CEXP? 1;COFA? 2;"
                             "COFP? 2;CEXP? 2"));
    InstrumentSettings settings = filterOfSr860(answers);
    const int sensitivity = answers.index(28), range = answers.index(5), sync = answers.index(2);
    const bool current = answers.index(2) == 1, difference = answers.index(2) == 1;
    const bool highGain = answers.index(2) == 1;
    const int reference = answers.index(4);
    const double hertz = answers.number(), phase = answers.number(), harmonic = answers.number();
    std::string offsets;
    bool hasOffset = false;
    for (const char* output : outputs) {
        const bool on = answers.index(2) == 1;
        const double percent = answers.number();
        hasOffset |= on && percent != 0.0;
        offsets += offsetWords(output, on ? percent : 0.0, answers.index(3));
    }
    if (!answers.whole) return notSaid(usbName);
    settings.syncMs = syncMsOf(sync == 1, hertz, harmonic);
    constexpr double steps[] = {1.0, 0.5, 0.2}; // "SCAL", from index 0
    const double volts = steps[sensitivity % 3] * std::pow(10.0, -(sensitivity / 3));
    takeScale(settings, volts, current, highGain, hasOffset);
    constexpr const char* ranges[] = {"1 V", "300 mV", "100 mV", "30 mV", "10 mV"};
    constexpr const char* references[] = {"internal", "external", "dual", "chop"};
    const char* const input = !current   ? (difference ? "A-B" : "A")
                              : highGain ? "I 100 MOhm"
                                         : "I 1 MOhm";
    settings.words = filterWords(volts, settings) + ", input range " + ranges[range] +
                     formatted(", sync %s, input %s, ", sync ? "on" : "off", input) +
                     amplifierWords(current);
    addReference(settings, references[reference], hertz, phaseWords(phase, harmonic) + offsets);
    return keptInLink(settings);
}
