// Reset, time, faults and counters of the virtual laboratory.
#include "virtual_lab/lab_state.h"
#include "virtual_lab/faces.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <tuple>

Lab lab;
void (*labBeforeCall)() = nullptr;
void (*labWhileMoving)() = nullptr;
void (*labOnStage)(int, const char*) = nullptr;

static std::recursive_mutex labMutex;
static double (*clockNowMs)() = nullptr;
static void (*clockSleepMs)(double) = nullptr;

LabLock::LabLock() : held(labMutex) {
    if (labBeforeCall) labBeforeCall();
}

void setLabClock(double (*nowMs)(), void (*sleepMs)(double)) {
    LabLock lock;
    clockNowMs = nowMs;
    clockSleepMs = sleepMs;
}

double labNowMs() {
    return clockNowMs ? clockNowMs() : 0.0;
}

void labSleepMs(double ms) {
    if (clockSleepMs) clockSleepMs(ms);
}

void resetLab(uint64_t seed) {
    LabLock lock;
    lab.seed = seed;
    lab.rowsAroundSpot = -1;
    lab.noise.seed(seed);
    lab.faults = {};
    lab.board = {};
    lab.carriers = {};
    lab.counters = {};
    lab.drift = {.sinceMs = labNowMs()};
    lab.boardCommands.clear();
    lab.reads.clear();
    resetMotors();
    resetCamera();
    resetInstruments();
}

static int axisNamed(const std::string& name) {
    if (name == "x") return labX;
    if (name == "y") return labY;
    if (name == "z") return labZ;
    return -1;
}

// The rest of a line: a count from 1 on, or nothing.
static bool parseCount(std::istringstream& words, int& count) {
    return (words >> std::ws).eof() || (words >> count && count > 0);
}

static bool parseAlarm(std::istringstream& words, int axis, LabFaults& faults) {
    using namespace LabXimc;
    std::string cause;
    words >> cause;
    faults.alarmStays[axis] = cause == "supply"; // as long as that is low
    faults.alarm[axis] = cause == "current"  ? stateOverCurrent
                         : cause == "heat"   ? stateDriverOverheat
                         : cause == "supply" ? stateLowSupply
                                             : 0;
    faults.alarmFrom[axis] = 1;
    return faults.alarm[axis] != 0 && parseCount(words, faults.alarmFrom[axis]);
}

// Of another laboratory: an objective of 0.2347 um a pixel with a camera that hangs the other way
// round, other motors and screws with more play, a current amplifier.
static void makeSecondSetUp(LabFaults& faults) {
    LabSetUp& setUp = faults.setUp;
    setUp.umPerPixel = 0.2347;
    setUp.degrees = 1.3;
    setUp.mirrored = true;
    setUp.spot = {571, 538};
    setUp.umPerTurn[labX] = setUp.umPerTurn[labY] = 500;
    faults.stepsPerTurn[labX] = 400;
    setUp.reversed[labX] = true;
    faults.backlashUm[labX] = faults.backlashUm[labY] = 3;
    setUp.boardVoltsPerAmpere = 5e6;
    setUp.boardOffsetVolts = 0.06;
    setUp.sensorWidth = 1920;
    setUp.sensorHeight = 1200;
    setUp.pixelFormat = "BayerBG8";
}

