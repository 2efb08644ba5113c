// The Configuration dialog: devices, their addresses, the bias, and the stage moved by hand. Every
// change takes effect at once; the settings file is written at exit.
#pragma once

// Opens the dialog with the live view off meanwhile, and returns when it is closed; nothing when it
// is open already.
void configure();

// --- For the dialog window -----------------------------------------------------------------------

// The dialog has been created: fills its controls.
void openedConfiguration();

// A control's command. One is carried out at a time: what comes during a move or a notice is
// dropped. While a process runs all that would change its measurement is refused, with a word in
// the information text and the values in force shown again.
void onConfigurationCommand(int id);

// A command is being carried out, so a notice may be open: the dialog stays behind it.
bool configurationIsBusy();
