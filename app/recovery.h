// What an earlier run has left in its journals.
#pragma once

#include <string>

// What the operator is told of the latest journal that was left; empty without one.
std::string leftNotice();

// Saves what the latest journal holds, a scan or a curve, as its measurement would have.
void recoverLast();
