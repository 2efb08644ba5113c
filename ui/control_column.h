// The fixed column of controls at the right of the main window.
#pragma once

#include <windows.h>

// Creates the controls as children of `window`; their texts come from fillControlColumn.
void createControlColumn(HWND window);

// The controls are gone with their window: texts are no longer written.
void forgetControlColumn();
