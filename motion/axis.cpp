// Opens the axes of the stage and speaks with their controllers.
#include "motion/axis.h"

#include "platform/clock.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "screen/screen.h"
#include "session/device_report.h"
#include "session/forced_end.h"
#include "session/options.h"
#include "session/process.h"
#include "session/refusals.h"
#include "session/responsive_wait.h"

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

// Whether the call succeeded. One that did not is said; some take the axis away.
bool heeded(StageAxis& axis, int result, const char* call) {
    if (result == 0) return true;
    const bool lost = result == ximcError || result == ximcNoDevice;
    refused(axis, formatted("%s answered %d%s", call, result,
                            lost ? ", the axis is lost until \"Connect\"" : ""));
    if (!lost) return false;
    axis.lostBy = result;
    showAxisLoss(axis);
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
    for (const AxisSlot& slot : axes) forgetAnswer(nameOf(slot.axis).c_str());
    reportSearch("Stage", formatted("three controllers on USB and at %s", enumerationHint + 5));
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
    if (name.empty()) return noteRefusal(nameOf(axis).c_str(), "no controller");
    std::snprintf(axes[i].name, sizeof axes[i].name, "%s", name.c_str());
    axis.deviceId = ximc.open_device(axes[i].name);
    if (axis.deviceId >= 0) {
        axis.axisNumber = static_cast<uint32_t>(i + 1);
        say(formatted("Stage %c: %s", letterOf(axis), axes[i].name));
        reportAnswer(nameOf(axis).c_str(), name + " opened");
        return;
    }
    closedBecause[i] = "does not open";
    refused(axis, formatted("open_device answered %d for %s", axis.deviceId, axes[i].name));
}

} // namespace

void showAxisLoss(const StageAxis& axis) {
    showInformation(
        formatted("Stage %c lost (%d): \"Reconnect Stages\"", letterOf(axis), axis.lostBy).c_str());
}

bool axisIsLost(const StageAxis& axis) {
    return axis.axisNumber != 0 && axis.lostBy != 0;
}

bool controllerMoves(const StageAxis& axis) {
    return (axis.status.MvCmdSts & MVCMD_RUNNING) != 0 ||
           (axis.status.MoveSts & (MOVE_STATE_MOVING | 0x80)) != 0; // 0x80 has no public name
}

void printNotArrived(const StageAxis& axis) {
    const status_t& status = axis.status;
    refused(axis, formatted("does not arrive, MoveSts 0x%x, MvCmdSts 0x%x, Flags 0x%x, "
                            "GPIOFlags 0x%x",
                            status.MoveSts, status.MvCmdSts, status.Flags, status.GPIOFlags));
}

StepCount stepsOf(double um) {
    const double steps = fullStepsOf(um);
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
    if (count > 0)
        reportAnswer("Stage", formatted("%d controllers (libximc %s)", count, ximc_version_str));
    else
        noteRefusal("Stage", "no controller found");
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
    axis.zeroOffsetSteps = axis.status.CurPosition - truncated(fullStepsOf(um));
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

namespace {

bool isTowardsLimit(const StageAxis& axis, double um) {
    return (axis.rightLimitOn && um > axis.positionUm) ||
           (axis.leftLimitOn && axis.positionUm > um);
}

} // namespace

bool startMoveTo(StageAxis& axis, double um) {
    if (axis.axisNumber == 0) {
        axis.positionUm = um;
        return false;
    }
    if (axisIsLost(axis)) {
        showAxisLoss(axis);
        return false;
    }
    if (um == axis.positionUm) return true;
    if (isTowardsLimit(axis, um)) readPosition(axis); // the stage may have left the switch since
    if (isTowardsLimit(axis, um)) return false;
    StepCount steps = stepsOf(um);
    const double counts = static_cast<double>(steps.fullSteps) + axis.zeroOffsetSteps;
    stayWhereTheProgramEnds(); // the stage has been stopped
    return heeded(axis, ximc.command_move(axis.deviceId, truncated(counts), steps.microsteps),
                  "command_move");
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
