// The window "Places": the remembered places of the stage, and the focus plane made of them.
#pragma once

#include "platform/window_handle.h"

#include <string>

// Opens it, or brings it to the front.
void openPlacesWindow();

// Remembers where the stage stands, under a name to be changed, and opens the window.
void rememberPlace();

bool isPlacesWindow(WindowHandle window);
void onPlacesCommand(int id);
void onPlacesSelection();
std::string placesCell(int row, int column);
void paintPlacesWindow();
void forgetPlacesWindow();
