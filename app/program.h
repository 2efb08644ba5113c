// The life of the program: start-up, message loop, exit.
#pragma once

// Returns the exit code of the message loop, or 0 when the main window cannot be created.
int runProgram(int showCommand);

// Gives the lower floors what they need done above them; startUp does it first.
void connectFloors();

// The two halves around the loop. startUp returns false when there is no main window.
bool startUp(int showCommand);
void shutDown();
