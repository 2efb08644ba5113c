// "Continue last scan": the picture that a scan kept of its place beside the present one, so that
// the operator brings the stage back there, and says that it stands there.
#pragma once

#include "platform/window_handle.h"

#include <cstdint>

// Opens the window over the latest scan that was cut off, in the sample view; a word in the
// information text when there is none, or no row of it is missing. Nothing moves by itself.
void openContinueWindow();

// --- For the tool windows ------------------------------------------------------------------------

bool isContinueWindow(WindowHandle window);

// A button of the window, or a command of the main window that a key gave here. "Continue" closes
// the window and goes on with the scan; without both pictures it asks first.
void onContinueCommand(int id);

void paintContinueWindow();

// The window is gone; the journal stays.
void forgetContinueWindow();
