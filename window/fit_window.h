// The scale of the program's windows, as ui/fit.h has it for the screen that each of them is on.
#pragma once

#include "ui/fit.h"

#include <windows.h>

// False while the windows have their own pixels: then nothing here does anything.
bool windowsAreScaled();

// The main window's.
const Fit& mainFit();

// Sizes the main window for its screen and scales what is in it.
void fitMainWindow(HWND window);

// Messages of the main window. Its size is another one; the screens are others, or it lies on
// another one; and WM_DPICHANGED.
void refit(HWND window);
void refitToScreen(HWND window);
void refitToDpi(HWND window, WPARAM wParam, LPARAM lParam);

// Of another window of the program, with that outer size at 96 dpi: its scale and outer size now.
struct OwnScale {
    double factor = 1.0;
    Extent outer;
};
OwnScale scaleOwnWindow(HWND window, Extent outer);

// Its client area is shown in that scale. True when what was drawn there must be drawn again.
bool scaleDrawingBy(HWND window, double factor);

// On the screen, where the main window's picture ends.
int rightOfMainPicture();

// The work areas: of the main window's screen, and of those to its right and then the others.
std::vector<ScreenArea> screensForWindows();
ScreenArea areaOf(HWND window);

// A font of 8 points for windows in that scale, to be deleted; null where the system's has its
// size.
HFONT makeFont(double factor);
