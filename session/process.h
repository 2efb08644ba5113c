// The long processes (a mapping, a sweep, a series, autofocus, the wide view): one at a time.
#pragma once

#include "session/outcome.h"
#include "session/session_state.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

// The process holds the program in this object's block.
class RunningProcess {
public:
    RunningProcess();
    ~RunningProcess();
    RunningProcess(const RunningProcess&) = delete;
    RunningProcess& operator=(const RunningProcess&) = delete;
};

// A move of the stage is under way in this object's block.
class MoveUnderWay {
public:
    MoveUnderWay();
    ~MoveUnderWay();
    MoveUnderWay(const MoveUnderWay&) = delete;
    MoveUnderWay& operator=(const MoveUnderWay&) = delete;
};

// True inside the wait of a move.
bool stageIsMoving();

// Runs `work`, whose start and end the log of the day has under `name`, and keeps the system awake
// meanwhile. Nothing, and it is not run, while another process or a move of the stage is under way:
// where that ends is not known yet. Closes the main window afterwards when that was asked for.
// `saveQuietly` saves what has been measured when the program is ended by force meanwhile; it may
// be empty.
std::optional<Outcome> runProcess(const char* name, const std::function<Outcome()>& work,
                                  std::function<void()> saveQuietly = {});

// How the last process of that name has ended, whoever began it; nothing before, and from its begin
// on. Likewise for what runs inside another one: a list's map.
std::optional<Outcome> lastOutcomeOf(const std::string& name);
void keepOutcome(const std::string& name, const Outcome& outcome);
void forgetOutcome(const std::string& name);
void forgetOutcomes();

// From the first step of a process to its last, also where it does not hold `processRunning`.
bool processUnderWay();

// Its name, as runProcess has it; null without one.
const char* processUnderWayName();

// A process or a move of the stage is under way: what would send the stage elsewhere must wait.
bool stageIsBusy();

// Tells the operator that what he wants must wait for the process.
void refuseForProcess();

// At a forced end: what the process that is under way has measured is saved without asking.
void saveUnfinishedProcess();

// How the process ends that asks when its loop is over.
ProcessEnd processEnd();

// Asks the process that is under way to stop, as the operator does.
void stopAsAsked();

// The same because its window was closed.
void stopAsClosed();

// The same for the main window, which closes when the process has ended.
void stopAndClose();

// The same because the computer goes to sleep.
void stopForSleep();
