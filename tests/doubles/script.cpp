// Scripted events, the message queue and the message boxes of the native tests.
#include "tests/doubles/script.h"

#include "screen/screen.h"
#include "tests/doubles/memory_surface.h"
#include "tests/doubles/virtual_clock.h"
#include "ui/commands.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <limits>
#include <list>
#include <map>
#include <thread>
#include <utility>

constexpr double conditionPollMs = 5;
constexpr int mostPollsAtOneInstant = 100'000;

struct Event {
    double timeMs;
    std::function<bool()> condition; // empty: due at timeMs
    Action action;
};

struct PlannedAnswer {
    std::string part;
    BoxAnswer reply;
    Action whileOpen;
};

std::vector<ShownBox> shownBoxes;
std::function<BoxAnswer(const ShownBox&)> answerOthers;

Onlooker onlooker;

static std::list<Event> events;
static std::deque<Message> queue;
static std::vector<Action> calls; // lParam of a messageCall is an index into these
static std::list<PlannedAnswer> answers;
struct ScriptTimer {
    unsigned periodMs = 0; // 0: stopped
    double dueMs = 0;

    bool isDue() const { return periodMs != 0 && virtualNowMs() >= dueMs; }
};
static std::map<Timer, ScriptTimer> timers;
static bool quitPending = false;
static int openBoxes = 0;
static double lastPollMs = 0;
static int pollsAtThisInstant = 0;

void resetScript() {
    events.clear();
    queue.clear();
    calls.clear();
    answers.clear();
    shownBoxes.clear();
    answerOthers = {};
    onlooker = {};
    timers.clear();
    quitPending = false;
    openBoxes = 0;
    pollsAtThisInstant = 0;
}

void expectScriptDone() {
    for (const ShownBox& box : shownBoxes)
        if (!box.expected) ADD_FAILURE() << "unexpected box: " << box.text;
    for (const PlannedAnswer& plan : answers) ADD_FAILURE() << "no box asked: " << plan.part;
}

void at(double testMs, Action action) {
    in(testMs - testTimeMs(), std::move(action));
}

void in(double ms, Action action) {
    events.push_back({virtualNowMs() + ms, {}, std::move(action)});
}

void when(std::function<bool()> condition, Action action) {
    events.push_back({0, std::move(condition), std::move(action)});
}

double nextScriptTime() {
    double next = std::numeric_limits<double>::infinity();
    for (const Event& event : events)
        next = std::min(next, event.condition ? virtualNowMs() + conditionPollMs : event.timeMs);
    return next;
}

void runDueScript() {
    static bool running = false;
    if (running) return; // an action that lets time pass does not meet itself
    running = true;
    for (auto event = events.begin(); event != events.end();) {
        const bool due = event->condition ? event->condition() : event->timeMs <= virtualNowMs();
        const auto next = std::next(event);
        if (due) {
            const Action action = std::move(event->action);
            events.erase(event);
            action(); // may add events at the end
        }
        event = next;
    }
    running = false;
}

void post(uint32_t id, uintptr_t wParam, intptr_t lParam) {
    queue.push_back({windows.main, id, wParam, lParam});
}

void postCallTo(WindowHandle window, Action call, uintptr_t wParam) {
    calls.push_back(std::move(call));
    queue.push_back({window, messageCall, wParam, static_cast<intptr_t>(calls.size()) - 1});
}

void postCall(Action call) {
    postCallTo(windows.main, std::move(call), 0);
}

void postCommand(int id) {
    post(messageCommand, static_cast<uintptr_t>(id));
}

void postKey(uintptr_t virtualKey) {
    post(messageKeyDown, virtualKey);
    post(messageKeyUp, virtualKey);
}

static intptr_t packPoint(int x, int y) {
    return static_cast<intptr_t>(y) << 16 | x;
}

void postClick(int x, int y) {
    post(messageLeftButtonDown, 1, packPoint(x, y));
    post(messageLeftButtonUp, 0, packPoint(x, y));
}

void postDrag(int x1, int y1, int x2, int y2) {
    post(messageLeftButtonDown, 1, packPoint(x1, y1));
    post(messageMouseMove, 1, packPoint((x1 + x2) / 2, (y1 + y2) / 2));
    post(messageMouseMove, 1, packPoint(x2, y2));
    post(messageLeftButtonUp, 0, packPoint(x2, y2));
}

size_t waitingMessages() {
    return queue.size();
}

void setTimer(Timer timer, unsigned periodMs) {
    timers[timer] = {periodMs, virtualNowMs() + periodMs};
}

bool timerRuns() {
    return timers[Timer::LiveView].periodMs != 0;
}

static std::pair<const Timer, ScriptTimer>* dueTimer() {
    const auto due = std::find_if(timers.begin(), timers.end(),
                                  [](const auto& each) { return each.second.isDue(); });
    return due == timers.end() ? nullptr : &*due;
}

