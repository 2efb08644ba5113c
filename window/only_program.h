// One program at a time: a second one would send its own commands to the instruments of the first.
#pragma once

// Marks for all users of the computer that the program runs, until its process has ended. False
// when another one runs: the operator has been told then, and has its window in front. To be
// called before anything that touches a device or a file.
bool isOnlyProgram();
