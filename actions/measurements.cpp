// Begins what takes long.
#include "actions/measurements.h"

#include "actions/settings.h"
#include "camera/autofocus.h"
#include "camera/live_view.h"
#include "instruments/lights.h"
#include "lists/list_run.h"
#include "mapping/map_rendering.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "motion/stage_connection.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"

#include <cmath>

namespace {

Outcome focusLaser() {
    connectMissingCamera();
    checkRadio(idLaserView, idSampleView, idLaserView);
    const bool laserWasOn = laserIsOn();
    setLaserLevel(1);
    setLaserOutput(0);
    FocusState search;
    // After a stop nobody watches over the light that the search has switched on.
    if (!autoFocus(search) && !laserWasOn) setLaserLevel(0);
    Outcome outcome{.end = processEnd(), .lastWords = search.lastWords};
    if (!search.trouble.empty()) outcome.troubles.push_back(search.trouble);
    if (outcome.isSound() && !search.completed) outcome.troubles.emplace_back("No focus found");
    return outcome;
}

} // namespace

Outcome mapSample(const std::function<bool()>& prepare, const std::function<Outcome()>& scan) {
    session.stopRequested = 0; // before the question: the window may be closed while it is asked
    Outcome outcome{.end = ProcessEnd::Declined};
    const XyOfScan xy; // another place than the one that the area was drawn at would be scanned
    if (partialStageAccepted() && !session.stopRequested && prepare() && !session.stopRequested) {
        const RunningProcess running;
        setField(Field::StartButton, "Stop");
        showInformation("Writing...");
        waitResponsive(10);
        if (scanSettings.confocalEnabled) connectMissingCamera();
        showMapWindow(channelPhotocurrent);
        outcome = scan();
    } else {
        return outcome;
    }
    setField(Field::StartButton, "Start");
    refreshPositions();
    return outcome;
}

std::optional<Outcome> startMapping(Consent consent) {
    return runProcess(
        "Mapping",
        [consent] {
            return mapSample([] { return true; },
                             [consent] {
                                 ScanPlan plan = presentPlan();
                                 plan.consent = consent;
                                 return runScan(plan);
                             });
        },
        saveScanAtForcedEnd);
}

std::optional<Outcome> startFocus() {
    return runProcess("Focus", focusLaser);
}

std::optional<Outcome> startSweep(const SweepPlan& plan) {
    const auto work = [&plan] {
        runSweep(plan);
        saveIvCurve(false);
        return sweepRecord.outcome;
    };
    return runProcess("I-V curve", work, [] { saveIvCurve(true); });
}

std::optional<Outcome> startSeries(const SeriesPlan& plan) {
    const auto work = [&plan] {
        if (runSeries(plan).end != ProcessEnd::Declined) saveTimeEvolution(false);
        return sweepRecord.outcome;
    };
    return runProcess("Time evolution", work, [] { saveTimeEvolution(true); });
}

std::optional<Outcome> startListRun(const std::function<Outcome()>& run) {
    const auto work = [&run]() -> Outcome {
        // Before the question: the window may be closed while it is asked.
        session.stopRequested = 0;
        if (!partialStageAccepted() || session.stopRequested) return {.end = ProcessEnd::Declined};
        return run();
    };
    return runProcess("Scan list", work, saveRowAtForcedEnd);
}

std::string farFocusQuestion(double targetUm) {
    constexpr double farFocusMoveUm = 2000.0;
    if (targetUm - stageZ.positionUm < farFocusMoveUm) return {};
    return formatted("Are you sure the distance from objective lens to sample greater than %dmm.",
                     static_cast<int>(targetUm) / 1000);
}

std::string whyNotMoved(const StageTarget& to, std::string& farFocus) {
    const auto why = [](const StageAxis& axis, double um) -> std::string {
        if (axis.axisNumber == 0)
            return formatted("stage %c has no controller", "XYZ"[indexOf(axis)]);
        if (axisIsOut(axis)) return axisTrouble(axis);
        return beyondLimit(axis, um);
    };
    for (const auto& [axis, um] : {std::pair{&stageX, to.x}, std::pair{&stageY, to.y}})
        if (std::string words = why(*axis, um); !words.empty()) return words;
    if (!to.z) return {};
    farFocus = farFocusQuestion(*to.z);
    return why(stageZ, *to.z);
}

std::string moveStage(const StageTarget& to) {
    const bool lowers = to.z && *to.z < stageZ.positionUm;
    const bool raises = to.z && *to.z > stageZ.positionUm;
    std::string missed;
    // A stop may come when a move has just ended.
    const auto goesOn = [&missed, stops = session.moveStops] {
        if (missed.empty() && session.moveStops != stops) missed = "stopped";
        return missed.empty();
    };
    if (lowers || raises) setSpeed(stageZ, setUp.focusSpeed);
    if (lowers && !moveTo(stageZ, *to.z)) missed = missedText(stageZ);
    if (goesOn() && !moveXYTo(to.x, to.y, motorSpeed)) missed = missedXyText();
    // A move of both axes ends up to 3 um before its target.
    for (const auto& [axis, um] : {std::pair{&stageX, to.x}, std::pair{&stageY, to.y}})
        if (goesOn() && !moveTo(*axis, um)) missed = missedText(*axis);
    if (goesOn() && raises && !moveTo(stageZ, *to.z)) missed = missedText(stageZ);
    if (windows.main) refreshPositions();
    return missed;
}
