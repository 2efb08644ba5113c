// The control column: what stands where, the edits that answer to Enter and Escape, and the texts.
#include "window/control_column.h"

#include "motion/stage.h"
#include "platform/messages.h"
#include "platform/win32/handles.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "ui/commands.h"
#include "window/fit_window.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

enum class Kind {
    Button,
    HiddenButton,
    PushLike,
    Radio,
    Label,
    Edit,
    EditClientEdge,
    EditBorderless,
    Lines,
    Notice
};

// Whether the operator types into an edit or only reads it.
enum class Use { Input, Output };

constexpr int noField = -1;

struct Control {
    int id;
    Kind kind;
    const wchar_t* caption;
    int x, y, width, height; // client pixels of the main window
    int field = noField;     // the Field whose text the control shows
    Use use = Use::Output;
};

constexpr int shows(Field field) {
    return static_cast<int>(field);
}

// In order of creation.
static const Control controls[] = {
    {idStart, Kind::Button, L"Start", 1262, 10, 70, 40, shows(Field::StartButton)},
    {idPause, Kind::HiddenButton, L"Pause", 1342, 10, 70, 40, shows(Field::PauseButton)},
    {idLabel, Kind::Label, L"Video", 1262, 60, 40, 20},
    {idLiveOn, Kind::Radio, L"On", 1332, 60, 40, 20},
    {idLiveOff, Kind::Radio, L"Off", 1382, 60, 40, 20},
    {idWideView, Kind::PushLike, L"Wide View", 1262, 90, 150, 25},
    {idLabel, Kind::Label, L"illuminate", 1262, 125, 65, 20},
    {idIlluminationOn, Kind::Radio, L"On", 1332, 125, 40, 20},
    {idIlluminationOff, Kind::Radio, L"Off", 1382, 125, 40, 20},
    {idLabel, Kind::Label, L"Laser", 1262, 155, 65, 20},
    {idLaserOn, Kind::Radio, L"On", 1332, 155, 40, 20},
    {idLaserOff, Kind::Radio, L"Off", 1382, 155, 40, 20},
    {idLabel, Kind::Label, L"Laser Intensity(uA)", 1262, 185, 125, 20},
    {idLaserIntensity, Kind::Edit, L"", 1397, 185, 40, 20, shows(Field::LaserIntensity),
     Use::Input},
    {idFocus, Kind::PushLike, L"Focus", 1262, 225, 45, 25},
    {idLaserView, Kind::Radio, L"Laser", 1307, 225, 57, 25},
    {idSampleView, Kind::Radio, L"Sample", 1364, 225, 67, 25},
    {idReadPositions, Kind::PushLike, L"Position(um)", 1242, 260, 85, 20},
    {idLabel, Kind::Label, L"Z", 1332, 260, 10, 20},
    {idPositionZ, Kind::Edit, L"", 1344, 260, 65, 20, shows(Field::PositionZ), Use::Input},
    {idFocusUp, Kind::Button, L"+", 1414, 255, 15, 20},
    {idFocusDown, Kind::Button, L"-", 1414, 270, 15, 20},
    {idFocusUpFast, Kind::Button, L"+", 1429, 250, 15, 25},
    {idFocusDownFast, Kind::Button, L"-", 1429, 270, 15, 25},
    {idLabel, Kind::Label, L"X", 1257, 285, 10, 20},
    {idPositionX, Kind::Edit, L"", 1269, 285, 60, 20, shows(Field::PositionX), Use::Input},
    {idLabel, Kind::Label, L"Y", 1334, 285, 10, 20},
    {idPositionY, Kind::Edit, L"", 1346, 285, 60, 20, shows(Field::PositionY), Use::Input},
    {idLabel, Kind::Label, L"Scan Step", 1262, 315, 90, 20},
    {0, Kind::EditClientEdge, L"", 1352, 315, 40, 20, shows(Field::ScanStep), Use::Input},
    {idLabel, Kind::Label, L"um", 1399, 315, 25, 20},
    {idLabel, Kind::Label, L"Information", 1262, 338, 75, 20},
    {idLabel, Kind::Lines, L"", 1262, 360, 170, 40, shows(Field::Information)},
    {idLabel, Kind::Label, L"Progress", 1262, 420, 75, 20},
    {idProgress, Kind::Edit, L"", 1262, 445, 170, 20, shows(Field::Progress)},
    {idLabel, Kind::Label, L"Time/estimated", 1262, 480, 100, 20},
    {idTime, Kind::Edit, L"", 1262, 505, 170, 20, shows(Field::Time)},
    {idLabel, Kind::Notice, L"", 1262, 527, 180, 30, shows(Field::Remaining)},
    {idShowMap, Kind::Button, L"PC map", 1262, 560, 70, 40},
    {idLabel, Kind::Label, L"I_ph (uA)", 1342, 560, 70, 20, shows(Field::UnitLabel)},
    {0, Kind::Edit, L"", 1342, 580, 70, 20, shows(Field::MeasuredValue)},
    {idShowConfocal, Kind::Button, L"Confocal", 1262, 610, 70, 40},
    {idLabel, Kind::Label, L"R", 1342, 610, 20, 20},
    {idLabel, Kind::Label, L"G", 1377, 610, 20, 20},
    {idLabel, Kind::Label, L"B", 1412, 610, 20, 20},
    {0, Kind::EditBorderless, L"", 1342, 630, 35, 20, shows(Field::Red)},
    {0, Kind::EditBorderless, L"", 1377, 630, 35, 20, shows(Field::Green)},
    {0, Kind::EditBorderless, L"", 1412, 630, 35, 20, shows(Field::Blue)},
    {idLabel, Kind::Label, L"Camera Control", 1262, 665, 100, 20},
    {idCameraAuto, Kind::Button, L"Auto", 1372, 665, 40, 20},
    {idGain, Kind::Label, L"Gain", 1262, 685, 50, 20},
    {idExposure, Kind::Label, L"Expo.", 1322, 685, 50, 20},
    {0, Kind::Edit, L"", 1262, 710, 50, 20, shows(Field::Gain), Use::Input},
    {0, Kind::Edit, L"", 1322, 710, 55, 20, shows(Field::Exposure), Use::Input},
};

