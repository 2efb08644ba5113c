// What breaks on a random day: devices, single calls of the vendors' libraries, files, the screen.
#pragma once

#include "tests/simulation/day/dice.h"

class Judge;

// Breaks something else than before, or mends it; the judge is told what.
void breakOrMend(Dice& dice, Judge& judge);
