// The one state that all devices of the virtual laboratory share, and the lock around it.
#pragma once

#include "virtual_lab/camera_state.h"
#include "virtual_lab/instruments_state.h"
#include "virtual_lab/lab.h"

#include <deque>
#include <mutex>
#include <random>

struct LabFaults {
    LabSetUp setUp;
    LabPoint driftUmPerHour, shiftUm; // of the sample on the stage
    int controllers = 3;              // found on the bus, 0..3
    bool noController[3] = {};
    std::string busOrder = "yxz"; // the controllers' axes as a search finds them
    bool stranger = false;        // another set-up's controller is found first
    bool replaced[3] = {};        // by another one, of another name
    double callMs = 0;            // what each call to a controller takes
    int disturbedEach[3] = {};    // each such call is answered by a bad checksum; 0: none
    uint32_t alarm[3] = {};       // flags of the cause that raises one
    int alarmFrom[3] = {1, 1, 1}; // at this call
    bool alarmStays[3] = {};      // a stop does not end it
    bool unpowered[3] = {};       // the windings stay without current
    double slipUm[3] = {};        // the carriage has lost so much of the motor's way
    uint32_t stepsPerTurn[3] = {200, 200, 200}; // of the motor
    bool stalled[3] = {};
    int lostFrom[3] = {}; // calls until the controller is gone; 0: it stays
    bool mute[3] = {};
    bool oldStatus[3] = {};
    double overshootUm[3] = {};
    double ownSpeed[3] = {5000, 5000, 5000}; // full steps per second, whatever the limit allows
    uint32_t microstepMode[3] = {9, 9, 9};
    double rightLimitUm[3] = {5000, 5000, 5000};
    double leftLimitUm[3] = {-5000, -5000, -5000};
    double backlashUm[3] = {2.0, 2.0, 0.8};
    bool boardAbsent = false;
    bool boardUnplugged = false;
    bool boardOverload = false;
    bool boardQuiet = false; // no noise in its converter
    bool cameraAbsent = false;
    bool cameraLost = false;
    bool cameraOld = false; // feature names from before SFNC 2.0
    bool cameraUnsettled = false;
    bool cameraSecond = false;            // another one is found before it
    bool cameraSilent = false;            // answers, but sends no frame
    std::vector<std::string> cameraLacks; // feature names
    LabInstrumentFaults instruments[labInstrumentCount];
    int scopes = 1;
    bool gpibAbsent = false;
    std::string gpibFailing;              // name of a call, "all", or empty
    int gpibFailingFrom = 1;              // calls of that name until it fails
    int gpibAddresses[labSr830 + 1] = {}; // 0: as the test has set it
    bool visaAbsent = false;
    bool visaEmpty = false;
    std::string crash; // how the program is made to crash, or empty
    bool crashAside = false;
    bool crashAgain = false;
};

// One axis: what its controller has been told, where the motor stands and where the carriage is.
struct LabMotor {
    int id = -1;                // handle while open
    double nominalSpeed = 5000; // full steps per second
    uint32_t engineFlags = 0xF0;
    int32_t originSteps = 0; // count at resetLab
    double steps = 0;        // motor, full steps from originSteps
    double targetSteps = 0;  // the same scale
    double pastTarget = 0;   // how far it goes beyond it first, with the sign of the way
    double carriageUm = 0;   // from the place at resetLab
    double updatedMs = 0;    // time of the three values above
    int calls = 0;           // since the faults were made
    bool commanded = false;  // moved since it was switched on
    uint32_t alarm = 0;      // flags of the cause; 0: none
    double slipUm = 0;       // way that the motor was given and the carriage has not gone
    double lostUm = 0;       // of it by lost steps, without its sign
    double restsMs = 0;      // when its last move ended
};

// How far the sample had drifted when its rate last changed.
struct LabDrift {
    LabPoint um;
    double sinceMs = 0;
};

struct LabBoard {
    std::string input; // bytes of a command not yet ended
    std::string reply;
    int laserPwm = 0; // set by switchLaser
    bool illuminated = false;
    int channel[3] = {}; // what the three channels were last set to
    int channelRate[3] = {};
};

// The sample's carriers when the laser was last switched on, off or to another level.
struct LabCarriers {
    double population = 0; // 0..1
    int lastLitPwm = 0;    // the level that they belong to
    double changedMs = 0;
};

struct Lab {
    LabFaults faults;
    LabMotor motors[3]; // by LabAxis
    LabDrift drift;
    LabBoard board;
    LabCarriers carriers;
    LabCamera camera;
    LabInstruments instruments;
    LabCounters counters;
    std::vector<std::string> boardCommands;
    std::vector<LabRead> reads;
    std::mt19937_64 noise;
    uint64_t seed = 0;
    int lastStageId = -1;
    int rowsAroundSpot = -1; // that frames show; -1: all
};

extern Lab lab;

// Held by every function that the outside can call. The first thing that it does is whatever the
// surroundings want done regularly (on Windows: look at the fault file).
class LabLock {
public:
    LabLock();

private:
    std::unique_lock<std::recursive_mutex> held;
};

extern void (*labBeforeCall)();  // may be null
extern void (*labWhileMoving)(); // may be null; without the lock, a stage was seen on its way
extern void (*labOnStage)(int axis, const char* what); // may be null

double labNowMs();
void labSleepMs(double ms); // not while holding the lock

// A new entry that pushes out the older half when the log is full.
template <class Entry> void logEntry(std::vector<Entry>& log, Entry entry) {
    constexpr size_t fullLog = 1'000'000;
    if (log.size() >= fullLog) log.erase(log.begin(), log.begin() + fullLog / 2);
    log.push_back(std::move(entry));
}

// Brings motors and carriages to the present time. Before anything that changes how they move.
void advanceMotors();
void advanceMotorsTo(double ms); // to an earlier one, but not back
double labRestedMs();            // for so long X and Y have stood still
void resetMotors();
void dropMissingControllers();

void resetCamera();
void dropLostCamera();

void switchLaser(int pwm); // 0..255, 0 is off

// What an amplifier before an input makes of the photocurrent, V; without one (0 V/A) the
// photovoltage.
double behindAmplifier(double voltsPerAmpere, double offsetVolts);

// The photovoltage at a time, where the carriages now stand, and the current that it makes.
double photoVoltsAtTime(double ms);
double photoCurrent(double photoVolts, double biasVolts);

// Where the sample lies on the stage against where it lay at resetLab, um along the stage's axes;
// and the sample point under the picture's centre now.
LabPoint driftAtTime(double ms);
LabPoint sampleAtCentre();

// From the picture's centre to a pixel, um on the sample. Under the lock.
LabPoint fromCentre(double columns, double rows);

// How much of the light is left at the spot (1 in focus) and how much wider the spot is, for a
// surface that lies `defocusUm` from the focus.
double sharpnessAt(double defocusUm);
double spotWidening(double defocusUm);
