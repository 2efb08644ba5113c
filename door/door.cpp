// Opens the door, and keeps account of what its client does.
#include "door/door.h"

#include "camera/live_view.h"
#include "door/verbs.h"
#include "instruments/ammeter.h"
#include "instruments/lights.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "platform/clock.h"
#include "platform/tcp_server.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "screen/screen.h"
#include "session/announce.h"
#include "session/day_log.h"
#include "session/forced_end.h"
#include "session/main_title.h"
#include "session/message_box.h"
#include "session/options.h"
#include "session/pause.h"
#include "session/process.h"
#include "session/responsive_wait.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

DoorSettings doorSettings;

namespace {

constexpr char openName[] = "scripts may connect";
constexpr char switchName[] = "scripts may switch laser and bias";
constexpr char portName[] = "port for scripts";
constexpr char yes[] = "yes", no[] = "no";

// A client that sends without end leaves the window its share.
constexpr uint64_t longestStepMs = 10;
constexpr uint32_t pauseMs = 10;
constexpr uint32_t soonMs = 1;
constexpr unsigned darkPeriodMs = 200;

struct {
    bool listens = false;
    int32_t port = 0; // that it listens at
    std::unique_ptr<ScpiSession> client;
    bool stepping = false; // the client's next commands wait
    bool goesOn = false;   // there is more to do, a little later
    bool leaving = false;  // it sends nothing more
    bool closing = false;  // the connection ends when the present command has ended
    // What it has begun.
    const char* name = "";
    std::function<std::optional<Outcome>()> pending;
    bool running = false;
    bool paused = false; // by itself
    // What it has switched on outside of that.
    bool laser = false, bias = false;
    bool darkWanted = false; // whoever did it is gone
    int logBudget = 0;       // lines of this minute
    uint64_t logMinute = 0;
    int leftOut = 0;
} door;

void logCommand(const std::string& line) {
    constexpr int linesPerMinute = 60;
    constexpr size_t longestLine = 200;
    if (const uint64_t minute = tickCountMs() / 60'000; minute != door.logMinute) {
        door.logMinute = minute;
        door.logBudget = linesPerMinute;
        if (door.leftOut > 0) logEvent(formatted("Script: %d lines left out", door.leftOut));
        door.leftOut = 0;
    }
    if (door.logBudget == 0) {
        ++door.leftOut;
        return;
    }
    --door.logBudget;
    std::string printable = line.substr(0, longestLine);
    for (char& c : printable)
        if (c < ' ' || c > '~') c = '?';
    logEvent("Script: " + printable);
}

void showWhoHasCommand() {
    door.laser = door.laser && laserIsOn();
    door.bias = door.bias && instrumentLink.bias.volts != 0.0f;
    const bool commands = door.running || door.pending || door.laser || door.bias;
    titleScript(commands ? "script in command" : door.client ? "script connected" : "");
}

std::string whatIsUnderWay() {
    if (!windows.main || forcedEnd.begun) return "the program ends";
    if (clientIsAtWork()) return std::string("not while ") + door.name + " runs";
    if (processUnderWay()) return "not while the operator's process runs";
    if (stageIsMoving()) return "not while the operator moves the stage";
    if (mainWindowIsHeld()) return "not while a box or a dialog is open";
    if (waitIsUnderWay()) return "not while the operator's command is carried out";
    return {};
}

// Whoever only asks, all night, does not keep the lights on.
void countAsInput() {
    const bool stands = liveViewState.noticeStands;
    resetIdle();
    liveViewState.noticeStands = stands;
}

ScpiFault mayHappen(const Verb& verb) {
    if ((verb.needs & needsPermission) != 0 && !doorSettings.maySwitch)
        return {-203, "\"Scan options\" do not let scripts switch laser and bias"};
    if ((verb.needs & needsIdle) == 0) return {};
    if (const std::string why = whatIsUnderWay(); !why.empty()) return {-221, why};
    countAsInput();
    return {};
}

// --- What the client has begun -------------------------------------------------------------------

void tellClient(int code, const std::string& words) {
    logEvent("Script: error: " + words);
    if (door.client) door.client->status.error(code, words);
}

void tellEnd(const std::optional<Outcome>& outcome, const std::vector<std::string>& boxes) {
    for (const std::string& text : boxes) tellClient(-200, text);
    if (!outcome) return tellClient(-221, "something else is under way");
    const bool declined = outcome->end == ProcessEnd::Declined && boxes.empty();
    if (declined || !outcome->endedBy.empty()) tellClient(-200, outcome->words());
    if (!outcome->notWritten.empty()) tellClient(-250, outcome->words());
}

void pump();

void carryOutPending() {
    if (!door.pending) return;
    if (door.stepping) return callBehindInput(pauseMs);
    const bool another = processUnderWay() || mainWindowIsHeld() || !windows.main;
    // A wait of the operator's that is no process is over soon.
    if (!another && (waitIsUnderWay() || stageIsMoving())) return callBehindInput(pauseMs);
    const auto run = std::exchange(door.pending, nullptr);
    std::vector<std::string> boxes;
    std::optional<Outcome> outcome;
    const ScpiSession* const whose = door.client.get();
    door.running = true;
    door.paused = false;
    showWhoHasCommand();
    if (!another) {
        const NobodyToAsk nobody(boxes);
        outcome = run();
    }
    door.running = false;
    if (whose == door.client.get()) tellEnd(outcome, boxes); // the next client began nothing
    showWhoHasCommand();
    pump();
}

// --- The connection ------------------------------------------------------------------------------

void darkenBehindClient() {
    showWhoHasCommand();
    const bool lit = door.laser || door.bias;
    if (lit && (programIsBusy() || door.pending)) return startTimer(Timer::Door, darkPeriodMs);
    stopTimer(Timer::Door);
    door.darkWanted = false;
    if (!lit) return;
    logEvent("Script: what it had switched on goes off behind it");
    forgetClientsDoings();
}

void leave(const char* how) {
    if (!door.client) return;
    logEvent(std::string("Script: ") + how);
    door.client.reset();
    door.closing = door.leaving = false;
    door.darkWanted = true;
    darkenBehindClient();
}

void hangUp(const char* why) {
    closeClient();
    leave(why);
}

// False when the client is gone.
bool sendAnswers() {
    std::string& output = door.client->output;
    size_t sent = 0;
    while (sent < output.size()) {
        const int count = sendToClient(output.data() + sent, output.size() - sent);
        if (count < 0) return false;
        if (count == 0) break;
        sent += static_cast<size_t>(count);
    }
    output.erase(0, sent);
    if (output.empty()) output.shrink_to_fit(); // of a map
    return true;
}

enum class Came { Something, Nothing, Gone };

Came takeInput() {
    char bytes[16384];
    const int count = readFromClient(bytes, sizeof bytes);
    if (count < 0) return Came::Gone;
    if (count == 0) return Came::Nothing;
    door.client->receive({bytes, static_cast<size_t>(count)});
    return Came::Something;
}

// A command, whose boxes are its errors.
bool stepClient() {
    std::vector<std::string> boxes;
    const NobodyToAsk nobody(boxes);
    followConditions(door.client->status);
    const bool stepped = door.client->step();
    for (const std::string& text : boxes) door.client->status.error(-200, text);
    return stepped;
}

// Carries out what has come and sends what is to go, for a while.
const char* pumpForAWhile() {
    const uint64_t began = tickCountMs();
    door.goesOn = false;
    for (;;) {
        if (!sendAnswers()) return "is gone";
        if (door.closing) return "closed, scripts are no longer let in";
        const bool stepped = stepClient();
        if (door.client->wantsClosing()) return "closed, it was a browser's page";
        if (!stepped) {
            if (!door.client->takesMore()) return nullptr;
            const Came came = takeInput();
            if (came == Came::Gone) return "is gone";
            if (came == Came::Nothing) return sendAnswers() ? nullptr : "is gone";
        }
        if (tickCountMs() - began < longestStepMs) continue;
        door.goesOn = true;
        callBehindInput(door.pending ? soonMs : pauseMs);
        return sendAnswers() ? nullptr : "is gone";
    }
}

// A command may wait, and dispatch the message that there is another one.
void pump() {
    if (!door.client || door.stepping) return;
    door.stepping = true;
    const char* ended = pumpForAWhile();
    door.stepping = false;
    // Nobody waits for an answer that cannot be given now.
    if (!ended && door.leaving && !door.goesOn) ended = "is gone";
    if (ended) return hangUp(ended);
    showWhoHasCommand();
}

void connected() {
    logEvent("Script: connected");
    door.client = std::make_unique<ScpiSession>(ScpiSession::World{.verbs = verbTable(),
                                                                   .mayHappen = mayHappen,
                                                                   .isUnderWay = clientIsAtWork,
                                                                   .tell = logCommand});
    showWhoHasCommand();
}

void isLeaving() {
    door.leaving = true;
    pump();
}

void called() {
    carryOutPending();
    pump();
}

constexpr TcpServerFace face{.connected = connected,
                             .refused = [] { logEvent("Script: a second one was closed"); },
                             .readable = pump,
                             .leaving = isLeaving,
                             .writable = pump,
                             .called = called};

} // namespace

