// The two lights on the laser board: the laser and the illumination.
//
// The board keeps its outputs when its port is opened. So a new link is told what the lights are to
// be, and an "off" that does not go out is tried once more over the same port, freshly opened. If
// that fails too, the light's radio button stays on "On" and the main window's title says that the
// board is lost and the light may be on, until a later link has taken the "off".
#pragma once

#include "platform/window_handle.h"

#include <cstdint>
#include <string>

// Illumination (setLaserOutput) and laser (setLaserLevel, at laserLevel), each at its pin of the
// set-up: mode 1 on, 0 off, 2 back to the state before the last on or off. Each sets its radio
// button and the keyboard focus; returns the previous state.
int setLaserOutput(int mode);
int setLaserLevel(int mode);
int32_t laserDriveOf(double volts); // what is sent for a laser level, 0..255
int32_t laserDriveOf(double volts, double fullScaleVolts);

double presentLaserPowerUw(); // of the laser level; negative where the set-up does not know it

// "16.0 uA" of the laser level, and ", 46 uW" where the set-up knows the light's power.
std::string laserIntensityWords();

// Takes over the set-up's pins, with the texts that darkenAtOnce sends; to be called by whoever has
// read or changed the set-up, on the windows' thread. A light that may be on is first switched off
// at its old pin: the laser stays off then, the illumination goes on again at the new one. Where
// that does not go out the old pins stay in use, and it is tried again when the board is connected
// next; false, and said.
bool prepareOffCommands();

// As last asked for, whether the board has heard it or not.
bool laserIsOn();
bool illuminationIsOn();

// Whether the board was told that the laser is on and the illumination off, all the time since this
// was last asked: the light in which a scan takes its points. Where the set-up says so the board is
// asked.
bool onlyTheLaserShone();

// Asks the board for its lights, where the set-up says that it can tell: a laser that it keeps dark
// is shown as off, told off, and said with the cause. To be called each second, and never between
// the question to an instrument and its answer: followLaserBoard starts the timer for that once
// there is a main window.
void followLaserBoard();

// The set-up has another keep-alive: the board is told.
void followKeepAlive();
void watchLaserBoard();

// Why the board has last kept the laser dark that was on; empty when it has not since it was
// switched on.
std::string whyLaserIsDark();

// Whether the board does not say what the set-up says that it can tell.
bool laserBoardKeepsSilent();

// Opens the link, switches the laser off and the illumination to what it is meant to be. Returns
// what opening the link returns, and 0 when the board then takes no command.
int connectLaserBoard(WindowHandle ownerWindow);

// After the computer has slept: opens the port of a link that there was anew and tells the board
// what the lights are meant to be, without a box.
void renewLaserBoard();

// What the title says while a light may shine that was switched off; otherwise empty.
std::string lightLeftOn();

// At a forced end, from any thread: both lights off, before any window is touched, and none is
// touched from a thread that is not the windows'; nothing is allocated or formatted. Nothing
// switches a light on any more when the program ends by such a thread (endsByForce), whatever the
// windows' thread still does. False when the board did not take it.
bool darkenAtOnce();
