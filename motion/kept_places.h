// Where the stage's controllers stood, kept in Options.ini: a controller that has lost its supply
// counts from 0 wherever the stage stands, and then no limit of the set-up is where it was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Whether a controller that counts `steps` (full ones) now has lost its place since keepPlace: by
// the axis, for its name changes with the socket that it is plugged into.
bool placeIsLost(size_t axis, int32_t steps);

// False when Options.ini was not written.
bool keepPlace(size_t axis, const std::string& controller, int32_t steps);

// When that was last seen of the axis, "2026-11-27 07:45:00"; empty where it never was. Noting:
// false when Options.ini was not written.
std::string lastLossOfPlace(size_t axis);
bool noteLossOfPlace(size_t axis, const std::string& when);
