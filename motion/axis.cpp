// Opens the axes of the stage and speaks with their controllers.
#include "motion/axis.h"

#include "motion/controller_names.h"
#include "motion/kept_places.h"
#include "platform/clock.h"
#include "platform/decimal_point.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "screen/screen.h"
#include "session/announce.h"
#include "session/device_report.h"
#include "session/document.h"
#include "session/forced_end.h"
#include "session/message_box.h"
#include "session/process.h"
#include "session/refusals.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

StageAxis stageX, stageY, stageZ;
StageControllers controllers;

namespace {

Libximc ximc;

constexpr int probeAndNetwork = 5; // enumeration flags: probe each device (1), network (4)

// The addresses of this set-up's network controllers; controllers on USB need none.
constexpr const char* enumerationHint = "addr=192.168.0.1,192.168.0.2";

struct AxisSlot {
    StageAxis& axis;
    char (&name)[256];
};

const AxisSlot axes[axisCount] = {{stageX, controllers.deviceX_name},
                                  {stageY, controllers.deviceY_name},
                                  {stageZ, controllers.deviceZ_name}};

std::string closedBecause[axisCount] = {"no controller", "no controller", "no controller"};

char letterOf(const StageAxis& axis) {
    return "XYZ"[indexOf(axis)];
}

// Of a fixed length, ended by a zero where it is shorter. An owner may have written any byte.
template <size_t size> std::string textOf(const char (&letters)[size]) {
    std::string text(letters, std::find(letters, letters + size, '\0'));
    for (char& letter : text)
        if (letter < ' ' || letter > '~') letter = '?';
    return text;
}

void print(const std::string& line) {
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

// Whether the call succeeded. One that did not is said; some take the axis away. Every call may be
// made twice: an answer that was disturbed on its way fails at once, and the next one is good.
template <class Call> bool answered(StageAxis& axis, const char* name, Call call) {
    constexpr uint64_t disturbedWithinMs = 1000;
    const uint64_t start = tickCountMs();
    int result = call();
    if (result == ximcError && tickCountMs() - start < disturbedWithinMs) {
        result = call();
        if (result == 0) printNews(nameOf(axis).c_str(), formatted("%s answered -1 once", name));
    }
    if (result == 0) return true;
    const bool lost = result == ximcError || result == ximcNoDevice;
    refused(axis, formatted("%s answered %d%s", name, result,
                            lost ? ", the axis is lost until \"Connect\"" : ""));
    if (!lost) return false;
    axis.lostBy = result;
    axis.missed = Miss::Lost;
    showAxisOut(axis);
    return false;
}

bool canBeAsked(const StageAxis& axis) {
    return axis.axisNumber != 0 && axis.lostBy == 0;
}

// An alarm and lost steps are said when they come and when they go. Windings without current are
// what they should be before the first move: only a move or a look that needs them says that.
void tellTrouble(StageAxis& axis) {
    const bool always = troubleIn(axis.status) != Miss::WindingsOff;
    const std::string trouble = always ? troubleText(axis.status) : "";
    if (powerChanged(axis.powerTold, axis.status)) {
        axis.powerTold = axis.status;
        printNews(nameOf(axis).c_str(), powerText(axis.status));
    }
    if (trouble == axis.told) return;
    axis.told = trouble;
    if (trouble.empty()) return printNews(nameOf(axis).c_str(), "no alarm, no lost steps any more");
    const char* hint = axisIsOut(axis) ? ", its moves are ignored until \"Reconnect Stages\"" : "";
    refused(axis, trouble + hint + formatted(", Flags 0x%x", axis.status.Flags));
    showAxisOut(axis);
}

bool isTowardsLimit(const StageAxis& axis, double um) {
    return (axis.rightLimitOn && um > axis.positionUm) ||
           (axis.leftLimitOn && axis.positionUm > um);
}

// The status of before stays where the controller did not give one.
bool readStatus(StageAxis& axis) {
    status_t status{};
    if (!answered(axis, "get_status", [&] { return ximc.get_status(axis.deviceId, &status); }))
        return false;
    axis.status = status;
    tellTrouble(axis);
    return true;
}

bool writeEngine(StageAxis& axis, const engine_settings_t& engine) {
    return answered(axis, "set_engine_settings",
                    [&] { return ximc.set_engine_settings(axis.deviceId, &engine); });
}

const AxisDrive& driveOf(const StageAxis& axis) {
    return setUp.drives[indexOf(axis)];
}

// 1 where its controller counts up as the program does.
int32_t signOf(const StageAxis& axis) {
    return driveOf(axis).reversed ? -1 : 1;
}

// Why an axis is not driven whose controller counts in other steps: it would go to other places
// than it is told. Empty when it is.
std::string whyNotDriven(StageAxis& axis) {
    if (!axis.engineKnown) return {};
    const engine_settings_t& engine = axis.engine;
    const AxisDrive& drive = driveOf(axis);
    const auto mode =
        static_cast<uint32_t>(std::bit_width(static_cast<uint32_t>(drive.microsteps)));
    if (engine.MicrostepMode != mode) {
        refused(axis, formatted("microstep mode %u instead of %u (1/%d), it is not driven",
                                engine.MicrostepMode, mode, drive.microsteps));
        return formatted("not driven, its microsteps are not 1/%d", drive.microsteps);
    }
    if (engine.StepsPerRev != static_cast<uint32_t>(drive.fullStepsPerTurn)) {
        refused(axis, formatted("%u steps per turn instead of %d, it is not driven",
                                engine.StepsPerRev, drive.fullStepsPerTurn));
        return formatted("not driven, its motor has not %d steps per turn", drive.fullStepsPerTurn);
    }
    return {};
}

// False, and it is closed, when its steps are others than the set-up says.
bool staysDriven(size_t i) {
    const std::string why = whyNotDriven(axes[i].axis);
    if (why.empty()) return true;
    closeStage(axes[i].axis);
    axes[i].axis.axisNumber = 0;
    closedBecause[i] = why;
    return false;
}

void configureAxis(size_t i, int32_t speed) {
    StageAxis& axis = axes[i].axis;
    axis.engineKnown = false;
    axis.engine = {};
    axis.engine.NomSpeed = static_cast<uint32_t>(speedOf(axis, speed));
    if (!canBeAsked(axis)) return;
    axis.engineKnown = answered(axis, "get_engine_settings", [&] {
        return ximc.get_engine_settings(axis.deviceId, &axis.engine);
    });
    if (!staysDriven(i)) return;
    engine_settings_t wanted = axis.engine;
    wanted.NomSpeed = static_cast<uint32_t>(speedOf(axis, speed));
    wanted.EngineFlags &= ~ENGINE_ACCEL_ON;
    wanted.EngineFlags |= ENGINE_LIMIT_RPM;
    // A record that was not read holds no motor current and no microsteps: not for a motor. Its
    // speed still sizes the time-outs.
    if (!axis.engineKnown || writeEngine(axis, wanted)) axis.engine = wanted;
    sleepMs(10);
}

// What a controller and its stage are called; empty where nobody has named them.
std::string ownersWords(void* devices, int index) {
    controller_name_t controller{};
    stage_name_t stage{};
    std::string words;
    if (ximc.get_enumerate_device_controller_name(devices, index, &controller) == 0)
        words = textOf(controller.ControllerName);
    if (ximc.get_enumerate_device_stage_name(devices, index, &stage) == 0 &&
        !textOf(stage.PositionerName).empty())
        words += (words.empty() ? "stage " : ", stage ") + textOf(stage.PositionerName);
    return words;
}

std::vector<FoundController> foundControllers(void* devices, int count) {
    std::vector<FoundController> found;
    for (int i = 0; i < count; ++i) {
        const char* name = ximc.get_device_name(devices, i);
        found.push_back({name ? name : "", ownersWords(devices, i)});
        const std::string words = found.back().words.empty() ? "" : " (" + found.back().words + ")";
        print(formatted("Stage controller %d: %s%s", i + 1, found.back().name.c_str(),
                        words.c_str()));
    }
    return found;
}

void announceSearch() {
    const std::string text =
        formatted("Looking for stage controllers: USB, %s ...", enumerationHint + 5);
    print(text);
    for (const AxisSlot& slot : axes) forgetAnswer(nameOf(slot.axis).c_str());
    reportSearch("Stage", formatted("three controllers on USB and at %s", enumerationHint + 5));
    showInformation(text.c_str());
    paintPending(windows.main); // the search blocks: 5 s where an address is silent
}

void openAxis(size_t i, const std::string& name) {
    StageAxis& axis = axes[i].axis;
    const bool wasLost = axis.lostBy != 0;
    axis.axisNumber = 0;
    axis.deviceId = -1;
    axis.lostBy = 0;
    axis.rightLimitOn = axis.leftLimitOn = 0;
    axis.status = axis.powerTold = {};
    axis.told.clear();
    axis.zero.clear();
    axis.missed = Miss::Nothing;
    axis.placeLost = axis.hasMoved = false;
    closedBecause[i] = "no controller";
    forgetRefusal(nameOf(axis).c_str());
    if (name.empty()) return noteRefusal(nameOf(axis).c_str(), "no controller");
    std::snprintf(axes[i].name, sizeof axes[i].name, "%s", name.c_str());
    axis.deviceId = ximc.open_device(axes[i].name);
    if (axis.deviceId >= 0) {
        axis.axisNumber = static_cast<uint32_t>(i + 1);
        print(formatted("Stage %c: %s", letterOf(axis), axes[i].name));
        reportAnswer(nameOf(axis).c_str(), name + " opened");
        if (wasLost) stopStage(axis); // it may still go where it was sent when it was lost
        return;
    }
    closedBecause[i] = "does not open";
    refused(axis, formatted("open_device answered %d for %s", axis.deviceId, axes[i].name));
}

} // namespace

bool axisIsLost(const StageAxis& axis) {
    return axis.axisNumber != 0 && axis.lostBy != 0;
}

bool axisIsOut(const StageAxis& axis) {
    return axisIsLost(axis) || (axis.axisNumber != 0 && troubleIn(axis.status) == Miss::Alarm);
}

Miss whyMissed(const StageAxis& axis, double targetUm) {
    if (axis.axisNumber == 0) return Miss::NoController;
    if (axis.lostBy != 0) return Miss::Lost;
    const Miss trouble = troubleIn(axis.status);
    if (trouble == Miss::Alarm || trouble == Miss::StepsLost) return trouble;
    if (isTowardsLimit(axis, targetUm)) return Miss::LimitSwitch;
    return trouble != Miss::Nothing ? trouble : Miss::Stalled;
}

std::string missedText(const StageAxis& axis) {
    const std::string trouble = axisTrouble(axis);
    const bool told = axis.missed == Miss::Lost || axis.missed == Miss::Alarm;
    return told && !trouble.empty() ? trouble : nameOf(axis) + " " + nameOf(axis.missed);
}

std::string axisTrouble(const StageAxis& axis) {
    if (axis.axisNumber == 0) return {};
    const std::string what = axis.lostBy != 0 ? formatted("lost (%d)", axis.lostBy) : axis.told;
    return what.empty() ? what : nameOf(axis) + " " + what;
}

void showAxisOut(const StageAxis& axis) {
    const char* hint = axisIsOut(axis) ? ": \"Reconnect Stages\"" : "";
    showInformation((axisTrouble(axis) + hint).c_str());
}

bool controllerMoves(const StageAxis& axis) {
    return (axis.status.MvCmdSts & MVCMD_RUNNING) != 0 ||
           (axis.status.MoveSts & (MOVE_STATE_MOVING | 0x80)) != 0; // 0x80 has no public name
}

void printNotArrived(const StageAxis& axis) {
    const status_t& status = axis.status;
    refused(axis, formatted("does not arrive (%s), MoveSts 0x%x, MvCmdSts 0x%x, PWRSts 0x%x, "
                            "Flags 0x%x, GPIOFlags 0x%x",
                            nameOf(axis.missed), status.MoveSts, status.MvCmdSts, status.PWRSts,
                            status.Flags, status.GPIOFlags));
}

double umPerStepOf(const StageAxis& axis) {
    const AxisDrive& drive = driveOf(axis);
    return drive.umPerTurn / drive.fullStepsPerTurn;
}

int32_t speedOf(const StageAxis& axis, int32_t speed) {
    return std::clamp(speed * driveOf(axis).speed / motorSpeed, 10, 800);
}

double fullStepsOf(const StageAxis& axis, double um) {
    const AxisDrive& drive = driveOf(axis);
    return signOf(axis) * um * drive.fullStepsPerTurn / drive.umPerTurn;
}

StepCount stepsOf(const StageAxis& axis, double um) {
    const double steps = fullStepsOf(axis, um);
    const double full = std::floor(steps);
    const int32_t microsteps = driveOf(axis).microsteps;
    StepCount count{truncated(full), truncated((steps - full) * microsteps)};
    if (count.microsteps >= microsteps) {
        count.fullSteps += 1;
        count.microsteps %= microsteps;
    }
    return count;
}

namespace {

// Its limits are then somewhere else, and its objective may be nearer to the sample than it says.
void lookWhetherPlaceIsLost(size_t i) {
    StageAxis& axis = axes[i].axis;
    if (!canBeAsked(axis)) return;
    axis.placeLost = axis.status.uCurPosition == 0 && placeIsLost(i, axis.status.CurPosition);
    std::string since = axis.placeLost ? timeText(localTime()) : lastLossOfPlace(i);
    axis.zero = axes[i].name + (since.empty() ? since : " since " + since);
    for (char& letter : axis.zero)
        if (letter < ' ' || letter > '~' || letter == ',') letter = '?';
    if (!axis.placeLost) return;
    if (!noteLossOfPlace(i, since))
        announce(Severity::Trouble, nameOf(axis) + ": that its place was lost was not kept "
                                                   "(Options.ini), the next start does not see it");
    announce(Severity::Trouble, nameOf(axis) +
                                    " has lost its place (its controller counts 0): the limits of "
                                    "Setup.ini are elsewhere now");
}

bool movesWithoutItsPlace(StageAxis& axis) {
    if (!axis.placeLost || &axis != &stageZ) return true;
    const bool yes =
        showMessageBox(windows.main,
                       "The controller of Z has lost its place: it counts 0, and did not when it "
                       "was last seen. The highest Z of Setup.ini is elsewhere now.\n\nMove Z all "
                       "the same?",
                       "Stage Z", BoxButtons::YesNo) == BoxAnswer::Yes;
    if (yes)
        axis.placeLost = false;
    else
        axis.missed = Miss::PlaceLost;
    return yes;
}

void keep(const StageAxis& axis, int32_t steps) {
    const size_t i = indexOf(axis);
    if (!keepPlace(i, axes[i].name, steps))
        announce(Severity::Trouble, nameOf(axis) + ": its place was not kept (Options.ini), the "
                                                   "next start does not see whether it was lost");
}

// From here on a count of 0 at an opening says that the place was lost.
void noteFirstMove(StageAxis& axis) {
    if (std::exchange(axis.hasMoved, true)) return;
    const int32_t steps = axis.status.CurPosition;
    keep(axis, steps != 0 ? steps : 1);
}

bool noStages(const std::string& why) {
    noteRefusal("Stage", why);
    stageX.axisNumber = 0;
    for (const AxisSlot& slot : axes) slot.axis.lostBy = ximcNoDevice;
    return false;
}

} // namespace

void keepPlaces() {
    for (const AxisSlot& slot : axes)
        if (slot.axis.hasMoved && canBeAsked(slot.axis) && readStatus(slot.axis))
            keep(slot.axis, slot.axis.status.CurPosition);
}

bool openStages(int32_t order, int32_t speed) {
    if (!setUpIsThere()) return noStages("Setup.ini cannot be read");
    announceSearch();
    ximc = loadLibximc();
    ximc.ximc_version(controllers.ximc_version_str);
    ximc.set_bindy_key("keyfile.sqlite");
    void* devices = ximc.enumerate_devices(probeAndNetwork, enumerationHint);
    const int count = ximc.get_device_count(devices);
    print(formatted("Stage controllers found: %d (libximc %s)", std::max(count, 0),
                    controllers.ximc_version_str));
    showInformation(formatted("Stage controllers found: %d", std::max(count, 0)).c_str());
    if (count <= 0) {
        ximc.free_enumerate_devices(devices);
        return noStages("no controller found");
    }
    reportAnswer("Stage",
                 formatted("%d controllers (libximc %s)", count, controllers.ximc_version_str));
    const AxisNames names = namesOfAxes(foundControllers(devices, count), order);
    for (size_t i = 0; i < axisCount; ++i) openAxis(i, names[i]);
    ximc.free_enumerate_devices(devices);

    for (size_t i = 0; i < axisCount; ++i) configureAxis(i, speed);
    for (const AxisSlot& slot : axes) setPosition(slot.axis, 0.0);
    for (size_t i = 0; i < axisCount; ++i) lookWhetherPlaceIsLost(i);
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
        std::string state = axis.axisNumber == 0 ? closedBecause[i] : std::string(axes[i].name);
        if (axisIsOut(axis)) state += axisIsLost(axis) ? " (lost)" : ", " + axis.told;
        lines += formatted("%c: %s\n", letterOf(axis), state.c_str());
    }
    return lines;
}

