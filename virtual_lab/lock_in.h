// What the virtual lock-in amplifiers have in common: the chopped photocurrent at their inputs, the
// filter behind it, and what becomes too much on the way. Their command sets lie over it.
#pragma once

#include "virtual_lab/lab.h"

#include <string>
#include <vector>

// What is so now, or was since it was last asked for.
enum LockInFlag : unsigned {
    lockInInput = 1,         // too much at the input, or for the reserve
    lockInFilter = 2,        // between the filter's poles
    lockInX = 4,             // beyond the display's limit
    lockInY = 8,             //
    lockInR = 16,            //
    lockInUnlocked = 32,     // no reference
    lockInRange = 64,        // the detection frequency has passed 200 Hz
    lockInTimeConstant = 128 // changed by itself
};

struct LockInOutputs {
    double x = 0, y = 0, r = 0; // V rms at the input, less the offsets; A for a current input where
                                // the wiring says so
    double theta = 0;           // degrees, -180 to 180
    double inputPeak = 0;       // V
    double referenceHz = 0;
    double detectionHz = 0;
};

// Lets the filters see their inputs up to now. Before anything that changes these.
void followLockIns();

LockInOutputs lockInOutputs(LabInstrument who);
void noteLockInMeasurement(LabInstrument who, const LockInOutputs& outputs); // that was told
unsigned lockInNow(LabInstrument who);                                       // flags
unsigned takeLockInSeen(LabInstrument who); // what was so since the last call
void renewLockIn(LabInstrument who);
void switchOffLockIn(LabInstrument who); // it keeps its settings

double photodiodeVolts(); // at aux input 1, now, with noise

// The step of a table that a setting stands at, or would come to stand at.
struct LockInSteps {
    int count;
    double (*value)(int index);
    int nearest(double wanted) const;
};

// Takes what the model does not have to the nearest that it has; its flags say what it has changed
// by itself. `detectionHz` is that of the reference times the harmonic.
unsigned fitSr830(LabLockInSettings& settings, double detectionHz);
unsigned fitSr860(LabLockInSettings& settings, double detectionHz);

// The largest peak that input and reserve take, V, and the reserve, by which the filter's gain is
// higher than at none, dB.
double sr830InputLimit(const LabLockInSettings& settings);
double sr830ReserveDb(const LabLockInSettings& settings);

// One command of a set. `execute` leaves the answer to a query; false where a parameter is none.
struct LockInCommand {
    const char* name;    // a query's ends in '?'
    size_t fewest, most; // parameters
    bool (*execute)(const std::vector<int>& parameters, std::string& answer);
};

// Executes it, or says why not: "CMD" it is none of them, "EXE" a parameter is wrong.
std::string executeLockInCommand(const LockInCommand* commands, size_t count,
                                 const std::string& name,
                                 const std::vector<std::string>& parameters, std::string& answer);
