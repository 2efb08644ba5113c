// Moves the stage and waits for its arrival.
#include "motion/stage.h"

#include "platform/clock.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/process.h"
#include "session/responsive_wait.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>

namespace {

// Between two looks at a stage on its way.
constexpr uint32_t pollMs = 50;
constexpr uint32_t earlyPollMs = 2;

// A stage that has stood beside its target for so many looks, 50 ms apart, does not move.
constexpr int looksOfStall = 101;

// A move of one axis ends at less than this from its target, a move of two at this at most.
constexpr float oneAxisToleranceUm = 1.0f;
constexpr double twoAxesToleranceUm = 3.0;

// A stage that went less than this between two looks stands.
constexpr double leastWayUm = 1.0;

// By axis, but for the last.
struct {
    int movesUnderWay[axisCount] = {};
    double nudgesUm[axisCount] = {}; // wait for the end of the axis' move; 0 none
    bool nudging[axisCount] = {};
    uint64_t settledMs = 0;
} moves;

// A move of the axis is under way in its block.
struct MoveMark {
    explicit MoveMark(const StageAxis& axis) : index(indexOf(axis)) {
        ++moves.movesUnderWay[index];
    }
    ~MoveMark() { --moves.movesUnderWay[index]; }
    MoveMark(const MoveMark&) = delete;
    MoveMark& operator=(const MoveMark&) = delete;

    const size_t index;
    const MoveUnderWay moving;
};

void dropNudge(const StageAxis& axis) {
    moves.nudgesUm[indexOf(axis)] = 0.0;
}

// What a held key asks for meanwhile is dropped.
void carryOutNudge(StageAxis& axis) {
    const size_t i = indexOf(axis);
    const double um = moves.nudgesUm[i];
    moves.nudgesUm[i] = 0.0;
    if (um == 0.0 || moves.nudging[i] || session.stopRequested) return;
    moves.nudging[i] = true;
    moveBy(axis, um);
    moves.nudging[i] = false;
}

// A move that takes longer than it was given and still comes nearer is none that failed.
class Approach {
public:
    // Looks at the axes after their positions were read; `errUm` is how far they are away.
    void look(bool underWay, double errUm) {
        const uint64_t now = tickCountMs();
        if (!underWay || errUm < nearest) last = now;
        moves = underWay;
        nearest = std::min(nearest, errUm);
    }
    // For so long a controller that takes up its play goes past the target and comes back.
    bool goesOn() const { return moves && tickCountMs() - last < 1000; }

private:
    double nearest = std::numeric_limits<double>::infinity();
    uint64_t last = tickCountMs();
    bool moves = false;
};

// An axis without a controller holds up nobody, unless it is the one that has the longer way.
double distanceLeft(const StageAxis& axis, double targetUm, bool leads) {
    return axis.axisNumber == 0 && !leads ? 0.0 : std::fabs(axis.positionUm - targetUm);
}

// Until the first look at a stage that has `travelMs` to go, and between the later ones.
uint32_t untilFirstLookMs(double travelMs, const ArrivalTiming& timing) {
    return timing.looksEarly ? static_cast<uint32_t>(std::max(0.0, std::ceil(travelMs))) : 0;
}

uint32_t betweenLooksMs(const ArrivalTiming& timing) {
    return timing.looksEarly ? earlyPollMs : pollMs;
}

// Tells every look, or of those that come every 2 ms the ones 50 ms apart: what counts looks and
// compares neighbours is made for these.
class LookPeriod {
public:
    explicit LookPeriod(const ArrivalTiming& timing) : looksEarly(timing.looksEarly) {}
    bool isOver() {
        const uint64_t now = tickCountMs();
        if (looksEarly && now - began < pollMs) return false;
        began = now;
        return true;
    }

private:
    const bool looksEarly;
    uint64_t began = tickCountMs();
};

// Looks again and again at one axis until its move has ended.
class ArrivalWatch {
public:
    ArrivalWatch(StageAxis& watched, double targetUm, const ArrivalTiming& timing)
        : axis(watched), target(static_cast<float>(targetUm)), period(timing) {}

