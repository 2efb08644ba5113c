// What a client asks of errors and states: the queue of errors and the registers of IEEE 488.2 and
// SCPI.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

// Bits of the event status register.
enum EventBit : unsigned {
    eventComplete = 1,
    eventQueryError = 4,
    eventDeviceError = 8,
    eventExecutionError = 16,
    eventCommandError = 32,
    eventPowerOn = 128,
};

// One of the two big registers: a bit that comes up in the condition stays in the event until that
// is read. 15 bits.
struct ScpiRegister {
    unsigned condition = 0, event = 0, enable = 0;
    void follow(unsigned now) {
        event |= now & ~condition;
        condition = now;
    }
    unsigned takeEvent() {
        const unsigned taken = event;
        event = 0;
        return taken;
    }
    bool isSummarised() const { return (event & enable) != 0; }
};
constexpr unsigned registerMask = 0x7FFF;

class ScpiStatus {
public:
    // Keeps the error, "-222,"Data out of range;step 0.1 to 40 um"" with its standard text, and its
    // bit of the event status register. The queue holds 20; the last one says that it overflowed.
    void error(int code, const std::string& words);
    std::string nextError(); // oldest first; 0,"No error" when there is none
    size_t errorCount() const { return errors.size(); }

    void operationComplete() { events |= eventComplete; }
    unsigned takeEvents() {
        const unsigned taken = events;
        events = 0;
        return taken;
    }
    void clear();  // "*CLS"
    void preset(); // "STATus:PRESet"

    unsigned byte(bool answerWaits) const; // of "*STB?"

    unsigned eventsEnabled = 0, serviceEnabled = 0;
    ScpiRegister operation, questionable;

private:
    unsigned events = eventPowerOn;
    std::deque<std::string> errors;
};

// "Data out of range" of -222; empty for a number that the standard does not have.
const char* standardText(int code);
