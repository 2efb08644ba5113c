// What the Configuration dialog asks of its window: texts, lists, check marks. Provided by the real
// dialog in the program and by memory in the tests. Without an open dialog nothing happens.
#pragma once

#include <string>

// Runs the dialog until endDialog; calls openedConfiguration and onConfigurationCommand.
void runDialog();
void endDialog();

// The text's first `capacity` - 1 characters.
std::string dialogText(int id, int capacity);
void setDialogText(int id, const char* text);

void fillDialogList(int id, const wchar_t* const* items, int count);
void selectInDialogList(int id, int index); // an index outside the list: nothing selected
int selectedInDialogList(int id);           // -1 when nothing is selected

void checkInDialog(int id, bool checked);
bool isCheckedInDialog(int id);
