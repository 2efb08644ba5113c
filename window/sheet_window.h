// The property sheet as the dialogs' functions see it.
#pragma once

#include <windows.h>

// The control with that id on any of its pages; null when there is none.
HWND sheetItem(int id);
