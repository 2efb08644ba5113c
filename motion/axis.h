// The three stage axes. Everything above speaks micrometres; a controller counts full motor steps
// and microsteps. Without a controller an axis acts on its cached position alone.
#pragma once

#include "motion/axis_condition.h"
#include "motion/libximc.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

// As built; setUp.drives has those of this stage.
constexpr double umPerFullStep = 250.0 / 200.0;
constexpr double microstepsPerFullStep = 256.0;

// Full steps per second of the stage as built, at openings, in scans and moves of two axes: what a
// speed is asked for in. speedOf makes the axis' own of it.
constexpr int32_t motorSpeed = 500;

// Where the operator may send the stage, to either side of the program's zero, um.
constexpr int32_t xyLimitUm = 10000;
constexpr int32_t zLimitUm = 5000;

struct StageAxis {
    uint32_t axisNumber = 0; // 0 no controller, 1 X, 2 Y, 3 Z
    engine_settings_t engine{};
    int deviceId = -1;
    status_t status{};
    uint32_t rightLimitOn = 0;
    uint32_t leftLimitOn = 0;
    double positionUm = 0.0;     // cached, relative to the program's zero
    int32_t zeroOffsetSteps = 0; // controller step count that the program calls 0 um
    bool engineKnown = false;    // `engine` was read from this controller and may be written back
    int lostBy = 0;              // the library's result that ended its controller; 0 it answers
    std::string told;            // trouble of its controller that the operator has been told of
    status_t powerTold{};        // the last status whose power was told
    Miss missed = Miss::Nothing; // why the last move or look did not find it at its target
    bool placeLost = false;      // its controller counts 0 and did not when it was last seen
    bool hasMoved = false;       // since it was opened
    // Whose count it has and since when, "xi-com:COM3 since 2026-11-27 07:45:00": places by a count
    // with another zero are not to be found again.
    std::string zero;
};

extern StageAxis stageX, stageY, stageZ;
constexpr size_t axisCount = 3;

// 0..2, of one of the three.
inline size_t indexOf(const StageAxis& axis) {
    return &axis == &stageX ? 0 : &axis == &stageY ? 1 : 2;
}

struct StageControllers {
    // Which found controller drives which axis: index into "XYZ", "XZY", "YXZ", "YZX", "ZXY",
    // "ZYX".
    int32_t axisOrder = 2;
    char deviceX_name[256] = {}, deviceY_name[256] = {}, deviceZ_name[256] = {};
    char ximc_version_str[33] = {};
    const char* nameOf(size_t axis) const {
        return axis == 0 ? deviceX_name : axis == 1 ? deviceY_name : deviceZ_name;
    }
};
extern StageControllers controllers;

// Finds and opens the controllers and calls the present place 0 um on every axis. Which drives
// which says namesOfAxes. One that does not open, or whose microsteps or steps per turn are not
// those of the set-up, is not driven. One that had been lost is stopped first. False when
// none is driven.
bool openStages(int32_t order, int32_t speed);

// The axes without a controller that answers, as "X, Z"; empty when there is none.
std::string silentAxes();

// A line for each axis: its letter and its controller's name, or why it has none.
std::string axisList();

void closeStage(StageAxis& axis);

// The controller has answered -4 (no device), or -1 (error) twice or after a second and more: one
// answer that was disturbed on its way comes back at once, and is asked for again. A loss is said
// once, the axis is no longer asked (a mute controller blocks the caller for 7 s at each call) and
// its moves fail at once until the stages are opened again; its cached position stays the last one
// that was read.
bool axisIsLost(const StageAxis& axis);

// Lost, or at the last look in an alarm, in which its controller ignores every move: no move is
// sent.
bool axisIsOut(const StageAxis& axis);

// Why an axis that is not at its target by the last look is not there.
Miss whyMissed(const StageAxis& axis, double targetUm);

// "Stage X lost (-4)", "Stage X alarm (over-current)", "Stage X limit switch": why it was missed.
std::string missedText(const StageAxis& axis);

