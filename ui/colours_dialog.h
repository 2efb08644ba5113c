// The dialog "Colours": what is shown of a map.
#pragma once

// Opens the dialog. "OK" takes what stands in it, keeps it in Options.ini and draws the maps anew;
// a range that is none is said instead, and the dialog stays. "Cancel" changes nothing.
void chooseColours();

void onColoursCommand(int id);
