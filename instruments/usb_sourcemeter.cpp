// Talks SCPI to the sourcemeter; the commands are those of its reference manual.
#include "instruments/usb_sourcemeter.h"

#include "instruments/number_extraction.h"
#include "instruments/visa.h"
#include "platform/text_format.h"

#include <cstdio>
#include <string>

namespace {

Visa visa;
ViSession resourceManager = 0;
ViSession instrument = 0;

constexpr const char* resource = "USB0::0x05E6::0x2450::04437886::INSTR";
constexpr uint64_t timeoutMs = 5000;
constexpr uint32_t replyBytes = 255;

// Commands end with a line feed on USB.
bool send(const std::string& command) {
    const std::string line = command + "\n";
    uint32_t written = 0;
    return visa.viWrite(instrument, reinterpret_cast<const uint8_t*>(line.data()),
                        static_cast<uint32_t>(line.size()), &written) >= 0;
}

// Empty when nothing came.
std::string receive() {
    uint8_t buffer[replyBytes + 1] = {};
    uint32_t received = 0;
    if (visa.viRead(instrument, buffer, replyBytes, &received) < 0) return {};
    return reinterpret_cast<const char*>(buffer);
}

void closeSessions() {
    if (resourceManager) visa.viClose(resourceManager);
    resourceManager = 0;
    instrument = 0;
}

bool openSession() {
    return visa.viOpenDefaultRM(&resourceManager) >= 0 &&
           visa.viOpen(resourceManager, resource, 0, 0, &instrument) >= 0 &&
           visa.viSetAttribute(instrument, viAttrTimeout, timeoutMs) >= 0;
}

bool identify() {
    if (!send("*CLS") || !send("*IDN?")) return false;
    const std::string identification = receive();
    if (identification.empty()) return false;
    const std::string manufacturer = identification.substr(0, identification.find(','));
    std::printf("Instrument Manufacturer: %s\n", manufacturer.c_str());
    return true;
}

} // namespace

bool usbSourcemeterOpen(double biasVolts) {
    closeSessions();
    visa = loadVisa();
    if (!openSession() || !identify()) {
        closeSessions();
        return false;
    }
    return send(":SOUR:FUNC VOLT") && send(formatted(":SOUR:VOLT %g", biasVolts)) &&
           send(":SENS:FUNC \"CURR\"") && send(":SENS:CURR:RANG:AUTO ON");
}

float usbSourcemeterRead() {
    send("*WAI"); // what was set before is in effect when the reading starts
    send(":READ? \"defbuffer1\"");
    const std::string reply = receive();
    return extractNumber(reply.c_str(), reply.size(), ReplyKind::Sourcemeter);
}

void usbSourcemeterSetUp(float voltage, float limit) {
    send(":SOUR:FUNC VOLT");
    send(formatted(":SOUR:VOLT:ILIM %g", static_cast<double>(limit)));
    send(formatted(":SOUR:VOLT %g", static_cast<double>(voltage)));
    send(":SENS:FUNC \"CURR\"");
    send(":SENS:CURR:RANG:AUTO ON");
    send(":OUTP ON");
}
