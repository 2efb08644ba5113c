// Uses the picture as a map of the sample: a click brings the clicked point to the beam.
#pragma once

// Asks whether the point clicked at (x, y), window pixels, is to come to the picture's centre (Yes)
// or under the laser spot (No), and moves the stage. Clicks outside the picture are ignored; both
// ends 1232 and 1028 count as inside.
void moveToClickedPoint(int x, int y);
