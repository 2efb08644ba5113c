// Talks SCPI to the sourcemeter; the commands are those of its reference manual.
#include "instruments/usb_sourcemeter.h"

#include "instruments/number_extraction.h"
#include "instruments/visa.h"
#include "platform/text_format.h"

#include <cstdio>
#include <string>

namespace {

struct Session {
    ViSession resourceManager = 0;
    ViSession instrument = 0;
};

Visa visa;
Session current;

constexpr const char* resource = "USB0::0x05E6::0x2450::04437886::INSTR";
constexpr uint64_t timeoutMs = 5000;
constexpr uint32_t replyBytes = 255;

// Commands end with a line feed on USB.
bool send(const Session& session, const std::string& command) {
    const std::string line = command + "\n";
    uint32_t written = 0;
    return visa.viWrite(session.instrument, reinterpret_cast<const uint8_t*>(line.data()),
                        static_cast<uint32_t>(line.size()), &written) >= 0;
}

// Empty when nothing came.
std::string receive(const Session& session) {
    uint8_t buffer[replyBytes + 1] = {};
    uint32_t received = 0;
    if (visa.viRead(session.instrument, buffer, replyBytes, &received) < 0) return {};
    return reinterpret_cast<const char*>(buffer);
}

void close(const Session& session) {
    if (session.resourceManager) visa.viClose(session.resourceManager);
}

bool open(Session& session) {
    return visa.viOpenDefaultRM(&session.resourceManager) >= 0 &&
           visa.viOpen(session.resourceManager, resource, 0, 0, &session.instrument) >= 0 &&
           visa.viSetAttribute(session.instrument, viAttrTimeout, timeoutMs) >= 0;
}

bool identify(const Session& session) {
    if (!send(session, "*CLS") || !send(session, "*IDN?")) return false;
    const std::string identification = receive(session);
    if (identification.empty()) return false;
    const std::string manufacturer = identification.substr(0, identification.find(','));
    std::printf("Instrument Manufacturer: %s\n", manufacturer.c_str());
    return true;
}

// The output goes off first: the last run may have left it on, and the bias comes only with the
// next set-up.
bool prepare(const Session& session, double biasVolts) {
    return send(session, ":OUTP OFF") && send(session, ":SOUR:FUNC VOLT") &&
           send(session, formatted(":SOUR:VOLT %g", biasVolts)) &&
           send(session, ":SENS:FUNC \"CURR\"") && send(session, ":SENS:CURR:RANG:AUTO ON");
}

} // namespace

bool usbSourcemeterOpen(double biasVolts) {
    visa = loadVisa();
    Session session;
    if (!open(session) || !identify(session) || !prepare(session, biasVolts)) {
        close(session);
        return false;
    }
    close(current);
    current = session;
    return true;
}

float usbSourcemeterRead() {
    // What was set before is in effect when the reading starts.
    if (!send(current, "*WAI") || !send(current, ":READ? \"defbuffer1\"")) return 0.0f;
    const std::string reply = receive(current);
    return extractNumber(reply.c_str(), reply.size(), ReplyKind::Sourcemeter);
}

void usbSourcemeterSetUp(float voltage, float limit) {
    const std::string lines[] = {
        ":SOUR:FUNC VOLT",
        formatted(":SOUR:VOLT:ILIM %g", static_cast<double>(limit)),
        formatted(":SOUR:VOLT %g", static_cast<double>(voltage)),
        ":SENS:FUNC \"CURR\"",
        ":SENS:CURR:RANG:AUTO ON",
        ":OUTP ON",
    };
    for (const std::string& line : lines)
        if (!send(current, line)) return; // each further line would wait for its own time-out
}
