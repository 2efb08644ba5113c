// Talks SCPI to the sourcemeter; the commands are those of its reference manual.
#include "instruments/usb_sourcemeter.h"

#include "instruments/number_extraction.h"
#include "instruments/visa.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/device_report.h"
#include "session/refusals.h"
#include "session/set_up.h"

#include <cstdio>
#include <cstdlib>

namespace {

// What the instrument was last told, while its output is on.
struct Source {
    bool on = false;
    float volts = 0.0f;
    float limit = 0.0f; // A
};

constexpr const char* deviceName = "USB sourcemeter";
constexpr const char* anyOfItsModel = "USB0::0x05E6::0x2450::?*INSTR";

struct {
    VisaInstrument current{deviceName};
    Source source;
    float limitAccepted = 0.0f; // A, last; 0 none yet
} link;

Reading numberFor(const char* query) {
    const std::string reply = ask(link.current, query);
    return extractNumber(reply.c_str(), reply.size(), ReplyKind::Sourcemeter);
}

// The one with the known serial number may have been exchanged for another. Where somebody has
// named one, no other may get the bias.
bool openWhatTheSetUpNames(VisaInstrument& meter) {
    const std::string& named = setUp.sourcemeterResource;
    if (named.empty()) return openInstrument(meter, nullptr, anyOfItsModel);
    const bool asEver = named == SetUp().sourcemeterResource;
    return openInstrument(meter, named.c_str(), asEver ? anyOfItsModel : nullptr);
}

} // namespace

std::string usbSourcemeterAddress() {
    const bool asEver = setUp.sourcemeterResource == SetUp().sourcemeterResource;
    return asEver ? "" : setUp.sourcemeterResource;
}

namespace {

// The instrument has two other command sets, in which these commands do other things or nothing.
bool speaksScpi(VisaInstrument& meter) {
    const std::string language = ask(meter, "*LANG?");
    if (language == "SCPI") return true;
    if (!language.empty())
        printRefusal(deviceName, "its command set is " + language +
                                     ". Set it to SCPI at its front panel (Menu, System, Settings, "
                                     "Command Set) or send it *LANG SCPI, then switch it off and "
                                     "on again");
    return false;
}

// False at the first line that does not go out: each further one would wait for its own time-out.
template <class Lines> bool sendAll(const VisaInstrument& meter, const Lines& lines) {
    for (const std::string& line : lines)
        if (!sendTo(meter, line)) return false;
    return true;
}

// What the instrument has not taken of the lines before; not heard when it does not say.
SourceAnswer answerToLines(VisaInstrument& meter) {
    const std::string error = ask(meter, ":SYST:ERR?"); // 0,"No error..." when all is well
    if (error.empty()) return {};
    if (std::atoi(error.c_str()) == 0) return {true, ""};
    const std::string words = "refused: " + error;
    printRefusal(deviceName, words);
    showInformation((std::string(deviceName) + " " + words).c_str());
    // What else it has listed came from the same lines.
    return {sendTo(meter, "*CLS"), error};
}

// The output goes off first: the last run may have left it on, and the bias comes only with the
// next set-up. The rest is what somebody else may have left otherwise.
bool prepare(VisaInstrument& meter, double biasVolts) {
    const std::string lines[] = {
        ":OUTP OFF",
        ":FORM ASC",
        ":SENS:COUN 1",
        ":SOUR:FUNC VOLT",
        ":SOUR:VOLT:RANG:AUTO ON",
        formatted(":SOUR:VOLT %g", biasVolts),
        ":SENS:FUNC \"CURR\"",
        ":SENS:CURR:RANG:AUTO ON",
    };
    return sendAll(meter, lines) && answerToLines(meter).heard;
}

} // namespace

bool usbSourcemeterOpen(double biasVolts) {
    VisaInstrument meter{deviceName};
    const bool answers = openWhatTheSetUpNames(meter) && identify(meter);
    if (answers)
        std::printf("Instrument Manufacturer: %s\n",
                    meter.identity.substr(0, meter.identity.find(',')).c_str());
    if (!answers || !speaksScpi(meter) || !prepare(meter, biasVolts)) {
        closeInstrument(meter);
        return false;
    }
    closeInstrument(link.current);
    link.current = meter;
    link.source = {};
    link.limitAccepted = 0.0f;
    return true;
}

std::string usbSourcemeterIdentity() {
    return link.current.identity.substr(0, link.current.identity.find_first_of("\r\n"));
}

Reading usbSourcemeterRead() {
    // What was set before is in effect when the reading starts.
    if (!emptyOutput(link.current) || !sendTo(link.current, "*WAI")) return {};
    Reading reading = numberFor(":READ? \"defbuffer1\"");
    reading.limited = reading.answered && isAtLimit(reading, link.source.limit);
    if (reading.answered) forgetRefusal(deviceName);
    return reading;
}

bool usbSourcemeterIsLimited() {
    return numberFor(":SOUR:VOLT:ILIM:TRIP?") == 1.0f;
}

void usbSourcemeterBeginAnew() {
    link.source = {};
}

SourceAnswer usbSourcemeterSetUp(float voltage, float limit) {
    const std::string level = formatted(":SOUR:VOLT %g", static_cast<double>(voltage));
    // After 0 V somebody may have been at the instrument, and at its output's switch.
    const bool asBefore = link.source.on && link.source.volts != 0.0f && link.source.limit == limit;
    link.source = {};
    // With a limit that is refused it would not say that it took the 0 V.
    if (voltage == 0.0f && link.limitAccepted > 0.0f) limit = link.limitAccepted;
    emptyOutput(link.current); // a bias goes out all the same
    if (asBefore) {
        if (!sendTo(link.current, level)) return {};
    } else {
        const std::string lines[] = {
            ":SOUR:FUNC VOLT",
            formatted(":SOUR:VOLT:ILIM %g", static_cast<double>(limit)),
            level,
            ":SENS:FUNC \"CURR\"",
            ":SENS:CURR:RANG:AUTO ON",
            ":OUTP ON",
        };
        if (!sendAll(link.current, lines)) return {};
        if (SourceAnswer answer = answerToLines(link.current); !answer.accepted()) return answer;
    }
    link.source = {true, voltage, limit};
    link.limitAccepted = limit;
    return {true, ""};
}
