// Finds the VISA functions in their library, and talks to instruments through them.
#include "instruments/visa.h"

#include "instruments/vendor_library.h"
#include "platform/text_format.h"
#include "session/device_report.h"
#include "session/refusals.h"

#include <cstdio>
#include <cstring>

Visa loadVisa() {
    Visa found;
    constexpr const char* name = "VISA library";
    LibraryHandle library = loadVendorLibrary(name, "VISA64.dll");
    if (!library) return found;
    const bool whole = bindFunction(found.viOpenDefaultRM, library, "viOpenDefaultRM", 141) &&
                       bindFunction(found.viFindRsrc, library, "viFindRsrc", 129) &&
                       bindFunction(found.viFindNext, library, "viFindNext", 130) &&
                       bindFunction(found.viOpen, library, "viOpen", 131) &&
                       bindFunction(found.viClose, library, "viClose", 132) &&
                       bindFunction(found.viSetAttribute, library, "viSetAttribute", 134) &&
                       bindFunction(found.viStatusDesc, library, "viStatusDesc", 142) &&
                       bindFunction(found.viRead, library, "viRead", 256) &&
                       bindFunction(found.viWrite, library, "viWrite", 257);
    bindFunction(found.viClear, library, "viClear", 260); // needed after a failure only
    // What opens must also close.
    return requireFunctions(name, library, whole) ? found : Visa();
}

bool visaPassed(const Visa& visa, const char* device, const char* call, ViSession object,
                ViStatus status) {
    if (status >= 0) return true;
    char text[viDescriptionSize] = {};
    if (visa.viStatusDesc(object, status, text) < 0) std::strcpy(text, "no VISA library");
    printRefusal(device, formatted("%s: %s (0x%08X)", call, text, static_cast<unsigned>(status)));
    return false;
}

bool clearAnswer(const Visa& visa, const char* device, ViSession session) {
    return visaPassed(visa, device, "viClear", session, visa.viClear(session));
}

namespace {

constexpr uint64_t timeoutMs = 5000;
constexpr uint32_t replyBytes = 255;

bool callSucceeded(const VisaInstrument& instrument, const char* call, ViSession object,
                   ViStatus status) {
    return visaPassed(instrument.visa, instrument.name, call, object, status);
}

ViStatus openFirst(VisaInstrument& instrument, const char* expression) {
    const Visa& visa = instrument.visa;
    ViSession list = 0;
    uint32_t count = 0;
    char descriptor[viDescriptionSize] = {};
    const ViStatus status =
        visa.viFindRsrc(instrument.manager, expression, &list, &count, descriptor);
    if (status < 0) return status;
    if (list) visa.viClose(list);
    if (count == 0) return viResourceNotFound;
    std::printf("%s: %s\n", instrument.name, descriptor);
    return visa.viOpen(instrument.manager, descriptor, 0, 0, &instrument.session);
}

} // namespace

bool openInstrument(VisaInstrument& instrument, const char* resource, const char* expression) {
    const Visa& visa = instrument.visa = loadVisa();
    std::string wanted = resource ? resource : expression;
    if (resource && expression) wanted += std::string(", or ") + expression;
    reportSearch(instrument.name, wanted);
    forgetRefusal(instrument.name);
    if (!callSucceeded(instrument, "viOpenDefaultRM", 0, visa.viOpenDefaultRM(&instrument.manager)))
        return false;
    ViStatus status = viResourceNotFound;
    if (resource) status = visa.viOpen(instrument.manager, resource, 0, 0, &instrument.session);
    if (status == viResourceNotFound && expression) status = openFirst(instrument, expression);
    return callSucceeded(instrument, "viOpen", instrument.manager, status) &&
           callSucceeded(instrument, "viSetAttribute", instrument.session,
                         visa.viSetAttribute(instrument.session, viAttrTimeout, timeoutMs));
}

void closeInstrument(const VisaInstrument& instrument) {
    if (instrument.manager) instrument.visa.viClose(instrument.manager);
}

bool sendTo(const VisaInstrument& instrument, const std::string& command) {
    const std::string line = command + "\n";
    uint32_t written = 0;
    return callSucceeded(instrument, "viWrite", instrument.session,
                         instrument.visa.viWrite(instrument.session,
                                                 reinterpret_cast<const uint8_t*>(line.data()),
                                                 static_cast<uint32_t>(line.size()), &written));
}

bool emptyOutput(VisaInstrument& instrument) {
    if (instrument.answerLeft)
        instrument.answerLeft = !clearAnswer(instrument.visa, instrument.name, instrument.session);
    return !instrument.answerLeft;
}

std::string ask(VisaInstrument& instrument, const char* query) {
    if (!emptyOutput(instrument)) return {};
    instrument.answerLeft = true;
    if (!sendTo(instrument, query)) return {};
    uint8_t buffer[replyBytes + 1] = {};
    uint32_t received = 0;
    const ViStatus status =
        instrument.visa.viRead(instrument.session, buffer, replyBytes, &received);
    if (!callSucceeded(instrument, "viRead", instrument.session, status)) return {};
    instrument.answerLeft = status == viMoreToCome;
    std::string reply = reinterpret_cast<const char*>(buffer);
    reply.erase(reply.find_last_not_of("\r\n") + 1);
    return reply;
}

bool identify(VisaInstrument& instrument) {
    if (!sendTo(instrument, "*CLS")) return false;
    instrument.identity = ask(instrument, "*IDN?");
    if (instrument.identity.empty()) return false;
    reportAnswer(instrument.name, instrument.identity);
    return true;
}