void readDoorSettings() {
    doorSettings = {};
    takeOption(openName, doorSettings.isOpen);
    takeOption(switchName, doorSettings.maySwitch);
    const std::string text = readOption(portName);
    constexpr int32_t lowestPort = 1024, highestPort = 65535;
    const std::optional<int> port = typedInteger(text);
    if (port && *port >= lowestPort && *port <= highestPort)
        doorSettings.port = *port;
    else if (!text.empty())
        tellUnknownOption(portName, text);
}

bool writeDoorSettings() {
    return writeOptions({{openName, doorSettings.isOpen ? yes : no},
                         {switchName, doorSettings.maySwitch ? yes : no}});
}

void followDoorSettings() {
    if (door.listens && (!doorSettings.isOpen || door.port != doorSettings.port)) closeDoor();
    if (door.listens || !doorSettings.isOpen) return;
    const char* why = "";
    door.port = doorSettings.port;
    door.listens = listenAt(static_cast<uint16_t>(door.port), face, why);
    if (door.listens) return logEvent(formatted("Scripts may connect to port %d", door.port));
    announce(Severity::Trouble, formatted("Scripts cannot connect to port %d: %s", door.port, why));
}

void closeDoor() {
    if (!door.listens) return;
    door.listens = false;
    door.closing = door.stepping; // by a command of its own, in whose middle it is
    stopListening();
    door.pending = nullptr;
    if (!door.stepping) leave("closed, scripts are no longer let in");
    logEvent("Scripts may no longer connect");
}

