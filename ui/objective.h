// The change to another objective.
#pragma once

#include <cstdint>

// Takes the objective with that number, from 1, of the set-up: scale, spot and scan area follow.
// The area that was drawn is gone, which is said. Asks before it moves Z to the other focus.
void chooseObjective(int32_t number);

// The scan area is one point again: what was drawn means another place now.
void takeScanAreaAway();
