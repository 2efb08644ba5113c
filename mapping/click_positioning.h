// Uses the picture as a map of the sample: a click brings the clicked point to the beam.
#pragma once

#include "mapping/sample_place.h"

// Asks whether the laser spot is where the operator clicked, at (x, y) in window pixels; on Yes the
// spot's place and the scan's geometry are set. Clicks outside the picture are ignored, and so are
// those on the wide view, which does not show the spot.
void pickLaserSpot(int x, int y);

// Asks whether the point clicked at (x, y), window pixels, is to come to the picture's centre (Yes)
// or under the laser spot (No), and moves the stage. Clicks outside the picture are ignored; both
// ends 1232 and 1028 count as inside.
void moveToClickedPoint(int x, int y);

// Asks whether a point of the sample is to come under the laser spot, and moves the stage as a
// click does. Beyond a limit of the set-up it says so instead.
void moveToPlace(const SamplePlace& place);