    // One look. True when the move has ended: `code` says how.
    bool look(bool timeIsOver) {
        const auto current = static_cast<float>(readPosition(axis));
        lookedMs = tickCountMs();
        refreshPositions();
        if (axisIsOut(axis)) return true;
        const float errTarget = std::fabs(current - target);
        const float errStep = std::fabs(current - previous);
        approach.look(controllerMoves(axis), static_cast<double>(errTarget));
        const Miss trouble = troubleIn(axis.status);
        // Where its controller counts to is not where it is.
        if (errTarget < oneAxisToleranceUm && trouble == Miss::StepsLost) return true;
        if (errTarget < oneAxisToleranceUm && trouble == Miss::Nothing)
            code = arrived;
        else if (axis.leftLimitOn && current > target)
            code = leftLimit;
        else if (axis.rightLimitOn && target > current)
            code = rightLimit;
        if (code != notArrived) return true;
        if (timeIsOver && !approach.goesOn()) return true;
        if (!period.isOver()) return false;
        const bool stalled = static_cast<double>(errStep) < leastWayUm &&
                             errTarget > oneAxisToleranceUm && looks >= looksOfStall;
        if (stalled && !approach.goesOn()) return true;
        ++looks;
        previous = current;
        return false;
    }

    int code = notArrived;
    int looks = 0; // before the last one
    uint64_t lookedMs = tickCountMs();

private:
    StageAxis& axis;
    const float target;
    float previous = 1000000.0f;
    Approach approach;
    LookPeriod period;
};

double travelMs(const StageAxis& axis, double targetUm) {
    const double umPerSecond = std::max(axis.engine.NomSpeed, 1u) * umPerStepOf(axis);
    return std::fabs(targetUm - axis.positionUm) / umPerSecond * 1000.0;
}

void showArrival(const StageAxis& axis, const ArrivalWatch& watch, bool stopped,
                 uint64_t timeoutMs) {
    if (watch.code == arrived)
        return showInformation(formatted("arrived:count%d", watch.looks).c_str());
    if (!stopped && !axisIsOut(axis)) printNotArrived(axis); // of one that is out all is said
    // The trailing blanks let a shorter text overwrite a longer one.
    if (watch.code == leftLimit) return showInformation("Limit left Switch on    ");
    if (watch.code == rightLimit) return showInformation("Limit right Switch on    ");
    if (axisIsOut(axis)) return showAxisOut(axis);
    if (!stopped && axis.missed != Miss::Stalled) return showInformation(missedText(axis).c_str());
    showInformation(
        formatted("Not moving during %d sec     ", truncated(static_cast<double>(timeoutMs) / 1000))
            .c_str());
}

// Two axes that are to arrive together.
struct TwoAxes {
    StageAxis& a;
    StageAxis& b;
    double targetA;
    double targetB;

