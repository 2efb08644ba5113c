// Finds, sets and reads the oscilloscope.
#include "instruments/tektronics.h"

#include "platform/decimal_point.h"
#include "session/device_report.h"
#include "session/refusals.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct {
    Visa visa;
    std::string identity;
    bool answerLeft = false; // it was asked, and its answer not taken to the end
} scope;

constexpr uint32_t replyBytes = 30;
constexpr uint64_t timeoutMs = 5000;

constexpr const char* deviceName = "Oscilloscope";

bool callSucceeded(const char* call, ViSession object, ViStatus status) {
    return visaPassed(scope.visa, deviceName, call, object, status);
}

ViStatus writeText(ViSession session, const char* command) {
    uint32_t written = 0;
    return scope.visa.viWrite(session, reinterpret_cast<const uint8_t*>(command),
                              static_cast<uint32_t>(std::strlen(command)), &written);
}

ViStatus readText(ViSession session, std::string& text) {
    uint8_t buffer[256] = {};
    uint32_t received = 0;
    const ViStatus status = scope.visa.viRead(session, buffer, replyBytes, &received);
    text = reinterpret_cast<const char*>(buffer);
    return status;
}

// Opens one found instrument and lets it identify itself; what it says is for people.
// With `clears` each of them is cleared: which one an answer was left in is not known.
ViStatus openFound(ViSession manager, const char* descriptor, ViSession* session, bool clears) {
    ViStatus status = scope.visa.viOpen(manager, descriptor, 0, 0, session);
    if (status >= 0 && clears) status = scope.visa.viClear(*session);
    if (status < 0) return status;
    scope.answerLeft = true;
    status = writeText(*session, "*idn?");
    if (status < 0) return status;
    uint8_t reply[256] = {};
    uint32_t received = 0;
    status = scope.visa.viRead(*session, reply, sizeof reply - 1, &received);
    scope.answerLeft = status < 0 || status == viMoreToCome;
    const std::string text(reinterpret_cast<const char*>(reply));
    scope.identity = text.substr(0, text.find_first_of("\r\n"));
    if (status >= 0) reportAnswer(deviceName, std::string(descriptor) + ", " + text);
    return status;
}

// `descriptor` is that of the last one found.
ViStatus openAllFound(ViSession manager, ViSession* session,
                      char (&descriptor)[viDescriptionSize]) {
    ViSession list = 0;
    uint32_t count = 0;
    ViStatus status = scope.visa.viFindRsrc(manager, "USB?*INSTR", &list, &count, descriptor);
    const bool clears = scope.answerLeft;
    for (uint32_t i = 0; status >= 0 && i < count; ++i) {
        status = openFound(manager, descriptor, session, clears);
        if (status >= 0 && i + 1 < count) status = scope.visa.viFindNext(list, descriptor);
    }
    return status;
}

ViStatus openAndSet(ViSession* manager, ViSession* session, char (&descriptor)[viDescriptionSize]) {
    ViStatus status = scope.visa.viOpenDefaultRM(manager);
    if (status < 0) return status;
    status = openAllFound(*manager, session, descriptor);
    if (status < 0) return status;
    return scope.visa.viSetAttribute(*session, viAttrTimeout, timeoutMs);
}

} // namespace

int scopeOpen(ViSession* visaResourceManager, ViSession* scopeInstrument) {
    reportSearch(deviceName, "USB?*INSTR, the last one that is found");
    scope.visa = loadVisa();
    ViSession manager = 0, session = 0;
    char descriptor[viDescriptionSize] = {};
    const ViStatus status = openAndSet(&manager, &session, descriptor);
    if (status < 0) {
        char text[viDescriptionSize] = {};
        scope.visa.viStatusDesc(session, status, text);
        std::fprintf(stderr, "failure: %s\n", text);
        callSucceeded("not opened", session, status);
        if (manager) scope.visa.viClose(manager);
        return 0;
    }
    if (*visaResourceManager) scopeClose(*visaResourceManager);
    *visaResourceManager = manager;
    *scopeInstrument = session;
    std::printf("Oscilloscope: %s\n", descriptor);
    std::fflush(stdout);
    scopeWrite(session, "MEASUREMENT:IMMED:TYPE MEAN");
    return 1;
}

bool scopeWrite(ViSession session, const char* command) {
    return callSucceeded("viWrite", session, writeText(session, command));
}

bool scopeReadText(ViSession session, std::string& text) {
    return callSucceeded("viRead", session, readText(session, text));
}

namespace {

constexpr const char* valueQuery = ":MEASUREMENT:IMMED:VALUE?";

// An oscilloscope that puts the command's name before each value, as ":MEASU:IMM:VAL 1.0E-3", is
// told to leave that; what it has still to say of this reply is thrown away, then it is asked anew.
// Returns how the new reply was read.
ViStatus askWithoutHeader(ViSession session, ViStatus status, std::string& reply) {
    std::string rest;
    constexpr int mostReads = 8; // of what a header and its value can be long
    for (int i = 0; status == viMoreToCome && i < mostReads; ++i) status = readText(session, rest);
    for (const char* command : {"HEADER OFF", valueQuery}) {
        const ViStatus written = writeText(session, command);
        if (written < 0) return written;
    }
    return readText(session, reply);
}

} // namespace

std::string scopeIdentity() {
    return scope.identity;
}

Reading scopeRead(ViSession scopeInstrument) {
    if (scope.answerLeft && !clearAnswer(scope.visa, deviceName, scopeInstrument)) return {};
    scope.answerLeft = true;
    const bool asked = scopeWrite(scopeInstrument, valueQuery);
    std::string reply;
    ViStatus status = readText(scopeInstrument, reply);
    if (status >= 0 && reply[0] == ':') status = askWithoutHeader(scopeInstrument, status, reply);
    const bool read = callSucceeded("viRead", scopeInstrument, status);
    scope.answerLeft = !asked || !read || status == viMoreToCome;
    char* end = nullptr;
    Reading reading;
    keepDecimalPoint();
    reading.values[0] = static_cast<float>(std::strtod(reply.c_str(), &end));
    reading.answered = asked && read && end != reply.c_str();
    if (reading.answered) forgetRefusal(deviceName);
    return reading;
}

void scopeClose(ViSession visaResourceManager) {
    scope.visa.viClose(visaResourceManager);
}
