// The tool windows as the system sees them. What the measurements draw there is not drawn again.
#include "window/tool_window_class.h"

#include "platform/win32/handles.h"
#include "platform/win32/scaled_view.h"
#include "screen/screen.h"
#include "ui/tool_windows.h"
#include "window/control_column.h"
#include "window/fit_window.h"

#include <commctrl.h>

#include <algorithm>
#include <sstream>
#include <string>

// Its height is that of a row; the pictures themselves are drawn by drawRowPicture.
constexpr int rowPicturePx = 34;

static void drawRowPicture(HWND window, const NMLVCUSTOMDRAW& drawn) {
    const auto row = static_cast<int>(drawn.nmcd.dwItemSpec);
    const std::vector<uint32_t> pixels = onToolPicture(opaque(window), row);
    RECT place{};
    if (pixels.empty() || !ListView_GetItemRect(drawn.nmcd.hdr.hwndFrom, row, &place, LVIR_ICON))
        return;
    int side = 1;
    while ((side + 1) * (side + 1) <= static_cast<int>(pixels.size())) ++side;
    BITMAPINFO info{};
    info.bmiHeader = {sizeof info.bmiHeader, side, -side, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    SetDIBitsToDevice(drawn.nmcd.hdc, place.left + 1, (place.top + place.bottom - side) / 2,
                      static_cast<DWORD>(side), static_cast<DWORD>(side), 0, 0, 0,
                      static_cast<UINT>(side), pixels.data(), &info, DIB_RGB_COLORS);
}

static LRESULT onRowDrawn(HWND window, const NMLVCUSTOMDRAW& drawn) {
    const bool hasPictures = ListView_GetImageList(drawn.nmcd.hdr.hwndFrom, LVSIL_SMALL) != nullptr;
    switch (drawn.nmcd.dwDrawStage) {
    case CDDS_PREPAINT:
        return hasPictures ? CDRF_NOTIFYITEMDRAW : CDRF_DODEFAULT;
    case CDDS_ITEMPREPAINT:
        return CDRF_NOTIFYPOSTPAINT;
    case CDDS_ITEMPOSTPAINT:
        drawRowPicture(window, drawn);
        return CDRF_DODEFAULT;
    default:
        return CDRF_DODEFAULT;
    }
}

// A table asks for the text of a cell that it is about to show, and tells that a row is selected.
static LRESULT onTable(HWND window, LPARAM lParam) {
    const auto* header = reinterpret_cast<NMHDR*>(lParam);
    if (header->code == LVN_GETDISPINFOW) {
        LVITEMW& item = reinterpret_cast<NMLVDISPINFOW*>(lParam)->item;
        if ((item.mask & LVIF_TEXT) == 0 || item.cchTextMax < 1) return 0;
        const std::string text = onToolTable(opaque(window), item.iItem, item.iSubItem);
        const int room = item.cchTextMax - 1; // a letter takes no fewer bytes than places there
        const int taken = std::min(static_cast<int>(text.size()), room);
        const int length =
            taken == 0 ? 0 : MultiByteToWideChar(CP_ACP, 0, text.data(), taken, item.pszText, room);
        item.pszText[length] = L'\0';
    }
    if (header->code == LVN_ITEMCHANGED) {
        const auto* change = reinterpret_cast<NMLISTVIEW*>(lParam);
        const bool nowSelected = (change->uNewState & ~change->uOldState & LVIS_SELECTED) != 0;
        if (nowSelected) onToolSelection(opaque(window));
    }
    if (header->code == LVN_COLUMNCLICK)
        onToolHeading(opaque(window), reinterpret_cast<NMLISTVIEW*>(lParam)->iSubItem);
    if (header->code == LVN_ITEMACTIVATE) onToolRowOpened(opaque(window));
    if (header->code == NM_CUSTOMDRAW)
        return onRowDrawn(window, *reinterpret_cast<NMLVCUSTOMDRAW*>(lParam));
    return 0;
}

// The message loop knows no dialogs: what Tab and Escape do in one is done here.
static LRESULT CALLBACK controlProcedure(HWND control, UINT message, WPARAM wParam, LPARAM lParam,
                                         UINT_PTR, DWORD_PTR) {
    HWND window = GetParent(control);
    const bool closes = wParam == VK_ESCAPE && toolClosesByEscape(opaque(window));
    if (message == WM_KEYDOWN && wParam == VK_TAB) {
        SetFocus(GetNextDlgTabItem(window, control, GetKeyState(VK_SHIFT) < 0));
        return 0;
    }
    if (message == WM_KEYDOWN && closes) {
        PostMessageW(window, WM_CLOSE, 0, 0);
        return 0;
    }
    if (message == WM_CHAR && (wParam == VK_TAB || closes)) return 0; // no beep
    return DefSubclassProc(control, message, wParam, lParam);
}

// The window's property that holds the font made for it.
constexpr wchar_t fontOfTool[] = L"Lumascan.font";

LRESULT CALLBACK toolWindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_COMMAND:
        onToolCommand(opaque(window), LOWORD(wParam));
        if (toolTakesKeys(opaque(window))) SetFocus(window); // the button has it after a click
        return 0;
    case WM_NOTIFYFORMAT:
        return NFR_UNICODE;
    case WM_NOTIFY:
        return onTable(window, lParam);
    case WM_KEYDOWN:
        onToolKey(opaque(window), wParam);
        return 0;
    case WM_ERASEBKGND:
        if (isScaled(window)) return 1;
        break;
    case WM_PAINT: {
        if (isScaled(window)) {
            onToolPaint(opaque(window));
            paintScaled(window);
            return 0;
        }
        const LRESULT result = DefWindowProcW(window, message, wParam, lParam);
        onToolPaint(opaque(window));
        return result;
    }
    case WM_RBUTTONDOWN:
        eraseScaled(window);
        InvalidateRect(window, nullptr, TRUE);
        break;
    case WM_CTLCOLORSTATIC:
        if (HBRUSH background =
                labelBackground(reinterpret_cast<HWND>(lParam), reinterpret_cast<HDC>(wParam)))
            return reinterpret_cast<LRESULT>(background);
        break;
    case WM_CLOSE:
        onToolClose(opaque(window));
        return 0;
    case WM_DESTROY:
        drawUnscaled(window);
        if (HANDLE font = RemovePropW(window, fontOfTool)) DeleteObject(font);
        forgetTool(opaque(window));
        break;
    default:
        break;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

struct ToolControlClass {
    const wchar_t* name;
    DWORD style;
};

static ToolControlClass classOf(ToolControl::Kind kind) {
    switch (kind) {
    case ToolControl::Kind::Edit:
        return {L"EDIT", WS_TABSTOP | WS_BORDER | ES_AUTOHSCROLL};
    case ToolControl::Kind::Button:
        return {L"BUTTON", WS_TABSTOP | BS_PUSHBUTTON};
    case ToolControl::Kind::Check:
        return {L"BUTTON", WS_TABSTOP | BS_AUTOCHECKBOX};
    case ToolControl::Kind::PictureTable:
        return {WC_LISTVIEWW, WS_TABSTOP | WS_BORDER | LVS_REPORT | LVS_OWNERDATA | LVS_SINGLESEL |
                                  LVS_SHOWSELALWAYS};
    case ToolControl::Kind::Table:
        return {WC_LISTVIEWW, WS_TABSTOP | WS_BORDER | LVS_REPORT | LVS_OWNERDATA | LVS_SINGLESEL |
                                  LVS_SHOWSELALWAYS | LVS_NOSORTHEADER};
    case ToolControl::Kind::Label:
        break;
    }
    return {L"STATIC", SS_LEFT | SS_CENTERIMAGE};
}

// "name:width" each, with blanks between them.
static void makeColumns(HWND table, const char* columns, double factor) {
    ListView_SetExtendedListViewStyle(table, LVS_EX_FULLROWSELECT | LVS_EX_GRIDLINES);
    std::istringstream words(columns);
    int index = 0;
    for (std::string word; words >> word; ++index) {
        const size_t colon = word.find(':');
        std::string name = word.substr(0, colon);
        LVCOLUMNA column{};
        column.mask = LVCF_TEXT | LVCF_WIDTH;
        column.pszText = name.data();
        column.cx = scaled(Extent{std::stoi(word.substr(colon + 1)), 0}, factor).width;
        SendMessageA(table, LVM_INSERTCOLUMNA, static_cast<WPARAM>(index),
                     reinterpret_cast<LPARAM>(&column));
    }
}

static HWND createControl(HWND window, const ToolControl& control, double factor, HFONT font) {
    const ToolControlClass kind = classOf(control.kind);
    const ScreenArea at =
        scaled(ScreenArea{control.x, control.y, control.width, control.height}, factor);
    HWND made = CreateWindowExW(0, kind.name, L"", WS_CHILD | WS_VISIBLE | kind.style, at.left,
                                at.top, at.width, at.height, window,
                                reinterpret_cast<HMENU>(static_cast<INT_PTR>(control.id)),
                                GetModuleHandleW(nullptr), nullptr);
    SendMessageW(made, WM_SETFONT, reinterpret_cast<WPARAM>(font), FALSE);
    using enum ToolControl::Kind;
    if (control.kind == Table || control.kind == PictureTable)
        makeColumns(made, control.text, factor);
    else
        SetWindowTextA(made, control.text);
    if (control.kind == PictureTable) // the table destroys it
        ListView_SetImageList(made, ImageList_Create(rowPicturePx, rowPicturePx, ILC_COLOR, 1, 1),
                              LVSIL_SMALL);
    if (control.kind != Label) SetWindowSubclass(made, controlProcedure, 1, 0);
    return made;
}

// Scales and places a new window, as the main window is; returns its scale.
static double fitTool(HWND window, Extent outer) {
    if (!windowsAreScaled()) return 1.0;
    const OwnScale scale = scaleOwnWindow(window, outer);
    const ScreenArea place =
        movedInto(screensForWindows().front(),
                  {areaOf(window).left, areaOf(window).top, scale.outer.width, scale.outer.height});
    SetWindowPos(window, nullptr, place.left, place.top, place.width, place.height,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    scaleDrawingBy(window, scale.factor);
    if (HFONT font = makeFont(scale.factor)) SetPropW(window, fontOfTool, font);
    // What is drawn on it must not lie over its controls.
    SetWindowLongPtrW(window, GWL_STYLE, GetWindowLongPtrW(window, GWL_STYLE) | WS_CLIPCHILDREN);
    return scale.factor;
}

WindowHandle createToolWindow(const wchar_t* title, int left, const ToolControl* controls,
                              int count, WindowHandle* edits, int width, int height) {
    constexpr int top = 100;
    HWND window = CreateWindowExW(
        WS_EX_TOOLWINDOW, L"IV", title, WS_POPUP | WS_CAPTION | WS_SYSMENU, left, top, width,
        height, native(windows.main), nullptr, GetModuleHandleW(nullptr), nullptr);
    if (!window) return nullptr;
    const double factor = fitTool(window, {width, height});
    auto* const made = static_cast<HFONT>(GetPropW(window, fontOfTool));
    HFONT font = made ? made : static_cast<HFONT>(GetStockObject(DEFAULT_GUI_FONT));
    const WindowHandle* const firstEdit = edits;
    for (const ToolControl* control = controls; control != controls + count; ++control) {
        HWND child = createControl(window, *control, factor, font);
        if (control->kind == ToolControl::Kind::Edit) *edits++ = opaque(child);
    }
    ShowWindow(window, SW_SHOW);
    UpdateWindow(window);
    SetFocus(firstEdit ? native(*firstEdit) : window);
    return opaque(window);
}

static HWND toolItem(WindowHandle window, int id) {
    return window ? GetDlgItem(native(window), id) : nullptr;
}

void setToolText(WindowHandle window, int id, const char* text) {
    if (HWND item = toolItem(window, id)) SetWindowTextA(item, text);
}

void showToolControl(WindowHandle window, int id, bool shown) {
    if (HWND item = toolItem(window, id)) ShowWindow(item, shown ? SW_SHOW : SW_HIDE);
}

void checkInTool(WindowHandle window, int id, bool checked) {
    if (window) CheckDlgButton(native(window), id, checked ? BST_CHECKED : BST_UNCHECKED);
}

bool isCheckedInTool(WindowHandle window, int id) {
    return window && IsDlgButtonChecked(native(window), id) == BST_CHECKED;
}

void fillToolTable(WindowHandle window, int id, int rows, int selected) {
    HWND table = toolItem(window, id);
    if (!table) return;
    ListView_SetItemCountEx(table, rows, LVSICF_NOSCROLL);
    ListView_SetItemState(table, -1, 0, LVIS_SELECTED | LVIS_FOCUSED);
    if (selected >= 0) {
        ListView_SetItemState(table, selected, LVIS_SELECTED | LVIS_FOCUSED,
                              LVIS_SELECTED | LVIS_FOCUSED);
        ListView_EnsureVisible(table, selected, FALSE);
    }
    InvalidateRect(table, nullptr, FALSE);
}

int selectedInToolTable(WindowHandle window, int id) {
    HWND table = toolItem(window, id);
    return table ? ListView_GetNextItem(table, -1, LVNI_SELECTED) : -1;
}

void raiseToolWindow(WindowHandle window) {
    SetForegroundWindow(native(window));
}

void destroyToolWindow(WindowHandle window) {
    if (window) DestroyWindow(native(window));
}
