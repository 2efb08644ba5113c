// Talks to the parameter analyzer.
#include "instruments/analyzer.h"

#include "instruments/ammeter.h"
#include "instruments/gpib.h"
#include "instruments/kxci.h"
#include "instruments/number_extraction.h"
#include "instruments/vendor_library.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/device_report.h"
#include "session/refusals.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>

Kxci loadKxci() {
    Kxci found;
    constexpr const char* name = "Parameter analyzer library";
    LibraryHandle library = loadVendorLibrary(name, "KXCIclient64.dll");
    if (!library) return found;
    const bool whole = bindFunction(found.OpenKXCIConnection_C, library, "OpenKXCIConnection_C") &&
                       bindFunction(found.SendKXCICommand_C, library, "SendKXCICommand_C") &&
                       bindFunction(found.CloseKXCIConnection_C, library, "CloseKXCIConnection_C");
    return requireFunctions(name, library, whole) ? found : Kxci();
}

namespace {

struct {
    Kxci kxci;
    bool networkOpen = false;
    float limitAccepted = 0.0f; // A, by the open one; 0 none yet
} link;

constexpr const char* deviceName = "Parameter analyzer";

constexpr size_t replyCount = 100; // bytes that are looked at

// The client library does not say how long a reply can be.
constexpr size_t networkReplySize = 65536;

void sendOverNetwork(const char* command, char (&reply)[analyzerReplySize]) {
    static char whole[networkReplySize];
    std::memset(whole, 0, sizeof whole);
    int status = kxciConnected; // the reply alone counts
    link.kxci.SendKXCICommand_C(command, whole, &status);
    if (whole[0] == '\0')
        printRefusal(deviceName, formatted("no reply to %s (status %d)", command, status));
    std::memcpy(reply, whole, replyCount);
}

void closeNetwork() {
    if (link.networkOpen) link.kxci.CloseKXCIConnection_C();
    link.networkOpen = false;
}

} // namespace

int paOpen(int mode, int gpibAddress, int octet1, int octet2, int octet3, int octet4, int port) {
    link.limitAccepted = 0.0f;
    const int octets[] = {octet1, octet2, octet3, octet4};
    for (int i = 0; i < 4; ++i) instrumentLink.ipAddress[i] = octets[i];
    if (mode == analyzerGpib) {
        if (!gpibOpenDevice(gpibAddress)) return 0;
    } else {
        closeNetwork();
        link.kxci = loadKxci();
        const std::string address = formatted("%d.%d.%d.%d", octet1, octet2, octet3, octet4);
        reportSearch(deviceName, formatted("KXCI at %s port %d", address.c_str(), port));
        int status = kxciConnected;
        link.kxci.OpenKXCIConnection_C(address.c_str(), port, &status);
        link.networkOpen = status == kxciConnected;
        if (!link.networkOpen) {
            printRefusal(deviceName, formatted("no connection to %s port %d (status %d)",
                                               address.c_str(), port, status));
            return 0;
        }
        forgetRefusal(deviceName);
    }
    char reply[analyzerReplySize];
    for (const char* command : {"US", "IT1 BC DR1"}) {
        paSendCommand(mode, command, reply);
        reply[std::min(std::strcspn(reply, "\r\n"), replyCount)] = '\0';
        std::printf("Parameter analyzer: %s: %s\n", command, reply);
        if (reply[0] != '\0') reportAnswer(deviceName, std::string(command) + ": " + reply);
    }
    std::fflush(stdout);
    return 1;
}

bool paSendCommand(int mode, const char* command, char (&reply)[analyzerReplySize]) {
    std::memset(reply, 0, sizeof reply);
    if (mode == analyzerGpib) {
        const bool written = gpibWrite(command);
        return gpibRead(reply, replyCount) && written;
    }
    sendOverNetwork(command, reply);
    return true;
}

namespace {

// What a unit without a preamplifier takes in its 20 V range by the analyzer's manual (4200-SCS,
// "DV").
constexpr float mostVolts = 21.0f, largestLimit = 0.105f; // A

// Another instrument at the same address answers whatever it is told with one of its own readings,
// a multimeter "NDCV+0.0012E+0".
bool isReading(const char (&reply)[analyzerReplySize]) {
    return std::isalpha(static_cast<unsigned char>(reply[0])) != 0 &&
           extractNumber(reply, replyCount, ReplyKind::Analyzer).answered;
}

// Status, channel and quantity stand before the number: "NAI-1.2345E-06" is a current.
bool isOfAnotherQuantity(const char (&reply)[analyzerReplySize]) {
    return isReading(reply) && reply[2] != 'I';
}

std::string refusalByAnalyzer(float voltage, float limit, const char (&reply)[analyzerReplySize]) {
    if (std::string(reply).starts_with("ERROR")) return inOneLine(reply);
    if (isReading(reply)) return "answered with a reading, " + inOneLine(reply);
    if (std::fabs(voltage) > mostVolts)
        return formatted("%g V, more than the 21 V of its range", static_cast<double>(voltage));
    if (limit > largestLimit)
        return formatted("a limit of %g A, more than 0.105 A", static_cast<double>(limit));
    return {};
}

} // namespace

SourceAnswer paApplyBias(int mode, float voltage, float limit) {
    if (voltage == 0.0f)
        limit = link.limitAccepted > 0.0f ? link.limitAccepted : std::min(limit, largestLimit);
    const std::string command = formatted("DV1, 1, %f, ", static_cast<double>(voltage)) +
                                limitText(static_cast<double>(limit));
    showInformation(command.c_str());
    char reply[analyzerReplySize];
    SourceAnswer answer;
    answer.heard = paSendCommand(mode, command.c_str(), reply) && reply[0] != '\0';
    reply[replyCount] = '\0';
    answer.refusal = refusalByAnalyzer(voltage, limit, reply);
    if (answer.accepted()) link.limitAccepted = limit;
    if (!answer.refusal.empty()) printRefusal(deviceName, "refused: " + answer.refusal);
    return answer;
}

Reading paRead(int mode) {
    char reply[analyzerReplySize];
    const bool sent = paSendCommand(mode, "TI1", reply);
    reply[replyCount - 1] = '\0';
    showInformation(reply);
    Reading reading = extractNumber(reply, replyCount, ReplyKind::Analyzer);
    const bool whole = std::strlen(reply) < replyCount - 1; // an exponent may be cut off
    reading.answered = reading.answered && sent && whole && !isOfAnotherQuantity(reply);
    reading.limited = reading.answered && reply[0] == 'C';
    reading.overloaded = reading.answered && reply[0] == 'V'; // its converter is saturated
    if (reading.answered) forgetRefusal(deviceName);
    return reading;
}

void paClose(int mode) {
    char reply[analyzerReplySize];
    paSendCommand(mode, "DV1;DV2", reply);
    if (mode == analyzerGpib)
        gpibTakeOffline();
    else
        closeNetwork();
}
