// The property sheet: its pages are empty dialogs, which get their controls when they open.
#include "window/sheet_window.h"

#include "platform/win32/handles.h"
#include "screen/dialog.h"
#include "screen/screen.h"

#include <commctrl.h>
#include <prsht.h>

#include <string>
#include <vector>

namespace {

struct Page {
    const SheetPage* content;
    std::wstring title;
    HWND window = nullptr;
};

const Sheet* sheet = nullptr;
std::vector<Page> pages;
HWND frame = nullptr;

constexpr UINT messageOpened = WM_APP, messageRefused = WM_APP + 1;

// A page's dialog without controls, as the system reads it.
struct alignas(4) EmptyDialog {
    DLGTEMPLATE head;
    WORD menu = 0, windowClass = 0, title = 0;
    WORD points = 8;
    wchar_t font[13] = L"MS Shell Dlg";
};

struct SheetControlClass {
    const wchar_t* name;
    DWORD style, extendedStyle;
};

SheetControlClass classOf(SheetControl::Kind kind) {
    switch (kind) {
    case SheetControl::Kind::Group:
        return {L"BUTTON", BS_GROUPBOX, 0};
    case SheetControl::Kind::Edit:
        return {L"EDIT", WS_TABSTOP | ES_AUTOHSCROLL, WS_EX_CLIENTEDGE};
    case SheetControl::Kind::Check:
        return {L"BUTTON", WS_TABSTOP | BS_AUTOCHECKBOX, 0};
    case SheetControl::Kind::List:
        return {L"COMBOBOX", WS_TABSTOP | WS_VSCROLL | CBS_DROPDOWNLIST, 0};
    case SheetControl::Kind::Button:
        return {L"BUTTON", WS_TABSTOP | BS_PUSHBUTTON, 0};
    case SheetControl::Kind::Label:
        break;
    }
    return {L"STATIC", SS_LEFT | SS_NOPREFIX, 0};
}

void createControls(Page& page) {
    const LPARAM font = SendMessageW(page.window, WM_GETFONT, 0, 0);
    for (const SheetControl& control : page.content->controls) {
        RECT at{control.x, control.y, control.x + control.width, control.y + control.height};
        MapDialogRect(page.window, &at);
        const SheetControlClass kind = classOf(control.kind);
        HWND made =
            CreateWindowExW(kind.extendedStyle, kind.name, L"", WS_CHILD | WS_VISIBLE | kind.style,
                            at.left, at.top, at.right - at.left, at.bottom - at.top, page.window,
                            reinterpret_cast<HMENU>(static_cast<INT_PTR>(control.id)),
                            GetModuleHandleW(nullptr), nullptr);
        SendMessageW(made, WM_SETFONT, static_cast<WPARAM>(font), FALSE);
        SetWindowTextA(made, control.text.c_str());
    }
}

bool isChange(WPARAM wParam, LPARAM lParam) {
    wchar_t name[16] = {};
    GetClassNameW(reinterpret_cast<HWND>(lParam), name, 16);
    const WORD notice = HIWORD(wParam);
    if (lstrcmpiW(name, L"Edit") == 0) return notice == EN_CHANGE;
    if (lstrcmpiW(name, L"ComboBox") == 0) return notice == CBN_SELCHANGE;
    return notice == BN_CLICKED;
}

// What is done in the main window meanwhile hands it the focus.
void takeBack() {
    HWND owner = native(windows.main);
    if (!frame || !IsWindowVisible(frame) || !owner || !IsWindowEnabled(frame)) return;
    EnableWindow(owner, FALSE);
    if (GetActiveWindow() != frame) SetActiveWindow(frame);
}

// The first page speaks for all of them.
LRESULT answerToApply(HWND page) {
    if (page != pages.front().window) return PSNRET_NOERROR;
    const bool taken = sheet->apply();
    takeBack();
    if (taken) return PSNRET_NOERROR;
    PostMessageW(page, messageRefused, 0, 0); // no page may be turned to before this has returned
    return PSNRET_INVALID_NOCHANGEPAGE;
}

// A page is made when it is first turned to; all of them are to be read and filled.
void open(HWND window) {
    SendMessageW(window, WM_SETREDRAW, FALSE, 0);
    for (size_t i = pages.size(); i-- > 0;)
        PropSheet_SetCurSel(window, nullptr, static_cast<int>(i));
    SendMessageW(window, WM_SETREDRAW, TRUE, 0);
    RedrawWindow(window, nullptr, nullptr,
                 RDW_ERASE | RDW_FRAME | RDW_INVALIDATE | RDW_ALLCHILDREN);
    frame = window;
    sheet->opened();
}

INT_PTR CALLBACK pageProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_INITDIALOG: {
        const auto& made = *reinterpret_cast<const PROPSHEETPAGEW*>(lParam);
        Page& page = pages[static_cast<size_t>(made.lParam)];
        page.window = window;
        createControls(page);
        if (&page == pages.data()) PostMessageW(window, messageOpened, 0, 0);
        return TRUE;
    }
    case messageOpened:
        open(GetParent(window));
        return TRUE;
    case WM_COMMAND:
        if (!frame || !isChange(wParam, lParam)) return FALSE;
        if (sheet->onCommand(LOWORD(wParam)) && frame) PropSheet_Changed(frame, window);
        return TRUE;
    case WM_NOTIFY:
        if (reinterpret_cast<const NMHDR*>(lParam)->code != PSN_APPLY) return FALSE;
        SetWindowLongPtrW(window, DWLP_MSGRESULT, answerToApply(window));
        return TRUE;
    case messageRefused:
        sheet->refused();
        takeBack();
        return TRUE;
    case WM_DESTROY:
        frame = nullptr;
        for (Page& page : pages)
            if (page.window == window) page.window = nullptr;
        return FALSE;
    default:
        return FALSE;
    }
}

} // namespace