    // In the um that a stage as built goes in as many steps.
    static double wayOf(const StageAxis& axis, double distanceUm) {
        return distanceUm * (umPerFullStep / umPerStepOf(axis));
    }
    double wayA() const { return wayOf(a, distanceA()); }
    double wayB() const { return wayOf(b, distanceB()); }
    bool aLeads(int32_t speed) const {
        return wayA() / speedOf(a, speed) > wayB() / speedOf(b, speed);
    }
    double distanceA() const { return std::fabs(targetA - a.positionUm); }
    double distanceB() const { return std::fabs(targetB - b.positionUm); }
    double longestUm() const { return std::max(distanceA(), distanceB()); }
    bool isOut() const { return axisIsOut(a) || axisIsOut(b); }
    void readPositions() const {
        readPosition(a);
        readPosition(b);
        refreshPositions();
    }
};

// Starts both, the one with the longer way at `speed`; returns the milliseconds that the way takes
// at a um a step.
double startTogether(const TwoAxes& pair, int32_t speed) {
    const bool aLeads = pair.aLeads(speed);
    StageAxis& leader = aLeads ? pair.a : pair.b;
    StageAxis& other = aLeads ? pair.b : pair.a;
    const int32_t leaderSpeed = speedOf(leader, speed);
    const double timeMs = (aLeads ? pair.wayA() : pair.wayB()) * 1000.0 / leaderSpeed;
    const double shorter = aLeads ? pair.wayB() : pair.wayA();
    int32_t shorterSpeed =
        timeMs > 0.0 ? truncated(shorter * 1000.0 / timeMs) : speedOf(other, speed);
    // At speed 0 a short way beside a long one would never be gone; no way keeps its speed.
    if (shorter > 0.0) shorterSpeed = std::max(shorterSpeed, 1);
    setSpeed(pair.a, aLeads ? leaderSpeed : shorterSpeed);
    setSpeed(pair.b, aLeads ? shorterSpeed : leaderSpeed);
    startMoveTo(pair.a, pair.targetA);
    if (!axisIsOut(pair.a)) startMoveTo(pair.b, pair.targetB);
    return timeMs;
}

// Looks again and again at two axes until they are at their targets or will not be.
class PairWatch {
public:
    PairWatch(const TwoAxes& watched, const ArrivalTiming& timing)
        : pair(watched), looksEarly(timing.looksEarly), aLeads(pair.wayA() > pair.wayB()),
          aGoes(pair.distanceA() > 0.0), bGoes(pair.distanceB() > 0.0), period(timing) {}

    // One look. True when the move has ended: `atTarget` says whether there.
    bool look(bool timeIsOver) {
        pair.readPositions();
        if (pair.isOut()) return true;
        // The other axis is watched too: a key or a switch may have sent it elsewhere.
        const double err = std::max(distanceLeft(pair.a, pair.targetA, aLeads),
                                    distanceLeft(pair.b, pair.targetB, !aLeads));
        const bool movesOn = controllerMoves(pair.a) || controllerMoves(pair.b);
        const bool comesNearer =
            looksEarly ? movesOn || err != lastErr : std::fabs(err - previousErr) >= leastWayUm;
        lastErr = err;
        // The last look has no earlier one to compare with.
        atTarget = err <= twoAxesToleranceUm && (timeIsOver || !comesNearer);
        const Miss causes[] = {causeAt(pair.a, pair.targetA), causeAt(pair.b, pair.targetB)};
        if (atTarget && std::count(causes, causes + 2, Miss::StepsLost) > 0) {
            atTarget = false;
            return true;
        }
        atTarget = atTarget && causes[0] == Miss::Nothing && causes[1] == Miss::Nothing;
        if (atTarget) return true;
        // One that is blocked does not end the move of the other, which would go on unwatched.
        const double bothErr = pair.distanceA() + pair.distanceB();
        approach.look(movesOn, bothErr);
        counts = period.isOver();
        if (!counts) return false;
        if (bothErr == previousBoth && waits >= looksOfStall) return true;
        previousErr = err;
        previousBoth = bothErr;
        return false;
    }
    void waited() { waits += counts ? 1 : 0; }
    bool goesOn() const { return approach.goesOn(); }

    // Why one of the two is not at its target by the last look. Windings that were not needed may
    // be without current.
    Miss causeAt(const StageAxis& axis, double targetUm) const {
        if (axis.axisNumber == 0) return Miss::Nothing;
        if (axisIsOut(axis) || distanceLeft(axis, targetUm, false) > twoAxesToleranceUm)
            return whyMissed(axis, targetUm);
        const Miss trouble = troubleIn(axis.status);
        const bool went = &axis == &pair.a ? aGoes : bGoes;
        return trouble == Miss::WindingsOff && !went ? Miss::Nothing : trouble;
    }

