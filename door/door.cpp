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
#include <string_view>
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

constexpr unsigned settlingBit = 2, measuringBit = 16; // of the operation's register: SCPI-99

struct Source {
    float volts = 0.0f, limitAmperes = 0.0f;
    bool operator==(const Source&) const = default;
};

Source presentSource() {
    return {instrumentLink.biasVoltage, instrumentLink.currentLimit};
}

struct {
    bool listens = false;
    int32_t port = 0; // that it listens at
    std::unique_ptr<ScpiSession> client;
    int clientNumber = 0;    // counts them
    size_t sentOfOutput = 0; // its first bytes
    bool stepping = false;   // the client's next commands wait
    bool goesOn = false;     // there is more to do, a little later
    bool leaving = false;    // it sends nothing more
    bool closing = false;    // the connection ends when the present command has ended
    // What it has begun.
    const char* name = "";
    std::function<std::optional<Outcome>()> pending;
    bool running = false;
    // What it has switched on outside of that.
    bool laser = false, bias = false;
    bool darkWanted = false; // whoever did it is gone
    // The bias of scans and its limit before the client set them, and as it has set them.
    std::optional<Source> sourceBefore, sourceSet;
    int logBudget = 0; // lines of this minute
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

void tellClient(int code, const std::string& words) {
    logEvent("Script: error: " + words);
    if (door.client) door.client->status.error(code, words);
}

// A reading behind it would look sound.
void tellOfLaserThatWentOff() {
    const std::string why = whyLaserIsDark();
    tellClient(-200, "the laser has gone off: " +
                         (why.empty() ? "switched off, or 50 s without a command" : why));
}

void showWhoHasCommand() {
    const bool wentOff = door.laser && !laserIsOn();
    door.laser = door.laser && laserIsOn();
    door.bias = door.bias && instrumentLink.bias.state != BiasState::Off;
    if (wentOff && !door.running) tellOfLaserThatWentOff();
    const bool commands = door.running || door.pending || door.laser || door.bias;
    titleScript(commands ? "script in command" : door.client ? "script connected" : "");
}

std::string whatIsUnderWay() {
    if (!windows.main || forcedEnd.begun) return "the program ends";
    if (session.goesToSleep) return "the computer goes to sleep";
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

void darkenBehindClient();

ScpiFault mayHappen(const Verb& verb, const Call& call) {
    const bool switchesOff = call.given > 0 && call.numbers[0] == 0.0; // which is always allowed
    if ((verb.needs & needsPermission) != 0 && !doorSettings.maySwitch && !switchesOff)
        return {-203, "\"Scan options\" do not let scripts switch laser and bias"};
    if ((verb.needs & needsIdle) == 0) return {};
    if (const std::string why = whatIsUnderWay(); !why.empty()) return {-221, why};
    if (door.darkWanted) darkenBehindClient(); // not over what comes now
    countAsInput();
    return {};
}

// --- What the client has begun -------------------------------------------------------------------

void tellEnd(const std::optional<Outcome>& outcome, const std::vector<std::string>& boxes) {
    for (const std::string& text : boxes) tellClient(-200, text);
    if (!outcome) return tellClient(-221, "something else is under way");
    const bool declined = outcome->end == ProcessEnd::Declined && boxes.empty();
    if (declined || !outcome->endedBy.empty()) tellClient(-200, outcome->words());
    if (!outcome->notWritten.empty()) tellClient(-250, outcome->words());
    // A map has its mask and its report, and a few doubtful points do not spoil it.
    const bool told = declined || !outcome->endedBy.empty() || !outcome->notWritten.empty();
    if (!told && !outcome->isSound() && std::string_view(door.name) != "a mapping")
        tellClient(-230, outcome->words());
}

void pump();

void carryOutPending() {
    if (!door.pending) return;
    if (door.stepping) return callBehindInput(pauseMs);
    const bool another =
        stageIsBusy() || mainWindowIsHeld() || !windows.main || session.goesToSleep;
    // A wait of the operator's that is neither a process nor a move is over soon.
    if (!another && waitIsUnderWay()) return callBehindInput(pauseMs);
    const auto run = std::exchange(door.pending, nullptr);
    std::vector<std::string> boxes;
    std::optional<Outcome> outcome;
    const int whose = door.clientNumber;
    door.running = true;
    showWhoHasCommand();
    if (!another) {
        // Short ones would not be seen between two commands.
        if (door.client)
            door.client->status.operation.follow(
                settlingBit | (std::string_view(door.name) == "a move" ? 0u : measuringBit));
        const NobodyToAsk nobody(boxes);
        outcome = run();
    }
    showWhoHasCommand(); // a laser that the process has switched off is no news
    door.running = false;
    if (whose == door.clientNumber) tellEnd(outcome, boxes); // the next client began nothing
    if (!door.client) door.darkWanted = true;                // it went meanwhile
    if (door.darkWanted) darkenBehindClient();
    showWhoHasCommand();
    pump();
}

// --- The connection ------------------------------------------------------------------------------

void darkenBehindClient() {
    showWhoHasCommand();
    const bool lit = door.laser || door.bias;
    const bool busy = programIsBusy() || door.pending;
    // What it has begun keeps its bias to the end.
    if (busy && (lit || door.sourceBefore)) return startTimer(Timer::Door, darkPeriodMs);
    stopTimer(Timer::Door);
    door.darkWanted = false;
    forgetClientsDoings(); // before any file: a disk may not answer
    if (lit) logEvent("Script: what it had switched on goes off behind it");
}

void leave(const char* how) {
    if (!door.client) return;
    door.client.reset();
    door.closing = door.leaving = false;
    door.darkWanted = true;
    darkenBehindClient();
    logEvent(std::string("Script: ") + how);
}

void hangUp(const char* why) {
    closeClient();
    leave(why);
}

bool isLong(uint64_t stepBegan) {
    return tickCountMs() - stepBegan >= longestStepMs;
}

void goOnLater() {
    door.goesOn = true;
    callBehindInput(door.pending ? soonMs : pauseMs);
}

// False when the client is gone.
bool sendAnswers(uint64_t stepBegan) {
    std::string& output = door.client->output;
    size_t& sent = door.sentOfOutput;
    while (sent < output.size()) {
        const int count = sendToClient(output.data() + sent, output.size() - sent);
        if (count < 0) return false;
        if (count == 0) return true;
        sent += static_cast<size_t>(count);
        if (sent < output.size() && isLong(stepBegan)) {
            goOnLater();
            return true;
        }
    }
    output.clear();
    output.shrink_to_fit(); // of a map
    sent = 0;
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
    showWhoHasCommand();
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
        if (!sendAnswers(began)) return "is gone";
        if (door.closing) return "closed, scripts are no longer let in";
        const bool stepped = stepClient();
        if (const char* why = door.client->wantsClosing()) return why;
        if (!stepped) {
            if (door.leaving || !door.client->takesMore()) return nullptr;
            const Came came = takeInput();
            if (came == Came::Gone) door.leaving = true; // its last answers still go out
            if (came == Came::Nothing) return sendAnswers(began) ? nullptr : "is gone";
        }
        if (!isLong(began)) continue;
        goOnLater();
        return sendAnswers(began) ? nullptr : "is gone";
    }
}

// A command may wait, and dispatch the message that there is another one.
void pump() {
    if (!door.client || door.stepping) return;
    door.stepping = true;
    const char* ended = pumpForAWhile();
    door.stepping = false;
    // Nobody waits for an answer that cannot be given now.
    if (!ended && door.leaving && !door.goesOn && door.client->output.empty()) ended = "is gone";
    if (ended) return hangUp(ended);
    showWhoHasCommand();
}

void connected() {
    logEvent("Script: connected");
    ++door.clientNumber;
    door.sentOfOutput = 0;
    door.goesOn = false;
    forgetChoices();
    door.client = std::make_unique<ScpiSession>(ScpiSession::World{.verbs = verbTable(),
                                                                   .mayHappen = mayHappen,
                                                                   .isUnderWay = clientIsAtWork,
                                                                   .tell = logCommand});
    showWhoHasCommand();
}

// While there is more to do, only `called` goes on: each read would post the news of the next
// bytes, and a client that sends without end would leave the window no share.
void hasNews() {
    if (!door.goesOn) pump();
}

void isLeaving() {
    door.leaving = true;
    hasNews();
}

// First the turn that was cut short: the news of what came meanwhile were left to it, and none
// would come while a scan runs.
void called() {
    pump();
    carryOutPending();
}

constexpr TcpServerFace face{.connected = connected,
                             .refused = [] { logEvent("Script: a second one was closed"); },
                             .readable = hasNews,
                             .leaving = isLeaving,
                             .writable = hasNews,
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
    if (!doorSettings.maySwitch) forgetClientsDoings();
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
    if (pauseIsOperators()) return pause ? "" : "the operator has paused it";
    return askForPause(pause ? PauseBehind::Point : PauseBehind::Nothing, PauseBy::Script);
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

void noteSourceBeforeClient() {
    if (!door.sourceBefore) door.sourceBefore = presentSource();
}

void noteSourceOfClient() {
    door.sourceSet = presentSource();
}

void forgetClientsDoings() {
    std::vector<std::string> boxes;
    const NobodyToAsk nobody(boxes);
    if (std::exchange(door.laser, false)) setLaserLevel(0);
    if (std::exchange(door.bias, false))
        applyBias(0.0, static_cast<double>(instrumentLink.currentLimit));
    // The operator's next scan has his own bias, unless he has typed another since.
    if (door.sourceBefore && door.sourceSet == presentSource()) {
        instrumentLink.biasVoltage = door.sourceBefore->volts;
        instrumentLink.currentLimit = door.sourceBefore->limitAmperes;
        logEvent(formatted("Script: the bias of scans is %g V again",
                           static_cast<double>(instrumentLink.biasVoltage)));
    }
    door.sourceBefore = door.sourceSet = {};
    showWhoHasCommand();
}

bool programIsBusy() {
    return stageIsBusy() || waitIsUnderWay();
}

void followConditions(ScpiStatus& status) {
    constexpr unsigned voltage = 1, power = 8, doubtful = 512; // the last one is ours
    status.operation.follow((stageIsMoving() || clientIsAtWork() ? settlingBit : 0u) |
                            (processUnderWay() ? measuringBit : 0u));
    status.questionable.follow((biasLeftOn().empty() ? 0u : voltage) |
                               (lightLeftOn().empty() ? 0u : power) |
                               (scanMap.outcome.trouble == troubleLine({}) ? 0u : doubtful));
}
