// The older three-axis stepper stage, which nothing in the program drives any more, over the serial
// controller link: channel c of the link
// is axis c (0 X, 1 Y, 2 Z). Its value is the axis's position and its bounds the allowed positions
// (um), its setting the speed (um/s), its scale the step factor; a disconnected link only moves the
// cached positions.
#pragma once

#include "instruments/laser_link.h"

#include <cstdint>

// True when the move was started. False without a port, on a disconnected link (where the position
// is the target at once) and outside the allowed positions, which is said in the information text.
bool startSerialMove(LaserLink& link, int axis, double targetUm);

// Reads what the stage reports until it has arrived or twice `timeoutMs` has passed; then the
// position is asked for. False only without a port.
bool waitForSerialArrival(LaserLink& link, int axis, double targetUm, int32_t timeoutMs);

bool moveSerialAxisTo(LaserLink& link, int axis, double targetUm);

// Starts the axis that needs less time and moves the other one with waiting. False when a move
// could not be started.
bool moveTwoSerialAxesTo(LaserLink& link, int axisA, int axisB, double targetA, double targetB);
