// What the program's dialogs ask of their window: texts, lists, check marks. Provided by the real
// dialog in the program and by memory in the tests. One is open at a time; without one nothing
// happens.
#pragma once

#include <string>

// What a dialog does.
struct DialogFace {
    int resource;
    void (*opened)();
    void (*onCommand)(int id);
    void (*onEnter)(int focusedControl); // idSet when none has the focus
    bool (*isBusy)();                    // with a notice that the dialog must not cover
};

// Runs the dialog until endDialog.
void runDialog(const DialogFace& face);
void endDialog();

// The text's first `capacity` - 1 characters.
std::string dialogText(int id, int capacity);
void setDialogText(int id, const char* text);

void fillDialogList(int id, const wchar_t* const* items, int count);
void selectInDialogList(int id, int index); // an index outside the list: nothing selected
int selectedInDialogList(int id);           // -1 when nothing is selected

void checkInDialog(int id, bool checked);
bool isCheckedInDialog(int id);
