// The dialog of the native tests.
#include "tests/doubles/memory_dialog.h"

#include "screen/control_ids.h"
#include "screen/screen.h"

#include <map>

std::function<void()> whileDialogOpen;

int turnedTo = 0;
std::string dialogTitle;

static bool dialogOpen = false;
static const Sheet* openedSheet = nullptr;
static std::map<int, std::string> texts;
static std::map<int, std::vector<std::wstring>> lists;
static std::map<int, int> selections;
static std::map<int, bool> marks, disabled;
static const DialogFace* openedDialog = nullptr;

void resetDialog() {
    whileDialogOpen = {};
    texts.clear();
    lists.clear();
    selections.clear();
    marks.clear();
}

void setDialogTitle(const char* text) {
    dialogTitle = text;
}

void enableInDialog(int id, bool enabled) {
    disabled[id] = !enabled;
}

bool dialogIsOpen() {
    return dialogOpen;
}

bool isEnabledInDialog(int id) {
    return !disabled[id];
}

void pressInDialog(int id) {
    openedDialog->onCommand(id);
}

void paintDialog() {
    openedDialog->paint(windows.main);
}

void runDialog(const DialogFace& face) {
    lists.clear();
    disabled.clear();
    openedDialog = &face;
    dialogOpen = true;
    face.opened();
    if (whileDialogOpen) whileDialogOpen();
    if (dialogOpen) face.onCommand(idCloseDialog);
    openedDialog = nullptr;
}

void endDialog() {
    dialogOpen = false;
}

std::string dialogText(int id, int capacity) {
    return texts[id].substr(0, static_cast<size_t>(capacity) - 1);
}

void setDialogText(int id, const char* text) {
    texts[id] = text;
}

std::string dialogTextIn(int id) {
    return texts[id];
}

std::vector<std::wstring>& dialogListItems(int id) {
    return lists[id];
}

void fillDialogList(int id, const wchar_t* const* items, int count) {
    lists[id].insert(lists[id].end(), items, items + count);
}

void refillDialogList(int id, const std::vector<std::string>& items) {
    lists[id].clear();
    for (const std::string& item : items) lists[id].emplace_back(item.begin(), item.end());
}

void runSheet(const Sheet& sheet) {
    openedSheet = &sheet;
    dialogOpen = true;
    turnedTo = 0;
    sheet.opened();
    if (whileDialogOpen) whileDialogOpen();
    openedSheet = nullptr;
    dialogOpen = false;
}

void turnToInSheet(int id) {
    turnedTo = id;
}

WindowHandle sheetWindow() {
    return openedSheet ? windows.main : nullptr;
}

bool pressApply() {
    if (openedSheet->apply()) return true;
    openedSheet->refused();
    return false;
}

bool changeInSheet(int id, const std::string& text) {
    setDialogText(id, text.c_str());
    return openedSheet->onCommand(id);
}

bool pressInSheet(int id) {
    return openedSheet->onCommand(id);
}

void selectInDialogList(int id, int index) {
    selections[id] = index >= 0 && index < static_cast<int>(lists[id].size()) ? index : -1;
}

int selectedInDialogList(int id) {
    return selections[id];
}

void checkInDialog(int id, bool checked) {
    marks[id] = checked;
}

bool isCheckedInDialog(int id) {
    return marks[id];
}
