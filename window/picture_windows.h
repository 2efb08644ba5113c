// The windows of the photocurrent map and of the confocal maps.
#pragma once

#include <windows.h>

// The procedure of all picture windows.
LRESULT CALLBACK pictureWindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
