// What mouse and cursor do in a map's window while no process runs: they read the map, and steer on
// it. In a process a click is the question whether to stop it, and nothing else.
#pragma once

#include "platform/window_handle.h"

// A drag with the left button chooses the next scan area, one with the right button draws a
// profile.
enum class MapButton { Left, Right };

// Pixels of the window's client area, from the top left.
void onMapMouseMove(WindowHandle window, int x, int y, bool leftHeld, bool rightHeld);
void onMapLeave(WindowHandle window);
void onMapButtonDown(WindowHandle window, MapButton button, int x, int y);
void onMapButtonUp(WindowHandle window, MapButton button, int x, int y);
void onMapDoubleClick(WindowHandle window, int x, int y);

// Behind a repaint: what is being drawn on the map is drawn again.
void onMapPainted(WindowHandle window);

// The cursor's value and cross are gone, and what was being drawn is forgotten.
void leaveMap();
