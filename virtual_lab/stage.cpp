// Three stepper stages with play in their drives and limit switches, behind the functions of the
// controllers' library. Controllers know their motors only, never the carriage.
#include "virtual_lab/faces.h"
#include "virtual_lab/lab_state.h"
#include "virtual_lab/lock_in.h"

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace LabXimc;

constexpr double microsteps = 256;

constexpr double muteMs = 7000; // measured on the library with a controller that answers nothing

// As they are numbered: the first controller drives Y, the second X, the third Z. One that has
// replaced another has its number and ten; the fourth is another set-up's.
constexpr int controllerAxis[3] = {labY, labX, labZ};
constexpr int strangerController = 3;
static char controllerNames[4][12] = {"virtual:1", "virtual:2", "virtual:3", "virtual:4"};
static char replacedNames[3][12] = {"virtual:11", "virtual:12", "virtual:13"};
constexpr const char* ownersNames[4] = {"Sample Y", "Sample X", "Focus", "Other table"};
constexpr const char* stageNames[4] = {"linear 25", "linear 25", "vertical 10", "rotary"};
constexpr int32_t initialCounts[3] = {12345, -2310, 700}; // by axis

constexpr double reducesAfterMs = 1500;           // the windings' current, at rest
constexpr int32_t supply = 1205, lowSupply = 610; // Upwr, in hundredths of a volt

static double umPerStep(int axis) { // full step
    return lab.faults.setUp.umPerTurn[axis] / lab.faults.stepsPerTurn[axis];
}

// 1 where the controller counts up as the carriage goes up.
static int signOf(int axis) {
    return lab.faults.setUp.reversed[axis] ? -1 : 1;
}

// Of the way that the motor was given: all of it without current in the windings, otherwise what
// the fault says.
static void loseSteps(int axis, LabMotor& motor, double wayUm) {
    const LabFaults& faults = lab.faults;
    if (faults.unpowered[axis]) {
        motor.slipUm += wayUm;
        return;
    }
    const double lost = std::clamp(faults.slipUm[axis] - motor.lostUm, 0.0, std::abs(wayUm));
    motor.lostUm += lost;
    motor.slipUm += std::copysign(lost, wayUm);
}

static void advanceMotorTo(int axis, double nowMs) {
    LabMotor& motor = lab.motors[axis];
    const LabFaults& faults = lab.faults;
    const double stepUm = umPerStep(axis);
    // On the short ways of a microscope ramps leave about half of the speed.
    const double allowed = motor.engineFlags & engineLimitRpm ? motor.nominalSpeed : highestSpeed;
    double speed =
        std::min(faults.ownSpeed[axis], allowed) * (motor.engineFlags & engineAccelOn ? 0.5 : 1.0);
    double reach = std::max(0.0, nowMs - motor.updatedMs) / 1000 * speed;
    motor.updatedMs = nowMs;
    if (faults.stalled[axis]) {
        motor.targetSteps = motor.steps;
        motor.pastTarget = 0;
    }

    // Moving right the carriage touches the motor's nut, moving left it lags by the play.
    const double before = motor.steps;
    double rightEnd = std::max(motor.steps, (faults.rightLimitUm[axis] + motor.slipUm) / stepUm);
    double leftEnd = std::min(
        motor.steps, (faults.leftLimitUm[axis] - faults.backlashUm[axis] + motor.slipUm) / stepUm);
    motor.targetSteps = std::clamp(motor.targetSteps, leftEnd, rightEnd);

    // First beyond the target, where it overshoots, and then back.
    for (bool back = false; !back;) {
        const double goal = std::clamp(motor.targetSteps + motor.pastTarget, leftEnd, rightEnd);
        const double way = goal - motor.steps;
        back = motor.pastTarget == 0 || std::abs(way) > reach;
        motor.steps = std::abs(way) <= reach ? goal : motor.steps + std::copysign(reach, way);
        reach -= std::min(reach, std::abs(way));
        if (!back) motor.pastTarget = 0;
    }
    if (motor.steps != before) motor.restsMs = nowMs - reach / speed * 1000;
    loseSteps(axis, motor, (motor.steps - before) * stepUm);
    double motorUm = motor.steps * stepUm - motor.slipUm;
    motor.carriageUm = std::clamp(motor.carriageUm, motorUm, motorUm + faults.backlashUm[axis]);
}

