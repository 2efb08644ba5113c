// Opens the stage axes, moves them and waits for their arrival.
#include "motion/stage.h"

#include "app/options.h"
#include "app/refusals.h"
#include "app/responsive_wait.h"
#include "platform/clock.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "ui/commands.h"
#include "ui/screen.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <vector>

StageAxis stageX, stageY, stageZ;
int32_t axisOrder = 2;
char deviceX_name[256], deviceY_name[256], deviceZ_name[256];
char ximc_version_str[33];

namespace {

Libximc ximc;

constexpr size_t axisCount = 3;

// In Options.ini: the names of the three controllers in the order in which they were found.
constexpr const char* keptNames[axisCount] = {"stage controller 1", "stage controller 2",
                                              "stage controller 3"};

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

const AxisSlot axes[axisCount] = {
    {stageX, deviceX_name}, {stageY, deviceY_name}, {stageZ, deviceZ_name}};

const char* closedBecause[axisCount] = {"no controller", "no controller", "no controller"};

// Of the three global records.
size_t indexOf(const StageAxis& axis) {
    return &axis == &stageX ? 0 : &axis == &stageY ? 1 : 2;
}

char letterOf(const StageAxis& axis) {
    return "XYZ"[indexOf(axis)];
}

void say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

// The axis as standard output names it.
std::string nameOf(const StageAxis& axis) {
    return formatted("Stage %c", letterOf(axis));
}

// At once, and again only when the axis has something else to say.
void refused(const StageAxis& axis, const std::string& words) {
    printRefusal(nameOf(axis).c_str(), words);
}

void showLoss(const StageAxis& axis) {
    showInformation(
        formatted("Stage %c lost (%d): \"Reconnect Stages\"", letterOf(axis), axis.lostBy).c_str());
}

// Whether the call succeeded. One that did not is said; some take the axis away.
bool heeded(StageAxis& axis, int result, const char* call) {
    if (result == 0) return true;
    const bool lost = result == ximcError || result == ximcNoDevice;
    refused(axis, formatted("%s answered %d%s", call, result,
                            lost ? ", the axis is lost until \"Connect\"" : ""));
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

// An axis whose controller counts in other steps would go to other places than it is told.
bool countsAsWeDo(StageAxis& axis) {
    if (!axis.engineKnown || axis.engine.MicrostepMode == MICROSTEP_MODE_FRAC_256) return true;
    refused(axis, formatted("microstep mode %u instead of %u (1/256), it is not driven",
                            axis.engine.MicrostepMode, MICROSTEP_MODE_FRAC_256));
    return false;
}

void configureAxis(size_t i, int32_t speed) {
    StageAxis& axis = axes[i].axis;
    axis.engineKnown = false;
    axis.engine = {};
    axis.engine.NomSpeed = static_cast<uint32_t>(speed);
    if (!canBeAsked(axis)) return;
    axis.engineKnown =
        heeded(axis, ximc.get_engine_settings(axis.deviceId, &axis.engine), "get_engine_settings");
    if (!countsAsWeDo(axis)) {
        closeStage(axis);
        axis.axisNumber = 0;
        closedBecause[i] = "not driven, its microsteps are not 1/256";
        return;
    }
    engine_settings_t wanted = axis.engine;
    wanted.NomSpeed = static_cast<uint32_t>(speed);
    wanted.EngineFlags &= ~ENGINE_ACCEL_ON;
    wanted.EngineFlags |= ENGINE_LIMIT_RPM;
    // A record that was not read holds no motor current and no microsteps: not for a motor. Its
    // speed still sizes the time-outs.
    if (!axis.engineKnown || writeEngine(axis, wanted)) axis.engine = wanted;
    sleepMs(10);
}

std::vector<std::string> foundNames(void* devices, int count) {
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
        const char* name = ximc.get_device_name(devices, i);
        names.emplace_back(name ? name : "");
        say(formatted("Stage controller %d: %s", i + 1, names.back().c_str()));
    }
    return names;
}

bool contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

using AxisNames = std::array<std::string, axisCount>; // empty: no controller

// Three controllers are told apart by their places in the list, and their names are kept. In a
// shorter list the places have moved up, perhaps: the names say who is there.
AxisNames namesOfAxes(const std::vector<std::string>& found, int32_t order) {
    const int* deviceOf = deviceOfAxis[order >= 0 && order <= 4 ? order : 5];
    std::vector<std::string> kept;
    for (const char* option : keptNames) kept.push_back(readOption(option));
    if (found.size() >= axisCount && !contains(found, "")) {
        std::vector<Option> options;
        for (size_t i = 0; i < axisCount; ++i) options.push_back({keptNames[i], found[i]});
        if (!std::equal(kept.begin(), kept.end(), found.begin())) writeOptions(options);
    }
    const bool byName = found.size() < axisCount && !contains(kept, "");
    AxisNames names;
    for (size_t i = 0; i < axisCount; ++i) {
        const auto device = static_cast<size_t>(deviceOf[i]);
        if (byName && contains(found, kept[device])) names[i] = kept[device];
        if (!byName && i < found.size() && device < found.size()) names[i] = found[device];
    }
    return names;
}

void announceSearch() {
    const std::string text =
        formatted("Looking for stage controllers: USB, %s ...", enumerationHint + 5);
    say(text);
    showInformation(text.c_str());
    paintPending(mainWindow); // the search blocks: 5 s where an address is silent
}

void openAxis(size_t i, const std::string& name) {
    StageAxis& axis = axes[i].axis;
    axis.axisNumber = 0;
    axis.deviceId = -1;
    axis.lostBy = 0;
    axis.rightLimitOn = axis.leftLimitOn = 0;
    closedBecause[i] = "no controller";
    forgetRefusal(nameOf(axis).c_str());
    if (name.empty()) return;
    std::snprintf(axes[i].name, sizeof axes[i].name, "%s", name.c_str());
    axis.deviceId = ximc.open_device(axes[i].name);
    if (axis.deviceId >= 0) {
        axis.axisNumber = static_cast<uint32_t>(i + 1);
        say(formatted("Stage %c: %s", letterOf(axis), axes[i].name));
        return;
    }
    closedBecause[i] = "does not open";
    refused(axis, formatted("open_device answered %d for %s", axis.deviceId, axes[i].name));
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
    announceSearch();
    ximc = loadLibximc();
    ximc.ximc_version(ximc_version_str);
    ximc.set_bindy_key("keyfile.sqlite");
    void* devices = ximc.enumerate_devices(probeAndNetwork, enumerationHint);
    const int count = ximc.get_device_count(devices);
    say(formatted("Stage controllers found: %d (libximc %s)", std::max(count, 0),
                  ximc_version_str));
    showInformation(formatted("Stage controllers found: %d", std::max(count, 0)).c_str());
    if (count <= 0) {
        ximc.free_enumerate_devices(devices);
        stageX.axisNumber = 0;
        for (StageAxis* axis : {&stageY, &stageZ}) axis->lostBy = ximcNoDevice;
        return false;
    }
    const AxisNames names = namesOfAxes(foundNames(devices, count), order);
    for (size_t i = 0; i < axisCount; ++i) openAxis(i, names[i]);
    ximc.free_enumerate_devices(devices);

    for (size_t i = 0; i < axisCount; ++i) configureAxis(i, speed);
    for (const AxisSlot& slot : axes) setPosition(slot.axis, 0.0);
    return std::any_of(std::begin(axes), std::end(axes),
                       [](const AxisSlot& slot) { return slot.axis.axisNumber != 0; });
}

std::string silentAxes() {
    std::string letters;
    for (const AxisSlot& slot : axes) {
        if (canBeAsked(slot.axis)) continue;
        if (!letters.empty()) letters += ", ";
        letters += letterOf(slot.axis);
    }
    return letters;
}

std::string axisList() {
    std::string lines;
    for (size_t i = 0; i < axisCount; ++i) {
        const StageAxis& axis = axes[i].axis;
        const char* state = axis.axisNumber == 0 ? closedBecause[i] : axes[i].name;
        lines += formatted("%c: %s%s\n", letterOf(axis), state, axisIsLost(axis) ? " (lost)" : "");
    }
    return lines;
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
    // The controller takes 1 to 100000: a speed of 0 leaves the one of before.
    if (clamped == 0 || clamped == axis.engine.NomSpeed || !axis.engineKnown) return;
    engine_settings_t changed = axis.engine;
    changed.NomSpeed = clamped;
    if (writeEngine(axis, changed)) axis.engine = changed;
}

static bool isTowardsLimit(const StageAxis& axis, double um) {
    return (axis.rightLimitOn && um > axis.positionUm) ||
           (axis.leftLimitOn && axis.positionUm > um);
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
    if (isTowardsLimit(axis, um)) readPosition(axis); // the stage may have left the switch since
    if (isTowardsLimit(axis, um)) return false;
    StepCount steps = stepsOf(um);
    const double counts = static_cast<double>(steps.fullSteps) + axis.zeroOffsetSteps;
    return heeded(axis, ximc.command_move(axis.deviceId, truncated(counts), steps.microsteps),
                  "command_move");
}

namespace {

int movesUnderWay[axisCount];
double nudgesUm[axisCount]; // wait for the end of the axis' move; 0 none
bool nudging[axisCount];

// A move of the axis is under way in its block.
struct MoveMark {
    explicit MoveMark(const StageAxis& axis) : index(indexOf(axis)) { ++movesUnderWay[index]; }
    ~MoveMark() { --movesUnderWay[index]; }
    MoveMark(const MoveMark&) = delete;
    MoveMark& operator=(const MoveMark&) = delete;