void closeStage(StageAxis& axis) {
    if (axis.axisNumber != 0) ximc.close_device(&axis.deviceId);
}

namespace {

// Where its controller counts so many full steps, um as the program has them.
double umOfSteps(const StageAxis& axis, double steps) {
    return signOf(axis) * (steps - axis.zeroOffsetSteps) * umPerStepOf(axis);
}

} // namespace

double readPosition(StageAxis& axis) {
    // The first reading after a move may be old.
    if (canBeAsked(axis) && !readStatus(axis)) return axis.positionUm;
    return readRestingPosition(axis);
}

double readRestingPosition(StageAxis& axis) {
    if (!canBeAsked(axis) || !readStatus(axis)) return axis.positionUm;
    axis.rightLimitOn = axis.status.GPIOFlags & STATE_RIGHT_EDGE ? 1 : 0;
    axis.leftLimitOn = axis.status.GPIOFlags & STATE_LEFT_EDGE ? 1 : 0;
    if (driveOf(axis).reversed) std::swap(axis.rightLimitOn, axis.leftLimitOn);
    axis.positionUm = umOfSteps(axis, static_cast<double>(axis.status.CurPosition) +
                                          axis.status.uCurPosition /
                                              static_cast<double>(driveOf(axis).microsteps));
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
    axis.zeroOffsetSteps = axis.status.CurPosition - truncated(fullStepsOf(axis, um));
    axis.positionUm = um;
}

