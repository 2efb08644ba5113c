// The window class of the point measurements' tool windows.
#pragma once

#include <windows.h>

LRESULT CALLBACK toolWindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
