// "View", "Fit to screen": whether the windows are scaled, kept in Options.ini.
#pragma once

// As Options.ini has it; before the main window is created.
void restoreFit();

// The operator's command.
void toggleFit();

bool fitIsOn();