static bool parseSetUp(std::istringstream& words, const std::string& device,
                       const std::string& what, LabFaults& faults) {
    LabSetUp& setUp = faults.setUp;
    if (device == "second") {
        makeSecondSetUp(faults);
        return what == "set-up";
    }
    if (device == "optics") {
        std::string mirrored;
        setUp.umPerPixel = std::atof(what.c_str());
        if (!(setUp.umPerPixel >= 0.01 && setUp.umPerPixel <= 10)) return false;
        if (!(words >> setUp.degrees)) return false;
        words >> mirrored;
        setUp.mirrored = mirrored == "mirrored";
        return setUp.mirrored || mirrored.empty();
    }
    if (device == "sensor") {
        setUp.sensorWidth = std::atoi(what.c_str());
        constexpr const char* formats[] = {"BayerRG8", "BayerGR8", "BayerGB8",
                                           "BayerBG8", "Mono8",    "Mono12"};
        return words >> setUp.sensorHeight >> setUp.pixelFormat && setUp.sensorWidth >= 64 &&
               setUp.sensorHeight >= 64 &&
               std::find(std::begin(formats), std::end(formats), setUp.pixelFormat) !=
                   std::end(formats);
    }
    if (device == "sample")
        return what == "tilted" && words >> setUp.tiltX >> setUp.tiltY &&
               std::abs(setUp.tiltX) <= 45 && std::abs(setUp.tiltY) <= 45;
    if (device == "spot" && what == "acts")
        return !!(words >> setUp.spotActsUm.x >> setUp.spotActsUm.y);
    if (device == "spot") return what == "at" && words >> setUp.spot.column >> setUp.spot.row;
    if (device == "board" && what == "input")
        return words >> setUp.inputVolts >> setUp.inputBits && setUp.inputVolts > 0 &&
               setUp.inputBits >= 8 && setUp.inputBits <= 24;
    if (device == "board" && what == "laser")
        return words >> setUp.laserPin >> setUp.laserFullScaleVolts &&
               setUp.laserFullScaleVolts > 0;
    if (device == "board") return what == "lamp" && words >> setUp.lampPin >> setUp.lampOnLevel;
    const bool scope = what == "scope";
    return device == "amplifier" && (scope || what == "board") &&
           words >> (scope ? setUp.scopeVoltsPerAmpere : setUp.boardVoltsPerAmpere) >>
               (scope ? setUp.scopeOffsetVolts : setUp.boardOffsetVolts);
}

static bool parseAxisFault(std::istringstream& words, int axis, LabFaults& faults) {
    std::string what;
    words >> what;
    if (what == "absent") return faults.noController[axis] = true;
    if (what == "stalled") return faults.stalled[axis] = true;
    if (what == "mute") return faults.mute[axis] = true;
    if (what == "old") return faults.oldStatus[axis] = true;
    if (what == "overshoot")
        return words >> faults.overshootUm[axis] && faults.overshootUm[axis] >= 0;
    if (what == "reversed") return faults.setUp.reversed[axis] = true;
    if (what == "pitch")
        return words >> faults.setUp.umPerTurn[axis] && faults.setUp.umPerTurn[axis] > 0;
    if (what == "slow") return words >> faults.ownSpeed[axis] && faults.ownSpeed[axis] > 0;
    if (what == "microsteps") {
        uint32_t& mode = faults.microstepMode[axis];
        return words >> mode && mode >= 1 && mode <= 9;
    }
    if (what == "replaced") return faults.replaced[axis] = true;
    if (what == "unpowered") return faults.unpowered[axis] = true;
    if (what == "slips") return words >> faults.slipUm[axis] && faults.slipUm[axis] > 0;
    if (what == "turn") {
        uint32_t& steps = faults.stepsPerTurn[axis];
        return words >> steps && steps >= 1 && steps <= 1000;
    }
    if (what == "disturbed")
        return words >> faults.disturbedEach[axis] && faults.disturbedEach[axis] > 0;
    if (what == "alarm") return parseAlarm(words, axis, faults);
    if (what != "lost") return false;
    faults.lostFrom[axis] = 1;
    return parseCount(words, faults.lostFrom[axis]);
}

