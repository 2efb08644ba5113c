// The window of the dialogs.
#include "platform/win32/handles.h"
#include "screen/control_ids.h"
#include "screen/dialog.h"
#include "screen/screen.h"
#include "window/sheet_window.h"

static HWND dialog = nullptr;
static const DialogFace* face = nullptr;

// So that what the operator sees is what is read.
static void limitEdits() {
    constexpr WPARAM longestText = 9;
    wchar_t name[16];
    for (HWND child = GetWindow(dialog, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
        GetClassNameW(child, name, 16);
        if (lstrcmpiW(name, L"Edit") == 0) SendMessageW(child, EM_LIMITTEXT, longestText, 0);
    }
}

// A notice is owned by the main window, and hands the focus and the mouse to it when it goes.
static void takeBackFromMainWindow() {
    HWND owner = native(windows.main);
    if (!dialog || !IsWindowVisible(dialog) || GetActiveWindow() != owner) return;
    EnableWindow(owner, FALSE);
    SetActiveWindow(dialog);
}

// The dialog's control that has the focus; "Set" when none has.
static int focusedControl() {
    HWND focus = GetFocus();
    return focus && IsChild(dialog, focus) ? GetDlgCtrlID(focus) : int{idSet};
}

static INT_PTR CALLBACK dialogProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_INITDIALOG:
        dialog = window;
        limitEdits();
        face->opened();
        return TRUE;
    case WM_COMMAND:
        if (LOWORD(wParam) == idSet)
            face->onEnter(focusedControl());
        else
            face->onCommand(LOWORD(wParam));
        takeBackFromMainWindow();
        return TRUE;
    case WM_DRAWITEM:
        if (!face->paint) return FALSE;
        face->paint(opaque(reinterpret_cast<const DRAWITEMSTRUCT*>(lParam)->hwndItem));
        return TRUE;
    case WM_MOUSEACTIVATE: // a click must not bring the dialog before a notice, which it waits for
        if (!face->isBusy()) return FALSE;
        SetWindowLongPtrW(window, DWLP_MSGRESULT, MA_NOACTIVATE);
        return TRUE;
    case WM_DESTROY:
        dialog = nullptr;
        return TRUE;
    default:
        return FALSE;
    }
}

void runDialog(const DialogFace& what) {
    face = &what;
    DialogBoxParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(what.resource),
                    native(windows.main), dialogProcedure, 0);
}

void endDialog() {
    if (dialog) EndDialog(dialog, 0);
}

void setDialogTitle(const char* text) {
    if (dialog) SetWindowTextA(dialog, text);
}

// Of the dialog or of the sheet that is open.
static HWND itemOf(int id) {
    return dialog ? GetDlgItem(dialog, id) : sheetItem(id);
}

std::string dialogText(int id, int capacity) {
    HWND item = itemOf(id);
    std::string text(static_cast<size_t>(capacity), '\0');
    text.resize(item ? static_cast<size_t>(GetWindowTextA(item, text.data(), capacity)) : 0);
    return text;
}

void setDialogText(int id, const char* text) {
    if (HWND item = itemOf(id)) SetWindowTextA(item, text);
}

static LRESULT tellItem(int id, UINT message, WPARAM wParam = 0, LPARAM lParam = 0) {
    HWND item = itemOf(id);
    return item ? SendMessageW(item, message, wParam, lParam) : -1;
}

void fillDialogList(int id, const wchar_t* const* items, int count) {
    for (int i = 0; i < count; i++)
        tellItem(id, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(items[i]));
}

void refillDialogList(int id, const std::vector<std::string>& items) {
    HWND list = itemOf(id);
    if (!list) return;
    SendMessageW(list, CB_RESETCONTENT, 0, 0);
    for (const std::string& item : items)
        SendMessageA(list, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(item.c_str()));
}

void selectInDialogList(int id, int index) {
    tellItem(id, CB_SETCURSEL, static_cast<WPARAM>(index));
}

int selectedInDialogList(int id) {
    return static_cast<int>(tellItem(id, CB_GETCURSEL));
}

void checkInDialog(int id, bool checked) {
    tellItem(id, BM_SETCHECK, checked ? BST_CHECKED : BST_UNCHECKED);
}

bool isCheckedInDialog(int id) {
    return tellItem(id, BM_GETCHECK) == BST_CHECKED;
}

void enableInDialog(int id, bool enabled) {
    if (HWND item = itemOf(id)) EnableWindow(item, enabled);
}