HWND sheetItem(int id) {
    for (const Page& page : pages)
        if (HWND item = page.window ? GetDlgItem(page.window, id) : nullptr) return item;
    return nullptr;
}

void runSheet(const Sheet& what) {
    sheet = &what;
    pages.clear();
    for (const SheetPage& page : what.pages)
        pages.push_back({&page, std::wstring(page.title.begin(), page.title.end())});

    EmptyDialog empty{};
    empty.head.style = WS_CHILD | WS_CAPTION | WS_DISABLED | DS_SETFONT | DS_CONTROL | DS_3DLOOK;
    empty.head.cx = static_cast<short>(what.width);
    empty.head.cy = static_cast<short>(what.height);
    std::vector<PROPSHEETPAGEW> made(pages.size());
    for (size_t i = 0; i < pages.size(); ++i) {
        made[i].dwSize = sizeof made[i];
        made[i].dwFlags = PSP_DLGINDIRECT | PSP_USETITLE;
        made[i].hInstance = GetModuleHandleW(nullptr);
        made[i].pResource = &empty.head;
        made[i].pszTitle = pages[i].title.c_str();
        made[i].pfnDlgProc = pageProcedure;
        made[i].lParam = static_cast<LPARAM>(i);
    }
    const std::string caption = what.caption;
    const std::wstring wideCaption(caption.begin(), caption.end());
    PROPSHEETHEADERW header{};
    header.dwSize = sizeof header;
    header.dwFlags = PSH_PROPSHEETPAGE | PSH_NOCONTEXTHELP;
    header.hwndParent = native(windows.main);
    header.hInstance = GetModuleHandleW(nullptr);
    header.pszCaption = wideCaption.c_str();
    header.nPages = static_cast<UINT>(made.size());
    header.ppsp = made.data();
    PropertySheetW(&header);
    frame = nullptr;
    pages.clear();
    sheet = nullptr;
}

void turnToInSheet(int id) {
    for (size_t i = 0; frame && i < pages.size(); ++i) {
        HWND item = pages[i].window ? GetDlgItem(pages[i].window, id) : nullptr;
        if (!item) continue;
        PropSheet_SetCurSel(frame, nullptr, static_cast<int>(i));
        SetFocus(item);
        SendMessageW(item, EM_SETSEL, 0, -1);
    }
}

WindowHandle sheetWindow() {
    return opaque(frame);
}