constexpr size_t fieldCount = static_cast<size_t>(Field::PauseButton) + 1;
static std::array<HWND, fieldCount> fieldWindows; // null while there is no column

static HWND controlWindows[std::size(controls)]; // in their order
static HFONT madeFont = nullptr;                 // null: the system's

struct KeyedEdit {
    Field field;
    void (*enter)();
    void (*escape)(); // null: Escape does nothing
    WNDPROC previous = nullptr;
};

static KeyedEdit keyedEdits[] = {
    {Field::LaserIntensity, enterLaserIntensity, focusMainWindow},
    {Field::PositionZ, enterPositionZ, refreshPositions},
    {Field::PositionX, enterPositionX, refreshPositions},
    {Field::PositionY, enterPositionY, refreshPositions},
    {Field::ScanStep, enterScanStep, nullptr},
    {Field::Gain, enterGain, nullptr},
    {Field::Exposure, enterExposure, nullptr},
};

static LRESULT CALLBACK keyedEditProcedure(HWND window, UINT message, WPARAM wParam,
                                           LPARAM lParam) {
    auto& edit = *reinterpret_cast<KeyedEdit*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (message == WM_KEYDOWN && wParam == VK_RETURN) edit.enter();
    if (message == WM_KEYDOWN && wParam == VK_ESCAPE && edit.escape) edit.escape();
    return CallWindowProcW(edit.previous, window, message, wParam, lParam);
}

static void answerKeys(KeyedEdit& edit) {
    HWND window = fieldWindows[static_cast<size_t>(edit.field)];
    if (!window) return;
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&edit));
    edit.previous = reinterpret_cast<WNDPROC>(
        SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&keyedEditProcedure)));
}

struct WindowKind {
    const wchar_t* className;
    DWORD style;
    DWORD extendedStyle;
};

static WindowKind windowKind(const Control& control) {
    constexpr DWORD child = WS_CHILD | WS_VISIBLE;
    // A single line scrolls, so that more can be typed than fits.
    const DWORD line = child | ES_AUTOHSCROLL |
                       (control.use == Use::Output ? DWORD{ES_READONLY} : DWORD{WS_TABSTOP});
    switch (control.kind) {
    case Kind::Button:
        return {L"BUTTON", child | WS_TABSTOP | BS_PUSHBUTTON, 0};
    case Kind::HiddenButton:
        return {L"BUTTON", WS_CHILD | WS_TABSTOP | BS_PUSHBUTTON, 0};
    case Kind::PushLike:
        return {L"BUTTON", child | WS_TABSTOP | BS_PUSHLIKE, 0};
    case Kind::Radio: // no stop for Tab
        return {L"BUTTON", child | BS_RADIOBUTTON, 0};
    case Kind::Edit:
        return {L"EDIT", line | WS_BORDER, 0};
    case Kind::EditClientEdge:
        return {L"EDIT", line, WS_EX_CLIENTEDGE};
    case Kind::EditBorderless:
        return {L"EDIT", line, 0};
    case Kind::Lines:
        return {L"EDIT", child | WS_BORDER | ES_MULTILINE | ES_READONLY | ES_AUTOVSCROLL, 0};
    case Kind::Notice: // wraps
        return {L"STATIC", child | SS_LEFT, 0};
    case Kind::Label:
        break;
    }
    return {L"STATIC", child | SS_LEFT | SS_CENTERIMAGE, 0};
}

