// The change to another objective.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Takes the objective with that number, from 1, of the set-up: scale, spot and scan area follow.
// The area that was drawn is gone, which is said. Asks before it moves Z to the other focus.
void chooseObjective(int32_t number);

// As the menu has them, in their order, with the number as the key: "&1  20x".
std::vector<std::string> objectiveNames();

// The scan area is one point again: what was drawn means another place now.
void takeScanAreaAway();
