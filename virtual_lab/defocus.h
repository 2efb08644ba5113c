// The sample as the camera sees it out of focus.
#pragma once

#include <cstdint>
#include <vector>

// Reflectances of a picture, 255 for 1, smoothed by a Gaussian: kept on a grid that is as coarse as
// the smoothness allows, and drawn out again line by line.
struct DefocusedSample {
    int left = 0, bottom = 0; // the picture's corner, pixels from the sample's (0, 0)
    double sigma = 0;         // of the Gaussian, pixels; 0: nothing is kept yet
    int doublings = 0;        // side of the grid's cells: 2 to the power of this, pixels
    int stride = 0;           // cells from one row to the next
    std::vector<float> grid;  // red, green, blue; from the lower left
};

// `sigma` at least 1 pixel. The same place and the same sigma as before cost nothing.
void defocusSample(DefocusedSample& sample, int left, int bottom, double sigma);

// The two raw lines of a picture row (from the bottom): R G R G ... and G B G B ...
void defocusedRow(const DefocusedSample& sample, int row, uint8_t* upper, uint8_t* lower);
