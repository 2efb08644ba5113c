// Our declarations of the part of the VISA library that is used. A negative status is an error.
#pragma once

#include <cstdint>
#include <string>

using ViStatus = int32_t;
using ViSession = uint32_t; // sessions and find lists; 0 is none

// No such resource (VI_ERROR_RSRC_NFOUND), and a read that filled its count while more is to come
// (VI_SUCCESS_MAX_CNT).
constexpr ViStatus viResourceNotFound = static_cast<ViStatus>(0xBFFF0011u);
constexpr ViStatus viMoreToCome = 0x3FFF0006;

constexpr uint32_t viAttrTimeout = 0x3FFF001A; // ms
constexpr int viDescriptionSize = 256;         // bytes of a descriptor or a status text

// What a call answers whose library or function is not there (VI_ERROR_LIBRARY_NFOUND).
constexpr ViStatus viLibraryMissing = static_cast<ViStatus>(0xBFFF009Eu);

struct Visa {
    ViStatus (*viOpenDefaultRM)(ViSession* manager) = [](ViSession*) { return viLibraryMissing; };
    ViStatus (*viFindRsrc)(ViSession manager, const char* expression, ViSession* list,
                           uint32_t* count, char* descriptor) =
        [](ViSession, const char*, ViSession*, uint32_t*, char*) { return viLibraryMissing; };
    ViStatus (*viFindNext)(ViSession list, char* descriptor) = [](ViSession, char*) {
        return viLibraryMissing;
    };
    ViStatus (*viOpen)(ViSession manager, const char* name, uint32_t accessMode, uint32_t timeout,
                       ViSession* session) = [](ViSession, const char*, uint32_t, uint32_t,
                                                ViSession*) { return viLibraryMissing; };
    ViStatus (*viClose)(ViSession object) = [](ViSession) { return viLibraryMissing; };
    ViStatus (*viSetAttribute)(ViSession object, uint32_t attribute, uint64_t value) =
        [](ViSession, uint32_t, uint64_t) { return viLibraryMissing; };
    ViStatus (*viStatusDesc)(ViSession object, ViStatus status, char* text) =
        [](ViSession, ViStatus, char*) { return viLibraryMissing; };
    ViStatus (*viRead)(ViSession session, uint8_t* buffer, uint32_t count, uint32_t* returned) =
        [](ViSession, uint8_t*, uint32_t, uint32_t*) { return viLibraryMissing; };
    ViStatus (*viWrite)(ViSession session, const uint8_t* buffer, uint32_t count,
                        uint32_t* returned) = [](ViSession, const uint8_t*, uint32_t, uint32_t*) {
        return viLibraryMissing;
    };
    ViStatus (*viClear)(ViSession session) = [](ViSession) { return viLibraryMissing; };
};

// Loads VISA64.dll, by name and then by the standard's ordinals.
Visa loadVisa();

// False for a negative status, which is then printed under the device's name with the library's own
// words for it, once until other words come.
bool visaPassed(const Visa& visa, const char* device, const char* call, ViSession object,
                ViStatus status);

// Sends the device clear that an instrument needs before it is asked anew when an answer was left
// in it: the oscilloscope's manual says that it may otherwise give that to the next read, and every
// value would stand at the place behind its own. False, and said, when it does not go out.
bool clearAnswer(const Visa& visa, const char* device, ViSession session);

// A message-based instrument, and what keeps it open. A call that fails is said under its name.
struct VisaInstrument {
    const char* name; // for people
    Visa visa{};
    ViSession manager = 0, session = 0;
    std::string identity{};  // its reply to "*IDN?"
    bool answerLeft = false; // it was asked, and its answer not taken to the end
};

// Opens the resource or, where that is not there (or null), the first one that fits the expression
// (null: no other), with 5 s for each transfer. What was opened of it when it fails is closed by
// the caller.
bool openInstrument(VisaInstrument& instrument, const char* resource, const char* expression);
void closeInstrument(const VisaInstrument& instrument);

// Commands end with a line feed on USB.
bool sendTo(const VisaInstrument& instrument, const std::string& command);

// Clears what a query before has left unanswered; false when that cannot be done. `ask` does it,
// and a command that comes before would be counted as an error: it interrupts the old answer.
bool emptyOutput(VisaInstrument& instrument);

// The first 255 bytes of the reply, without its line end; empty when nothing came. Never the answer
// to a query before.
std::string ask(VisaInstrument& instrument, const char* query);

// Clears its errors and takes down who it is. False when it does not answer.
bool identify(VisaInstrument& instrument);
