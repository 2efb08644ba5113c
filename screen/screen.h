// What the core asks of the program's windows: texts, radio buttons, the live-view timer, the
// picture windows. Provided by the real windows in the program and by memory in the tests.
#pragma once

#include "platform/window_handle.h"

#include <string>

// The windows that exist once; null until created. Message boxes are owned by the main window.
struct Windows {
    WindowHandle main = nullptr;
    WindowHandle map = nullptr;      // class "Kestrel": the photocurrent map
    WindowHandle confocal = nullptr; // class "CFI": the confocal maps
};
extern Windows windows;

enum class Field {
    Information, // status line 1, the camera's messages
    Progress,    // status line 2
    Time,
    Remaining, // below it
    PositionX,
    PositionY,
    PositionZ,
    MeasuredValue,
    Red,
    Green,
    Blue,
    Gain,
    Exposure,
    ScanStep,
    LaserIntensity,
    UnitLabel,
    StartButton,
    PauseButton,
};

// Does nothing before the main window exists, nor from another thread than the windows'.
void setField(Field field, const char* text);

// The field's first `capacity` - 1 characters.
std::string fieldText(Field field, int capacity);

inline void showInformation(const char* text) {
    setField(Field::Information, text);
}
inline void showProgress(const char* text) {
    setField(Field::Progress, text);
}

// Checks one button of the main window's group first..last and unchecks the others.
void checkRadio(int first, int last, int checked);

// Of the main window's control with that id.
void showMainControl(int id, bool shown);
bool isMainControl(WindowHandle window, int id);

// Toggles the check mark of the menu item `id`; returns whether it is now checked.
bool toggleCheckMark(int id);

void focusMainWindow();

// Whether the main window is scaled so that the screen holds it; it is not before the first call.
// Called with true before the main window exists, the windows are also drawn in the screen's own
// pixels, where Windows otherwise stretches them. False when their text is stretched until the next
// start.
bool fitToScreen(bool fitted);
void setMainTitle(const char* text); // not from another thread than the windows'

// Whether a box, a dialog, a menu or the mouse at its frame holds it: it takes no commands then.
bool mainWindowIsHeld();

// A process' progress on the taskbar's button, 0..100 per cent; below 0 none. Nothing happens where
// there is no taskbar.
void showTaskbarProgress(int percent);

// The timers of the main window, by their numbers: they tick wherever messages are dispatched, also
// while a box is open.
enum class Timer : unsigned {
    LiveView = 1,
    Journal = 2,
    Board = 3,
    Scans = 4, // while those of KST_Data are listed
    Door = 5,
};
void startTimer(Timer timer, unsigned periodMs);
void stopTimer(Timer timer);

// Registers the four window classes; returns the result of the last registration.
int registerWindowClasses();

// Creates, shows and updates the main window with its control column; 0 when that failed.
int createMainWindow(int showCommand);
void destroyMainWindow();

// A notice while the devices are being connected. The resources may hold no such dialog: then
// nothing appears, and that is no error.
void showStartupNotice();
void closeStartupNotice();

// Until closeStartupNotice: one line in a small window of its own, painted at once, so that a
// search that blocks for seconds is not taken for a program that does not start.
void showAtStartup(const char* text);

// The About box.
void showAbout();

// The page of the devices, to be read and closed; lines end at a line feed.
void showDevices(const char* text);

// Creates the window where it is not there yet, places it (screen pixels, outer size) and shows it.
void placeMapWindow(int x, int y, int width, int height);
void placeConfocalWindow(int x, int y, int width, int height);

// A control of a tool window; client pixels.
struct ToolControl {
    // A table's text are its columns, "name:width" each with blanks between them; what stands in it
    // it asks by onToolTable. The rows of a PictureTable begin with the small picture that it asks
    // for by onToolPicture; it tells of headings that are pressed and rows that are opened.
    enum class Kind { Label, Edit, Button, Check, Table, PictureTable };
    Kind kind;
    const char* text;
    int x, y, width, height;
    int id = 0;
};

// Creates and shows a tool window (class "IV") owned by the main window, at (`left`, 100) of the
// screen, outer size in pixels; its edits go into `edits` in their order, and the first of them has
// the focus. Null on failure. Its commands come to onToolCommand, its close to onToolClose.
WindowHandle createToolWindow(const wchar_t* title, int left, const ToolControl* controls,
                              int count, WindowHandle* edits, int width = 500, int height = 435);
void destroyToolWindow(WindowHandle window);

// Of the control with that id.
void setToolText(WindowHandle window, int id, const char* text);
void showToolControl(WindowHandle window, int id, bool shown);
void checkInTool(WindowHandle window, int id, bool checked);
bool isCheckedInTool(WindowHandle window, int id);

// A table has so many rows now, and all of them may be others; one is selected, -1: none.
void fillToolTable(WindowHandle window, int id, int rows, int selected);
int selectedInToolTable(WindowHandle window, int id); // -1: none
void raiseToolWindow(WindowHandle window);            // to the front, to type into

// The text of any window, up to `capacity` - 1 characters; nothing for null.
std::string windowText(WindowHandle window, int capacity);
void setWindowText(WindowHandle window, const char* text);

// For up to ten typed characters and the terminator.
constexpr int editCapacity = 11;

// Lets a window paint what waits to be painted, before its content is copied or drawn over.
void paintPending(WindowHandle window);
