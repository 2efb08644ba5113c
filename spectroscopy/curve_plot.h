// The plot of a measured curve, at a fixed place of a window.
#pragma once

#include "platform/surface.h"

// Draws the points first .. end - 1 into 400 x 300 pixels at (10, 10), scaled to these points, with
// the last point's coordinates and the extremes as text. Successive calls draw in blue and red in
// turn. Returns 1.
int plotCurve(WindowHandle window, const float* xs, const float* ys, int first, int end);

// The same in that colour; the turn stays whose it was.
void drawCurve(WindowHandle window, const float* xs, const float* ys, int first, int end,
               Colour colour);
