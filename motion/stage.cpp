// Opens the stage axes, moves them and waits for their arrival.
#include "motion/stage.h"

#include "app/responsive_wait.h"
#include "platform/clock.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "ui/commands.h"
#include "ui/screen.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

StageAxis stageX, stageY, stageZ;
int32_t axisOrder = 2;
char deviceX_name[256], deviceY_name[256], deviceZ_name[256];
char ximc_version_str[33];

namespace {

Libximc ximc;

constexpr int probeAndNetwork = 5; // enumeration flags: probe each device (1), network (4)

// The addresses of this set-up's network controllers; controllers on USB need none.
constexpr const char* enumerationHint = "addr=192.168.0.1,192.168.0.2";

// Which found device each axis gets, by axis order.
constexpr int deviceOfAxis[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                    {2, 0, 1}, {1, 2, 0}, {2, 1, 0}};

struct AxisSlot {
    StageAxis& axis;
    char (&name)[256];
};

const AxisSlot axes[3] = {{stageX, deviceX_name}, {stageY, deviceY_name}, {stageZ, deviceZ_name}};

char letterOf(const StageAxis& axis) {
    return &axis == &stageX ? 'X' : &axis == &stageY ? 'Y' : 'Z';
}

void showLoss(const StageAxis& axis) {
    showInformation(
        formatted("Stage %c lost (%d): \"Reconnect Stages\"", letterOf(axis), axis.lostBy).c_str());
}

// Whether the call succeeded. One that did not is said; some take the axis away.
bool heeded(StageAxis& axis, int result, const char* call) {
    if (result == 0) return true;
    const bool lost = result == ximcError || result == ximcNoDevice;
    std::printf("Stage %c: %s answered %d%s\n", letterOf(axis), call, result,
                lost ? ", the axis is lost until \"Connect\"" : "");
    std::fflush(stdout);
    if (!lost) return false;
    axis.lostBy = result;
    showLoss(axis);
    return false;
}

bool canBeAsked(const StageAxis& axis) {
    return axis.axisNumber != 0 && axis.lostBy == 0;
}

// The status of before stays where the controller did not give one.
bool readStatus(StageAxis& axis) {
    status_t status{};
    if (!heeded(axis, ximc.get_status(axis.deviceId, &status), "get_status")) return false;
    axis.status = status;
    return true;
}

bool writeEngine(StageAxis& axis, const engine_settings_t& engine) {
    return heeded(axis, ximc.set_engine_settings(axis.deviceId, &engine), "set_engine_settings");
}

bool controllerMoves(const StageAxis& axis) {
    return (axis.status.MvCmdSts & MVCMD_RUNNING) != 0 ||
           (axis.status.MoveSts & (MOVE_STATE_MOVING | 0x80)) != 0; // 0x80 has no public name
}

void configureAxis(StageAxis& axis, int32_t speed) {
    axis.engineKnown = false;
    axis.engine = {};
    if (canBeAsked(axis))
        axis.engineKnown = heeded(axis, ximc.get_engine_settings(axis.deviceId, &axis.engine),
                                  "get_engine_settings");
    axis.engine.NomSpeed = static_cast<uint32_t>(speed);
    axis.engine.EngineFlags &= ~ENGINE_ACCEL_ON;
    // A record that was not read holds no motor current and no microsteps: not for a motor.
    if (axis.engineKnown) writeEngine(axis, axis.engine);
    sleepMs(10);
}

} // namespace

StepCount stepsOf(double um) {
    double steps = um * 200.0 / 250.0;
    double full = std::floor(steps);
    StepCount count{truncated(full), truncated((steps - full) * microstepsPerFullStep)};
    if (count.microsteps >= 256) {
        count.fullSteps += 1;
        count.microsteps %= 256;
    }
    return count;
}

