// The window "Scan list": a night of measurements, put together beside the picture.
#pragma once

#include "platform/window_handle.h"

#include <string>

// Opens it, or brings it to the front; it stays open while the list runs.
void openListWindow();
bool isListWindow(WindowHandle window);

void onListCommand(int id);
void onListSelection();
std::string listCell(int row, int column);
void forgetListWindow();

// Goes on with the list that was cut off: the rows that are done stay, the scan that was cut is
// gone on with as "Continue last scan" does, the rest follows.
void continueLastList();
