// The tool windows as the system sees them. What the measurements draw there is not drawn again.
#include "window/tool_window_class.h"

#include "platform/win32/handles.h"
#include "screen/screen.h"
#include "ui/tool_windows.h"
#include "window/control_column.h"

LRESULT CALLBACK toolWindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_COMMAND:
        onToolCommand(opaque(window), LOWORD(wParam));
        if (toolTakesKeys(opaque(window))) SetFocus(window); // the button has it after a click
        return 0;
    case WM_KEYDOWN:
        onToolKey(opaque(window), wParam);
        return 0;
    case WM_PAINT: {
        const LRESULT result = DefWindowProcW(window, message, wParam, lParam);
        onToolPaint(opaque(window));
        return result;
    }
    case WM_RBUTTONDOWN:
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
    case ToolControl::Kind::Label:
        break;
    }
    return {L"STATIC", SS_LEFT | SS_CENTERIMAGE};
}

static HWND createControl(HWND window, const ToolControl& control) {
    const ToolControlClass kind = classOf(control.kind);
    HWND made = CreateWindowExW(0, kind.name, L"", WS_CHILD | WS_VISIBLE | kind.style, control.x,
                                control.y, control.width, control.height, window,
                                reinterpret_cast<HMENU>(static_cast<INT_PTR>(control.id)),
                                GetModuleHandleW(nullptr), nullptr);
    SendMessageW(made, WM_SETFONT, reinterpret_cast<WPARAM>(GetStockObject(DEFAULT_GUI_FONT)),
                 FALSE);
    SetWindowTextA(made, control.text);
    return made;
}

WindowHandle createToolWindow(const wchar_t* title, int left, const ToolControl* controls,
                              int count, WindowHandle* edits, int width, int height) {
    constexpr int top = 100;
    HWND window = CreateWindowExW(
        WS_EX_TOOLWINDOW, L"IV", title, WS_POPUP | WS_CAPTION | WS_SYSMENU, left, top, width,
        height, native(windows.main), nullptr, GetModuleHandleW(nullptr), nullptr);
    if (!window) return nullptr;
    const WindowHandle* const firstEdit = edits;
    for (const ToolControl* control = controls; control != controls + count; ++control) {
        HWND made = createControl(window, *control);
        if (control->kind == ToolControl::Kind::Edit) *edits++ = opaque(made);
    }
    ShowWindow(window, SW_SHOW);
    UpdateWindow(window);
    SetFocus(firstEdit ? native(*firstEdit) : window);
    return opaque(window);
}

void raiseToolWindow(WindowHandle window) {
    SetForegroundWindow(native(window));
}

void destroyToolWindow(WindowHandle window) {
    if (window) DestroyWindow(native(window));
}