bool openStages(int32_t order, int32_t speed) {
    ximc = loadLibximc();
    ximc.ximc_version(ximc_version_str);
    ximc.set_bindy_key("keyfile.sqlite");
    void* devices = ximc.enumerate_devices(probeAndNetwork, enumerationHint);
    int count = ximc.get_device_count(devices);
    if (count <= 0) {
        ximc.free_enumerate_devices(devices);
        stageX.axisNumber = 0;
        for (StageAxis* axis : {&stageY, &stageZ}) axis->lostBy = ximcNoDevice;
        return false;
    }

    const int* deviceOf = deviceOfAxis[order >= 0 && order <= 4 ? order : 5];
    for (int i = 0; i < 3; ++i) {
        const AxisSlot& slot = axes[i];
        slot.axis.axisNumber = 0;
        slot.axis.lostBy = 0;
        slot.axis.rightLimitOn = slot.axis.leftLimitOn = 0;
        if (i >= count || deviceOf[i] >= count) continue; // its device is not there: stays closed
        const char* found = ximc.get_device_name(devices, deviceOf[i]);
        std::snprintf(slot.name, sizeof slot.name, "%s", found ? found : "");
        slot.axis.deviceId = ximc.open_device(slot.name);
        slot.axis.axisNumber = static_cast<uint32_t>(i + 1);
    }
    ximc.free_enumerate_devices(devices);

    for (const AxisSlot& slot : axes) configureAxis(slot.axis, speed);
    for (const AxisSlot& slot : axes) setPosition(slot.axis, 0.0);
    return true;
}

void closeStage(StageAxis& axis) {
    if (axis.axisNumber != 0) ximc.close_device(&axis.deviceId);
}

double readPosition(StageAxis& axis) {
    if (!canBeAsked(axis)) return axis.positionUm;
    // The first reading after a move may be old.
    if (!readStatus(axis) || !readStatus(axis)) return axis.positionUm;
    axis.rightLimitOn = axis.status.GPIOFlags & STATE_RIGHT_EDGE ? 1 : 0;
    axis.leftLimitOn = axis.status.GPIOFlags & STATE_LEFT_EDGE ? 1 : 0;
    double steps = static_cast<double>(axis.status.CurPosition) - axis.zeroOffsetSteps +
                   axis.status.uCurPosition / microstepsPerFullStep;
    axis.positionUm = steps * umPerFullStep;
    return axis.positionUm;
}

double currentPositionUm(const StageAxis& axis) {
    return axis.positionUm;
}

void setPosition(StageAxis& axis, double um) {
    if (!canBeAsked(axis)) return;
    if (!readStatus(axis)) return;
    sleepMs(100);
    if (!readStatus(axis)) return;
    axis.zeroOffsetSteps = axis.status.CurPosition - truncated(um * 200.0 / 250.0);
    axis.positionUm = um;
}

void setSpeed(StageAxis& axis, int32_t speed) {
    if (!canBeAsked(axis)) return;
    auto clamped = static_cast<uint32_t>(std::clamp(speed, 0, 1000));
    if (clamped == axis.engine.NomSpeed || !axis.engineKnown) return;
    engine_settings_t changed = axis.engine;
    changed.NomSpeed = clamped;
    if (writeEngine(axis, changed)) axis.engine = changed;
}

bool startMoveTo(StageAxis& axis, double um) {
    if (axis.axisNumber == 0) {
        axis.positionUm = um;
        return false;
    }
    if (axisIsLost(axis)) {
        showLoss(axis);
        return false;
    }
    if (um == axis.positionUm) return true;
    if (axis.rightLimitOn && um > axis.positionUm) return false;
    if (axis.leftLimitOn && axis.positionUm > um) return false;
    StepCount steps = stepsOf(um);
    const double counts = static_cast<double>(steps.fullSteps) + axis.zeroOffsetSteps;
    return heeded(axis, ximc.command_move(axis.deviceId, truncated(counts), steps.microsteps),
                  "command_move");
}