void advanceMotorsTo(double ms) {
    for (int axis : {labX, labY, labZ}) advanceMotorTo(axis, ms);
}

// A lock-in's filter has to see the way there.
static void advanceMotor(int axis) {
    followLockIns();
    advanceMotorTo(axis, labNowMs());
}

void advanceMotors() {
    followLockIns();
    advanceMotorsTo(labNowMs());
}

void resetMotors() {
    for (int axis : {labX, labY, labZ}) {
        lab.motors[axis] = {};
        lab.motors[axis].originSteps = initialCounts[axis] + static_cast<int32_t>(lab.seed % 1000);
        lab.motors[axis].updatedMs = labNowMs();
    }
}

static bool isOnBus(int controller) {
    if (controller == strangerController) return lab.faults.stranger;
    return controller < lab.faults.controllers &&
           !lab.faults.noController[controllerAxis[controller]];
}

static char* nameOfController(int controller) {
    const bool replaced =
        controller != strangerController && lab.faults.replaced[controllerAxis[controller]];
    return replaced ? replacedNames[controller] : controllerNames[controller];
}

void dropMissingControllers() {
    for (int controller : {0, 1, 2})
        if (!isOnBus(controller)) lab.motors[controllerAxis[controller]].id = -1;
}

void cycleLabStagePower() {
    LabLock lock;
    for (int axis : {labX, labY, labZ}) {
        advanceMotor(axis);
        LabMotor& motor = lab.motors[axis];
        motor.id = -1;
        motor.commanded = false;
        motor.pastTarget = 0;
        motor.steps = motor.targetSteps = std::round(motor.steps); // where its magnet holds it
        motor.originSteps = -signOf(axis) * static_cast<int32_t>(motor.steps);
    }
}

double labStageUm(int axis) {
    LabLock lock;
    if (axis < labX || axis > labZ) return 0;
    advanceMotor(axis);
    return lab.motors[axis].carriageUm;
}

double labCountedUm(int axis) {
    LabLock lock;
    if (axis < labX || axis > labZ) return 0;
    advanceMotor(axis);
    const LabMotor& motor = lab.motors[axis];
    return (motor.steps + signOf(axis) * motor.originSteps) * umPerStep(axis);
}

double labRestedMs() {
    advanceMotors();
    return labNowMs() - std::max(lab.motors[labX].restsMs, lab.motors[labY].restsMs);
}

bool labStageMoves(int axis) {
    LabLock lock;
    if (axis < labX || axis > labZ) return false;
    advanceMotor(axis);
    return lab.motors[axis].pastTarget != 0 ||
           lab.motors[axis].targetSteps != lab.motors[axis].steps;
}

static LabStageStatus earlierStatus[3]; // what each controller would have said a call ago

static int axisOfId(int id) {
    if (id < 0) return -1;
    for (int axis : {labX, labY, labZ})
        if (lab.motors[axis].id == id) return axis;
    return -1;
}

// Where it stands: it gets no current any more until a stop.
static void raiseAlarm(int axis, uint32_t cause) {
    LabMotor& motor = lab.motors[axis];
    advanceMotor(axis);
    motor.alarm = cause;
    motor.pastTarget = 0;
    motor.targetSteps = motor.steps;
}

// What becomes of any call on an open controller; 0 goes on. May take time: not under the lock.
static int stageFault(int id) {
    double takesMs = 0;
    int result = 0;
    {
        LabLock lock;
        int axis = axisOfId(id);
        if (axis < 0) return resultError;
        const LabFaults& faults = lab.faults;
        int calls = ++lab.motors[axis].calls;
        if (faults.alarm[axis] != 0 && calls == faults.alarmFrom[axis])
            raiseAlarm(axis, faults.alarm[axis]);
        if (faults.disturbedEach[axis] > 0 && calls % faults.disturbedEach[axis] == 0)
            result = resultError;
        if (faults.lostFrom[axis] > 0 && calls >= faults.lostFrom[axis]) result = resultNoDevice;
        takesMs = result == 0 ? faults.callMs : 0;
        if (result == 0 && faults.mute[axis]) {
            takesMs = muteMs;
            result = resultError;
        }
    }
    if (takesMs > 0) labSleepMs(takesMs);
    return result;
}