static bool parseFault(const std::string& line, LabFaults& faults) {
    std::istringstream words(line);
    std::string device, what, detail, extra;
    words >> device >> what;
    int axis = axisNamed(what);
    double number = 0;

    if (device == "sample" && what == "drifts") {
        LabPoint& rate = faults.driftUmPerHour;
        if (!(words >> rate.x >> rate.y)) return false;
    } else if (device == "sample" && what == "shifted") {
        if (!(words >> faults.shiftUm.x >> faults.shiftUm.y)) return false;
    } else if (device == "camera" && what == "absent") {
        faults.cameraAbsent = true;
    } else if (device == "camera" && what == "lost") {
        faults.cameraLost = true;
    } else if (device == "camera" && what == "sfnc") {
        if (!(words >> number) || number != 1) return false;
        faults.cameraOld = true;
    } else if (device == "camera" && what == "lacks") {
        if (!(words >> detail) || !isCameraFeature(detail)) return false;
        faults.cameraLacks.push_back(detail);
    } else if (device == "camera" && what == "unsettled") {
        faults.cameraUnsettled = true;
    } else if (device == "camera" && what == "centred") {
        faults.setUp.centred = true;
    } else if (device == "camera" && what == "second") {
        faults.cameraSecond = true;
    } else if (device == "camera" && what == "silent") {
        faults.cameraSilent = true;
    } else if (device == "stage" && what == "absent") {
        faults.controllers = 0;
    } else if (device == "stage" && what == "count") {
        if (!(words >> number) || (number != 1 && number != 2 && number != 3)) return false;
        faults.controllers = static_cast<int>(number);
    } else if (device == "stage" && what == "stranger") {
        faults.stranger = true;
    } else if (device == "stage" && what == "order") {
        words >> faults.busOrder;
        std::string letters = faults.busOrder;
        std::sort(letters.begin(), letters.end());
        if (letters != "xyz") return false;
    } else if (device == "stage" && what == "calls") {
        if (!(words >> faults.callMs) || faults.callMs < 0) return false;
    } else if (device == "axis" && axis >= 0) {
        if (!parseAxisFault(words, axis, faults)) return false;
    } else if (device == "limit" && axis >= 0) {
        std::string at;
        if (!(words >> detail >> at >> number) || at != "at") return false;
        if (detail == "right")
            faults.rightLimitUm[axis] = number;
        else if (detail == "left")
            faults.leftLimitUm[axis] = number;
        else
            return false;
    } else if (device == "board" && what == "absent") {
        faults.boardAbsent = true;
    } else if (device == "board" && what == "quiet") {
        faults.boardQuiet = true;
    } else if (device == "board" && what == "unplugged") {
        faults.boardUnplugged = true;
    } else if (device == "board" && what == "overload") {
        faults.boardOverload = true;
    } else if (device == "crash" &&
               (what == "exception" || what == "abort" || what == "overflow")) {
        faults.crash = what;
        if (words >> detail && detail != "aside" && detail != "again") return false;
        faults.crashAside = detail == "aside";
        faults.crashAgain = detail == "again";
    } else if (device == "optics" || device == "spot" || device == "sensor" ||
               device == "amplifier" || device == "second" || device == "sample" ||
               (device == "board" && (what == "input" || what == "laser" || what == "lamp"))) {
        words.clear();
        if (!parseSetUp(words, device, what, faults)) return false;
        words.clear();
    } else if (device == "backlash" && axis >= 0) {
        if (!(words >> number) || number < 0) return false;
        faults.backlashUm[axis] = number;
    } else {
        return parseInstrumentFault(line, faults);
    }
    return !(words >> extra);
}

bool applyLabFaults(const std::string& text) {
    LabLock lock;
    LabFaults faults;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        size_t start = line.find_first_not_of(" \t\r");
        if (start == std::string::npos || line[start] == '#') continue;
        if (!parseFault(line, faults)) return false;
    }
    advanceMotors(); // up to now they moved under the old faults
    const auto sensorOf = [](const LabSetUp& s) {
        return std::tuple(s.sensorWidth, s.sensorHeight, s.pixelFormat, s.centred);
    };
    const bool otherSensor = sensorOf(faults.setUp) != sensorOf(lab.faults.setUp);
    const double nowMs = labNowMs();
    const LabPoint drifted = driftAtTime(nowMs), shift = lab.faults.shiftUm;
    lab.drift = {{drifted.x - shift.x, drifted.y - shift.y}, nowMs};
    lab.faults = faults;
    if (otherSensor) resetCamera();
    for (LabMotor& motor : lab.motors) motor.calls = 0;
    dropMissingControllers();
    dropLostCamera();
    switchOffAbsentInstruments();
    return true;
}

LabSetUp labSetUp() {
    LabLock lock;
    return lab.faults.setUp;
}

bool labBoardPresent() {
    LabLock lock;
    return !lab.faults.boardAbsent && !lab.faults.boardUnplugged;
}

bool labBoardConnected() {
    LabLock lock;
    return !lab.faults.boardUnplugged;
}

const LabCounters& labCounters() {
    LabLock lock;
    lab.counters.cameraDevices = lab.camera.devices.size();
    lab.counters.openAxes = 0;
    for (const LabMotor& motor : lab.motors) lab.counters.openAxes += motor.id >= 0;
    lab.counters.gpibDescriptors = lab.instruments.gpibDevices.size();
    lab.counters.visaSessions = lab.instruments.visaObjects.size();
    lab.counters.networkLinks = lab.instruments.networkLinked;
    return lab.counters;
}

const std::vector<std::string>& labBoardCommands() {
    return lab.boardCommands;
}

const std::vector<LabRead>& labReads() {
    return lab.reads;
}