namespace {

int movesUnderWay = 0;

// One move is under way in its block.
struct MoveMark {
    MoveMark() { ++movesUnderWay; }
    ~MoveMark() { --movesUnderWay; }
    MoveMark(const MoveMark&) = delete;
    MoveMark& operator=(const MoveMark&) = delete;
};

// An axis without a controller holds up nobody, unless it is the one that has the longer way.
double distanceLeft(const StageAxis& axis, double targetUm, bool leads) {
    return axis.axisNumber == 0 && !leads ? 0.0 : std::fabs(axis.positionUm - targetUm);
}

} // namespace

bool stageIsMoving() {
    return movesUnderWay > 0;
}

int waitForArrival(StageAxis& axis, double targetUm, uint64_t timeoutMs) {
    const MoveMark moving;
    int count = 0;
    int code = notArrived;
    float previous = 1000000.0f;
    const float target = static_cast<float>(targetUm);
    const uint64_t start = tickCountMs();
    for (;;) {
        // One last look after the time: an operator may have taken it to answer a question.
        const bool timeIsOver = tickCountMs() - start >= timeoutMs;
        const float current = static_cast<float>(readPosition(axis));
        const float errTarget = std::fabs(current - target);
        const float errStep = std::fabs(current - previous);
        refreshPositions();
        if (axisIsLost(axis)) break;
        if (errTarget < 1.0f) {
            code = arrived;
            break;
        }
        if (axis.leftLimitOn && current > target) {
            code = leftLimit;
            break;
        }
        if (axis.rightLimitOn && target > current) {
            code = rightLimit;
            break;
        }
        const bool stalled = errStep < 1.0f && errTarget > 1.0f && count >= 101;
        if (stalled || timeIsOver) break;
        if (waitResponsive(50) == waitClicked) {
            showInformation("stop requested");
            break;
        }
        ++count;
        previous = current;
    }

    switch (code) {
    case arrived:
        axis.positionUm = targetUm;
        showInformation(formatted("arrived:count%d", count).c_str());
        break;
    // The trailing blanks let a shorter text overwrite a longer one.
    case leftLimit:
        showInformation("Limit left Switch on    ");
        break;
    case rightLimit:
        showInformation("Limit right Switch on    ");
        break;
    default:
        if (axisIsLost(axis)) {
            showLoss(axis);
            break;
        }
        showInformation(formatted("Not moving during %d sec     ",
                                  truncated(static_cast<double>(timeoutMs) / 1000))
                            .c_str());
    }
    refreshPositions();
    waitResponsive(10);
    return code;
}

bool moveTo(StageAxis& axis, double um) {
    if (axis.axisNumber == 0) {
        axis.positionUm = um;
        return true;
    }
    // Micrometres less steps, and meant: this only sizes the time-out.
    const double distance = std::fabs(um - axis.positionUm * 200.0 / 250.0);
    const int32_t baseMs = truncated(distance * 1000.0 / axis.engine.NomSpeed);
    if (axis.positionUm == um && !axisIsLost(axis)) return true;
    if (!startMoveTo(axis, um)) return false;
    return waitForArrival(axis, um, static_cast<uint64_t>(baseMs) * 2 + 1000) == arrived;
}

bool axisIsLost(const StageAxis& axis) {
    return axis.axisNumber != 0 && axis.lostBy != 0;
}

bool standsAt(StageAxis& axis, double targetUm, double toleranceUm) {
    // A move has ended up to 3 um before its target: a second for those down to 3 um/s. One that
    // stands beside it will not come; the tenth of a second is for a status that is old.
    constexpr uint64_t longestWayMs = 1000;
    constexpr uint64_t longestRestMs = 100;
    if (axis.axisNumber == 0) return true;
    const uint64_t start = tickCountMs();
    uint64_t lastMoved = start;
    for (;;) {
        const double um = readPosition(axis);
        if (axisIsLost(axis)) return false;
        const uint64_t now = tickCountMs();
        if (controllerMoves(axis)) {
            lastMoved = now;
        } else if (std::fabs(um - targetUm) <= toleranceUm) {
            axis.positionUm = targetUm;
            return true;
        }
        if (now - start >= longestWayMs || now - lastMoved >= longestRestMs) return false;
        if (waitResponsive(10) != waitPassed || stopRequested) return false;
    }
}

