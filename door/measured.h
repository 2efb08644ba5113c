// What has been measured, as answers to a script.
#pragma once

#include "door/scpi_session.h"
#include <string>

// The processes, by the names that runProcess has for them.
inline constexpr char scanProcess[] = "Mapping", listProcess[] = "Scan list",
                      sweepProcess[] = "I-V curve", seriesProcess[] = "Time evolution",
                      focusProcess[] = "Focus";

Reply readAllChannels(const Call& call);
Reply sayUnits(const Call& call);

// "RUN" while the process of that name runs, or the client begins it (as `begun`: "a mapping");
// then by how the last one ended: "DONE", "STOPPED", "FAILED"; "IDLE" before.
std::string stateOf(const char* process, const char* begun);

// What the operator is told of the last one.
Reply reportOf(const char* process);
template <const char* process> Reply sayReport(const Call&) {
    return reportOf(process);
}

Reply sayScanState(const Call& call);
Reply sayListState(const Call& call);
Reply listPlanes(const Call& call);
Reply sayMapSize(const Call& call);
Reply sayMap(const Call& call);
Reply sayCurve(bool ofSeries);
Reply sendPicture(const Call& call);
Reply sendLog(const Call& call);