void quitMessageLoop() {
    queue.clear();
    timers.clear();
    quitPending = true;
}

static void catchSpinning() {
    if (virtualNowMs() != lastPollMs) pollsAtThisInstant = 0;
    lastPollMs = virtualNowMs();
    if (++pollsAtThisInstant < mostPollsAtOneInstant) return;
    std::fprintf(stderr, "polls for messages without waiting: virtual time stands still\n");
    std::abort();
}

bool takeMessage(Message& message) {
    catchSpinning();
    runDueScript();
    if (!queue.empty()) {
        message = queue.front();
        queue.pop_front();
        return true;
    }
    auto* const due = dueTimer();
    if (!due) return false;
    // Where nobody looks at the pictures the machine is busy, and most ticks are dropped, as
    // Windows does then.
    constexpr unsigned ticksOfBusyMachine = 8;
    const bool drops = nobodyLooks && due->first == Timer::LiveView;
    due->second.dueMs = virtualNowMs() + due->second.periodMs * (drops ? ticksOfBusyMachine : 1);
    message = {windows.main, messageTimer, static_cast<uintptr_t>(due->first), 0};
    return true;
}

void dispatchMessage(const Message& message) {
    const int x = static_cast<int16_t>(message.lParam);
    const int y = static_cast<int16_t>(message.lParam >> 16);
    const uint32_t id = message.id;
    if (onlooker.dispatches) onlooker.dispatches(message);
    if (id == messageCall) { // may post others meanwhile
        const Action call = calls.at(static_cast<size_t>(message.lParam));
        call();
    }
    if (id == messageCommand) onCommand(static_cast<int>(message.wParam & 0xFFFF));
    if (id == messageTimer) onTimer(static_cast<Timer>(message.wParam));
    if (id == messageKeyDown) onKeyDown(message.wParam);
    if (id == messageKeyUp) onKeyUp();
    if (id == messageMouseMove) onMouseMove(x, y, (message.wParam & 1) != 0);
    if (id == messageLeftButtonDown) onLeftButtonDown(x, y);
    if (id == messageLeftButtonUp) onLeftButtonUp(x, y);
    if (id == messageClose) onClose();
    if (onlooker.dispatched) onlooker.dispatched();
}

bool onWindowThread() {
    static const std::thread::id first = std::this_thread::get_id();
    return std::this_thread::get_id() == first;
}

bool leftButtonIsDown() {
    return true; // its message is still in the queue
}

void waitForMessage(uint64_t untilTick) {
    const auto until = static_cast<double>(untilTick);
    if (onlooker.waits) onlooker.waits();
    runDueScript();
    while (queue.empty() && !dueTimer() && virtualNowMs() < until) {
        double next = std::min(until, nextScriptTime());
        for (const auto& [timer, each] : timers)
            if (each.periodMs != 0) next = std::min(next, each.dueMs);
        advanceVirtualTime(std::max(next - virtualNowMs(), 0.0));
    }
}

int runMessageLoop() {
    while (!quitPending) {
        Message message;
        if (takeMessage(message)) {
            dispatchMessage(message);
        } else if (timerRuns() || nextScriptTime() < std::numeric_limits<double>::infinity()) {
            waitForMessage(tickCountMs() + 1000);
        } else {
            ADD_FAILURE() << "the script is over and the main window is still open";
            return -1;
        }
    }
    quitPending = false;
    return 0;
}

bool boxIsOpen() {
    return openBoxes > 0;
}

BoxAnswer runMessageBox(WindowHandle owner, const char* text, const char* caption,
                        BoxButtons buttons) {
    struct Open {
        Open() { ++openBoxes; }
        ~Open() { --openBoxes; }
    };
    const Open open;
    shownBoxes.push_back({text, caption, buttons, owner, testTimeMs()});
    if (onlooker.waits) onlooker.waits();
    const auto plan = std::find_if(answers.begin(), answers.end(), [&](const PlannedAnswer& each) {
        return shownBoxes.back().text.find(each.part) != std::string::npos;
    });
    if (plan == answers.end()) {
        if (answerOthers) return answerOthers(shownBoxes.back());
        shownBoxes.back().expected = false;
        return BoxAnswer::None;
    }
    const PlannedAnswer found = std::move(*plan);
    answers.erase(plan);
    if (found.whileOpen) found.whileOpen();
    return found.reply;
}

void keepBoxOpen(double ms) {
    for (const double end = virtualNowMs() + ms; virtualNowMs() < end;) {
        Message message;
        if (takeMessage(message))
            dispatchMessage(message);
        else
            waitForMessage(static_cast<uint64_t>(std::ceil(end)));
    }
}

void answer(const std::string& part, BoxAnswer reply, Action whileOpen) {
    answers.push_back({part, reply, std::move(whileOpen)});
}
