// What an earlier run has left in its journals.
#pragma once

#include <string>

// What the operator is told of the latest journal that was left and can be read; of one that cannot
// where there is no other; empty without one.
std::string leftNotice();

// Saves what the latest journal that can be read holds, a scan or a curve, as its measurement would
// have.
void recoverLast();