// Asks the controller; also refreshes the limit switches. Micrometres.
double readPosition(StageAxis& axis);
double readRestingPosition(StageAxis& axis); // by one call: of an axis that was not sent anywhere
double currentPositionUm(const StageAxis& axis); // without asking
void setPosition(StageAxis& axis, double um);    // declares the present place to be `um`

// The set-up says another drive: the place where the axis rests keeps its um, and what follows goes
// by the new one. False when that is not driven before "Reconnect Stages": it has no controller
// that answers, or one whose steps are others.
bool followDrive(StageAxis& axis);

// Full steps per second, clamped to 0..1000; 0 is not sent.
void setSpeed(StageAxis& axis, int32_t speed);

// By the controller's own count, um.
double ofController(const StageAxis& axis, double um);
double byProgram(const StageAxis& axis, double controllersUm); // the way back

// A place that lasts, by the controller's own count: full steps, and how many of them a micrometre
// is, with the sign of the count. It stands for the same place behind "Set Zero", a restart of the
// program and another pitch in the set-up. Not a number: not known.
struct AxisCount {
    double steps = std::numeric_limits<double>::quiet_NaN();
    double perUm = std::numeric_limits<double>::quiet_NaN();
    std::string zero; // StageAxis::zero of then

    bool isKnown() const { return std::isfinite(steps) && std::isfinite(perUm) && !zero.empty(); }
    AxisCount by(double um) const { return {steps + perUm * um, perUm, zero}; }
};
AxisCount countOf(const StageAxis& axis, double um);        // not known without a controller
double umOf(const StageAxis& axis, const AxisCount& count); // from the program's zero now

// "stage Z has lost its place since": why a place that is known is not to be found again; empty
// when it is.
std::string whyLost(const StageAxis& axis, const AxisCount& count);

// As files have it, without commas, and back: not known where the text is none.
std::string textOf(const AxisCount& count);
AxisCount axisCountIn(const std::string& text);

// Why the set-up (Setup.ini) does not let the axis go there; empty when it does. A way back is open
// to one that stands beyond a limit.
std::string beyondLimit(const StageAxis& axis, double um);

// Whether it does. Where it does not, that is said in the information text and on standard output.
bool mayGoTo(StageAxis& axis, double um);

// Whether the operator may move it by hand now: in a process not while it has lost its place, for
// the question before its first move would hold the process, with the laser on. Says why not.
bool mayMoveByHand(const StageAxis& axis);

// True when the move was started or the axis is there already; false without a controller, towards
// an active limit switch and beyond a limit of the set-up. Before the first move of a Z whose
// controller has lost its place the operator is asked; without a Yes it does not move.
bool startMoveTo(StageAxis& axis, double um);

// Whether the controller said at the last look that it is on its way.
bool controllerMoves(const StageAxis& axis);

// "Stage X lost (-4)" or the trouble that its controller has, as troubleText; empty without one.
std::string axisTrouble(const StageAxis& axis);

// Says in the information text that the axis is lost or in an alarm, and what helps.
void showAxisOut(const StageAxis& axis);

// Prints why the axis was missed, in the controller's own words of the last look.
void printNotArrived(const StageAxis& axis);

void stopStage(StageAxis& axis);
void stopAllStages();
void closeAllStages();

double umPerStepOf(const StageAxis& axis); // full step, by the set-up

// What the set-up makes of a speed that is asked for in those of the stage as built: full steps per
// second, 10 to 800.
int32_t speedOf(const StageAxis& axis, int32_t speed);

// The controllers' counts go into Options.ini: at the end, for the next start.
void keepPlaces();

// Micrometres to the controller's counts: microsteps from 0 to less than a full step has.
struct StepCount {
    int32_t fullSteps;
    int32_t microsteps;
};
StepCount stepsOf(const StageAxis& axis, double um);

// The same before it is cut into two; its sign is the controller's.
double fullStepsOf(const StageAxis& axis, double um);