void onDoorTimer() {
    if (door.darkWanted) darkenBehindClient();
}

void beginForClient(const char* name, std::function<std::optional<Outcome>()> run) {
    door.name = name;
    door.pending = std::move(run);
    callBehindInput(soonMs);
}

std::string stopForClient() {
    if (door.pending) {
        door.pending = nullptr;
        return {};
    }
    if (!door.running) {
        if (processUnderWay()) return "the operator's process runs, which is his to stop";
        if (stageIsMoving()) session.moveStopRequested = 1;
        stopAllStages();
        return {};
    }
    if (processUnderWay()) {
        stopAsAsked();
        return {};
    }
    stopAllStages();
    session.moveStopRequested = 1;
    return {};
}

std::string pauseForClient(bool pause) {
    if (!door.running || !processUnderWay()) return "nothing that the script has begun runs";
    if (!pause && isPaused() && !door.paused) return "the operator has paused it";
    door.paused = pause;
    askForPause(pause ? PauseBehind::Point : PauseBehind::Nothing);
    return {};
}

bool clientIsAtWork() {
    return door.pending || door.running;
}

bool clientBegins(const std::string& name) {
    return door.pending && name == door.name;
}

void noteLaserOfClient(bool on) {
    door.laser = on;
}

void noteBiasOfClient(bool on) {
    door.bias = on;
}

void forgetClientsDoings() {
    std::vector<std::string> boxes;
    const NobodyToAsk nobody(boxes);
    if (std::exchange(door.laser, false)) setLaserLevel(0);
    if (std::exchange(door.bias, false))
        applyBias(0.0, static_cast<double>(instrumentLink.currentLimit));
    showWhoHasCommand();
}

bool programIsBusy() {
    return stageIsBusy() || waitIsUnderWay();
}

void followConditions(ScpiStatus& status) {
    constexpr unsigned settling = 2, measuring = 16;           // SCPI-99
    constexpr unsigned voltage = 1, power = 8, doubtful = 512; // the last one is ours
    status.operation.follow((stageIsMoving() || clientIsAtWork() ? settling : 0u) |
                            (processUnderWay() ? measuring : 0u));
    status.questionable.follow((biasLeftOn().empty() ? 0u : voltage) |
                               (lightLeftOn().empty() ? 0u : power) |
                               (scanMap.outcome.trouble == troubleLine({}) ? 0u : doubtful));
}