static bool isEdit(HWND control) {
    wchar_t className[8] = L"";
    GetClassNameW(control, className, 8);
    return lstrcmpiW(className, L"EDIT") == 0;
}

static void setFont(HWND control, HFONT font) {
    const LPARAM margins = MAKELPARAM(1, 1); // pixels; the longest texts just fit
    SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(font), FALSE);
    if (isEdit(control))
        SendMessageW(control, EM_SETMARGINS, EC_LEFTMARGIN | EC_RIGHTMARGIN, margins);
}

void createControlColumn(HWND window) {
    const auto font = static_cast<HFONT>(GetStockObject(DEFAULT_GUI_FONT));
    HWND* place = controlWindows;
    for (const Control& control : controls) {
        WindowKind kind = windowKind(control);
        HWND made = CreateWindowExW(kind.extendedStyle, kind.className, control.caption, kind.style,
                                    control.x, control.y, control.width, control.height, window,
                                    reinterpret_cast<HMENU>(static_cast<INT_PTR>(control.id)),
                                    GetModuleHandleW(nullptr), nullptr);
        *place++ = made;
        setFont(made, font);
        if (control.field != noField) fieldWindows[static_cast<size_t>(control.field)] = made;
    }
    for (KeyedEdit& edit : keyedEdits) answerKeys(edit);
}

void layOutControlColumn(const Fit& fit) {
    HFONT made = makeFont(fit.column);
    HFONT font = made ? made : static_cast<HFONT>(GetStockObject(DEFAULT_GUI_FONT));
    for (size_t i = 0; i < std::size(controls); ++i) {
        const Control& control = controls[i];
        const ScreenArea at = fit.place({control.x, control.y, control.width, control.height});
        SetWindowPos(controlWindows[i], nullptr, at.left, at.top, at.width, at.height,
                     SWP_NOZORDER | SWP_NOACTIVATE);
        setFont(controlWindows[i], font);
    }
    if (madeFont) DeleteObject(madeFont); // nobody has it any more
    madeFont = made;
}

HBRUSH labelBackground(HWND control, HDC context) {
    if (isEdit(control)) return nullptr;
    SetBkColor(context, GetSysColor(COLOR_WINDOW));
    return GetSysColorBrush(COLOR_WINDOW);
}

void forgetControlColumn() {
    fieldWindows.fill(nullptr);
    std::fill(std::begin(controlWindows), std::end(controlWindows), nullptr);
}

std::string windowText(WindowHandle window, int capacity) {
    std::string text(static_cast<size_t>(capacity), '\0');
    int length = GetWindowTextA(native(window), text.data(), capacity);
    text.resize(static_cast<size_t>(length));
    return text;
}

void setWindowText(WindowHandle window, const char* text) {
    if (window) SetWindowTextA(native(window), text);
}

std::string fieldText(Field field, int capacity) {
    return windowText(opaque(fieldWindows[static_cast<size_t>(field)]), capacity);
}

// A report may be longer than the box: then it can be scrolled.
static void scrollLongText(HWND lines) {
    constexpr LRESULT visibleLines = 2;
    // The bar takes a part of the lines' width; showing and hiding it is slow.
    static HWND scrolled = nullptr;
    if (scrolled == lines) ShowScrollBar(lines, SB_VERT, FALSE);
    scrolled = SendMessageW(lines, EM_GETLINECOUNT, 0, 0) > visibleLines ? lines : nullptr;
    if (scrolled) ShowScrollBar(lines, SB_VERT, TRUE);
}

void setField(Field field, const char* text) {
    HWND window = fieldWindows[static_cast<size_t>(field)];
    if (!window || !onWindowThread()) return;
    // The live view writes its texts ten times a second; the same text again would only flicker.
    auto length = static_cast<int>(std::strlen(text));
    if (GetWindowTextLengthA(window) == length && fieldText(field, length + 1) == text) return;
    SetWindowTextA(window, text);
    if (field == Field::Information) scrollLongText(window);
}
