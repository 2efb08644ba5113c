// Scripted events, the message queue and the message boxes of the native tests.
#include "tests/doubles/script.h"

#include "tests/doubles/virtual_clock.h"
#include "ui/commands.h"
#include "ui/live_view.h"
#include "ui/screen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <limits>
#include <list>
#include <utility>

constexpr uint32_t messageCall = 0x8000; // the first of the numbers left to programs
constexpr double conditionPollMs = 5;
constexpr int mostPollsAtOneInstant = 100'000;

struct TimedAction {
    double timeMs;
    Action action;
};

struct ConditionalAction {
    std::function<bool()> condition;
    Action action;
};

struct PlannedAnswer {
    std::string part;
    BoxAnswer reply;
    Action whileOpen;
};

std::vector<ShownBox> shownBoxes;

static std::list<TimedAction> timed; // by time
static std::list<ConditionalAction> conditional;
static std::deque<Message> queue;
static std::vector<Action> calls; // lParam of a messageCall is an index into these
static std::list<PlannedAnswer> answers;
static std::vector<std::string> unexpectedBoxes;
static unsigned timerPeriodMs = 0;
static double timerDueMs = 0;
static bool quitPending = false;
static double lastPollMs = 0;
static int pollsAtThisInstant = 0;

void resetScript() {
    timed.clear();
    conditional.clear();
    queue.clear();
    calls.clear();
    answers.clear();
    shownBoxes.clear();
    unexpectedBoxes.clear();
    timerPeriodMs = 0;
    quitPending = false;
    pollsAtThisInstant = 0;
}

void expectScriptDone() {
    for (const std::string& text : unexpectedBoxes) ADD_FAILURE() << "unexpected box: " << text;
    for (const PlannedAnswer& plan : answers) ADD_FAILURE() << "no box asked: " << plan.part;
}

void at(double testMs, Action action) {
    in(testMs - testTimeMs(), std::move(action));
}

void in(double ms, Action action) {
    const double time = virtualNowMs() + ms;
    const auto later = std::find_if(timed.begin(), timed.end(),
                                    [&](const TimedAction& other) { return other.timeMs > time; });
    timed.insert(later, {time, std::move(action)});
}

void when(std::function<bool()> condition, Action action) {
    conditional.push_back({std::move(condition), std::move(action)});
}

double nextScriptTime() {
    double next = std::numeric_limits<double>::infinity();
    if (!timed.empty()) next = timed.front().timeMs;
    if (!conditional.empty()) next = std::min(next, virtualNowMs() + conditionPollMs);
    return next;
}

void runDueScript() {
    while (!timed.empty() && timed.front().timeMs <= virtualNowMs()) {
        const Action action = std::move(timed.front().action);
        timed.pop_front();
        action();
    }
    for (auto each = conditional.begin(); each != conditional.end();) {
        if (!each->condition()) {
            ++each;
            continue;
        }
        const Action action = std::move(each->action);
        each = conditional.erase(each);
        action();
    }
}

void post(uint32_t id, uintptr_t wParam, intptr_t lParam) {
    queue.push_back({mainWindow, id, wParam, lParam});
}

void postCall(Action call) {
    calls.push_back(std::move(call));
    post(messageCall, 0, static_cast<intptr_t>(calls.size()) - 1);
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

void setTimer(unsigned periodMs) {
    timerPeriodMs = periodMs;
    timerDueMs = virtualNowMs() + periodMs;
}

bool timerRuns() {
    return timerPeriodMs != 0;
}

static bool timerDue() {
    return timerPeriodMs != 0 && virtualNowMs() >= timerDueMs;
}

void quitMessageLoop() {
    queue.clear();
    timerPeriodMs = 0;
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
    if (!timerDue()) return false;
    timerDueMs = virtualNowMs() + timerPeriodMs;
    message = {mainWindow, messageTimer, 1, 0};
    return true;
}

void dispatchMessage(const Message& message) {
    const int x = static_cast<int16_t>(message.lParam);
    const int y = static_cast<int16_t>(message.lParam >> 16);
    switch (message.id) {
    case messageCall:
        calls.at(static_cast<size_t>(message.lParam))();
        break;
    case messageCommand:
        onCommand(static_cast<int>(message.wParam & 0xFFFF));
        break;
    case messageTimer:
        liveViewTick();
        break;
    case messageKeyDown:
        onKeyDown(message.wParam);
        break;
    case messageKeyUp:
        onKeyUp();
        break;
    case messageMouseMove:
        onMouseMove(x, y, (message.wParam & 1) != 0);
        break;
    case messageLeftButtonDown:
        onLeftButtonDown(x, y);
        break;
    case messageLeftButtonUp:
        onLeftButtonUp(x, y);
        break;
    case messageClose:
        onClose();
        break;
    default:
        break;
    }
}

void waitForMessage(uint64_t untilTick) {
    const auto until = static_cast<double>(untilTick);
    runDueScript();
    while (queue.empty() && !timerDue() && virtualNowMs() < until) {
        double next = std::min(until, nextScriptTime());
        if (timerPeriodMs != 0) next = std::min(next, timerDueMs);
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

BoxAnswer showMessageBox(WindowHandle owner, const char* text, const char* caption,
                         BoxButtons buttons) {
    shownBoxes.push_back({text, caption, buttons, owner, testTimeMs()});
    const auto plan = std::find_if(answers.begin(), answers.end(), [&](const PlannedAnswer& each) {
        return shownBoxes.back().text.find(each.part) != std::string::npos;
    });
    if (plan == answers.end()) {
        unexpectedBoxes.push_back(shownBoxes.back().text);
        return BoxAnswer::None;
    }
    const PlannedAnswer found = std::move(*plan);
    answers.erase(plan);
    if (found.whileOpen) found.whileOpen();
    return found.reply;
}

void answer(const std::string& part, BoxAnswer reply, Action whileOpen) {
    answers.push_back({part, reply, std::move(whileOpen)});
}