bool followDrive(StageAxis& axis) {
    if (!canBeAsked(axis) || !staysDriven(indexOf(axis))) return false;
    setPosition(axis, axis.positionUm);
    readRestingPosition(axis); // the limit switches may have changed sides
    setSpeed(axis, speedOf(axis, motorSpeed));
    return canBeAsked(axis);
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

double ofController(const StageAxis& axis, double um) {
    return um + signOf(axis) * axis.zeroOffsetSteps * umPerStepOf(axis);
}

double byProgram(const StageAxis& axis, double controllersUm) {
    return controllersUm - ofController(axis, 0.0);
}

AxisCount countOf(const StageAxis& axis, double um) {
    if (axis.axisNumber == 0) return {};
    return {axis.zeroOffsetSteps + fullStepsOf(axis, um), fullStepsOf(axis, 1.0), axis.zero};
}

double umOf(const StageAxis& axis, const AxisCount& count) {
    return umOfSteps(axis, count.steps);
}

std::string whyLost(const StageAxis& axis, const AxisCount& count) {
    const std::string name = std::string("stage ") + letterOf(axis);
    const auto controllerOf = [](const std::string& zero) {
        return zero.substr(0, zero.find(" since "));
    };
    if (axis.axisNumber == 0) return name + " has no controller";
    if (axis.zero == count.zero) return {};
    return name + (controllerOf(axis.zero) == controllerOf(count.zero) ? " has lost its place since"
                                                                       : " has another controller");
}

std::string textOf(const AxisCount& count) {
    return formatted("%.9g steps at %.9g a um of ", count.steps, count.perUm) + count.zero;
}

AxisCount axisCountIn(const std::string& text) {
    constexpr double farthestSteps = 1e9;
    AxisCount count;
    int zeroAt = 0;
    keepDecimalPoint();
    std::sscanf(text.c_str(), "%lf steps at %lf a um of %n", &count.steps, &count.perUm, &zeroAt);
    if (zeroAt == 0 || !(std::fabs(count.steps) <= farthestSteps) || !(count.perUm != 0.0))
        return {};
    count.zero = text.substr(static_cast<size_t>(zeroAt));
    return count;
}

std::string beyondLimit(const StageAxis& axis, double um) {
    if (axis.axisNumber == 0) return {};
    const AxisRange& range = setUp.ranges[indexOf(axis)];
    const double place = ofController(axis, um), zero = place - um;
    const bool tooHigh = place > range.highest && um > axis.positionUm;
    const bool tooLow = place < range.lowest && um < axis.positionUm;
    if (!tooHigh && !tooLow) return {};
    return formatted("%s: %.1f um is beyond its %s place, %.1f um", nameOf(axis).c_str(), um,
                     tooHigh ? "highest" : "lowest",
                     (tooHigh ? range.highest : range.lowest) - zero);
}

bool mayGoTo(StageAxis& axis, double um) {
    const std::string words = beyondLimit(axis, um);
    if (words.empty()) return true;
    axis.missed = Miss::BeyondLimit;
    print(words);
    showInformation(words.c_str());
    return false;
}

bool mayMoveByHand(const StageAxis& axis) {
    if (!axis.placeLost || &axis != &stageZ || !processUnderWay()) return true;
    showInformation("Z has lost its place: not moved by hand while a process runs");
    return false;
}

bool startMoveTo(StageAxis& axis, double um) {
    if (axis.axisNumber == 0) {
        axis.positionUm = um;
        return false;
    }
    // The stage may have left the switch since, and an alarm may be over.
    if (axisIsOut(axis) || isTowardsLimit(axis, um)) readPosition(axis);
    if (axisIsOut(axis)) {
        axis.missed = whyMissed(axis, um);
        showAxisOut(axis);
        return false;
    }
    if (um == axis.positionUm) return true;
    if (!mayGoTo(axis, um)) return false;
    if (isTowardsLimit(axis, um)) {
        axis.missed = Miss::LimitSwitch;
        printNotArrived(axis);
        return false;
    }
    if (!movesWithoutItsPlace(axis)) return false;
    noteFirstMove(axis);
    const StepCount steps = stepsOf(axis, um);
    const double counts = static_cast<double>(steps.fullSteps) + axis.zeroOffsetSteps;
    axis.missed = Miss::Stalled; // until it has come
    stayWhereTheProgramEnds();   // the stage has been stopped
    return answered(axis, "command_move", [&] {
        return ximc.command_move(axis.deviceId, truncated(counts), steps.microsteps);
    });
}

void stopStage(StageAxis& axis) {
    if (canBeAsked(axis))
        answered(axis, "command_stop", [&] { return ximc.command_stop(axis.deviceId); });
}

void stopAllStages() {
    for (const AxisSlot& slot : axes) stopStage(slot.axis);
}

void closeAllStages() {
    for (const AxisSlot& slot : axes) closeStage(slot.axis);
}
