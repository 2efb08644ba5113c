// The colours of a map's levels, a palette a row of one table.
#pragma once

#include "platform/surface.h"

#include <cstdint>
#include <span>

constexpr int highestLevel = 1023;

// False colour of a level 0..1023: black over red and yellow to white.
Colour colourOf(int level);

// The same of an angle: the colours of the rainbow, the last of which is the first.
Colour circleColourOf(int level);

struct Palette {
    const char* name; // for the operator and in Options.ini
    Colour (*colourOf)(int level);
};

// Those to choose from. An angle always has the one that closes.
std::span<const Palette> palettes();
