// The fixed column of controls at the right of the main window.
#pragma once

#include "ui/fit.h"

#include <windows.h>

// Creates the controls as children of `window`; their texts come from fillControlColumn.
void createControlColumn(HWND window);

// Places the controls and gives them a font for that scale.
void layOutControlColumn(const Fit& fit);

// Answers WM_CTLCOLORSTATIC: labels and radio buttons lie on the window's own background, and what
// only shows a value stays grey. Null where the system's choice is right.
HBRUSH labelBackground(HWND control, HDC context);

// The controls are gone with their window: texts are no longer written.
void forgetControlColumn();
