// The dialog of the native tests.
#include "tests/doubles/memory_dialog.h"

#include "screen/control_ids.h"

#include <map>

std::function<void()> whileDialogOpen;

static bool dialogOpen = false;
static std::map<int, std::string> texts;
static std::map<int, std::vector<std::wstring>> lists;
static std::map<int, int> selections;
static std::map<int, bool> marks;

void resetDialog() {
    whileDialogOpen = {};
    texts.clear();
    lists.clear();
    selections.clear();
    marks.clear();
}

void runDialog(const DialogFace& face) {
    lists.clear();
    dialogOpen = true;
    face.opened();
    if (whileDialogOpen) whileDialogOpen();
    if (dialogOpen) face.onCommand(idCloseDialog);
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