// What a call on an open controller does, where nothing is broken of it.
template <class Act> static int onController(int id, Act act) {
    if (int fault = stageFault(id)) return fault;
    LabLock lock;
    const int axis = axisOfId(id);
    if (axis < 0) return resultError;
    advanceMotor(axis);
    return act(axis, lab.motors[axis]);
}

// What the motor gets of its current.
static uint32_t powerOf(int axis, const LabMotor& motor, bool moves) {
    if (motor.alarm != 0 || lab.faults.unpowered[axis] || !motor.commanded) return powerOff;
    return moves || labNowMs() - motor.restsMs < reducesAfterMs ? powerNormal : powerReduced;
}

static int controllerAt(void* found, int index) {
    return static_cast<std::vector<int>*>(found)->at(static_cast<size_t>(index));
}

static double stepParts(int axis) {
    return std::exp2(static_cast<double>(lab.faults.microstepMode[axis]) - 1);
}

extern "C" {

void ximc_version(char* version) {
    std::strcpy(version, "2.14.27");
}

int set_bindy_key(const char* path) {
    return path ? 0 : resultError;
}

// The controllers hang on the network, and what is not probed is not counted.
void* enumerate_devices(int flags, const char*) {
    LabLock lock;
    constexpr int needed = enumerateProbe | enumerateNetwork;
    auto* found = new std::vector<int>; // those that are there, the later ones move up
    if ((flags & needed) != needed) return found;
    if (isOnBus(strangerController)) found->push_back(strangerController);
    for (char axis : lab.faults.busOrder)
        for (int controller : {0, 1, 2})
            if ("xyz"[controllerAxis[controller]] == axis && isOnBus(controller))
                found->push_back(controller);
    return found;
}

int free_enumerate_devices(void* found) {
    delete static_cast<std::vector<int>*>(found);
    return 0;
}

int get_device_count(void* found) {
    return found ? static_cast<int>(static_cast<std::vector<int>*>(found)->size()) : resultError;
}

char* get_device_name(void* found, int index) {
    if (index < 0 || index >= get_device_count(found)) return nullptr;
    LabLock lock;
    return nameOfController(controllerAt(found, index));
}

// The names that a probe has read from the controllers.
int get_enumerate_device_controller_name(void* found, int index, LabControllerName* name) {
    if (!name || index < 0 || index >= get_device_count(found)) return resultError;
    *name = {};
    std::strcpy(name->ControllerName, ownersNames[controllerAt(found, index)]);
    return 0;
}

int get_enumerate_device_stage_name(void* found, int index, LabStageName* name) {
    if (!name || index < 0 || index >= get_device_count(found)) return resultError;
    *name = {};
    std::strcpy(name->PositionerName, stageNames[controllerAt(found, index)]);
    return 0;
}

int open_device(const char* name) {
    LabLock lock;
    for (int controller : {0, 1, 2}) {
        if (!name || std::strcmp(name, nameOfController(controller)) != 0) continue;
        LabMotor& motor = lab.motors[controllerAxis[controller]];
        if (!isOnBus(controller) || motor.id >= 0) return resultError; // one program at a time
        return motor.id = ++lab.lastStageId;
    }
    return resultError;
}

int close_device(int* id) {
    LabLock lock;
    int axis = id ? axisOfId(*id) : -1;
    if (axis < 0) return resultError;
    lab.motors[axis].id = -1;
    *id = -1;
    return 0;
}

int get_engine_settings(int id, LabEngineSettings* settings) {
    return onController(id, [settings](int axis, const LabMotor& motor) {
        if (!settings) return resultError;
        *settings = {};
        settings->NomVoltage = 50;
        settings->NomCurrent = 670;
        settings->NomSpeed = static_cast<uint32_t>(motor.nominalSpeed);
        settings->uNomSpeed = static_cast<uint32_t>(
            (motor.nominalSpeed - std::floor(motor.nominalSpeed)) * microsteps);
        settings->EngineFlags = motor.engineFlags;
        settings->Antiplay = 1800;
        settings->MicrostepMode = lab.faults.microstepMode[axis];
        settings->StepsPerRev = lab.faults.stepsPerTurn[axis];
        return 0;
    });
}

int set_engine_settings(int id, const LabEngineSettings* settings) {
    return onController(id, [settings](int axis, LabMotor& motor) {
        if (!settings) return resultError;
        if (settings->NomSpeed < lowestSpeed || settings->NomSpeed > highestSpeed ||
            settings->uNomSpeed > 255 ||
            settings->MicrostepMode != lab.faults.microstepMode[axis] ||
            settings->StepsPerRev != lab.faults.stepsPerTurn[axis])
            return resultValueError;
        motor.nominalSpeed = settings->NomSpeed + settings->uNomSpeed / microsteps;
        motor.engineFlags = settings->EngineFlags;
        return 0;
    });
}

int get_status(int id, LabStageStatus* status) {
    const int result = onController(id, [status](int axis, const LabMotor& motor) {
        if (!status) return resultError;
        double way = motor.targetSteps - motor.steps;

        *status = {};
        const auto parts = static_cast<int64_t>(stepParts(axis));
        int64_t counts = static_cast<int64_t>(
                             std::floor(signOf(axis) * motor.steps * static_cast<double>(parts))) +
                         motor.originSteps * parts;
        status->CurPosition = static_cast<int32_t>(counts / parts); // both parts bear the sign
        status->uCurPosition = static_cast<int32_t>(counts % parts);
        if (motor.commanded) status->MvCmdSts = commandMove;
        if (way != 0 || motor.pastTarget != 0) {
            status->MoveSts = moveStateMoving | moveStateTargetSpeed;
            status->MvCmdSts |= commandRunning;
            status->CurSpeed = static_cast<int32_t>(std::copysign(motor.nominalSpeed, way));
        }
        const bool turned = lab.faults.setUp.reversed[axis];
        if (motor.carriageUm >= lab.faults.rightLimitUm[axis] - 1e-6)
            status->GPIOFlags |= turned ? leftEdge : rightEdge;
        if (motor.carriageUm <= lab.faults.leftLimitUm[axis] + 1e-6)
            status->GPIOFlags |= turned ? rightEdge : leftEdge;
        status->PWRSts = powerOf(axis, motor, status->MoveSts != 0);
        status->Upwr = motor.alarm & stateLowSupply ? lowSupply : supply;
        if (motor.alarm != 0) status->Flags = stateAlarm | motor.alarm;
        if (motor.lostUm > 0) status->Flags |= statePositionError;
        const LabStageStatus now = *status;
        if (lab.faults.oldStatus[axis]) *status = earlierStatus[axis];
        earlierStatus[axis] = now;
        return 0;
    });
    if (result == 0 && status->MoveSts != 0 && labWhileMoving) labWhileMoving();
    return result;
}

int command_stop(int id) {
    bool moves = false;
    const int result = onController(id, [&moves](int axis, LabMotor& motor) {
        moves = motor.pastTarget != 0 || motor.targetSteps != motor.steps;
        if (labOnStage) labOnStage(axis, moves ? "stopped on its way" : "stopped");
        if (!lab.faults.alarmStays[axis]) motor.alarm = 0;
        motor.pastTarget = 0;
        motor.steps = motor.targetSteps = std::floor(motor.steps * microsteps) / microsteps;
        return 0;
    });
    if (moves && labWhileMoving) labWhileMoving();
    return result;
}

int command_move(int id, int position, int uPosition) {
    return onController(id, [=](int axis, LabMotor& motor) {
        if (std::abs(uPosition) > 255) return resultValueError;
        if (motor.alarm != 0) return 0; // acknowledged and ignored
        motor.targetSteps = signOf(axis) * (static_cast<double>(position) - motor.originSteps +
                                            uPosition / stepParts(axis));
        motor.pastTarget = std::copysign(lab.faults.overshootUm[axis] / umPerStep(axis),
                                         motor.targetSteps - motor.steps);
        motor.commanded = true;
        if (labOnStage) labOnStage(axis, "moves");
        ++lab.counters.moves;
        return 0;
    });
}

// What a caller passes here is no settings: a move that took the wrong function. The real library
// would follow the pointer.
int set_engine_advansed_setup(int, const void*) {
    return resultError;
}

int set_extended_settings(int, const void*) {
    return resultError;
}

} // extern "C"
