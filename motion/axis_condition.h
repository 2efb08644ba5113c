// What a controller's status says of its motor, in words: an alarm, lost steps, no current.
#pragma once

#include "motion/libximc.h"

#include <cstdint>
#include <string>

// Why an axis is not where it was sent, as its controller has it.
enum class Miss : uint8_t {
    Nothing,
    NoController,
    Lost,
    Alarm,
    LimitSwitch,
    StepsLost,
    WindingsOff,
    Stalled,     // it stands beside its target, and nothing says why
    MovedAway,   // it had arrived there
    BeyondLimit, // it was not sent: its target is beyond a limit of the set-up
    PlayLeft,    // it stands there, and its carriage beside it: the play was not taken up
    PlaceLost,   // it was not sent: its controller counts from another place than before
};
constexpr int missCount = 12;
const char* nameOf(Miss cause); // as the operator is told; empty for Nothing

// What of the status makes the controller's count no place of the stage: an alarm, lost steps,
// windings without current. One that says nothing of its windings has nothing to be held against.
Miss troubleIn(const status_t& status);

// "over-current, controller too hot": what has led into an alarm.
std::string alarmCauses(const status_t& status);

// As nameOf, with the causes of an alarm; empty without trouble.
std::string troubleText(const status_t& status);

// "PWRSts 3 (nominal current), supply 12.1 V"
std::string powerText(const status_t& status);

// Whether the windings went on or off between the two, or the supply by more than a volt.
bool powerChanged(const status_t& before, const status_t& now);
