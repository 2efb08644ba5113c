// The scripted operator: what happens when, the messages that come of it, the answers to boxes.
#pragma once

#include "platform/message_box.h"
#include "platform/messages.h"
#include "screen/screen.h"

#include <functional>
#include <string>
#include <vector>

using Action = std::function<void()>;

constexpr uint32_t messageClose = 0x0010;
constexpr uint32_t messageKeyUp = 0x0101;
constexpr uint32_t messageCommand = 0x0111;
constexpr uint32_t messageCall = 0x8000; // of postCall; the first of the numbers left to programs
constexpr uint32_t messageTimer = 0x0113;
constexpr uint32_t messageMouseMove = 0x0200;

// An action runs while something waits, so it may post messages and break or mend things, but calls
// nothing that waits itself.
void at(double testMs, Action action);
void in(double ms, Action action); // from now
void when(std::function<bool()> condition, Action action);

// Into the queue of the main window, to be taken and dispatched by whoever pumps.
void post(uint32_t id, uintptr_t wParam = 0, intptr_t lParam = 0);
void postCall(Action call); // a message whose dispatch calls `call`, as for Enter in an edit
void postCallTo(WindowHandle window, Action call, uintptr_t wParam); // not for the main window
void postCommand(int id);
void postKey(uintptr_t virtualKey);
void postClick(int x, int y);
void postDrag(int x1, int y1, int x2, int y2);

size_t waitingMessages();

// Answers the next box whose text holds `part`; `whileOpen` runs before the answer. A box without
// an answer gets None and fails the test, and so does an answer that no box asked for.
void answer(const std::string& part, BoxAnswer reply, Action whileOpen = {});

// While a box is open, for `whileOpen`: messages and timers go to their windows, as the box itself
// sees to it.
void keepBoxOpen(double ms);

struct ShownBox {
    std::string text, caption;
    BoxButtons buttons;
    WindowHandle owner;
    double testMs;
    bool expected = true;
};
extern std::vector<ShownBox> shownBoxes;
bool boxIsOpen();

// Answers the boxes that nothing was planned for; while it is set none of them is unexpected.
extern std::function<BoxAnswer(const ShownBox&)> answerOthers;

// What is called while the program runs; each may be empty.
struct Onlooker {
    Action waits; // the program waits for a message, or a box for its answer: the operator sees the
                  // screen and may act
    std::function<void(const Message&)> dispatches;
    Action dispatched;                // and everything that came of it
    std::function<void(Field)> shows; // a field gets a text
};
extern Onlooker onlooker;

void resetScript();
void expectScriptDone();

// For the clock and the screen.
double nextScriptTime(); // of the next event or poll of a condition; infinite when there is none
void runDueScript();
void setTimer(Timer timer, unsigned periodMs); // 0 stops
bool timerRuns();                              // that of the live view
void quitMessageLoop(); // as the main window goes, with all that waits for it
