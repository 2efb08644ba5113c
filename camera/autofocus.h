// Brings the surface into the laser's focus: sweeps the focus axis down past the sharpest spot,
// each sweep finer than the last.
#pragma once

#include "camera/spot.h"

#include <cstdint>
#include <string>

struct FocusState {
    char text[100] = {};                             // the status line of the sweep
    int32_t level = 0;                               // of the sweep, 0 (coarsest) to 6
    bool completed = false;                          // the search has found the focus
    int32_t found = 0;                               // 1 when the last sweep found a peak
    PicturePoint blueCentre, redCentre, greenCentre; // of the three measuring squares
    int32_t pixelCount = 0;                          // summed for one channel
    std::string lastWords; // how the search ended, as the operator was told
    std::string trouble;   // why Z did not go where the search sent it; at a limit it goes on
    float blueMean = 0.0f, redMean = 0.0f, greenMean = 0.0f;
};

// How sharp the laser spot is in the present picture: the mean brightness of 200 x 200 pixels
// around it, each weighted by the inverse square of its distance, over all three channels. Shows
// it.
float focusFactor(FocusState& state);

// The level, 0 to 6, whose sweep suits the present picture.
float focusLevel(FocusState& state);

// Mean of |f[k] - f[k - 1]| over k = 1 .. n - 1; 0 when n < 2. The noise of a focus curve.
float meanStepChange(const float* f, uint32_t n);

// One sweep at the state's level; leaves the next level there. Returns `found`. A step that does
// not arrive ends it, and is the state's trouble.
int focusSweep(FocusState& state);

// Sweeps until the spot is sharp, no peak is found or the level no longer rises. Illumination and
// live view are off meanwhile. Returns 0 when stopped by the operator, otherwise 1; the information
// text says whether the focus was reached.
int autoFocus(FocusState& state);
