// The window "Profile": the values of a map along a line.
#pragma once

#include "mapping/map_profile.h"
#include "platform/window_handle.h"

// Shows it, in place of the one before.
void showProfile(const MapProfile& profile);

// What its tool window does; see ui/tool_windows.h.
bool isProfileWindow(WindowHandle window);
void onProfileCommand(int id);
void paintProfile();
void forgetProfile();
