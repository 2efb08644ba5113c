// The main window: its class, its procedure, and what the core asks of it as a whole.
#include "window/main_window.h"

#include "ui/tool_windows.h"
#include "window/control_column.h"
#include "window/fit_window.h"
#include "window/picture_windows.h"
#include "window/tool_window_class.h"

#include "platform/messages.h"
#include "platform/win32/handles.h"
#include "platform/win32/scaled_view.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/set_up.h"
#include "ui/commands.h"
#include "ui/fit_option.h"
#include "ui/objective.h"

#include <shobjidl.h>
#include <windowsx.h>

// Null again once the window is destroyed, so that what the exit sequence still says goes nowhere.
Windows windows;

// A screen lower than the window must not shrink it: the picture and the column have fixed sizes.
static void allowFullSize(MINMAXINFO& limits) {
    limits.ptMaxTrackSize = {SHRT_MAX, SHRT_MAX};
}

// What an edit tells its parent while the operator clicks and types in it is no command.
static bool isEditNotice(WPARAM wParam, LPARAM lParam) {
    return lParam != 0 && HIWORD(wParam) >= EN_SETFOCUS;
}

// A drag that leaves the window still ends with its button up. The button is up already when the
// click was held back by a question; a capture would then swallow the next click.
static void captureHeldMouse(HWND window) {
    if (GetKeyState(VK_LBUTTON) < 0) SetCapture(window);
}

// Its objectives may be others than at the last time.
static void fillObjectiveMenu(HMENU menu) {
    if (GetMenuItemID(menu, 0) != idObjective) return;
    while (DeleteMenu(menu, 0, MF_BYPOSITION)) {
    }
    UINT_PTR id = idObjective;
    for (const std::string& name : objectiveNames())
        AppendMenuA(menu, MF_STRING, id++, name.c_str());
    const UINT inUse = idObjective + static_cast<UINT>(setUp.objectiveInUse) - 1;
    CheckMenuRadioItem(menu, idObjective, static_cast<UINT>(id) - 1, inUse, MF_BYCOMMAND);
}

static void checkFitItem(HMENU menu) {
    CheckMenuItem(menu, idFitToScreen, fitIsOn() ? MF_CHECKED : MF_UNCHECKED);
}

static void paint(HWND window) {
    if (isScaled(window)) return paintScaled(window);
    PAINTSTRUCT painting;
    BeginPaint(window, &painting);
    EndPaint(window, &painting);
    onPaint();
}

// Leaves the picture. The context is the one that it is painted with next.
static LRESULT eraseBeside(HWND window, HDC context) {
    const int before = SaveDC(context);
    sparePicture(window, context);
    const LRESULT done =
        DefWindowProcW(window, WM_ERASEBKGND, reinterpret_cast<WPARAM>(context), 0);
    RestoreDC(context, before);
    return done;
}

// Where the mouse is, in the picture's pixels.
static PixelPoint picturePoint(LPARAM position) {
    return mainFit().toPicture({GET_X_LPARAM(position), GET_Y_LPARAM(position)});
}