    bool atTarget = false;
    int waits = 0; // between the looks that count

private:
    const TwoAxes& pair;
    const bool looksEarly;
    const bool aLeads;
    const bool aGoes, bGoes;
    double previousErr = -10.0;
    double previousBoth = -10.0;
    double lastErr = -10.0; // of the look before, whether it counts or not
    bool counts = false;
    Approach approach;
    LookPeriod period;
};

// Whether the wait ended at a click.
bool waitForBoth(PairWatch& watch, double timeMs, const ArrivalTiming& timing) {
    const uint64_t start = tickCountMs();
    if (const uint32_t firstMs = untilFirstLookMs(timeMs / umPerFullStep, timing);
        firstMs > 0 && waitResponsive(firstMs) == waitInterrupted)
        return true;
    const uint64_t limitMs = static_cast<uint64_t>(truncated(timeMs)) * 2 + 500;
    for (;;) {
        const bool timeIsOver = tickCountMs() - start >= limitMs;
        if (watch.look(timeIsOver)) return false;
        if (waitResponsive(betweenLooksMs(timing)) == waitInterrupted) return true;
        watch.waited();
        if (timeIsOver && !watch.goesOn()) return false;
    }
}

} // namespace

bool nudgeAfterMove(const StageAxis& axis, double um) {
    const size_t i = indexOf(axis);
    if (moves.movesUnderWay[i] == 0) return false;
    if (moves.nudgesUm[i] == 0.0 && !moves.nudging[i]) moves.nudgesUm[i] = um;
    return true;
}

uint64_t lastSettledMs() {
    return moves.settledMs;
}

void waitAfterMove(uint64_t sinceMs, uint32_t durationMs, const ArrivalTiming& timing) {
    if (timing.looksEarly)
        waitResponsiveSince(sinceMs, durationMs);
    else
        waitResponsive(durationMs);
}

namespace {

// Looks at an axis that has just been read, and again, until it stands at the target: `missed` of
// the axis says why not. Returns when it looked last.
uint64_t awaitStanding(StageAxis& axis, double targetUm, double toleranceUm,
                       const ArrivalTiming& timing) {
    // A move has ended up to 3 um before its target: a second for those down to 3 um/s. One that
    // stands beside it will not come; the tenth of a second is for a status that is old.
    constexpr uint64_t longestWayMs = 1000;
    constexpr uint64_t longestRestMs = 100;
    const bool hadArrived = axis.missed == Miss::Nothing;
    const uint64_t start = tickCountMs();
    uint64_t lastMoved = start;
    for (;;) {
        const uint64_t now = tickCountMs();
        const double distanceUm = std::fabs(axis.positionUm - targetUm);
        const bool moves = controllerMoves(axis);
        const Miss trouble = axisIsOut(axis) ? whyMissed(axis, targetUm) : troubleIn(axis.status);
        axis.missed = trouble;
        if (trouble != Miss::Nothing) return now;
        if (moves) lastMoved = now;
        if (!moves && distanceUm <= toleranceUm) {
            axis.positionUm = targetUm;
            return now;
        }
        axis.missed = whyMissed(axis, targetUm);
        if (axis.missed == Miss::Stalled && hadArrived && distanceUm > twoAxesToleranceUm)
            axis.missed = Miss::MovedAway;
        if (now - start >= longestWayMs || now - lastMoved >= longestRestMs) return now;
        if (waitResponsive(timing.looksEarly ? earlyPollMs : 10) != waitPassed ||
            session.stopRequested)
            return now;
        readPosition(axis);
    }
}

} // namespace

