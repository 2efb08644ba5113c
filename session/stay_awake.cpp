// Adds up the reasons for staying awake.
#include "session/stay_awake.h"

#include "platform/clock.h"
#include "platform/messages.h"

namespace {
unsigned reasons = 0;
}

void stayAwakeFor(AwakeFor reason, bool wanted) {
    if (!onWindowThread()) return; // the request is its thread's; another one ends the program
    const unsigned before = reasons, bit = static_cast<unsigned>(reason);
    reasons = wanted ? reasons | bit : reasons & ~bit;
    if ((before != 0) != (reasons != 0)) keepSystemAwake(reasons != 0);
}
