// The USB instruments behind the VISA functions.
#include "virtual_lab/faces.h"
#include "virtual_lab/lab_state.h"

#include <cctype>
#include <cstring>

using namespace LabVisa;

using ViStatus = int32_t;
using ViSession = uint32_t; // and find lists

struct StatusText {
    ViStatus status;
    const char* text;
};
constexpr StatusText statusTexts[] = {
    {success, "Operation completed successfully."},
    {successMaxCount, "The number of bytes read is equal to the input count."},
    {warningNullObject, "The specified object reference is uninitialized."},
    {systemError, "Unknown system error (miscellaneous error)."},
    {invalidObject, "The given session or object reference is invalid."},
    {invalidExpression, "Invalid expression specified for search."},
    {notFound, "Insufficient location information or the device or resource is not present in the "
               "system."},
    {invalidName, "Invalid resource reference specified. Parsing error."},
    {timedOut, "Timeout expired before operation completed."},
    {attributeUnsupported, "The specified attribute is not defined or supported by the referenced "
                           "object."},
    {notSupported, "The given session or object reference does not support this operation."},
    {busy, "The resource is valid, but VISA cannot currently access it."},
    {invalidParameter, "The value of some parameter is invalid."},
    {connectionLost, "The connection for the given session has been lost."},
};

// Null when it is not on USB.
static const char* resourceOf(LabInstrument who) {
    const bool other = who == labUsbSourcemeter && lab.faults.instruments[who].otherSerial;
    return other ? "USB0::0x05E6::0x2450::04412345::INSTR" : labInstrumentKinds[who].resource;
}

static LabVisaObject* objectOf(uint32_t handle, LabVisaObject::Kind kind) {
    auto found = lab.instruments.visaObjects.find(handle);
    if (found == lab.instruments.visaObjects.end() || found->second.kind != kind) return nullptr;
    return &found->second;
}

static uint32_t addObject(LabVisaObject object) {
    lab.instruments.visaObjects[++lab.instruments.lastVisaObject] = std::move(object);
    return lab.instruments.lastVisaObject;
}

static int upper(char c) {
    return std::toupper(static_cast<unsigned char>(c));
}

// '?' is any character; '*' any number and '+' at least one of what stands before it. The rest of
// the standard's expressions is not modelled.
static bool isExpression(const char* expression) {
    return expression && *expression && !std::strpbrk(expression, "[](){}|\\") &&
           !std::strchr("*+", *expression);
}

static bool matches(const char* expression, const char* name) {
    if (!*expression) return !*name;
    auto fits = [&](char c) { return c && (*expression == '?' || upper(*expression) == upper(c)); };
    char repetition = expression[1];
    if (repetition != '*' && repetition != '+')
        return fits(*name) && matches(expression + 1, name + 1);
    if (repetition == '*' && matches(expression + 2, name)) return true;
    for (; fits(*name); ++name)
        if (matches(expression + 2, name + 1)) return true;
    return false;
}

// Whoever is on USB, switched on and meant by the expression, in the order of a search.
static std::vector<LabInstrument> found(const char* expression) {
    std::vector<LabInstrument> list;
    for (int i = 0; i < labInstrumentCount; ++i) {
        const auto who = static_cast<LabInstrument>(i);
        if (resourceOf(who) && instrumentPresent(who) && matches(expression, resourceOf(who)))
            list.push_back(who);
    }
    return list;
}

static void giveName(char* descriptor, const std::string& name) {
    if (descriptor) std::memcpy(descriptor, name.c_str(), name.size() + 1);
}

// The instrument of a session, or why it cannot be talked to.
static ViStatus instrumentOf(ViSession session, LabInstrument& who, double& timeoutMs) {
    auto found = lab.instruments.visaObjects.find(session);
    if (found == lab.instruments.visaObjects.end()) return invalidObject;
    if (found->second.kind != LabVisaObject::Kind::Instrument) return notSupported;
    if (found->second.lost) return connectionLost;
    who = found->second.instrument;
    timeoutMs = found->second.timeoutMs;
    return success;
}

static ViStatus statusOf(LabTransfer transfer) {
    switch (transfer) {
    case LabTransfer::Ended:
        return success;
    case LabTransfer::Full:
        return successMaxCount;
    case LabTransfer::TimedOut:
        return timedOut;
    case LabTransfer::Lost:
        break;
    }
    return connectionLost;
}