    const size_t index;
};

void dropNudge(const StageAxis& axis) {
    nudgesUm[indexOf(axis)] = 0.0;
}

// What a held key asks for meanwhile is dropped.
void carryOutNudge(StageAxis& axis) {
    const size_t i = indexOf(axis);
    const double um = nudgesUm[i];
    nudgesUm[i] = 0.0;
    if (um == 0.0 || nudging[i] || stopRequested) return;
    nudging[i] = true;
    moveBy(axis, um);
    nudging[i] = false;
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

// In the controller's own words.
void sayNotArrived(const StageAxis& axis) {
    const status_t& status = axis.status;
    refused(axis, formatted("does not arrive, MoveSts 0x%x, MvCmdSts 0x%x, Flags 0x%x, "
                            "GPIOFlags 0x%x",
                            status.MoveSts, status.MvCmdSts, status.Flags, status.GPIOFlags));
}

// An axis without a controller holds up nobody, unless it is the one that has the longer way.
double distanceLeft(const StageAxis& axis, double targetUm, bool leads) {
    return axis.axisNumber == 0 && !leads ? 0.0 : std::fabs(axis.positionUm - targetUm);
}

} // namespace

bool stageIsMoving() {
    return std::any_of(std::begin(movesUnderWay), std::end(movesUnderWay),
                       [](int count) { return count > 0; });
}

bool nudgeAfterMove(const StageAxis& axis, double um) {
    const size_t i = indexOf(axis);
    if (movesUnderWay[i] == 0) return false;
    if (nudgesUm[i] == 0.0 && !nudging[i]) nudgesUm[i] = um;
    return true;
}

int waitForArrival(StageAxis& axis, double targetUm, uint64_t timeoutMs) {
    const MoveMark moving(axis);
    int count = 0;
    int code = notArrived;
    bool stopped = false;
    float previous = 1000000.0f;
    const float target = static_cast<float>(targetUm);
    Approach approach;
    const uint64_t start = tickCountMs();
    for (;;) {
        // One last look after the time: an operator may have taken it to answer a question.
        const bool timeIsOver = tickCountMs() - start >= timeoutMs;
        const float current = static_cast<float>(readPosition(axis));
        const float errTarget = std::fabs(current - target);
        const float errStep = std::fabs(current - previous);
        refreshPositions();
        if (axisIsLost(axis)) break;
        approach.look(controllerMoves(axis), static_cast<double>(errTarget));
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
        if ((stalled || timeIsOver) && !approach.goesOn()) break;
        if (waitResponsive(50) == waitClicked) {
            showInformation("stop requested");
            stopped = true;
            readPosition(axis); // it went on since the last look
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
        if (!stopped) sayNotArrived(axis);
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
    const int code = waitForArrival(axis, um, static_cast<uint64_t>(baseMs) * 2 + 1000);
    if (code == arrived)
        carryOutNudge(axis);
    else
        dropNudge(axis);
    return code == arrived;
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
    // At speed 0 a short way beside a long one would never be gone; no way keeps its speed.
    if (shorter > 0.0) shorterSpeed = std::max(shorterSpeed, 1);
    setSpeed(a, aLeads ? speed : shorterSpeed);
    setSpeed(b, aLeads ? shorterSpeed : speed);
    startMoveTo(a, targetA);
    if (!axisIsLost(a)) startMoveTo(b, targetB);

    const MoveMark movingA(a), movingB(b);
    double previousErr = -10.0;
    int count = 0;
    bool atTarget = timeMs == 0.0; // no distance, nothing to wait for
    const uint64_t start = tickCountMs();
    const uint64_t limitMs = static_cast<uint64_t>(truncated(timeMs)) * 2 + 500;
    Approach approach;
    bool endedOnPurpose = false;
    if (!atTarget) {
        bool timeIsOver = false;
        do {
            timeIsOver = tickCountMs() - start >= limitMs;
            readPosition(a);
            readPosition(b);
            refreshPositions();
            if (axisIsLost(a) || axisIsLost(b)) { // the other one does not go on alone
                stopStage(a);
                stopStage(b);
                endedOnPurpose = true;
                break;
            }
            // The other axis is watched too: a key or a switch may have sent it elsewhere.
            const double err =
                std::max(distanceLeft(a, targetA, aLeads), distanceLeft(b, targetB, !aLeads));
            // The last look has no earlier one to compare with.
            if (err <= 3.0 && (timeIsOver || std::fabs(err - previousErr) < 1.0)) {
                atTarget = true;
                break;
            }
            approach.look(controllerMoves(a) || controllerMoves(b), err);
            const bool stalled = err == previousErr && count > 100;
            if (stalled) break;
            previousErr = err;
            endedOnPurpose = waitResponsive(50) == waitClicked;
            if (endedOnPurpose) break;
            ++count;
        } while (!timeIsOver || approach.goesOn());
    }

    setSpeed(a, speed);
    setSpeed(b, speed);
    showProgress(
        formatted("count:%d Dist. to move %.1lfum", count, std::max(distA, distB)).c_str());
    if (!atTarget) {
        dropNudge(a);
        dropNudge(b);
        readPosition(a);
        readPosition(b);
        refreshPositions();
        if (endedOnPurpose) return false;
        if (distanceLeft(a, targetA, false) > 3.0) sayNotArrived(a);
        if (distanceLeft(b, targetB, false) > 3.0) sayNotArrived(b);
        return false;
    }
    a.positionUm = targetA;
    b.positionUm = targetB;
    carryOutNudge(a);
    carryOutNudge(b);
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
