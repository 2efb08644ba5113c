// Talks SCPI to the sourcemeter; the commands are those of its reference manual.
#include "instruments/usb_sourcemeter.h"

#include "instruments/number_extraction.h"
#include "instruments/visa.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/device_report.h"
#include "session/refusals.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

struct Session {
    std::string identification; // as it answered
    ViSession resourceManager = 0;
    ViSession instrument = 0;
};

// What the instrument was last told, while its output is on.
struct Source {
    bool on = false;
    float volts = 0.0f;
    float limit = 0.0f; // A
};

Visa visa;
Session current;
Source source;
std::string lastRefusal;

constexpr const char* deviceName = "USB sourcemeter";
constexpr const char* resource = "USB0::0x05E6::0x2450::04437886::INSTR";
constexpr const char* anyOfItsModel = "USB0::0x05E6::0x2450::?*INSTR";
constexpr uint64_t timeoutMs = 5000;
constexpr uint32_t replyBytes = 255;

bool callSucceeded(const char* call, ViSession object, ViStatus status) {
    return visaPassed(visa, deviceName, call, object, status);
}

// Commands end with a line feed on USB.
bool send(const Session& session, const std::string& command) {
    const std::string line = command + "\n";
    uint32_t written = 0;
    return callSucceeded("viWrite", session.instrument,
                         visa.viWrite(session.instrument,
                                      reinterpret_cast<const uint8_t*>(line.data()),
                                      static_cast<uint32_t>(line.size()), &written));
}

// The reply without its line end; empty when nothing came.
std::string ask(const Session& session, const char* query) {
    if (!send(session, query)) return {};
    uint8_t buffer[replyBytes + 1] = {};
    uint32_t received = 0;
    if (!callSucceeded("viRead", session.instrument,
                       visa.viRead(session.instrument, buffer, replyBytes, &received)))
        return {};
    std::string reply = reinterpret_cast<const char*>(buffer);
    reply.erase(reply.find_last_not_of("\r\n") + 1);
    return reply;
}

Reading numberFor(const char* query) {
    const std::string reply = ask(current, query);
    return extractNumber(reply.c_str(), reply.size(), ReplyKind::Sourcemeter);
}

void close(const Session& session) {
    if (session.resourceManager) visa.viClose(session.resourceManager);
}

// The one with the known serial number may have been exchanged for another.
ViStatus openFirstOfItsModel(Session& session) {
    ViSession list = 0;
    uint32_t count = 0;
    char descriptor[viDescriptionSize] = {};
    const ViStatus status =
        visa.viFindRsrc(session.resourceManager, anyOfItsModel, &list, &count, descriptor);
    if (status < 0) return status;
    if (list) visa.viClose(list);
    if (count == 0) return viResourceNotFound;
    std::printf("%s: %s\n", deviceName, descriptor);
    return visa.viOpen(session.resourceManager, descriptor, 0, 0, &session.instrument);
}

bool open(Session& session) {
    if (!callSucceeded("viOpenDefaultRM", 0, visa.viOpenDefaultRM(&session.resourceManager)))
        return false;
    ViStatus status = visa.viOpen(session.resourceManager, resource, 0, 0, &session.instrument);
    if (status == viResourceNotFound) status = openFirstOfItsModel(session);
    return callSucceeded("viOpen", session.resourceManager, status) &&
           callSucceeded("viSetAttribute", session.instrument,
                         visa.viSetAttribute(session.instrument, viAttrTimeout, timeoutMs));
}

bool identify(Session& session) {
    if (!send(session, "*CLS")) return false;
    const std::string& identification = session.identification = ask(session, "*IDN?");
    if (identification.empty()) return false;
    reportAnswer(deviceName, identification);
    const std::string manufacturer = identification.substr(0, identification.find(','));
    std::printf("Instrument Manufacturer: %s\n", manufacturer.c_str());
    return true;
}

// The instrument has two other command sets, in which these commands do other things or nothing.
bool speaksScpi(const Session& session) {
    const std::string language = ask(session, "*LANG?");
    if (language == "SCPI") return true;
    if (!language.empty())
        printRefusal(deviceName, "its command set is " + language +
                                     ". Set it to SCPI at its front panel (Menu, System, Settings, "
                                     "Command Set) or send it *LANG SCPI, then switch it off and "
                                     "on again");
    return false;
}

// False at the first line that does not go out: each further one would wait for its own time-out.
template <class Lines> bool sendAll(const Session& session, const Lines& lines) {
    for (const std::string& line : lines)
        if (!send(session, line)) return false;
    return true;
}

// What the instrument has not taken of the lines before.
void heedRefusals(const Session& session) {
    const std::string error = ask(session, ":SYST:ERR?"); // 0,"No error..." when all is well
    if (std::atoi(error.c_str()) == 0) return;
    lastRefusal = error;
    const std::string words = "refused: " + error;
    printRefusal(deviceName, words);
    showInformation((std::string(deviceName) + " " + words).c_str());
    send(session, "*CLS"); // what else it has listed came from the same lines
}

// The output goes off first: the last run may have left it on, and the bias comes only with the
// next set-up. The rest is what somebody else may have left otherwise.
bool prepare(const Session& session, double biasVolts) {
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
    if (!sendAll(session, lines)) return false;
    heedRefusals(session);
    return true;
}

} // namespace

bool usbSourcemeterOpen(double biasVolts) {
    visa = loadVisa();
    Session session;
    reportSearch(deviceName, std::string(resource) + ", or " + anyOfItsModel);
    forgetRefusal(deviceName);
    if (!open(session) || !identify(session) || !speaksScpi(session) ||
        !prepare(session, biasVolts)) {
        close(session);
        return false;
    }
    close(current);
    current = session;
    source = {};
    return true;
}

std::string usbSourcemeterIdentity() {
    const std::string& reply = current.identification;
    return reply.substr(0, reply.find_first_of("\r\n"));
}

Reading usbSourcemeterRead() {
    // What was set before is in effect when the reading starts.
    if (!send(current, "*WAI")) return {};
    Reading reading = numberFor(":READ? \"defbuffer1\"");
    reading.limited = reading.answered && isAtLimit(reading, source.limit);
    if (reading.answered) forgetRefusal(deviceName);
    return reading;
}

bool usbSourcemeterIsLimited() {
    return numberFor(":SOUR:VOLT:ILIM:TRIP?") == 1.0f;
}

bool usbSourcemeterSetUp(float voltage, float limit) {
    const std::string level = formatted(":SOUR:VOLT %g", static_cast<double>(voltage));
    // After 0 V somebody may have been at the instrument, and at its output's switch.
    const bool asBefore = source.on && source.volts != 0.0f && source.limit == limit;
    source = {};
    if (asBefore) {
        if (!send(current, level)) return false;
    } else {
        const std::string lines[] = {
            ":SOUR:FUNC VOLT",
            formatted(":SOUR:VOLT:ILIM %g", static_cast<double>(limit)),
            level,
            ":SENS:FUNC \"CURR\"",
            ":SENS:CURR:RANG:AUTO ON",
            ":OUTP ON",
        };
        if (!sendAll(current, lines)) return false;
        heedRefusals(current);
    }
    source = {true, voltage, limit};
    return true;
}

std::string takeUsbSourcemeterRefusal() {
    return std::exchange(lastRefusal, {});
}