extern "C" {

ViStatus viOpenDefaultRM(ViSession* manager) {
    LabLock lock;
    if (!manager) return invalidParameter;
    *manager = 0;
    if (lab.faults.visaAbsent) return systemError;
    *manager = addObject({LabVisaObject::Kind::Manager});
    return success;
}

ViStatus viFindRsrc(ViSession manager, const char* expression, ViSession* list, uint32_t* count,
                    char* descriptor) {
    LabLock lock;
    if (!objectOf(manager, LabVisaObject::Kind::Manager)) return invalidObject;
    if (!isExpression(expression)) return invalidExpression;
    std::deque<std::string> names;
    if (!lab.faults.visaEmpty)
        for (LabInstrument who : found(expression)) names.emplace_back(resourceOf(who));
    if (count) *count = static_cast<uint32_t>(names.size());
    if (names.empty()) {
        if (list) *list = 0;
        giveName(descriptor, "");
        return lab.faults.visaEmpty ? success : notFound;
    }
    giveName(descriptor, names.front());
    names.pop_front();
    if (list) *list = addObject({LabVisaObject::Kind::List, manager, names});
    return success;
}

ViStatus viFindNext(ViSession list, char* descriptor) {
    LabLock lock;
    LabVisaObject* object = objectOf(list, LabVisaObject::Kind::List);
    if (!object) return invalidObject;
    if (object->found.empty()) return notFound;
    giveName(descriptor, object->found.front());
    object->found.pop_front();
    return success;
}

ViStatus viOpen(ViSession manager, const char* name, uint32_t accessMode, uint32_t,
                ViSession* session) {
    LabLock lock;
    if (!session) return invalidParameter;
    *session = 0;
    if (!objectOf(manager, LabVisaObject::Kind::Manager)) return invalidObject;
    if (accessMode != 0) return notSupported; // locks and stored settings are not modelled
    if (!name || !std::strstr(name, "::") || std::strpbrk(name, "?*+")) return invalidName;
    const std::vector<LabInstrument> named = found(name);
    if (named.empty()) return notFound;
    if (lab.faults.instruments[named.front()].refused) return busy;
    *session = addObject({LabVisaObject::Kind::Instrument, manager, {}, named.front()});
    return success;
}

ViStatus viClose(ViSession object) {
    LabLock lock;
    if (object == 0) return warningNullObject;
    auto& objects = lab.instruments.visaObjects;
    if (objects.erase(object) == 0) return invalidObject;
    std::erase_if(objects, [&](const auto& other) { return other.second.manager == object; });
    return success;
}

ViStatus viSetAttribute(ViSession object, uint32_t attribute, uint64_t value) {
    LabLock lock;
    auto found = lab.instruments.visaObjects.find(object);
    if (found == lab.instruments.visaObjects.end()) return invalidObject;
    if (attribute != attributeTimeout || found->second.kind != LabVisaObject::Kind::Instrument)
        return attributeUnsupported;
    found->second.timeoutMs = static_cast<double>(value);
    return success;
}

// A text for every status, whatever the object is.
ViStatus viStatusDesc(ViSession, ViStatus status, char* text) {
    if (!text) return invalidParameter;
    for (const StatusText& known : statusTexts) {
        if (known.status != status) continue;
        std::strcpy(text, known.text);
        return success;
    }
    std::strcpy(text, "Unknown Status");
    return warningUnknownStatus;
}

ViStatus viRead(ViSession session, uint8_t* buffer, uint32_t count, uint32_t* returned) {
    LabInstrument who = labInstrumentCount;
    double timeoutMs = 0;
    {
        LabLock lock;
        if (returned) *returned = 0;
        if (ViStatus status = instrumentOf(session, who, timeoutMs); status < 0) return status;
        if (!buffer) return invalidParameter;
    }
    size_t received = 0;
    LabTransfer transfer = receiveFromInstrument(who, buffer, count, timeoutMs, received);
    if (returned) *returned = static_cast<uint32_t>(received);
    return statusOf(transfer);
}

ViStatus viWrite(ViSession session, const uint8_t* buffer, uint32_t count, uint32_t* returned) {
    LabInstrument who = labInstrumentCount;
    double timeoutMs = 0;
    {
        LabLock lock;
        if (returned) *returned = 0;
        if (ViStatus status = instrumentOf(session, who, timeoutMs); status < 0) return status;
        if (!buffer) return invalidParameter;
    }
    std::string message(reinterpret_cast<const char*>(buffer), count);
    LabTransfer transfer = sendToInstrument(who, message, timeoutMs);
    if (returned && transfer == LabTransfer::Ended) *returned = count;
    return statusOf(transfer);
}

ViStatus viClear(ViSession session) {
    double timeoutMs = 0;
    {
        LabLock lock;
        LabInstrument who = labInstrumentCount;
        if (ViStatus status = instrumentOf(session, who, timeoutMs); status < 0) return status;
        if (!instrumentPresent(who)) return connectionLost;
        if (!lab.faults.instruments[who].stuck) {
            lab.instruments.lines[who].output.clear();
            if (labInstrumentKinds[who].clears) labInstrumentKinds[who].clears();
            ++lab.counters.deviceClears;
            return success;
        }
    }
    labSleepMs(timeoutMs);
    return timedOut;
}

} // extern "C"
