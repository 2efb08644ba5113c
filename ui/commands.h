// What the main window does with a command, a key or the mouse. Plain functions that know nothing
// of the operating system: the window procedure decodes and calls them.
#pragma once

#include "screen/screen.h"

#include <cstdint>
#include <span>

// What comes of a command while a process runs or the stage moves: it is carried out, refused with
// a word in the information text, so only while a mapping moves the stage, or ignored without one.
enum class Meanwhile { Allowed, Refused, NotInScan, Ignored };

struct Command {
    int id;
    void (*carryOut)();
    Meanwhile duringProcess;
    Meanwhile duringMove;         // also within a process that allows it
    const char* logged = nullptr; // as the log of the day names it; null for what changes nothing
};

// Every command of the main window; ids that are not there do nothing.
std::span<const Command> commandTable();

void onCommand(int id);

constexpr int largestClickPx = 10; // a smaller drag is a click

// What keys and mouse are in the middle of.
struct HandState {
    int keyBusy = 0;             // a key's move is under way: the move keys do nothing
    bool picksLaserSpot = false; // a click sets the laser spot; what item 2111 toggles
    bool dragging = false;
};
extern HandState handState;

void onKeyDown(uintptr_t virtualKey);
void onKeyUp();
void onMouseMove(int x, int y, bool leftButtonHeld);
void onLeftButtonDown(int x, int y);
void onLeftButtonUp(int x, int y);
void onPaint();

// The main window's picture as saveWindowImage has it, without what is drawn over each picture.
void saveShownPicture(const char* label);

void onTimer(Timer timer);

// The operator closes the main window. While a process runs the process is asked to stop and the
// window goes when it has ended; otherwise the window goes at once.
void onClose();

// The operating system ends the session: lights off, axes stopped, what a running scan has measured
// and the settings saved.
void onSessionEnd();

// The computer goes to sleep: lights off, axes stopped, what is journaled on the disk; a process
// stops at its next step. When it is awake again the board's port is opened anew.
void onSuspend();
void onResume();

// The texts of a new control column.
void fillControlColumn();

// Enter in one of the edits: parses, clamps and applies what was typed.
void enterScanStep();
void enterPositionX();
void enterPositionY();
void enterPositionZ();

// Asks before Z goes so far up that the objective may touch; true without a question where it does
// not. Um.
bool farFocusMoveAccepted(double targetUm);
void enterLaserIntensity();
void enterGain();
void enterExposure();

// The gain in the edit, by command: its range is narrower than that of Enter.
void takeCommandedGain();
