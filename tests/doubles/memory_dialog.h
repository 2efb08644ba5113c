// The Configuration dialog in memory. The functions of screen/dialog.h serve a test as the
// operator's hands and eyes; `whileDialogOpen` is what he does in it.
#pragma once

#include "screen/dialog.h"

#include <functional>
#include <string>
#include <vector>

extern std::function<void()> whileDialogOpen; // empty: presses "Close"

// What the list offers.
std::vector<std::wstring>& dialogListItems(int id);

// All that stands in an edit, however little of it the program reads.
std::string dialogTextIn(int id);

extern std::string dialogTitle;
bool dialogIsOpen();
bool isEnabledInDialog(int id);
void pressInDialog(int id);
void paintDialog(); // its picture, onto the main window

// Of the sheet that is open: "Apply", which is "OK" without the end, false when it was refused; a
// button or a choice; a text typed. The last two tell whether there is something to apply.
bool pressApply();
bool pressInSheet(int id);
bool changeInSheet(int id, const std::string& text);
extern int turnedTo; // what turnToInSheet was last told

void resetDialog();
