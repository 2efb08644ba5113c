// What has been measured, as answers to a script.
#pragma once

#include "door/scpi_session.h"
#include "session/outcome.h"

#include <optional>
#include <string>

Reply readAllChannels(const Call& call);
Reply sayUnits(const Call& call);

// "RUN" while the process of that name runs, then by how the last one ended: "DONE", "STOPPED",
// "FAILED"; "IDLE" before.
std::string stateOf(const char* process, const std::optional<Outcome>& last);

Reply sayScanState(const Call& call);
Reply sayScanReport(const Call& call);
Reply sayListState(const Call& call);
Reply listPlanes(const Call& call);
Reply sayMapSize(const Call& call);
Reply sayMap(const Call& call);
Reply sayCurve(bool ofSeries);
Reply sendPicture(const Call& call);
Reply sendLog(const Call& call);
