// What follows from a change of the set-up.
#pragma once

#include "session/set_up.h"

#include <string>

// Makes it the set-up in force, keeps it, and says in the information text and the log what came of
// it. Not while a process runs or the stage moves.
void takeSetUp(const SetUp& changed);

// Follows the change in what the program holds: the scan area is gone where maps take another
// shape. Returns what the operator should know or do, "; " between; empty when nothing.
std::string setUpChanged(const SetUp& before);

// After a change that is in force already: follows it and says what came of it, and what went
// wrong.
void tellSetUpTaken(const SetUp& before, const std::string& trouble);
