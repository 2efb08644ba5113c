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

// The default button's command, which Enter in any field gives as well as a click on "Set": what
// the control with the focus belongs to. From the position's fields "Go", from those of the laser's
// port "Connect", from the instrument's "initialize", from "Set" and its own fields "Set"; from the
// others nothing.
void onConfigurationEnter(int focused);

// A command is being carried out, so a notice may be open: the dialog stays behind it.
bool configurationIsBusy();
