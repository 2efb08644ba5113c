// What the program's dialogs ask of their window: texts, lists, check marks. Provided by the real
// dialog in the program and by memory in the tests. One is open at a time; without one nothing
// happens.
#pragma once

#include "platform/window_handle.h"

#include <string>
#include <vector>

// What a dialog does.
struct DialogFace {
    int resource;
    void (*opened)();
    void (*onCommand)(int id);
    void (*onEnter)(int focusedControl);           // idSet when none has the focus
    bool (*isBusy)();                              // with a notice that the dialog must not cover
    void (*paint)(WindowHandle picture) = nullptr; // of the control idCalibrationPicture
};

// Runs the dialog until endDialog.
void runDialog(const DialogFace& face);
void endDialog();
void setDialogTitle(const char* text);

// The text's first `capacity` - 1 characters.
std::string dialogText(int id, int capacity);
void setDialogText(int id, const char* text);

void fillDialogList(int id, const wchar_t* const* items, int count);
void refillDialogList(int id, const std::vector<std::string>& items);
void selectInDialogList(int id, int index); // an index outside the list: nothing selected
int selectedInDialogList(int id);           // -1 when nothing is selected

void checkInDialog(int id, bool checked);
bool isCheckedInDialog(int id);
void enableInDialog(int id, bool enabled);

// A control of a sheet's page, in dialog units; Tab takes them in their order.
struct SheetControl {
    enum class Kind { Group, Label, Edit, Check, List, Button };
    Kind kind = Kind::Label;
    std::string text;
    int x = 0, y = 0, width = 0, height = 0;
    int id = 0;
};

struct SheetPage {
    std::string title;
    std::vector<SheetControl> controls;
};

// A property sheet: pages of controls above "OK", "Cancel" and "Apply". The functions above serve
// its controls, on whatever page, as a dialog's.
struct Sheet {
    const char* caption;
    std::vector<SheetPage> pages;
    int width = 0, height = 0; // of a page, dialog units
    void (*opened)() = nullptr;
    bool (*onCommand)(int id) = nullptr; // pressed, chosen or typed into; true: there is something
                                         // to apply
    bool (*apply)() = nullptr;           // "OK" or "Apply"; false: it stays open
    void (*refused)() = nullptr;         // called after that
};

// Runs until "OK" was taken, or "Cancel".
void runSheet(const Sheet& sheet);

// The control's page comes up, it has the focus, and its text is selected.
void turnToInSheet(int id);

// Owner of what the sheet asks; null when none is open.
WindowHandle sheetWindow();