int waitForArrival(StageAxis& axis, double targetUm, uint64_t timeoutMs,
                   const ArrivalTiming& timing) {
    const MoveMark moving(axis);
    ArrivalWatch watch(axis, targetUm, timing);
    bool stopped = false;
    const uint64_t start = tickCountMs();
    uint32_t waitMs = untilFirstLookMs(travelMs(axis, targetUm), timing);
    for (;;) {
        if (waitMs > 0 && waitResponsive(waitMs) == waitInterrupted) {
            showInformation("stop requested");
            stopped = true;
            readPosition(axis); // it went on since the last look
            break;
        }
        // One last look after the time: an operator may have taken it to answer a question.
        if (watch.look(tickCountMs() - start >= timeoutMs)) break;
        waitMs = betweenLooksMs(timing);
    }
    uint64_t restsMs = watch.lookedMs;
    axis.missed = watch.code == arrived ? Miss::Nothing : whyMissed(axis, targetUm);
    if (watch.code == arrived && timing.standsWithinUm > 0.0)
        restsMs = awaitStanding(axis, targetUm, timing.standsWithinUm, timing);
    else if (watch.code == arrived)
        axis.positionUm = targetUm;
    showArrival(axis, watch, stopped, timeoutMs);
    refreshPositions();
    waitAfterMove(restsMs, timing.settleMs, timing);
    moves.settledMs = restsMs + timing.settleMs;
    return watch.code;
}

namespace {

// What the operator sends the stage to; the moves of a process are the process.
bool logMove(const std::string& what, bool arrived, std::initializer_list<const StageAxis*> axes) {
    if (processUnderWay()) return arrived;
    std::string why;
    for (const StageAxis* axis : axes)
        if (axis->missed != Miss::Nothing) why += ", " + missedText(*axis);
    logEvent("Move " + what + (arrived ? "" : ": did not arrive" + why));
    return arrived;
}

std::string place(const StageAxis& axis, double um) {
    return formatted("%c to %.1f um%s", "XYZ"[indexOf(axis)], um,
                     axis.axisNumber == 0 ? " (counted only, no controller)" : "");
}

bool moveOneAxis(StageAxis& axis, double um, const ArrivalTiming& timing) {
    if (axis.axisNumber == 0) {
        axis.positionUm = um;
        return true;
    }
    // Micrometres less steps: it only sizes the time-out, and those of today have proved
    // themselves.
    const bool asBuilt = umPerStepOf(axis) == umPerFullStep;
    const double distance =
        asBuilt ? std::fabs(um - std::fabs(fullStepsOf(axis, 1.0)) * axis.positionUm)
                : std::fabs(fullStepsOf(axis, um - axis.positionUm));
    const int32_t baseMs = truncated(distance * 1000.0 / axis.engine.NomSpeed);
    if (axis.positionUm == um && !axisIsOut(axis)) return true;
    if (!startMoveTo(axis, um)) return false;
    const int code = waitForArrival(axis, um, static_cast<uint64_t>(baseMs) * 2 + 1000, timing);
    if (code == arrived)
        carryOutNudge(axis);
    else
        dropNudge(axis);
    return code == arrived && axis.missed == Miss::Nothing;
}

} // namespace

bool moveTo(StageAxis& axis, double um, const ArrivalTiming& timing) {
    if (axis.positionUm == um && !axisIsOut(axis)) return true; // no move
    const bool came = moveOneAxis(axis, um, timing);
    return logMove(place(axis, um), came, {&axis});
}

bool standsAt(StageAxis& axis, double targetUm, double toleranceUm, const ArrivalTiming& timing) {
    if (axis.axisNumber == 0) return true;
    readPosition(axis);
    awaitStanding(axis, targetUm, toleranceUm, timing);
    return axis.missed == Miss::Nothing;
}

bool stillStandsAt(StageAxis& axis, double targetUm, double toleranceUm,
                   const ArrivalTiming& timing) {
    if (axis.axisNumber == 0) return true;
    readRestingPosition(axis);
    awaitStanding(axis, targetUm, toleranceUm, timing);
    return axis.missed == Miss::Nothing;
}

