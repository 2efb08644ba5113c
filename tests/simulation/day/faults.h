// What breaks on a random day: devices, single calls of the vendors' libraries, files, the screen.
#pragma once

#include "tests/simulation/day/dice.h"

class Judge;
struct Swarm;

size_t faultCount(); // of the laboratory's list that a day draws from

// Breaks something else than before, or mends it; the judge is told what.
void breakOrMend(Dice& dice, const Swarm& swarm, Judge& judge);
