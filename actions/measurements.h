// How window and scripts begin what takes long: each runs to its end inside the call, in the block
// of runProcess, and nothing happens where something else is under way.
#pragma once

#include "mapping/scan_plan.h"
#include "session/outcome.h"
#include "spectroscopy/iv_sweep.h"
#include "spectroscopy/time_evolution.h"

#include <functional>
#include <optional>
#include <string>

// The work of a scan's process, from the questions before it to the start button after it: `scan`
// when `prepare` has returned true.
Outcome mapSample(const std::function<bool()>& prepare, const std::function<Outcome()>& scan);

// The scan that "Start" starts now.
std::optional<Outcome> startMapping(Consent consent);

std::optional<Outcome> startFocus();
std::optional<Outcome> startSweep(const SweepPlan& plan);
std::optional<Outcome> startSeries(const SeriesPlan& plan);

// `run` measures the list's rows (lists/list_run.h).
std::optional<Outcome> startListRun(const std::function<Outcome()>& run);

// A place of the stage, um; Z where it is to be left is none.
struct StageTarget {
    double x = 0.0, y = 0.0;
    std::optional<double> z;
};

// Why the stage would not go there; empty when it can. `farFocus`: what the operator is asked
// before so long a way of Z; empty without.
std::string whyNotMoved(const StageTarget& to, std::string& farFocus);

// Z first where it goes down and last where it goes up: whoever comes from above must not graze
// the sample. Empty when the stage is there; a click interrupts it.
std::string moveStage(const StageTarget& to);

// The question before Z is sent so far up; empty when there is none.
std::string farFocusQuestion(double targetUm);