bool moveBy(StageAxis& axis, double deltaUm, const ArrivalTiming& timing) {
    return moveTo(axis, axis.positionUm + deltaUm, timing);
}

namespace {

// Stops it, unless that would end an alarm that nobody has looked into.
void stopUnlessOut(StageAxis& axis) {
    if (!axisIsOut(axis)) stopStage(axis);
}

bool isOutBefore(StageAxis& axis, double targetUm) {
    if (axisIsOut(axis)) readPosition(axis); // an alarm may be over
    if (!axisIsOut(axis)) return false;
    axis.missed = whyMissed(axis, targetUm);
    showAxisOut(axis);
    return true;
}

bool movePair(StageAxis& a, StageAxis& b, double targetA, double targetB, int32_t speed,
              const ArrivalTiming& timing) {
    const TwoAxes pair{a, b, targetA, targetB};
    a.missed = b.missed = Miss::Nothing;
    // One axis alone would go to a place that nobody has named.
    if (isOutBefore(a, targetA) || isOutBefore(b, targetB)) return false;
    if (!mayGoTo(a, targetA) || !mayGoTo(b, targetB)) return false;
    speed = std::clamp(speed, 10, 800);
    const double distanceUm = pair.longestUm();
    PairWatch watch(pair, timing);
    const double timeMs = startTogether(pair, speed);

    const MoveMark movingA(a), movingB(b);
    watch.atTarget = timeMs == 0.0; // no distance, nothing to wait for
    const bool clicked = !watch.atTarget && waitForBoth(watch, timeMs, timing);
    if (pair.isOut()) { // the other one does not go on alone
        stopUnlessOut(a);
        stopUnlessOut(b);
    }
    setSpeed(a, speedOf(a, speed));
    setSpeed(b, speedOf(b, speed));
    showProgress(formatted("count:%d Dist. to move %.1lfum", watch.waits, distanceUm).c_str());
    if (!watch.atTarget) {
        dropNudge(a);
        dropNudge(b);
        pair.readPositions();
        a.missed = watch.causeAt(a, targetA);
        b.missed = watch.causeAt(b, targetB);
        if (clicked || pair.isOut()) return false;
        for (const StageAxis* axis : {&a, &b})
            if (axis->missed != Miss::Nothing) printNotArrived(*axis);
        return false;
    }
    a.positionUm = targetA;
    b.positionUm = targetB;
    carryOutNudge(a);
    carryOutNudge(b);
    return true;
}

} // namespace

bool moveTwoAxesTo(StageAxis& a, StageAxis& b, double targetA, double targetB, int32_t speed,
                   const ArrivalTiming& timing) {
    const std::string what = place(a, targetA) + ", " + place(b, targetB);
    const bool came = movePair(a, b, targetA, targetB, speed, timing);
    return logMove(what, came, {&a, &b});
}

bool moveTwoAxesBy(StageAxis& a, StageAxis& b, double deltaA, double deltaB, int32_t speed,
                   const ArrivalTiming& timing) {
    return moveTwoAxesTo(a, b, a.positionUm + deltaA, b.positionUm + deltaB, speed, timing);
}

std::string missedXyText() {
    return missedText(stageX.missed != Miss::Nothing ? stageX : stageY);
}

bool moveXYTo(double x, double y, int32_t speed, const ArrivalTiming& timing) {
    return moveTwoAxesTo(stageX, stageY, x, y, speed, timing);
}

bool moveXYBy(double dx, double dy, int32_t speed, const ArrivalTiming& timing) {
    return moveTwoAxesBy(stageX, stageY, dx, dy, speed, timing);
}

void refreshPositions() {
    setField(Field::PositionX, formatted("%.1lf", stageX.positionUm).c_str());
    setField(Field::PositionY, formatted("%.1lf", stageY.positionUm).c_str());
    setField(Field::PositionZ, formatted("%.1lf", stageZ.positionUm).c_str());
}