static LRESULT CALLBACK mainWindowProcedure(HWND window, UINT message, WPARAM wParam,
                                            LPARAM lParam) {
    switch (message) {
    case WM_CREATE:
        windows.main = opaque(window);
        createControlColumn(window);
        fillControlColumn();
        return 0;
    case WM_COMMAND:
        if (!isEditNotice(wParam, lParam)) onCommand(LOWORD(wParam));
        return 0;
    case WM_INITMENUPOPUP:
        fillObjectiveMenu(reinterpret_cast<HMENU>(wParam));
        checkFitItem(reinterpret_cast<HMENU>(wParam));
        return 0;
    case WM_TIMER:
        onTimer(static_cast<Timer>(wParam));
        return 0;
    case WM_KEYDOWN:
        onKeyDown(wParam);
        return 0;
    case WM_KEYUP:
        onKeyUp();
        return 0;
    case WM_MOUSEMOVE:
        onMouseMove(picturePoint(lParam).x, picturePoint(lParam).y, (wParam & MK_LBUTTON) != 0);
        return 0;
    case WM_LBUTTONDOWN:
        focusMainWindow();
        captureHeldMouse(window);
        onLeftButtonDown(picturePoint(lParam).x, picturePoint(lParam).y);
        return 0;
    case WM_LBUTTONUP:
        ReleaseCapture();
        onLeftButtonUp(picturePoint(lParam).x, picturePoint(lParam).y);
        return 0;
    case WM_PAINT:
        paint(window);
        return 0;
    case WM_ERASEBKGND:
        return eraseBeside(window, reinterpret_cast<HDC>(wParam));
    case WM_SIZE:
        refit(window);
        return 0;
    case WM_EXITSIZEMOVE:
    case WM_DISPLAYCHANGE:
    case WM_SETTINGCHANGE:
        refitToScreen(window);
        return DefWindowProcW(window, message, wParam, lParam);
    case WM_DPICHANGED:
        refitToDpi(window, wParam, lParam);
        return 0;
    case WM_CTLCOLORSTATIC:
        if (HBRUSH background =
                labelBackground(reinterpret_cast<HWND>(lParam), reinterpret_cast<HDC>(wParam))) {
            return reinterpret_cast<LRESULT>(background);
        }
        return DefWindowProcW(window, message, wParam, lParam);
    case WM_GETMINMAXINFO:
        allowFullSize(*reinterpret_cast<MINMAXINFO*>(lParam));
        return 0;
    case WM_CLOSE:
        onClose();
        return 0;
    case WM_ENDSESSION: // the system ends the program right after this
        if (wParam) onSessionEnd();
        return 0;
    case WM_POWERBROADCAST:
        if (wParam == PBT_APMSUSPEND) onSuspend();
        if (wParam == PBT_APMRESUMEAUTOMATIC) onResume(); // whoever woke it
        return TRUE;
    case WM_DESTROY:
        windows.main = nullptr;
        drawUnscaled(window);
        forgetControlColumn();
        PostQuitMessage(0);
        return 0;
    default:
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

static int registerWindowClass(const wchar_t* name, WNDPROC procedure, const wchar_t* menu,
                               UINT style = 0) {
    HINSTANCE program = GetModuleHandleW(nullptr);
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.style = CS_HREDRAW | CS_VREDRAW | style;
    windowClass.lpfnWndProc = procedure;
    windowClass.hInstance = program;
    windowClass.hIcon = LoadIconW(program, MAKEINTRESOURCEW(idIcon));
    windowClass.hIconSm = windowClass.hIcon;
    windowClass.hCursor = LoadCursorW(nullptr, MAKEINTRESOURCEW(32512)); // the arrow
    windowClass.hbrBackground = reinterpret_cast<HBRUSH>(INT_PTR{COLOR_WINDOW + 1});
    windowClass.lpszMenuName = menu;
    windowClass.lpszClassName = name;
    return RegisterClassExW(&windowClass);
}

int registerWindowClasses() {
    registerWindowClass(L"LUMA", mainWindowProcedure, MAKEINTRESOURCEW(idMenu));
    registerWindowClass(L"Kestrel", pictureWindowProcedure, nullptr, CS_DBLCLKS);
    registerWindowClass(L"CFI", pictureWindowProcedure, nullptr, CS_DBLCLKS);
    return registerWindowClass(L"IV", toolWindowProcedure, nullptr);
}

int createMainWindow(int showCommand) {
    restoreFit();
    HWND window = CreateWindowExW(0, L"LUMA", L"Lumascan", WS_OVERLAPPEDWINDOW, 0, 0,
                                  mainWindowSize.width, mainWindowSize.height, nullptr, nullptr,
                                  GetModuleHandleW(nullptr), nullptr);
    if (!window) return 0;
    if (windowsAreScaled()) fitMainWindow(window);
    ShowWindow(window, showCommand);
    UpdateWindow(window);
    return 1;
}

void destroyMainWindow() {
    if (windows.main) DestroyWindow(native(windows.main));
}

void checkRadio(int first, int last, int checked) {
    if (windows.main) CheckRadioButton(native(windows.main), first, last, checked);
}

void showMainControl(int id, bool shown) {
    if (HWND control = windows.main ? GetDlgItem(native(windows.main), id) : nullptr)
        ShowWindow(control, shown ? SW_SHOW : SW_HIDE);
}

bool isMainControl(WindowHandle window, int id) {
    return windows.main && window && native(window) == GetDlgItem(native(windows.main), id);
}

bool toggleCheckMark(int id) {
    if (!windows.main) return false;
    HMENU menu = GetMenu(native(windows.main));
    const UINT item = static_cast<UINT>(id);
    bool checked = (GetMenuState(menu, item, MF_BYCOMMAND) & MF_CHECKED) == 0;
    CheckMenuItem(menu, item, MF_BYCOMMAND | (checked ? MF_CHECKED : MF_UNCHECKED));
    return checked;
}

void focusMainWindow() {
    // Whoever types into a tool window goes on typing there, whatever its measurement switches.
    if (windows.main && !isToolWindow(opaque(GetActiveWindow()))) SetFocus(native(windows.main));
}

bool mainWindowIsHeld() {
    if (!windows.main) return true;
    GUITHREADINFO state{};
    state.cbSize = sizeof state;
    constexpr DWORD modes =
        GUI_INMENUMODE | GUI_INMOVESIZE | GUI_POPUPMENUMODE | GUI_SYSTEMMENUMODE;
    const bool inMode = GetGUIThreadInfo(GetCurrentThreadId(), &state) && (state.flags & modes);
    return inMode || !IsWindowEnabled(native(windows.main));
}

void setMainTitle(const char* text) {
    if (windows.main && onWindowThread()) SetWindowTextA(native(windows.main), text);
}

// From the first use to the program's end; null where the system has no taskbar.
static ITaskbarList3* taskbar() {
    static ITaskbarList3* const list = [] {
        ITaskbarList3* made = nullptr;
        // What runs on this thread may have its own idea of COM: only a failure matters.
        const HRESULT begun = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        static_cast<void>(begun);
        if (FAILED(CoCreateInstance(CLSID_TaskbarList, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_PPV_ARGS(&made))))
            return static_cast<ITaskbarList3*>(nullptr);
        if (SUCCEEDED(made->HrInit())) return made;
        made->Release();
        return static_cast<ITaskbarList3*>(nullptr);
    }();
    return list;
}

void showTaskbarProgress(int percent) {
    static int shown = -1; // a scan tells it at each point, and it changes a hundred times
    if (percent == shown || !windows.main || !onWindowThread() || !taskbar()) return;
    shown = percent;
    HWND window = native(windows.main);
    taskbar()->SetProgressState(window, percent < 0 ? TBPF_NOPROGRESS : TBPF_NORMAL);
    if (percent >= 0) taskbar()->SetProgressValue(window, static_cast<ULONGLONG>(percent), 100);
}

void startTimer(Timer timer, unsigned periodMs) {
    if (windows.main)
        SetTimer(native(windows.main), static_cast<UINT_PTR>(timer), periodMs, nullptr);
}

void stopTimer(Timer timer) {
    if (windows.main) KillTimer(native(windows.main), static_cast<UINT_PTR>(timer));
}

static HWND startupNotice = nullptr;

static INT_PTR CALLBACK noticeProcedure(HWND, UINT message, WPARAM, LPARAM) {
    return message == WM_INITDIALOG ? TRUE : FALSE;
}

void showStartupNotice() {
    startupNotice = CreateDialogParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(idStartupNotice),
                                       nullptr, noticeProcedure, 0);
    if (startupNotice) ShowWindow(startupNotice, SW_SHOW);
}

static HWND startupLine = nullptr;

void closeStartupNotice() {
    for (HWND* each : {&startupNotice, &startupLine}) {
        if (*each) DestroyWindow(*each);
        *each = nullptr;
    }
}

void showAtStartup(const char* text) {
    if (!startupLine) {
        constexpr int width = 640, height = 48;
        startupLine = CreateWindowExW(
            WS_EX_TOOLWINDOW | WS_EX_NOACTIVATE, L"STATIC", L"",
            WS_POPUP | WS_BORDER | SS_CENTER | SS_CENTERIMAGE | SS_NOPREFIX,
            (GetSystemMetrics(SM_CXSCREEN) - width) / 2, GetSystemMetrics(SM_CYSCREEN) / 4, width,
            height, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
        if (!startupLine) return;
        SendMessageW(startupLine, WM_SETFONT,
                     reinterpret_cast<WPARAM>(GetStockObject(DEFAULT_GUI_FONT)), FALSE);
        ShowWindow(startupLine, SW_SHOWNOACTIVATE);
    }
    SetWindowTextA(startupLine, text);
    UpdateWindow(startupLine);
}

static INT_PTR CALLBACK aboutProcedure(HWND dialog, UINT message, WPARAM wParam, LPARAM) {
    if (message == WM_INITDIALOG) return TRUE;
    if (message != WM_COMMAND) return FALSE;
    if (LOWORD(wParam) != IDOK && LOWORD(wParam) != IDCANCEL) return FALSE;
    EndDialog(dialog, LOWORD(wParam));
    return TRUE;
}

static std::string withWindowsLineEnds(const char* text) {
    std::string lines;
    for (; *text; ++text) lines += *text == '\n' ? std::string("\r\n") : std::string(1, *text);
    return lines;
}

static INT_PTR CALLBACK devicesProcedure(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_INITDIALOG) {
        const auto columns = reinterpret_cast<WPARAM>(GetStockObject(ANSI_FIXED_FONT));
        SendDlgItemMessageW(dialog, idDevicesText, WM_SETFONT, columns, FALSE);
        SetDlgItemTextA(dialog, idDevicesText, reinterpret_cast<const char*>(lParam));
        return TRUE;
    }
    if (message != WM_COMMAND) return FALSE;
    if (LOWORD(wParam) != IDOK && LOWORD(wParam) != IDCANCEL) return FALSE;
    EndDialog(dialog, LOWORD(wParam));
    return TRUE;
}

void showDevices(const char* text) {
    const std::string lines = withWindowsLineEnds(text);
    DialogBoxParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(idDevicesDialog),
                    native(windows.main), devicesProcedure,
                    reinterpret_cast<LPARAM>(lines.c_str()));
}

void showAbout() {
    DialogBoxParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(idAboutDialog),
                    native(windows.main), aboutProcedure, 0);
}
