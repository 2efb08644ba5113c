// Lets one long process run at a time.
#include "session/process.h"

#include "platform/clock.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/responsive_wait.h"
#include "session/stay_awake.h"

#include <cassert>
#include <map>
#include <utility>

SessionState session;

namespace {

struct {
    bool underWay = false;
    const char* name = nullptr;
    std::function<void()> saveQuietly;
    bool closeWanted = false;
    int moves = 0; // of the stage, one inside another
    ProcessEnd stopReason = ProcessEnd::Stopped;
} process;

std::map<std::string, Outcome> ended; // by name

void logEnd(const char* name, const Outcome& outcome, uint64_t tookMs) {
    const char* how = outcome.end == ProcessEnd::Finished ? "ended" : nameOf(outcome.end);
    logEvent(formatted("%s: %s after %.1f s, \"%s\"", name, how,
                       static_cast<double>(tookMs) / 1000.0, outcome.words().c_str()));
}

} // namespace

std::optional<Outcome> runProcess(const char* name, const std::function<Outcome()>& work,
                                  std::function<void()> saveQuietly) {
    if (stageIsBusy()) return {};
    logEvent(std::string(name) + ": begins");
    const uint64_t start = tickCountMs();
    process.underWay = true;
    process.name = name;
    process.stopReason = ProcessEnd::Stopped;
    process.saveQuietly = std::move(saveQuietly);
    forgetOutcome(name);
    session.atProcessBegin();
    stayAwakeFor(AwakeFor::Process, true);
    const Outcome outcome = work();
    assert(session.processRunning == 0 && process.moves == 0); // it ends as it began
    logEnd(name, outcome, tickCountMs() - start);
    keepOutcome(name, outcome);
    stayAwakeFor(AwakeFor::Process, false);
    process.saveQuietly = {};
    process.underWay = false;
    process.name = nullptr;
    if (process.closeWanted) destroyMainWindow();
    process.closeWanted = false;
    return outcome;
}

std::optional<Outcome> lastOutcomeOf(const std::string& name) {
    const auto found = ended.find(name);
    if (found == ended.end()) return {};
    return found->second;
}

void keepOutcome(const std::string& name, const Outcome& outcome) {
    ended[name] = outcome;
}

void forgetOutcome(const std::string& name) {
    ended.erase(name);
}

void forgetOutcomes() {
    ended.clear();
}

bool processUnderWay() {
    return process.underWay || session.processRunning != 0;
}

const char* processUnderWayName() {
    return process.name;
}

RunningProcess::RunningProcess() {
    assert(session.processRunning == 0);
    session.processRunning = 1;
}

RunningProcess::~RunningProcess() {
    session.processRunning = 0;
}

MoveUnderWay::MoveUnderWay() {
    ++process.moves;
}

MoveUnderWay::~MoveUnderWay() {
    --process.moves;
    assert(process.moves >= 0);
}

bool stageIsMoving() {
    return process.moves > 0;
}

bool stageIsBusy() {
    return processUnderWay() || stageIsMoving();
}

void refuseForProcess() {
    showInformation("Not while a process runs");
}

void saveUnfinishedProcess() {
    if (process.saveQuietly) process.saveQuietly();
}

ProcessEnd processEnd() {
    if (!session.stopRequested) return ProcessEnd::Finished;
    return process.stopReason;
}

void stopAsAsked() {
    session.stopRequested = 1;
    process.stopReason = ProcessEnd::Stopped;
}

void stopAsClosed() {
    session.stopRequested = 1;
    process.stopReason = ProcessEnd::WindowClosed;
}

void stopForSleep() {
    session.stopRequested = 1;
    process.stopReason = ProcessEnd::Asleep;
}

void stopAndClose() {
    stopAsClosed();
    process.closeWanted = true;
}
