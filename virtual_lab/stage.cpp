// Three stepper stages with play in their drives and limit switches, behind the functions of the
// controllers' library. Controllers know their motors only, never the carriage.
#include "virtual_lab/faces.h"
#include "virtual_lab/lab_state.h"

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace LabXimc;

constexpr double umPerStep = 1.25; // full step
constexpr double microsteps = 256;

constexpr double muteMs = 7000; // measured on the library with a controller that answers nothing

// The first controller on the bus drives Y, the second X, the third Z.
constexpr int controllerAxis[3] = {labY, labX, labZ};
static char controllerNames[3][12] = {"virtual:1", "virtual:2", "virtual:3"};
constexpr int32_t initialCounts[3] = {12345, -2310, 700}; // by axis

static void advanceMotor(int axis) {
    LabMotor& motor = lab.motors[axis];
    const LabFaults& faults = lab.faults;
    double nowMs = labNowMs();
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
    double rightEnd = std::max(motor.steps, faults.rightLimitUm[axis] / umPerStep);
    double leftEnd =
        std::min(motor.steps, (faults.leftLimitUm[axis] - faults.backlashUm[axis]) / umPerStep);
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
    double motorUm = motor.steps * umPerStep;
    motor.carriageUm = std::clamp(motor.carriageUm, motorUm, motorUm + faults.backlashUm[axis]);
}

void advanceMotors() {
    for (int axis : {labX, labY, labZ}) advanceMotor(axis);
}

void resetMotors() {
    for (int axis : {labX, labY, labZ}) {
        lab.motors[axis] = {};
        lab.motors[axis].originSteps = initialCounts[axis] + static_cast<int32_t>(lab.seed % 1000);
        lab.motors[axis].updatedMs = labNowMs();
    }
}

static bool isOnBus(int controller) {
    return controller < lab.faults.controllers &&
           !lab.faults.noController[controllerAxis[controller]];
}

void dropMissingControllers() {
    for (int controller : {0, 1, 2})
        if (!isOnBus(controller)) lab.motors[controllerAxis[controller]].id = -1;
}

double labStageUm(int axis) {
    LabLock lock;
    if (axis < labX || axis > labZ) return 0;
    advanceMotor(axis);
    return lab.motors[axis].carriageUm;
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

// What becomes of any call on an open controller; 0 goes on. May take time: not under the lock.
static int stageFault(int id) {
    {
        LabLock lock;
        int axis = axisOfId(id);
        if (axis < 0) return resultError;
        int calls = ++lab.motors[axis].calls;
        int lostFrom = lab.faults.lostFrom[axis];
        if (lostFrom > 0 && calls >= lostFrom) return resultNoDevice;
        if (!lab.faults.mute[axis]) return 0;
    }
    labSleepMs(muteMs);
    return resultError;
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
    for (int controller : {0, 1, 2})
        if ((flags & needed) == needed && isOnBus(controller)) found->push_back(controller);
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
    return controllerNames[static_cast<std::vector<int>*>(found)->at(static_cast<size_t>(index))];
}

int open_device(const char* name) {
    LabLock lock;
    for (int controller : {0, 1, 2}) {
        if (!name || std::strcmp(name, controllerNames[controller]) != 0) continue;
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
        settings->StepsPerRev = 200;
        return 0;
    });
}

int set_engine_settings(int id, const LabEngineSettings* settings) {
    return onController(id, [settings](int axis, LabMotor& motor) {
        if (!settings) return resultError;
        if (settings->NomSpeed < lowestSpeed || settings->NomSpeed > highestSpeed ||
            settings->uNomSpeed > 255 || settings->MicrostepMode != lab.faults.microstepMode[axis])
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
        int64_t counts =
            static_cast<int64_t>(std::floor(motor.steps * static_cast<double>(parts))) +
            motor.originSteps * parts;
        status->CurPosition = static_cast<int32_t>(counts / parts); // both parts bear the sign
        status->uCurPosition = static_cast<int32_t>(counts % parts);
        if (motor.commanded) status->MvCmdSts = commandMove;
        if (way != 0 || motor.pastTarget != 0) {
            status->MoveSts = moveStateMoving | moveStateTargetSpeed;
            status->MvCmdSts |= commandRunning;
            status->CurSpeed = static_cast<int32_t>(std::copysign(motor.nominalSpeed, way));
        }
        if (motor.carriageUm >= lab.faults.rightLimitUm[axis] - 1e-6)
            status->GPIOFlags |= rightEdge;
        if (motor.carriageUm <= lab.faults.leftLimitUm[axis] + 1e-6) status->GPIOFlags |= leftEdge;
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
        motor.targetSteps =
            static_cast<double>(position) - motor.originSteps + uPosition / stepParts(axis);
        motor.pastTarget = std::copysign(lab.faults.overshootUm[axis] / umPerStep,
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
