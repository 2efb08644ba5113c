// The wide view: nine neighbouring camera fields side by side in place of the camera picture.
#pragma once

#include "platform/window_handle.h"
#include "session/outcome.h"

#include <cstdint>

// Draws the picture reduced by `factor` as the tile at `column` and `row` (from the bottom).
// Returns 1, or 0 when no bitmap could be made.
int drawWideTile(WindowHandle window, const uint8_t* pixels, int column, int row, int factor);

// Visits the nine fields around the present stage position, draws their tiles and comes back. A
// stop ends it early; fields that the stage cannot reach stay black; a way back that fails is said
// in the information text.
Outcome imageWideView();

int wideViewImaging(); // the same; returns 1

// What the last wide view showed, drawn again with its scale bar.
void drawWideView();

// The picture on the screen is the camera's own again.
void leaveWideView();

// Whether the stage has left the place around which the last wide view was taken.
bool wideViewIsElsewhere();

void releaseWideView();
