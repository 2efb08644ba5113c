// Which of the controllers that a search has found drives which axis.
#pragma once

#include "motion/axis.h"

#include <array>
#include <string>
#include <vector>

struct FoundController {
    std::string name;  // that it is opened by
    std::string words; // what it and its stage are called, for whoever looks at the list
};

using AxisNames = std::array<std::string, axisCount>; // empty: no controller

// By the names that were kept, wherever they stand in the list, when all three are there or nobody
// else is. At the first search that finds three the list's order decides, and their names are kept.
// Else the operator is asked, before anything is driven, whether the list's order decides;
// otherwise those that are not known stay closed.
AxisNames namesOfAxes(const std::vector<FoundController>& found, int32_t order);
