// Takes what was measured into the set-up.
#pragma once

#include "session/set_up.h"

#include <string>

// Makes it the set-up in force and writes it. Empty when it is in the file; otherwise why not: what
// a set-up cannot be is not taken at all ("objective 1: ..."), and what could not be written holds
// for this run ("Setup.ini was not written, it holds for this run").
std::string keepMeasured(const SetUp& changed);
