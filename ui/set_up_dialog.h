// The sheet "Set-up": where each field stands, and what becomes of what is typed.
#pragma once

#include "screen/dialog.h"
#include "session/set_up.h"

// Opens it. "OK" and "Apply" take all that is typed, or nothing: what a field does not allow is
// said with its bounds, and the field is turned to. "Cancel" changes nothing.
void changeSetUp();

// The pages, made of the set-up's fields: those of X, Y and Z side by side, the others in groups.
Sheet setUpSheet(const SetUp& set);