bool moveBy(StageAxis& axis, double deltaUm) {
    return moveTo(axis, axis.positionUm + deltaUm);
}

bool moveTwoAxesTo(StageAxis& a, StageAxis& b, double targetA, double targetB, int32_t speed) {
    // One axis alone would go to a place that nobody has named.
    for (const StageAxis* axis : {&a, &b}) {
        if (!axisIsLost(*axis)) continue;
        showLoss(*axis);
        return false;
    }
    const double distA = std::fabs(targetA - a.positionUm);
    const double distB = std::fabs(targetB - b.positionUm);
    speed = std::clamp(speed, 10, 800);

    const bool aLeads = distA > distB;
    const double timeMs = std::max(distA, distB) * 1000.0 / speed;
    const double shorter = std::min(distA, distB);
    int32_t shorterSpeed = timeMs > 0.0 ? truncated(shorter * 1000.0 / timeMs) : speed;
    // At speed 0 a short way beside a long one would never be gone, and nobody watches it.
    if (shorter > 0.0) shorterSpeed = std::max(shorterSpeed, 1);
    setSpeed(a, aLeads ? speed : shorterSpeed);
    setSpeed(b, aLeads ? shorterSpeed : speed);
    startMoveTo(a, targetA);
    startMoveTo(b, targetB);

    const MoveMark moving;
    double previousErr = -10.0;
    int count = 0;
    bool atTarget = timeMs == 0.0; // no distance, nothing to wait for
    const uint64_t start = tickCountMs();
    const uint64_t limitMs = static_cast<uint64_t>(truncated(timeMs)) * 2 + 500;
    if (!atTarget) {
        bool timeIsOver = false;
        do {
            timeIsOver = tickCountMs() - start >= limitMs;
            readPosition(a);
            readPosition(b);
            refreshPositions();
            if (axisIsLost(a) || axisIsLost(b)) break;
            // The other axis is watched too: a key or a switch may have sent it elsewhere.
            const double err =
                std::max(distanceLeft(a, targetA, aLeads), distanceLeft(b, targetB, !aLeads));
            // The last look has no earlier one to compare with.
            if (err <= 3.0 && (timeIsOver || std::fabs(err - previousErr) < 1.0)) {
                atTarget = true;
                break;
            }
            const bool stalled = err == previousErr && count > 100;
            if (stalled) break;
            previousErr = err;
            if (waitResponsive(50) == waitClicked) break;
            ++count;
        } while (!timeIsOver);
    }

    setSpeed(a, speed);
    setSpeed(b, speed);
    showProgress(
        formatted("count:%d Dist. to move %.1lfum", count, std::max(distA, distB)).c_str());
    if (!atTarget) {
        readPosition(a);
        readPosition(b);
        refreshPositions();
        return false;
    }
    a.positionUm = targetA;
    b.positionUm = targetB;
    return true;
}

bool moveTwoAxesBy(StageAxis& a, StageAxis& b, double deltaA, double deltaB, int32_t speed) {
    return moveTwoAxesTo(a, b, a.positionUm + deltaA, b.positionUm + deltaB, speed);
}

bool moveXYTo(double x, double y, int32_t speed) {
    return moveTwoAxesTo(stageX, stageY, x, y, speed);
}

bool moveXYBy(double dx, double dy, int32_t speed) {
    return moveTwoAxesBy(stageX, stageY, dx, dy, speed);
}

void stopStage(StageAxis& axis) {
    if (canBeAsked(axis)) heeded(axis, ximc.command_stop(axis.deviceId), "command_stop");
}

void stopAllStages() {
    for (const AxisSlot& slot : axes) stopStage(slot.axis);
}

void closeAllStages() {
    for (const AxisSlot& slot : axes) closeStage(slot.axis);
}
